#include "app/VelPatchEntry.h"

#include "app/VelPatchInstance.h"
#include "app/VelPatchUpdateService.h"
#include "app/config/VelPatchCommandLine.h"
#include "app/config/VelPatchConfiguration.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXCrash.h"
#include "core/CXFileSystem.h"
#include "runtime/CXRuntime.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

/// Leaves at once: threads that the check has started may still run, so nothing is taken down
/// behind them.
[[noreturn]] void EndProcess(int exitCode) {
    std::fflush(nullptr);
    std::_Exit(exitCode);
}

} // namespace

int RunVelPatch(const VelPatchArguments& arguments, const VelPatchEntryHooks& hooks) {
    if (HandOverToRunningInstance(arguments.rawLine)) {
        return 0;
    }
    CXRuntime::Start();
    VelPatchEntryPlatform::StartWindowServices();
    SetCommandLineHooks({VelPatchUpdateService::CheckForPatch, EndProcess});
    // A command line that can't be used leaves out the whole part with the window, its end too.
    if (ParseCommandLine(std::vector<CXString>(arguments.words.begin(), arguments.words.end()))) {
        CXFileSystem::SetCurrentDirectory(CXFileSystem::GetApplicationFolder());
        CXInstallCrashHandler();
        LoadApplicationConfiguration();
        bool isStopped = false;
        const auto stopWindowServices = [&isStopped] {
            if (!std::exchange(isStopped, true)) {
                VelPatchEntryPlatform::StopWindowServices();
            }
        };
        hooks.runApplication(stopWindowServices);
        stopWindowServices();
    }
    CXRuntime::Stop();
    return GetProcessSettings().exitCode;
}
