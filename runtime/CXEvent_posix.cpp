#include "core/CXLock.h"
#include "runtime/CXEvent.h"

#include <chrono>
#include <condition_variable>

struct CXEvent::Platform {
    CXCriticalSection lock;
    std::condition_variable variable;
    bool isSet = false;
};

CXEvent::CXEvent() : m_platform(std::make_unique<Platform>()) {}

CXEvent::~CXEvent() {
    DetachRefs();
    // The setter whose wake-up let the owner come here may still be inside `Set`.
    const CXCriticalSectionGuard guard(m_platform->lock);
}

bool CXEvent::Test() {
    const CXCriticalSectionGuard guard(m_platform->lock);
    return m_platform->isSet;
}

void CXEvent::Set() {
    const CXCriticalSectionGuard guard(m_platform->lock);
    m_platform->isSet = true;
    m_platform->variable.notify_all();
}

void CXEvent::Reset() {
    const CXCriticalSectionGuard guard(m_platform->lock);
    m_platform->isSet = false;
}

bool CXEvent::Wait(uint32_t milliseconds) {
    std::unique_lock<CXCriticalSection> guard(m_platform->lock);
    const auto isSet = [this] { return m_platform->isSet; };
    if (milliseconds == kForever) {
        m_platform->variable.wait(guard, isSet);
        return true;
    }
    return m_platform->variable.wait_for(guard, std::chrono::milliseconds(milliseconds), isSet);
}
