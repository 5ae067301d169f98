// The process-wide settings that the command line fills and the rest of the program reads.
#pragma once

#include "core/CXString.h"

#include <atomic>
#include <cstdint>

/// Readable before the application object exists. Main thread, `quitRequested` excepted.
struct VelPatchProcessSettings {
    CXString target;             ///< absolute path of the target folder; empty: none
    CXString locale{"US"};       ///< what the service is told, upper case
    int32_t escalationStage = 0; ///< which stage of a relaunch with raised rights this is
    bool startImmediately = false;
    bool selfDeleteOnExit = false;
    bool streamConfigurationOnly = false; ///< the user picks a stream, nothing is patched
    bool launchTargetOnExit = false;
    bool settingsOverridden = false; ///< a windowless run got its settings on the command line
    bool uninstall = false;
    bool createDesktopShortcut = true;
    bool relaunched = false;                ///< a later stage is or was started and does the work
    std::atomic<bool> quitRequested{false}; ///< set by whoever wants the main loop to end
    int32_t exitCode = 0;                   ///< what a run with a window ends with
};

/// The one instance of the process.
VelPatchProcessSettings& GetProcessSettings();
