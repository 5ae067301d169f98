#include "runtime/CXMessagePostTask.h"

#include "runtime/CXTaskHost.h"
#include "runtime/CXThread.h"

#include <utility>

namespace {
CXCriticalSection g_singletonSection;
CXMessagePostTask* g_singleton = nullptr;
} // namespace

CXMessagePost* CXMessagePostTask::GetMainThreadSingleton() {
    const CXCriticalSectionGuard guard(g_singletonSection);
    if (g_singleton == nullptr) {
        g_singleton = new CXMessagePostTask("CXMessagePostTask::GetMainThreadSingleton");
        CXTaskHost::GetForThread(CXThread::GetMainThreadId())->AddTask(g_singleton);
    }
    return g_singleton;
}

void CXMessagePostTask::DeleteMainThreadSingleton() {
    CXMessagePostTask* task = nullptr;
    {
        const CXCriticalSectionGuard guard(g_singletonSection);
        task = std::exchange(g_singleton, nullptr);
    }
    delete task;
}
