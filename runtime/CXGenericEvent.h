// A condition that can be asked whether it holds; the base of everything that can be polled.
#pragma once

#include "core/CXLock.h"
#include "runtime/CXLinkedListNode.h"

#include <cstdint>

class CXGenericEventRef;

/// A polled condition. Observers never hold a pointer to it but a CXGenericEventRef, which survives
/// the event. All links between refs and events, and every evaluation through a ref, happen under
/// one process-wide recursive lock, the event lock. `Test` runs on the polling thread under that
/// lock: it reads atomics and takes no lock that could be held while calling into events.
class CXGenericEvent : public CXNonCopyable {
public:
    CXGenericEvent() = default;
    /// Clears every ref to this event; they answer true from then on.
    virtual ~CXGenericEvent();

    /// Does the condition hold now? The base answers true.
    virtual bool Test();
    /// Has it come about since the pass that began at `*serial`? The base asks `Test`.
    virtual bool TestSince(const int64_t* serial);

    /// The lock over all events and refs of the process. Never destroyed.
    static CXRecursiveLock& GetEventLock();
    /// Raises the process-wide event serial by one and gives the new value (the first one is 1).
    static int64_t NextSerial();

protected:
    /// Clears every ref. A derived class whose `Test` reads its own members calls this first in its
    /// destructor, so that no polling thread is inside `Test` while the members die.
    void DetachRefs();

private:
    friend class CXGenericEventRef;
    CXLinkedList<CXGenericEventRef> m_refs;
};
