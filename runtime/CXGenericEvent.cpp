#include "runtime/CXGenericEvent.h"

#include "runtime/CXGenericEventRef.h"

#include <atomic>

namespace {
std::atomic<int64_t> g_serial{0};
} // namespace

CXGenericEvent::~CXGenericEvent() {
    DetachRefs();
}

bool CXGenericEvent::Test() {
    return true;
}

bool CXGenericEvent::TestSince(const int64_t* /*serial*/) {
    return Test();
}

CXRecursiveLock& CXGenericEvent::GetEventLock() {
    // Refs and events may be static objects of any file, so the lock must outlive them all.
    static CXRecursiveLock* lock = new CXRecursiveLock;
    return *lock;
}

int64_t CXGenericEvent::NextSerial() {
    return g_serial.fetch_add(1, std::memory_order_relaxed) + 1;
}

void CXGenericEvent::DetachRefs() {
    const CXRecursiveLockGuard guard(GetEventLock());
    while (!m_refs.IsEmpty()) {
        m_refs.GetHead()->GetSelf()->Clear();
    }
}
