#include "app/config/VelPatchCommandLine.h"

#include "app/config/VelPatchConfiguration.h"
#include "core/CXFileSystem.h"
#include "core/CXText.h"

#include <cstdlib>
#include <cstring>

const VelPatchOption kVelPatchOptions[] = {
    {"escalationstage", 2, "Integer which signals privilege escalation stage."},
    {"target", 2, "Configure the GUI with the specified target."},
    {"start", 0, "Start the GUI action immediately."},
    {"selfdeleteonexit", 0, "Delete the patch tool itself on exit, regardless of success."},
    {"settings", 2, "Override the target's saved patch settings with the specified values."},
    {"checkforpatch", 0,
     "Check for a patch and return 0 for no patch or 1 for patch available. Does not show a GUI."},
    {"locale", 2, "Override the patcher's locale detection with a specific locale code."},
    {"setstream", 0,
     "Configures the GUI to allow the user to configure the patch stream, but to not actually "
     "perform a patch."},
    {"launchtargetonexit", 0, "Sets the GUI to launch the specified target on exit."},
    {"uninstall", 0, "Starts the GUI in 'uninstall' mode."},
    {"no-desktop-shortcut", 0,
     "Prevents automatic creation of the desktop shortcut following installation."},
    {nullptr, 0, nullptr},
};

namespace {

constexpr int kExitCheckFailed = 2;

VelPatchCommandLineHooks& Hooks() {
    static VelPatchCommandLineHooks hooks;
    return hooks;
}

const VelPatchOption* FindOption(const VelPatchOption* table, absl::string_view name) {
    for (; table->name; ++table) {
        if (name == absl::string_view(table->name)) {
            return table;
        }
    }
    return nullptr;
}

/// Collects what the arguments say.
class Recorder {
public:
    explicit Recorder(const VelPatchOption* table) : m_table(table) {}

    void Record(const VelPatchOption* option, const CXString& value) {
        const bool mayRepeat = (option->mode & kOptionMayRepeat) != 0;
        if (mayRepeat || !FindRecordedOption(m_options, option->name)) {
            m_options.push_back({option, value});
        }
    }

    /// Gives a free argument to the first option that still waits for one. Options fill up in
    /// order, so the search goes on where the last one ended.
    void FillFree(const CXString& argument) {
        for (; m_firstWaiting < m_options.size(); ++m_firstWaiting) {
            VelPatchRecordedOption& record = m_options[m_firstWaiting];
            if ((record.option->mode & kOptionValueMask) == kOptionNextFreeArgument &&
                !record.filled) {
                record.value = argument;
                record.filled = true;
                return;
            }
        }
        if (const VelPatchOption* unnamed = FindOption(m_table, "")) {
            Record(unnamed, argument);
        }
    }

    VelPatchRecordedOptions& Options() { return m_options; }

private:
    const VelPatchOption* m_table;
    VelPatchRecordedOptions m_options;
    size_t m_firstWaiting = 0;
};

void ExitProcess(int exitCode) {
    if (Hooks().exitProcess) {
        Hooks().exitProcess(exitCode);
    } else {
        std::exit(exitCode);
    }
}

/// The windowless run: its answer is the process's exit code.
int CheckForPatch(const CXString* settingsOverride) {
    VelPatchProcessSettings& process = GetProcessSettings();
    if (process.target.IsEmpty()) {
        return kExitCheckFailed;
    }
    const DNValueRef root = ReadConfigurationFile(GetConfigurationPath());
    VelPatchCheckRequest request;
    request.anchorFile = root->Get("patch-anchor-file")->GetString();
    request.bundleId = root->Get("application-bundle-id")->GetString();
    request.installationId = root->Get("installation-id")->GetString();
    request.serviceBase = ServiceBaseOf(*root);
    request.target = process.target;
    LoadSettings(request.settings, request.bundleId, request.target);
    if (settingsOverride) {
        ApplySettingsOverride(request.settings, *settingsOverride);
        process.settingsOverridden = true;
    }
    return Hooks().checkForPatch ? Hooks().checkForPatch(request) : kExitCheckFailed;
}

/// Puts the option's values into the saved settings of the target.
void OverrideSavedSettings(const CXString& target, const CXString& encoded) {
    const DNValueRef root = ReadConfigurationFile(CXFileSystem::Join("data", "patch-config.txt"));
    const CXString bundleId = root->Get("application-bundle-id")->GetString();
    VelPatchSettings settings;
    LoadSettings(settings, bundleId, target);
    ApplySettingsOverride(settings, encoded);
    SaveSettings(settings, bundleId, target);
}

} // namespace

