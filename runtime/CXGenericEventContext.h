// Observers of events: handlers that are called when their event holds.
#pragma once

#include "runtime/CXGenericEventRef.h"

#include <functional>

/// A table of handlers that is passed over again and again, on one thread. A handler whose event
/// holds is called; the result 1 keeps it, any other removes it. An event that is gone counts as
/// holding. `target` says whose handler it is; the observer removes its handlers itself, in its
/// destructor at the latest. All operations from any thread, and from within handlers.
class CXGenericEventContext {
public:
    using Callback = int (*)(void* target, void* userData);

    CXGenericEventContext() = default;
    CXGenericEventContext(const CXGenericEventContext&) = delete;
    CXGenericEventContext& operator=(const CXGenericEventContext&) = delete;
    virtual ~CXGenericEventContext() = default;

    /// Appends a handler.
    virtual void AddHandler(CXGenericEventRef ref, void* target, std::function<int()> handler) = 0;
    /// Appends a plain function, unless it is there with the same event, target and user data.
    virtual void AddCallback(CXGenericEventRef ref, void* target, Callback callback,
                             void* userData) = 0;
    /// Removes each entry with that target and that event.
    virtual void RemoveHandlersForEvent(CXGenericEventRef ref, void* target) = 0;
    /// Removes each entry equal in all three.
    virtual void RemoveCallback(void* target, Callback callback, void* userData) = 0;
    /// Removes each entry of that target.
    virtual void RemoveHandlersForTarget(void* target) = 0;
};
