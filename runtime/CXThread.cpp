#include "runtime/CXThread.h"

#include "runtime/CXGenericEventKinds.h"
#include "runtime/CXThreadPlatform.h"
#include "runtime/CXThreadRecord.h"

#include <map>
#include <utility>

namespace {

/// All running threads. The lock is taken last, save for a thread's list of end callbacks.
struct Registry {
    CXCriticalSection lock;
    CXLinkedList<CXThread> threads;
    std::map<CXThreadId, CXThread*> byId;
    std::atomic<CXThreadId> mainThread{CXCurrentThreadId()};
    std::atomic<CXThread::EventHook> hook{nullptr};
};

Registry& GetRegistry() {
    // Static objects may own threads, so the registry is never destroyed.
    static Registry* registry = new Registry;
    return *registry;
}

// Made while the static objects are, so that the first "main thread" is the one that runs them.
[[maybe_unused]] const Registry& g_madeEarly = GetRegistry();

void CallHook(int started, const CXString& name) {
    const CXThread::EventHook hook = GetRegistry().hook.load(std::memory_order_relaxed);
    if (hook != nullptr) {
        hook(started, name.GetData());
    }
}

} // namespace

CXThreadRecord& CXThreadRecord::Get() {
    static thread_local CXThreadRecord record;
    return record;
}

CXThread::CXThread(const CXString& name) : m_name(name) {}

CXThread::~CXThread() {
    DeleteEvents();
    CXThread::Stop();
}

CXGenericEvent* CXThread::CreateEvent(uint32_t number) {
    switch (number) {
    case kEventStopRequested:
        return new CXGenericEventBoolVariable(&m_stopRequested, false);
    case kEventNotRunning:
        return new CXGenericEventBoolVariable(&m_running, true);
    case kEventRunning:
        return new CXGenericEventBoolVariable(&m_running, false);
    default:
        return new CXGenericEvent;
    }
}

void CXThread::Start() {
    CXConditionGuard guard(m_condition.GetLock());
    if (!IsRunning()) {
        JoinPlatformThread(guard);
    }
    if (IsRunning()) {
        return;
    }
    m_stopRequested.store(false, std::memory_order_relaxed);
    m_running.store(true, std::memory_order_release);
    CXThreadId id = 0;
    m_hasHandle = CXThreadPlatform::Create(Entry, this, m_stackSize, m_handle, id);
    if (m_hasHandle) {
        m_threadId.store(id, std::memory_order_relaxed);
    } else {
        m_running.store(false, std::memory_order_release);
    }
    m_condition.Signal();
}

void CXThread::Stop() {
    CXConditionGuard guard(m_condition.GetLock());
    if (IsRunning()) {
        m_stopRequested.store(true, std::memory_order_relaxed);
        m_condition.WakeAll();
        while (IsRunning() && IsStopRequested()) {
            m_condition.Wait(guard);
        }
    }
    if (!IsRunning()) {
        JoinPlatformThread(guard);
    }
}

void CXThread::RequestStop() {
    const CXConditionGuard guard(m_condition.GetLock());
    if (IsRunning()) {
        m_stopRequested.store(true, std::memory_order_relaxed);
        m_condition.WakeAll();
    }
}

void CXThread::JoinPlatformThread(CXConditionGuard& guard) {
    if (!m_hasHandle) {
        return;
    }
    const uintptr_t handle = m_handle;
    m_hasHandle = false;
    // The thread has said that it ended and needs this lock no more, but may not have left yet.
    guard.unlock();
    CXThreadPlatform::Join(handle);
    guard.lock();
}

void CXThread::Entry(void* self) {
    static_cast<CXThread*>(self)->Run();
}