VelPatchProcessSettings& GetProcessSettings() {
    static VelPatchProcessSettings settings;
    return settings;
}

const VelPatchRecordedOption* FindRecordedOption(const VelPatchRecordedOptions& options,
                                                 const char* name) {
    for (const VelPatchRecordedOption& record : options) {
        if (std::strcmp(record.option->name, name) == 0) {
            return &record;
        }
    }
    return nullptr;
}

VelPatchRecordedOptions RecordOptions(const VelPatchOption* table,
                                      const std::vector<CXString>& arguments) {
    Recorder recorder(table);
    for (size_t i = 1; i < arguments.size(); ++i) {
        const absl::string_view argument = arguments[i].View();
        if (argument.empty() || argument[0] != '-') {
            recorder.FillFree(arguments[i]);
            continue;
        }
        if (argument.substr(0, 2) == absl::string_view("--")) {
            const VelPatchOption* option = FindOption(table, argument.substr(2));
            if (!option) {
                continue;
            }
            CXString value;
            if ((option->mode & kOptionValueMask) == kOptionNextArgument &&
                i + 1 < arguments.size()) {
                value = arguments[++i];
            }
            recorder.Record(option, value);
        } else if (argument.size() > 1) {
            if (const VelPatchOption* option = FindOption(table, argument.substr(1, 1))) {
                recorder.Record(option, CXString(argument.substr(2)));
            }
        }
    }
    return recorder.Options();
}

std::vector<CXString> SplitCommandLine(absl::string_view text) {
    constexpr absl::string_view kBlanks(" \t");
    std::vector<CXString> words;
    size_t start = text.find_first_not_of(kBlanks);
    while (start != absl::string_view::npos) {
        const bool quoted = text[start] == '"';
        start += quoted ? 1 : 0;
        size_t end = quoted ? text.find('"', start) : text.find_first_of(kBlanks, start);
        end = end == absl::string_view::npos ? text.size() : end;
        words.push_back(CXString(text.substr(start, end - start)));
        start = text.find_first_not_of(kBlanks, quoted ? end + 1 : end);
    }
    return words;
}

void SetCommandLineHooks(const VelPatchCommandLineHooks& hooks) {
    Hooks() = hooks;
}

bool ParseCommandLine(const std::vector<CXString>& arguments) {
    CXFileSystem::SetCurrentDirectory(CXFileSystem::GetApplicationFolder());
    const VelPatchRecordedOptions options = RecordOptions(kVelPatchOptions, arguments);
    const auto valueOf = [&options](const char* name) -> const CXString* {
        const VelPatchRecordedOption* record = FindRecordedOption(options, name);
        return record ? &record->value : nullptr;
    };

    VelPatchProcessSettings& process = GetProcessSettings();
    const CXString* stage = valueOf("escalationstage");
    process.escalationStage = stage ? ToInt32(*stage) : 0;
    if (const CXString* target = valueOf("target")) {
        process.target = CXFileSystem::MakeAbsolute(CXFileSystem::FromForeignPath(*target));
    }
    process.startImmediately = valueOf("start") != nullptr;
    process.selfDeleteOnExit = valueOf("selfdeleteonexit") != nullptr;
    process.streamConfigurationOnly = valueOf("setstream") != nullptr;
    process.launchTargetOnExit = valueOf("launchtargetonexit") != nullptr;
    const CXString* settings = valueOf("settings");
    if (valueOf("checkforpatch")) {
        ExitProcess(CheckForPatch(settings));
        return true; // reached only under a test's hook
    }
    if (settings && !process.target.IsEmpty()) {
        OverrideSavedSettings(process.target, *settings);
    }
    const CXString* locale = valueOf("locale");
    process.locale = locale ? *locale : CXString("US");
    process.locale.ToUpper();
    if (valueOf("no-desktop-shortcut")) {
        process.createDesktopShortcut = false;
    }
    if (valueOf("uninstall")) {
        process.uninstall = true;
    }
    return true;
}

bool ParseCommandLine(int argc, const char* const* argv) {
    return ParseCommandLine(std::vector<CXString>(argv, argv + argc));
}

bool ParseHandedOverCommandLine(absl::string_view text) {
    std::vector<CXString> arguments = SplitCommandLine(text);
    if (arguments.empty()) {
        return false;
    }
    arguments.insert(arguments.begin(), CXString());
    return ParseCommandLine(arguments);
}
