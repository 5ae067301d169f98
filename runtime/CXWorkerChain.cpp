#include "runtime/CXWorkerChain.h"

#include <atomic>
#include <utility>

namespace {
std::atomic<uint64_t> g_nextChain{1}; // 0 stands for jobs without a chain
} // namespace

CXWorkerChain::CXWorkerChain(CXWorkerHost& host)
    : m_host(host), m_id(g_nextChain.fetch_add(1, std::memory_order_relaxed)) {}

void CXWorkerChain::Add(std::function<void()> function, int32_t priority) {
    m_host.PostJob(CXWorkerThread(std::move(function), priority, CXWorkerThread::kAnyWorker, m_id));
}
