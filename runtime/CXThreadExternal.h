// The thread object of a thread that the library did not start.
#pragma once

#include "runtime/CXThread.h"

/// Binds the calling thread to a CXThread, so that it has a name, a priority and end callbacks.
/// Made and destroyed on that thread; it counts as not running, and `Start` is not for it.
class CXThreadExternal : public CXThread {
public:
    explicit CXThreadExternal(const CXString& name, int32_t priority = 4);
    /// Runs what is left of the end callbacks.
    ~CXThreadExternal() override;

    void Proc() override {}
    /// Runs the end callbacks, last to first, as a started thread does at its end.
    void EndThread() { RunEndCallbacks(); }
};
