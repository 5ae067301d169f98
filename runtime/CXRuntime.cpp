#include "runtime/CXRuntime.h"

#include "core/CXRandom.h"
#include "core/CXTime.h"
#include "runtime/CXGenericEvent.h"
#include "runtime/CXGenericEventContextManual.h"
#include "runtime/CXMessagePostTask.h"
#include "runtime/CXTaskHost.h"
#include "runtime/CXThreadExternal.h"
#include "runtime/CXThreadPlatform.h"
#include "runtime/CXTimerManager.h"
#include "runtime/CXWorkerHost.h"

#include <map>
#include <memory>

namespace {

constexpr int32_t kMainPriority = 0;

struct State {
    CXCriticalSection lock; // over the modules
    std::map<uint32_t, CXRuntimeModule*> modules;
    std::unique_ptr<CXThreadExternal> mainThread;
    bool isStarted = false;
    bool toldModules = false;
};

State& GetState() {
    static State* state = new State; // modules may be static objects
    return *state;
}

/// Tells every module once; the flag makes a second broadcast of the same kind do nothing.
void TellModules(bool started) {
    State& state = GetState();
    std::map<uint32_t, CXRuntimeModule*> modules;
    {
        const CXCriticalSectionGuard guard(state.lock);
        if (state.toldModules == started) {
            return;
        }
        state.toldModules = started;
        modules = state.modules;
    }
    if (started) {
        for (const auto& [id, module] : modules) {
            module->RuntimeStarted();
        }
    } else {
        for (auto entry = modules.rbegin(); entry != modules.rend(); ++entry) {
            entry->second->RuntimeStopping();
        }
    }
}

} // namespace

void CXRuntime::Start() {
    State& state = GetState();
    if (state.isStarted) {
        return;
    }
    state.isStarted = true;
    CXTime::TakeFirstSample();
    CXGenericEvent::GetEventLock();
    SeedRandom(static_cast<uint32_t>(CXTime::GetCurrentTime()) ^ CXThreadPlatform::GetProcessId());
    CXThread::SetMainThread();
    state.mainThread = std::make_unique<CXThreadExternal>("main", kMainPriority);
    CXTaskHost::BindToCurrentThread();
    CXGenericEventContextManual::GetSingleton();
    CXMessagePostTask::GetMainThreadSingleton();
    TellModules(true);
}

void CXRuntime::Stop() {
    State& state = GetState();
    if (!state.isStarted) {
        return;
    }
    CXWorkerHost::DeleteSingleton();
    TellModules(false);
    CXMessagePostTask::DeleteMainThreadSingleton();
    CXTimerManager::DeleteSingleton();
    state.mainThread->EndThread();
    state.mainThread.reset();
    state.isStarted = false;
}

bool CXRuntime::IsStarted() {
    return GetState().isStarted;
}

void CXRuntime::AddModule(uint32_t id, CXRuntimeModule* module) {
    State& state = GetState();
    {
        const CXCriticalSectionGuard guard(state.lock);
        state.modules[id] = module;
        if (!state.toldModules) {
            return;
        }
    }
    module->RuntimeStarted();
}

void CXRuntime::RemoveModule(uint32_t id) {
    State& state = GetState();
    const CXCriticalSectionGuard guard(state.lock);
    state.modules.erase(id);
}