void CXThread::Run() {
    {
        // Start holds the lock until every field is set.
        const CXConditionGuard gate(m_condition.GetLock());
    }
    Register();
    CXThreadPlatform::SetName(m_name.GetData());
    CallHook(1, m_name);

    Proc();

    RunEndCallbacks();
    CallHook(0, m_name);
    Unregister();
    const CXConditionGuard guard(m_condition.GetLock());
    m_running.store(false, std::memory_order_release);
    m_threadId.store(0, std::memory_order_relaxed);
    m_condition.Signal();
}

void CXThread::Register() {
    const CXThreadId id = CXCurrentThreadId();
    m_threadId.store(id, std::memory_order_relaxed);
    // Sequentially consistent against SetPriority: one of the two sees the other's store.
    m_nativeId.store(CXThreadPlatform::GetNativeId());
    CXThreadPlatform::SetPriority(m_nativeId.load(), m_priority.load());
    CXThreadRecord::Get().thread = this;
    Registry& registry = GetRegistry();
    const CXCriticalSectionGuard guard(registry.lock);
    m_node.LinkLast(registry.threads);
    registry.byId[id] = this;
}

void CXThread::Unregister() {
    m_nativeId.store(0);
    Registry& registry = GetRegistry();
    {
        const CXCriticalSectionGuard guard(registry.lock);
        m_node.Unlink();
        const auto found = registry.byId.find(GetThreadId());
        if (found != registry.byId.end() && found->second == this) {
            registry.byId.erase(found);
        }
    }
    CXThreadRecord& record = CXThreadRecord::Get();
    if (record.thread == this) {
        record.thread = nullptr;
    }
}

void CXThread::SetPriority(int32_t priority) {
    if (m_priority.exchange(priority) == priority) {
        return;
    }
    const uint64_t nativeId = m_nativeId.load();
    if (nativeId != 0) {
        CXThreadPlatform::SetPriority(nativeId, priority);
    }
}

void CXThread::AddEndCallback(std::function<void()> callback) {
    const CXCriticalSectionGuard guard(m_callbackSection);
    m_endCallbacks.push_back(std::move(callback));
}

void CXThread::RunEndCallbacks() {
    const CXRecursiveLockGuard guard(m_endLock);
    for (;;) {
        std::function<void()> callback;
        {
            const CXCriticalSectionGuard section(m_callbackSection);
            if (m_endCallbacks.empty()) {
                return;
            }
            callback = std::move(m_endCallbacks.back());
            m_endCallbacks.pop_back();
        }
        callback();
    }
}

CXThread* CXThread::Get(CXThreadId threadId) {
    Registry& registry = GetRegistry();
    const CXCriticalSectionGuard guard(registry.lock);
    const auto found = registry.byId.find(threadId);
    return found != registry.byId.end() ? found->second : nullptr;
}

CXThread* CXThread::GetCurrent() {
    return CXThreadRecord::Get().thread;
}

CXString CXThread::GetName(CXThreadId threadId) {
    Registry& registry = GetRegistry();
    const CXCriticalSectionGuard guard(registry.lock);
    const auto found = registry.byId.find(threadId);
    if (found != registry.byId.end()) {
        return found->second->m_name;
    }
    return threadId == GetMainThreadId() ? CXString("<main>") : CXString("<UNKNOWN>");
}

bool CXThread::IsMainThread() {
    return CXCurrentThreadId() == GetMainThreadId();
}

CXThreadId CXThread::GetMainThreadId() {
    return GetRegistry().mainThread.load(std::memory_order_relaxed);
}

void CXThread::SetMainThread() {
    GetRegistry().mainThread.store(CXCurrentThreadId(), std::memory_order_relaxed);
}

bool CXThread::AddEndCallbackFor(CXThreadId threadId, std::function<void()> callback) {
    Registry& registry = GetRegistry();
    const CXCriticalSectionGuard guard(registry.lock);
    const auto found = registry.byId.find(threadId);
    if (found == registry.byId.end()) {
        return false;
    }
    found->second->AddEndCallback(std::move(callback));
    return true;
}

void CXThread::SetEventHook(EventHook hook) {
    GetRegistry().hook.store(hook, std::memory_order_relaxed);
}
