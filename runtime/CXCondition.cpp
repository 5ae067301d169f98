#include "runtime/CXCondition.h"

#include <chrono>

CXCondition::~CXCondition() {
    DetachRefs();
}

bool CXCondition::Test() {
    return false;
}

bool CXCondition::TestSince(const int64_t* serial) {
    return m_stamp.load(std::memory_order_relaxed) >= *serial;
}

void CXCondition::Signal() {
    {
        // A pass that begins between taking the serial and storing it would never see the signal;
        // under the event lock such a pass evaluates this event only after the store.
        const CXRecursiveLockGuard guard(GetEventLock());
        m_stamp.store(NextSerial(), std::memory_order_relaxed);
    }
    m_variable.notify_all();
}

bool CXCondition::WaitFor(CXConditionGuard& guard, uint32_t milliseconds) {
    return m_variable.wait_for(guard, std::chrono::milliseconds(milliseconds)) ==
           std::cv_status::no_timeout;
}
