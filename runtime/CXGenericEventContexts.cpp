// The two event contexts and their singletons, which share one critical section.
#include "runtime/CXGenericEventContextManual.h"
#include "runtime/CXGenericEventContextThread.h"
#include "runtime/CXTaskHost.h"

#include <utility>

namespace {

constexpr uint32_t kPassIntervalMs = 500;

CXCriticalSection g_singletonSection;
CXGenericEventContextManual* g_manual = nullptr;
CXGenericEventContextThread* g_thread = nullptr;

/// Gives the singleton in `slot`, made on first use and deleted at the end of the main thread.
template <typename Context> Context* GetOrMake(Context*& slot, bool& made) {
    const CXCriticalSectionGuard guard(g_singletonSection);
    if (slot == nullptr) {
        slot = new Context;
        made = true;
    }
    return slot;
}

template <typename Context> void DestroyAtEndOfMainThread(Context*& slot) {
    CXThread::AddEndCallbackFor(CXThread::GetMainThreadId(), [&slot] {
        Context* context = nullptr;
        {
            const CXCriticalSectionGuard guard(g_singletonSection);
            context = std::exchange(slot, nullptr);
        }
        delete context;
    });
}

} // namespace

CXGenericEventContextManual::CXGenericEventContextManual() : CXTask("CXGenericEventContextManual") {
    CXTaskHost::GetForThread(CXThread::GetMainThreadId())->AddTask(this);
}

CXGenericEventContextManual::~CXGenericEventContextManual() {
    Detach();
}

CXGenericEventContextManual* CXGenericEventContextManual::GetSingleton() {
    bool made = false;
    CXGenericEventContextManual* context = GetOrMake(g_manual, made);
    if (made) {
        DestroyAtEndOfMainThread(g_manual);
    }
    return context;
}

CXGenericEventContextThread::CXGenericEventContextThread()
    : CXThread("CXGenericEventContextThread") {}

CXGenericEventContextThread::~CXGenericEventContextThread() {
    CXThread::Stop();
}

void CXGenericEventContextThread::Proc() {
    while (!IsStopRequested()) {
        RunPass();
        CXConditionGuard guard(GetCondition().GetLock());
        if (!IsStopRequested()) {
            GetCondition().WaitFor(guard, kPassIntervalMs);
        }
    }
}

CXGenericEventContextThread* CXGenericEventContextThread::GetSingleton() {
    bool made = false;
    CXGenericEventContextThread* context = GetOrMake(g_thread, made);
    if (made) {
        context->Start();
        DestroyAtEndOfMainThread(g_thread);
    }
    return context;
}
