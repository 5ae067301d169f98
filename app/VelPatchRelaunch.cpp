#include "app/VelPatchRelaunch.h"

#include "app/VelPatchElevation.h"
#include "core/CXFileSystem.h"
#include "core/CXRandom.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"

namespace {

/// Libraries that may lie beside the program, by the system that it is built for.
constexpr const char* kWindowsCompanions[] = {"libcrypto-1_1-x64.dll", "libssl-1_1-x64.dll",
                                              "vcruntime140.dll"};
constexpr const char* kPosixCompanions[] = {"libcrypto.so.1.1", "libcrypto.so.3", "libssl.so.1.1",
                                            "libssl.so.3"};

CXString CopyFailure(CXResult result, const CXString& source, const CXString& destination) {
    return CXString::Format(
        "Unable to copy installation data to target disk. (result: %d, src: '%s', dst: '%s')",
        result, source.GetData(), destination.GetData());
}

/// The copy of the program that works outside of the target.
class ProgramCopy {
public:
    ProgramCopy(CXString source, VelPatchRelaunchSystem& system)
        : m_source(std::move(source)), m_system(system) {}

    /// Makes it; what a failure has made until then stays. The empty text is success, every other
    /// one is to be shown.
    CXString Make(const CXString& target) {
        if (!ChooseFolder(FindBase(target))) {
            return "Unable to copy installation data to target disk (path in use.)";
        }
        CXResult result = CXFileSystem::CreateDirectory(m_folder);
        if (result != kCXResultOK) {
            return CXString::Format(
                "Unable to create installation data temp folder. (result: %d, dst: '%s')", result,
                m_folder.GetData());
        }
        const CXString program = GetPath();
        result = CXFileSystem::CopyFile(m_source, program, true);
        if (result != kCXResultOK) {
            return CopyFailure(result, m_source, program);
        }
        const CXString data = Beside("data");
        if (CXFileSystem::IsDirectory(data)) {
            const CXString copy = CXFileSystem::Join(m_folder, "data");
            result = CXFileSystem::CopyDirectory(data, copy);
            if (result != kCXResultOK) {
                return CopyFailure(result, data, copy);
            }
        }
        return CXFileSystem::HasWindowsPaths() ? CopyCompanions(kWindowsCompanions)
                                               : CopyCompanions(kPosixCompanions);
    }

    CXString GetPath() const {
        return CXFileSystem::Join(m_folder, CXFileSystem::GetFileName(m_source));
    }

private:
    CXString Beside(const char* name) const {
        return CXFileSystem::Join(CXFileSystem::GetParent(m_source), name);
    }

    /// The folder in which the copy's own is made: the temporary one only if it is on the target's
    /// volume, where later moves cost nothing.
    CXString FindBase(const CXString& target) {
        const CXString besideTarget = CXFileSystem::GetParent(target);
        const CXString temporary = m_system.GetTempFolder();
        const CXString root = m_system.GetVolumeRoot(besideTarget);
        const bool isSameVolume = !root.IsEmpty() && root == m_system.GetVolumeRoot(temporary);
        const CXString& base = isSameVolume ? temporary : besideTarget;
        // A failure shows at the next step.
        CXFileSystem::CreateDirectories(base);
        return base;
    }

    bool ChooseFolder(const CXString& base) {
        const CXString name = CXFileSystem::GetStem(m_source);
        m_folder = CXFileSystem::Join(base, name);
        if (CXFileSystem::Exists(m_folder)) {
            m_folder = CXFileSystem::Join(
                base, CXString::Format("%08x_%s", m_system.GetRandomNumber(), name.GetData()));
        }
        return !CXFileSystem::Exists(m_folder);
    }

    template <size_t Count> CXString CopyCompanions(const char* const (&names)[Count]) {
        for (const char* name : names) {
            const CXString source = Beside(name);
            const CXString copy = CXFileSystem::Join(m_folder, name);
            if (!CXFileSystem::Exists(source)) {
                continue;
            }
            const CXResult result = CXFileSystem::CopyFile(source, copy, false);
            if (result != kCXResultOK) {
                return CopyFailure(result, source, copy);
            }
        }
        return CXString();
    }

