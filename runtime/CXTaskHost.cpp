#include "runtime/CXTaskHost.h"

#include "runtime/CXTask.h"
#include "runtime/CXThread.h"
#include "runtime/CXThreadRecord.h"

#include <algorithm>
#include <map>

namespace {

struct HostRegistry {
    CXCriticalSection lock;
    std::map<CXThreadId, CXTaskHost*> hosts;
};

HostRegistry& GetHostRegistry() {
    static HostRegistry* registry = new HostRegistry; // tasks may be static objects
    return *registry;
}

CXTaskHost* FindOrMake(CXThreadId threadId, bool& made) {
    HostRegistry& registry = GetHostRegistry();
    const CXCriticalSectionGuard guard(registry.lock);
    CXTaskHost*& entry = registry.hosts[threadId];
    made = entry == nullptr;
    if (made) {
        entry = new CXTaskHost;
    }
    return entry;
}

void DeleteHost(CXThreadId threadId) {
    CXTaskHost* host = nullptr;
    {
        HostRegistry& registry = GetHostRegistry();
        const CXCriticalSectionGuard guard(registry.lock);
        const auto found = registry.hosts.find(threadId);
        if (found == registry.hosts.end()) {
            return;
        }
        host = found->second;
        registry.hosts.erase(found);
    }
    delete host;
}

} // namespace

CXTaskHost::~CXTaskHost() {
    while (!m_tasks.empty()) {
        RemoveTask(m_tasks.front());
    }
}

void CXTaskHost::AddTask(CXTask* task) {
    {
        const CXCriticalSectionGuard guard(m_pendingLock);
        CXTaskHost* none = nullptr;
        if (!task->m_host.compare_exchange_strong(none, this, std::memory_order_relaxed)) {
            return;
        }
        m_pending.insert(task);
    }
    for (CXTask* child : task->m_children) {
        AddTask(child);
    }
}

void CXTaskHost::RemoveAlone(CXTask* task) {
    {
        const CXCriticalSectionGuard guard(m_pendingLock);
        CXTaskHost* self = this;
        task->m_host.compare_exchange_strong(self, nullptr, std::memory_order_relaxed);
        m_pending.erase(task);
    }
    {
        const CXRecursiveLockGuard guard(m_runLock);
        // The run index stays: the entry that slides into a gap before it runs on the next pass.
        const auto found = std::find(m_tasks.begin(), m_tasks.end(), task);
        if (found != m_tasks.end()) {
            m_tasks.erase(found);
        }
    }
}

void CXTaskHost::RemoveTask(CXTask* task) {
    RemoveAlone(task);
    for (size_t index = task->m_children.size(); index > 0; --index) {
        RemoveTask(task->m_children[index - 1]);
    }
}

void CXTaskHost::RunTasks() {
    if (m_runIndex.load(std::memory_order_relaxed) != kNotRunning) {
        return;
    }
    const CXRecursiveLockGuard run(m_runLock);
    {
        const CXCriticalSectionGuard guard(m_pendingLock);
        m_tasks.insert(m_tasks.end(), m_pending.begin(), m_pending.end());
        m_pending.clear();
    }
    m_runIndex.store(0, std::memory_order_relaxed);
    for (;;) {
        const uint32_t index = m_runIndex.load(std::memory_order_relaxed);
        if (index >= m_tasks.size()) {
            break;
        }
        CXTask* task = m_tasks[index];
        m_runIndex.store(index + 1, std::memory_order_relaxed);
        task->Proc();
    }
    m_runIndex.store(kNotRunning, std::memory_order_relaxed);
}

CXTaskHost* CXTaskHost::GetForThread(CXThreadId threadId) {
    bool made = false;
    CXTaskHost* host = FindOrMake(threadId, made);
    if (made) {
        // Without a thread object nobody tells of the thread's end, and the host lives on.
        CXThread::AddEndCallbackFor(threadId, [threadId] { DeleteHost(threadId); });
    }
    return host;
}

CXTaskHost* CXTaskHost::BindToCurrentThread() {
    const CXThreadId threadId = CXCurrentThreadId();
    bool made = false;
    CXTaskHost* host = FindOrMake(threadId, made);
    if (CXThread* thread = CXThread::GetCurrent()) {
        thread->AddEndCallback([threadId] { DeleteHost(threadId); });
    }
    return host;
}

CXTaskHost* CXTaskHost::GetCurrent() {
    const CXThreadId overrideId = CXThreadRecord::Get().hostOverride;
    return GetForThread(overrideId != kCXNoThread ? overrideId : CXCurrentThreadId());
}

void CXTaskHost::SetCurrentOverride(CXThreadId threadId) {
    CXThreadRecord::Get().hostOverride = threadId;
}
