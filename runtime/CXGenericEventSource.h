// Base of objects that hand out numbered events.
#pragma once

#include "core/CXLock.h"
#include "runtime/CXGenericEventRef.h"

#include <cstdint>
#include <vector>

class CXGenericEvent;

/// Makes an event for a number on first demand and keeps it. Streams and threads derive from it and
/// say what their numbers mean. The events belong to the source. Any thread may ask for events; the
/// array is guarded by the event lock.
class CXGenericEventSource : public CXNonCopyable {
public:
    CXGenericEventSource() = default;
    /// Deletes the events, first to last.
    virtual ~CXGenericEventSource();

    /// Makes the event of a number, or answers null for none. The base makes a plain event, which
    /// is always true. Called under the event lock; the caller owns the result.
    virtual CXGenericEvent* CreateEvent(uint32_t number);

    /// Reference to the event of a number, made on first use; empty if `CreateEvent` gave null.
    CXGenericEventRef GetEventRef(uint32_t number);

    /// Length of the array of events (for tests).
    size_t GetEventCount() const;

protected:
    /// Deletes the events early. A derived class whose events read its members calls this first in
    /// its destructor.
    void DeleteEvents();

private:
    std::vector<CXGenericEvent*> m_events;
};