    const CXString m_source;
    VelPatchRelaunchSystem& m_system;
    CXString m_folder;
};

/// Whether the program lies below the target, as the texts tell it.
bool IsInside(const CXString& program, const CXString& target) {
    const size_t length = target.GetLength();
    const absl::string_view path = program.View();
    return path.size() > length + 1 && path[length] == '/' &&
           EqualsNoCase(path.substr(0, length), target);
}

} // namespace

CXString VelPatchRelaunchSystem::GetProgramPath() {
    return CXFileSystem::GetModulePath();
}

CXString VelPatchRelaunchSystem::GetTempFolder() {
    return CXFileSystem::GetTempPath();
}

CXString VelPatchRelaunchSystem::GetVolumeRoot(const CXString& path) {
    return CXFileSystem::GetVolumeRoot(path);
}

uint32_t VelPatchRelaunchSystem::GetRandomNumber() {
    return RandomU32();
}

bool VelPatchRelaunchSystem::StartElevated(const CXString& program, const CXString& arguments,
                                           const CXString& folder, const CXString& target) {
    return VelPatchElevation::StartElevated(program, arguments, folder,
                                            !VelPatchElevation::MayWrite(target));
}

VelPatchRelaunchStep DecideRelaunch(int32_t stage, bool haveData, bool uninstall,
                                    const CXString& program, const CXString& target) {
    if (stage > 1) {
        return VelPatchRelaunchStep::GoOn;
    }
    if (stage != 1) {
        return VelPatchRelaunchStep::Relaunch;
    }
    return haveData && !uninstall && !IsInside(program, target)
               ? VelPatchRelaunchStep::GoOn
               : VelPatchRelaunchStep::CopyAndRelaunch;
}

CXString MakeRelaunchArguments(const VelPatchProcessSettings& settings, const CXString& target,
                               bool hasCopy) {
    CXStringEdit arguments;
    arguments.Append(CXString::Format(
        "--target \"%s\" --escalationstage %d --start %s %s %s", target.GetData(),
        settings.escalationStage + 1, settings.createDesktopShortcut ? "" : "--no-desktop-shortcut",
        settings.uninstall ? "--uninstall" : "", hasCopy ? "--selfdeleteonexit" : ""));
    if (settings.launchTargetOnExit) {
        arguments.Append(" --launchtargetonexit");
    }
    return arguments.ToString();
}

VelPatchRelaunchOutcome RelaunchIfNeeded(const CXString& target, bool haveData,
                                         VelPatchRelaunchSystem& system) {
    VelPatchProcessSettings& settings = GetProcessSettings();
    CXString program = system.GetProgramPath();
    const VelPatchRelaunchStep step =
        DecideRelaunch(settings.escalationStage, haveData, settings.uninstall, program, target);
    if (step == VelPatchRelaunchStep::GoOn) {
        return {};
    }
    const bool hasCopy = step == VelPatchRelaunchStep::CopyAndRelaunch;
    if (hasCopy) {
        ProgramCopy copy(program, system);
        const CXString message = copy.Make(target);
        if (!message.IsEmpty()) {
            return {VelPatchRelaunchResult::Failed, message};
        }
        program = copy.GetPath();
    }
    // Set while the start is under way: on Windows that may let messages in, and a command line
    // that the new process hands over then would be taken by the very process that leaves for it.
    settings.relaunched = true;
    if (!system.StartElevated(program, MakeRelaunchArguments(settings, target, hasCopy),
                              CXFileSystem::GetParent(program), target)) {
        settings.relaunched = false;
        return {VelPatchRelaunchResult::Failed,
                CXString::Format("Unable to relaunch '%s' with necessary permissions",
                                 program.GetData())};
    }
    settings.launchTargetOnExit = false; // the later stage does it
    settings.quitRequested = true;
    return {VelPatchRelaunchResult::Relaunched, CXString()};
}

VelPatchRelaunchOutcome RelaunchIfNeeded(const CXString& target, bool haveData) {
    VelPatchRelaunchSystem system;
    return RelaunchIfNeeded(target, haveData, system);
}
