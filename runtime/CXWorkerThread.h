// One job for the worker threads.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

/// A function that the worker host runs once on one of its threads.
class CXWorkerThread {
public:
    static constexpr int32_t kAnyWorker = -1;
    static constexpr int32_t kNormalPriority = 4;

    /// `priority` as for CXThread::SetPriority; `worker` is the index of the only thread that may
    /// run the job, or kAnyWorker; jobs of one `chain` other than 0 run one at a time.
    explicit CXWorkerThread(std::function<void()> function, int32_t priority = kNormalPriority,
                            int32_t worker = kAnyWorker, uint64_t chain = 0)
        : m_function(std::move(function)), m_priority(priority), m_worker(worker), m_chain(chain) {}

    void Run() { m_function(); }
    int32_t GetPriority() const { return m_priority; }
    int32_t GetWorker() const { return m_worker; }
    uint64_t GetChain() const { return m_chain; }

private:
    std::function<void()> m_function;
    int32_t m_priority;
    int32_t m_worker;
    uint64_t m_chain;
};
