#include "runtime/CXGenericEventRef.h"

#include "runtime/CXGenericEvent.h"

CXGenericEventRef::CXGenericEventRef() : CXLinkedListNode<CXGenericEventRef>(this) {}

CXGenericEventRef::CXGenericEventRef(CXGenericEvent* event)
    : CXLinkedListNode<CXGenericEventRef>(this) {
    const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
    Attach(event);
}

CXGenericEventRef::CXGenericEventRef(const CXGenericEventRef& other)
    : CXLinkedListNode<CXGenericEventRef>(this), CXNonCopyable() {
    const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
    Attach(other.m_event);
}

CXGenericEventRef& CXGenericEventRef::operator=(const CXGenericEventRef& other) {
    if (this != &other) {
        const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
        Clear();
        Attach(other.m_event);
    }
    return *this;
}

CXGenericEventRef::~CXGenericEventRef() {
    Clear();
}

void CXGenericEventRef::Clear() {
    const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
    m_event = nullptr;
    Unlink();
}

bool CXGenericEventRef::Test() const {
    const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
    return m_event == nullptr || m_event->Test();
}

bool CXGenericEventRef::TestSince(const int64_t* serial) const {
    const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
    return m_event == nullptr || m_event->TestSince(serial);
}

bool CXGenericEventRef::HasEvent() const {
    const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
    return m_event != nullptr;
}

bool CXGenericEventRef::IsSameEvent(const CXGenericEventRef& other) const {
    const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
    return m_event == other.m_event;
}

void CXGenericEventRef::Attach(CXGenericEvent* event) {
    m_event = event;
    if (event != nullptr) {
        LinkFirst(event->m_refs);
    }
}
