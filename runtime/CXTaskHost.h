// The list of tasks of one thread.
#pragma once

#include "core/CXLock.h"

#include <atomic>
#include <cstdint>
#include <set>
#include <vector>

class CXTask;

/// Steps its tasks in passes. Only the main loop drives a host: it calls `RunTasks` of the calling
/// thread's host after each native message and at least every 10 ms. A host owns no task.
///
/// Lock order: the run lock (held for a whole pass) before the pending lock.
class CXTaskHost {
public:
    CXTaskHost() = default;
    CXTaskHost(const CXTaskHost&) = delete;
    CXTaskHost& operator=(const CXTaskHost&) = delete;
    /// Detaches the tasks of the run list. Tasks that still wait for their first pass are not
    /// visited; destroying a host with such tasks is an error of the caller.
    virtual ~CXTaskHost();

    /// Attaches a task and then its children; any thread, never waits for a pass. Does nothing at
    /// all when the task has a host already. The task first runs in the next pass.
    void AddTask(CXTask* task);
    /// Detaches a task and its children. From another thread it waits for the end of the running
    /// pass, so that the task's `Proc` runs nowhere when it returns; from within a pass it works at
    /// once, and the entry that slides into the gap misses that pass.
    void RemoveTask(CXTask* task);
    /// One pass: takes over the pending tasks in ascending address order, then steps each task
    /// once. Called from within a pass it does nothing.
    void RunTasks();

    /// The host of a thread, made on first use and deleted when that thread's object ends.
    static CXTaskHost* GetForThread(CXThreadId threadId);
    /// Makes the calling thread's host if there is none, and ties it to the end of the thread's
    /// object even if it was made before there was one. Part of start-up.
    static CXTaskHost* BindToCurrentThread();
    /// The host of the calling thread, or of the thread that overrides it.
    static CXTaskHost* GetCurrent();
    /// Lets another thread's host count as the calling thread's; kCXNoThread ends that.
    static void SetCurrentOverride(CXThreadId threadId);

private:
    friend class CXTask;
    void RemoveAlone(CXTask* task);

    static constexpr uint32_t kNotRunning = 0xFFFFFFFF;

    std::vector<CXTask*> m_tasks;
    std::set<CXTask*> m_pending;
    CXCriticalSection m_pendingLock;
    std::atomic<uint32_t> m_runIndex{kNotRunning};
    CXRecursiveLock m_runLock;
};
