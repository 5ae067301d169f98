// The pool of worker threads and the way back to the main thread.
#pragma once

#include "runtime/CXCondition.h"
#include "runtime/CXEvent.h"
#include "runtime/CXMainJobRelease.h"
#include "runtime/CXSafePointer.h"
#include "runtime/CXTask.h"
#include "runtime/CXThread.h"
#include "runtime/CXWorkerThread.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

/// Runs jobs on four threads, "WorkerThread::0" to "WorkerThread::3", which are started with the
/// first job, and functions on the main thread, in `Proc`, as a task of the main thread's host.
/// Jobs and functions may be posted from any thread. Jobs start in the order of posting; a job that
/// may have to wait for something outside watches `GetCancelEvent`.
class CXWorkerHost : public CXTask {
public:
    static constexpr int32_t kWorkers = 4;

    /// Attaches itself to the main thread's task host.
    CXWorkerHost();
    /// Stops as `RequestStop` does, waits for the jobs that run, drops all others.
    ~CXWorkerHost() override;

    /// Runs what was posted to the main thread before this pass, in order.
    void Proc() override;

    /// Posts a job for any worker; dropped when the host is stopping.
    void PostJob(std::function<void()> function,
                 int32_t priority = CXWorkerThread::kNormalPriority);
    void PostJob(CXWorkerThread job);

    /// Posts a function for the main thread. It is dropped if `owner` dies before its turn comes;
    /// null means that nobody owns it.
    void PostToMain(CXSafePointerTarget* owner, std::function<void()> function);

    /// Lets the main thread run `job` and waits until the token that the job gets is released, so
    /// that a job can put a question to the user and return. False when `stopTest` says true, the
    /// host stops or the token is dropped; a job that has not begun by then never runs. The job
    /// must own what it uses, as the waiter may have left. On the main thread it runs at once and
    /// there is no wait.
    bool RunOnMainAndWait(std::function<void(CXMainJobRelease)> job,
                          const std::function<bool()>& stopTest);

    /// Sets the stop flag and the cancel event; no job is begun any more.
    void RequestStop();
    bool IsStopRequested() const { return m_stopRequested.load(std::memory_order_relaxed); }
    /// Set when the host is asked to stop; transfers of jobs are cancelled by it.
    CXEvent& GetCancelEvent() { return m_cancelEvent; }

    /// Number of worker threads that are up, and of jobs that wait.
    uint32_t CountWorkers();
    size_t CountWaitingJobs();
    /// True while a job of the chain waits or runs.
    bool IsChainBusy(uint64_t chain);

    /// Made on first use.
    static CXWorkerHost* GetSingleton();
    /// Null when it was never used.
    static CXWorkerHost* GetExisting();
    /// Part of the exit clean-up; main thread.
    static void DeleteSingleton();

private:
    class WorkerThread : public CXThread {
    public:
        WorkerThread(CXWorkerHost& host, int32_t index);
        ~WorkerThread() override;
        void Proc() override;

    private:
        CXWorkerHost& m_host;
        const int32_t m_index;
    };
    struct MainJob {
        CXSafePointer<CXSafePointerTarget> owner;
        bool isOwned;
        std::function<void()> function;
    };

    void StopWorkers();
    void RunWorker(WorkerThread& worker, int32_t index);
    bool TakeJob(int32_t worker, std::unique_ptr<CXWorkerThread>& job);

    CXEvent m_cancelEvent;
    std::atomic<bool> m_stopRequested{false};
    CXCondition m_condition; // guards all below
    std::deque<std::unique_ptr<CXWorkerThread>> m_jobs;
    std::map<uint64_t, uint32_t> m_running; // jobs that run now, by chain
    uint32_t m_workersUp = 0;
    std::vector<std::unique_ptr<WorkerThread>> m_workers;
    std::vector<MainJob> m_mainJobs;
};
