// Rights and place: before a run begins, the program may have to start itself anew, with raised
// rights or from a copy outside the folder that it works on.
#pragma once

#include "app/config/VelPatchProcessSettings.h"
#include "core/CXString.h"

#include <cstdint>

/// What the relaunch needs of the system. The base class is the system's own; tests replace parts.
/// Main thread.
class VelPatchRelaunchSystem {
public:
    virtual ~VelPatchRelaunchSystem() = default;
    /// Path of the running program.
    virtual CXString GetProgramPath();
    virtual CXString GetTempFolder();
    /// Mount path of the volume that holds the path; empty if unknown.
    virtual CXString GetVolumeRoot(const CXString& path);
    virtual uint32_t GetRandomNumber();
    /// Starts the program with the rights that work in `target` asks for, see VelPatchElevation.
    virtual bool StartElevated(const CXString& program, const CXString& arguments,
                               const CXString& folder, const CXString& target);
};

enum class VelPatchRelaunchResult : uint8_t {
    GoOn,       ///< this process does the work
    Relaunched, ///< another process does it: leave the main loop
    Failed,     ///< show the message, stay
};

struct VelPatchRelaunchOutcome {
    VelPatchRelaunchResult result = VelPatchRelaunchResult::GoOn;
    CXString message; ///< of a failure; not localised
};

/// Relaunches if this stage of the process has to. `haveData`: there is something to install from
/// (an offline copy without a data file has nothing). After a relaunch the process settings say
/// `relaunched` and `quitRequested`, and the target isn't launched on exit any more; what is left
/// to the caller is to wake the main loop up so that it ends. Stage 1 may copy the program, its
/// libraries and its data, which blocks.
VelPatchRelaunchOutcome RelaunchIfNeeded(const CXString& target, bool haveData,
                                         VelPatchRelaunchSystem& system);
VelPatchRelaunchOutcome RelaunchIfNeeded(const CXString& target, bool haveData);

/// What a stage does.
enum class VelPatchRelaunchStep : uint8_t { GoOn, Relaunch, CopyAndRelaunch };

/// Pure: the decision. `program` is inside `target` if its text begins with it, ASCII letters of
/// either case being the same.
VelPatchRelaunchStep DecideRelaunch(int32_t stage, bool haveData, bool uninstall,
                                    const CXString& program, const CXString& target);
/// Pure: the command line of the next stage. Blanks stand where options are left out.
CXString MakeRelaunchArguments(const VelPatchProcessSettings& settings, const CXString& target,
                               bool hasCopy);
