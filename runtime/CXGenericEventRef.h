// Reference to a CXGenericEvent that outlives it.
#pragma once

#include "core/CXLock.h"
#include "runtime/CXLinkedListNode.h"

#include <cstdint>

class CXGenericEvent;

/// Points to an event, or to nothing. A ref that never had an event, or whose event is gone,
/// answers true: this is how an observer learns that the observed thing has gone. Any thread; one
/// ref object is not to be changed by two threads at once.
class CXGenericEventRef : public CXLinkedListNode<CXGenericEventRef>, public CXNonCopyable {
public:
    CXGenericEventRef();
    explicit CXGenericEventRef(CXGenericEvent* event);
    CXGenericEventRef(const CXGenericEventRef& other);
    CXGenericEventRef& operator=(const CXGenericEventRef& other);
    virtual ~CXGenericEventRef();

    /// Lets go of the event.
    void Clear();
    /// True when there is no event, else the event's answer.
    bool Test() const;
    bool TestSince(const int64_t* serial) const;

    bool HasEvent() const;
    /// True if both point to the same event, or both to none.
    bool IsSameEvent(const CXGenericEventRef& other) const;

private:
    friend class CXGenericEvent;
    void Attach(CXGenericEvent* event); // under the event lock, with no event set

    CXGenericEvent* m_event = nullptr;
};
