#include "runtime/CXGenericEventSource.h"

#include "runtime/CXGenericEvent.h"

namespace {
constexpr size_t kGrowStep = 128;
} // namespace

CXGenericEventSource::~CXGenericEventSource() {
    DeleteEvents();
}

CXGenericEvent* CXGenericEventSource::CreateEvent(uint32_t /*number*/) {
    return new CXGenericEvent;
}

CXGenericEventRef CXGenericEventSource::GetEventRef(uint32_t number) {
    const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
    if (number >= m_events.size()) {
        const size_t length = static_cast<size_t>(number) + 1;
        m_events.reserve((length + kGrowStep - 1) / kGrowStep * kGrowStep);
        m_events.resize(length, nullptr);
    }
    if (m_events[number] == nullptr) {
        m_events[number] = CreateEvent(number);
    }
    return CXGenericEventRef(m_events[number]);
}

size_t CXGenericEventSource::GetEventCount() const {
    const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
    return m_events.size();
}

void CXGenericEventSource::DeleteEvents() {
    const CXRecursiveLockGuard guard(CXGenericEvent::GetEventLock());
    for (CXGenericEvent* event : m_events) {
        delete event;
    }
    m_events.clear();
}
