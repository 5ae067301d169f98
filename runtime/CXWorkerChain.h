// A sequence of worker jobs, one after the other.
#pragma once

#include "runtime/CXWorkerHost.h"

#include <cstdint>
#include <functional>

/// Jobs added to one chain run in the order of adding and never two at once, each on any worker.
/// The chain may go before its jobs. Any thread.
class CXWorkerChain {
public:
    explicit CXWorkerChain(CXWorkerHost& host);

    void Add(std::function<void()> function, int32_t priority = CXWorkerThread::kNormalPriority);
    /// True while a job of the chain waits or runs.
    bool IsBusy() const { return m_host.IsChainBusy(m_id); }

private:
    CXWorkerHost& m_host;
    const uint64_t m_id;
};
