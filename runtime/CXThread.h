// The toolkit's thread object, and the process-wide registry of threads.
#pragma once

#include "core/CXLock.h"
#include "core/CXString.h"
#include "runtime/CXCondition.h"
#include "runtime/CXGenericEventSource.h"
#include "runtime/CXLinkedListNode.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

/// A thread that runs `Proc` once per `Start`. `Proc` looks at `IsStopRequested` often and returns
/// when it is true. Start, Stop and the destructor are for the owner; the queries for any thread.
///
/// A derived class calls `CXThread::Stop()` (qualified) first in its destructor, so that no member
/// dies under a running `Proc`; an override of `Stop` may do less, for instance only set the flag.
class CXThread : public CXGenericEventSource {
public:
    /// Numbers of the events of a thread; any other number gives a plain event.
    static constexpr uint32_t kEventStopRequested = 0;
    static constexpr uint32_t kEventNotRunning = 1;
    static constexpr uint32_t kEventRunning = 2;

    explicit CXThread(const CXString& name);
    ~CXThread() override;

    CXGenericEvent* CreateEvent(uint32_t number) override;
    /// The body of the thread.
    virtual void Proc() = 0;
    /// Starts the thread; does nothing if it runs. When the system gives no thread the object is
    /// not running afterwards.
    virtual void Start();
    /// Asks the thread to stop and waits until `Proc` and the end callbacks are over; returns at
    /// once when it doesn't run. Called from the thread itself it never returns.
    virtual void Stop();

    bool IsRunning() const { return m_running.load(std::memory_order_acquire); }
    bool IsStopRequested() const { return m_stopRequested.load(std::memory_order_relaxed); }
    /// Sets the stop flag if the thread runs, without waiting.
    void RequestStop();

    const CXString& GetThreadName() const { return m_name; }
    /// Id of the running thread; 0 when it doesn't run.
    CXThreadId GetThreadId() const { return m_threadId.load(std::memory_order_relaxed); }
    /// Priority 0 to 4: above normal, normal, below normal, idle in the background, normal. Takes
    /// effect at once on a running thread; a refusal of the system is ignored.
    void SetPriority(int32_t priority);
    int32_t GetPriority() const { return m_priority.load(std::memory_order_relaxed); }
    /// Adds a function that runs on the thread when `Proc` has returned, the last one first.
    void AddEndCallback(std::function<void()> callback);
    /// The condition that is signalled when the thread starts and ends.
    CXCondition& GetCondition() { return m_condition; }

    /// The object of a running thread, or null. The caller knows that the thread doesn't end
    /// meanwhile.
    static CXThread* Get(CXThreadId threadId);
    /// Object of the calling thread, or null.
    static CXThread* GetCurrent();
    /// Name of a running thread; "<main>" for the main thread without an object, else "<UNKNOWN>".
    static CXString GetName(CXThreadId threadId);
    static bool IsMainThread();
    static CXThreadId GetMainThreadId();
    /// Records the calling thread as the main thread; part of start-up. Until then the thread that
    /// ran the static initialisers counts as the main thread.
    static void SetMainThread();
    /// `AddEndCallback` for whatever thread has that id; false if there is no object for it.
    static bool AddEndCallbackFor(CXThreadId threadId, std::function<void()> callback);

    /// Called on each thread with 1 and its name at its start, with 0 and its name at its end.
    using EventHook = void (*)(int started, const char* name);
    static void SetEventHook(EventHook hook);

protected:
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_stopRequested{false};

    /// Runs the end callbacks, last to first, on the calling thread.
    void RunEndCallbacks();
    /// Enters the object into the registry under the calling thread's id, and takes it out.
    void Register();
    void Unregister();

private:
    friend class CXThreadExternal;
    static void Entry(void* self);
    void Run();
    void JoinPlatformThread(CXConditionGuard& guard);

    CXString m_name;
    CXLinkedListNode<CXThread> m_node{this}; // in the list of running threads
    uint32_t m_stackSize = 4096;             // bytes; only a hint of how much to commit at first
    CXCondition m_condition;
    std::atomic<CXThreadId> m_threadId{0};
    std::atomic<uint64_t> m_nativeId{0}; // what the platform's priority call wants, 0: not running
    CXRecursiveLock m_endLock;           // held while the end callbacks run
    CXCriticalSection m_callbackSection; // over the list alone
    std::vector<std::function<void()>> m_endCallbacks;
    std::atomic<int32_t> m_priority{4};
    uintptr_t m_handle = 0; // platform handle, guarded by the condition's lock
    bool m_hasHandle = false;
};
