#include "runtime/CXWorkerHost.h"

#include "core/BlockAlloc.h"
#include "runtime/CXTaskHost.h"

#include <chrono>
#include <utility>

namespace {

constexpr int64_t kCacheReleaseMs = 15000;
constexpr uint32_t kStopTestIntervalMs = 20;
constexpr int32_t kIdlePriority = 0;

CXCriticalSection g_singletonSection;
CXWorkerHost* g_singleton = nullptr;

int64_t GetSteadyMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

CXWorkerHost::WorkerThread::WorkerThread(CXWorkerHost& host, int32_t index)
    : CXThread(CXString::Format("WorkerThread::%d", index)), m_host(host), m_index(index) {}

CXWorkerHost::WorkerThread::~WorkerThread() {
    CXThread::Stop();
}

void CXWorkerHost::WorkerThread::Proc() {
    m_host.RunWorker(*this, m_index);
}

CXWorkerHost::CXWorkerHost() : CXTask("CXWorkerHost") {
    CXTaskHost::GetForThread(CXThread::GetMainThreadId())->AddTask(this);
}

CXWorkerHost::~CXWorkerHost() {
    Detach();
    StopWorkers();
}

void CXWorkerHost::StopWorkers() {
    RequestStop();
    std::vector<std::unique_ptr<WorkerThread>> workers;
    {
        const CXConditionGuard guard(m_condition.GetLock());
        workers.swap(m_workers);
    }
    for (const auto& worker : workers) {
        worker->RequestStop();
    }
    {
        const CXConditionGuard guard(m_condition.GetLock());
        m_condition.Signal();
    }
    workers.clear();
}

void CXWorkerHost::Proc() {
    std::vector<MainJob> jobs;
    {
        const CXConditionGuard guard(m_condition.GetLock());
        jobs.swap(m_mainJobs);
    }
    for (MainJob& job : jobs) {
        if (!job.isOwned || job.owner.IsSet()) {
            job.function();
        }
        job.function = nullptr;
    }
}

void CXWorkerHost::PostJob(std::function<void()> function, int32_t priority) {
    PostJob(CXWorkerThread(std::move(function), priority));
}

void CXWorkerHost::PostJob(CXWorkerThread job) {
    auto owned = std::make_unique<CXWorkerThread>(std::move(job));
    const CXConditionGuard guard(m_condition.GetLock());
    if (IsStopRequested()) {
        return;
    }
    m_jobs.push_back(std::move(owned));
    if (m_workers.empty()) {
        for (int32_t index = 0; index < kWorkers; ++index) {
            m_workers.push_back(std::make_unique<WorkerThread>(*this, index));
            m_workers.back()->Start();
        }
    }
    m_condition.Signal();
}

void CXWorkerHost::PostToMain(CXSafePointerTarget* owner, std::function<void()> function) {
    const CXConditionGuard guard(m_condition.GetLock());
    m_mainJobs.push_back({.owner = CXSafePointer<CXSafePointerTarget>(owner),
                          .isOwned = owner != nullptr,
                          .function = std::move(function)});
}

bool CXWorkerHost::RunOnMainAndWait(std::function<void(CXMainJobRelease)> job,
                                    const std::function<bool()>& stopTest) {
    const auto shouldStop = [&] { return IsStopRequested() || (stopTest && stopTest()); };
    if (shouldStop()) {
        return false;
    }
    auto ticket = std::make_shared<CXMainJobRelease::Ticket>();
    if (CXThread::IsMainThread()) {
        job(CXMainJobRelease(ticket));
    } else {
        PostToMain(nullptr, [token = CXMainJobRelease(ticket), run = std::move(job)] {
            if (token.IsWanted()) {
                run(token);
            }
        });
        while (!ticket->done.Wait(kStopTestIntervalMs) && !shouldStop()) {
        }
    }
    ticket->left.store(true, std::memory_order_release);
    return ticket->released.load(std::memory_order_acquire);
}

void CXWorkerHost::RequestStop() {
    std::deque<std::unique_ptr<CXWorkerThread>> dropped; // destroyed outside the lock
    {
        const CXConditionGuard guard(m_condition.GetLock());
        m_stopRequested.store(true, std::memory_order_relaxed);
        dropped.swap(m_jobs);
        m_condition.Signal();
    }
    // Last: a job that this wakes leaves a worker that must find nothing more to begin.
    m_cancelEvent.Set();
}

uint32_t CXWorkerHost::CountWorkers() {
    const CXConditionGuard guard(m_condition.GetLock());
    return m_workersUp;
}

size_t CXWorkerHost::CountWaitingJobs() {
    const CXConditionGuard guard(m_condition.GetLock());
    return m_jobs.size();
}

bool CXWorkerHost::IsChainBusy(uint64_t chain) {
    const CXConditionGuard guard(m_condition.GetLock());
    if (m_running.find(chain) != m_running.end()) {
        return true;
    }
    for (const auto& job : m_jobs) {
        if (job->GetChain() == chain) {
            return true;
        }
    }
    return false;
}

bool CXWorkerHost::TakeJob(int32_t worker, std::unique_ptr<CXWorkerThread>& job) {
    for (const int32_t wanted : {worker, CXWorkerThread::kAnyWorker}) {
        for (auto place = m_jobs.begin(); place != m_jobs.end(); ++place) {
            const uint64_t chain = (*place)->GetChain();
            const bool isHeldBack = chain != 0 && m_running.find(chain) != m_running.end();
            if ((*place)->GetWorker() == wanted && !isHeldBack) {
                job = std::move(*place);
                m_jobs.erase(place);
                ++m_running[chain];
                return true;
            }
        }
    }
    return false;
}

void CXWorkerHost::RunWorker(WorkerThread& worker, int32_t index) {
    int64_t lastFinished = GetSteadyMs();
    bool cacheHeld = false;
    CXConditionGuard guard(m_condition.GetLock());
    ++m_workersUp;
    while (!worker.IsStopRequested()) {
        std::unique_ptr<CXWorkerThread> job;
        if (TakeJob(index, job)) {
            const uint64_t chain = job->GetChain();
            guard.unlock();
            worker.SetPriority(job->GetPriority());
            job->Run();
            job.reset();
            guard.lock();
            const auto running = m_running.find(chain);
            if (--running->second == 0) {
                m_running.erase(running);
            }
            lastFinished = GetSteadyMs();
            cacheHeld = true;
            if (chain != 0) {
                m_condition.Signal(); // the chain's next job is free for any worker
            }
            continue;
        }
        worker.SetPriority(kIdlePriority);
        const int64_t idleMs = GetSteadyMs() - lastFinished;
        if (cacheHeld && idleMs > kCacheReleaseMs) {
            BlockAlloc::ReleaseThreadCache();
            cacheHeld = false;
        }
        if (cacheHeld) {
            m_condition.WaitFor(guard, static_cast<uint32_t>(kCacheReleaseMs - idleMs + 1));
        } else {
            m_condition.Wait(guard);
        }
    }
    --m_workersUp;
}

CXWorkerHost* CXWorkerHost::GetSingleton() {
    const CXCriticalSectionGuard guard(g_singletonSection);
    if (g_singleton == nullptr) {
        g_singleton = new CXWorkerHost;
    }
    return g_singleton;
}

CXWorkerHost* CXWorkerHost::GetExisting() {
    const CXCriticalSectionGuard guard(g_singletonSection);
    return g_singleton;
}

void CXWorkerHost::DeleteSingleton() {
    // Jobs that are still under way may ask for the singleton, and must not be given a new one.
    CXWorkerHost* host = GetExisting();
    if (host == nullptr) {
        return;
    }
    host->StopWorkers();
    {
        const CXCriticalSectionGuard guard(g_singletonSection);
        g_singleton = nullptr;
    }
    delete host;
}
