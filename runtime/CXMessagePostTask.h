// The message queue of the main thread.
#pragma once

#include "runtime/CXMessagePost.h"
#include "runtime/CXTask.h"

/// Delivers its messages in task passes.
class CXMessagePostTask : public CXTask, public CXMessagePost {
public:
    explicit CXMessagePostTask(const CXString& name) : CXTask(name) {}
    ~CXMessagePostTask() override { Detach(); }

    void Proc() override { DeliverDue(); }

    /// Made on first use and attached to the main thread's host.
    static CXMessagePost* GetMainThreadSingleton();
    /// Part of shut-down; messages that wait are dropped.
    static void DeleteMainThreadSingleton();
};
