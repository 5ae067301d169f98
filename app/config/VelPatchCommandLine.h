// The command line: its option table, its reading, and what it sets.
#pragma once

#include "app/config/VelPatchProcessSettings.h"
#include "app/config/VelPatchSettings.h"
#include "core/CXString.h"

#include <cstdint>
#include <functional>
#include <vector>

// Mode of an option.
inline constexpr uint32_t kOptionNoValue = 0;
inline constexpr uint32_t kOptionNextArgument = 1;     ///< the next argument is the value
inline constexpr uint32_t kOptionNextFreeArgument = 2; ///< the next argument without a dash is it
inline constexpr uint32_t kOptionValueMask = 3;
inline constexpr uint32_t kOptionRequired = 4;
inline constexpr uint32_t kOptionMayRepeat = 8;

struct VelPatchOption {
    const char* name; ///< null closes a table
    uint32_t mode;
    const char* help;
};

/// The program's options.
extern const VelPatchOption kVelPatchOptions[];

/// An option that was met, with its value (empty if none).
struct VelPatchRecordedOption {
    const VelPatchOption* option;
    CXString value;
    bool filled = false; ///< has received a free argument
};

using VelPatchRecordedOptions = std::vector<VelPatchRecordedOption>;

/// Pure: matches the arguments, the first of which is the program's name, with the table. What
/// isn't known is dropped without a word.
VelPatchRecordedOptions RecordOptions(const VelPatchOption* table,
                                      const std::vector<CXString>& arguments);
/// The first record of that name, or null.
const VelPatchRecordedOption* FindRecordedOption(const VelPatchRecordedOptions& options,
                                                 const char* name);
/// Splits a command line as another instance hands it over: words between blanks and tabs; a word
/// that begins with a double quote runs to the next one.
std::vector<CXString> SplitCommandLine(absl::string_view text);

/// What a windowless check asks the update service about.
struct VelPatchCheckRequest {
    CXString anchorFile;
    CXString bundleId;
    CXString installationId;
    CXString serviceBase; ///< ends in "/"
    CXString target;
    VelPatchSettings settings;
};

/// What the parsing needs from above. Each may be unset.
struct VelPatchCommandLineHooks {
    /// Asks the service and gives the exit code; unset, the check ends with exit code 2.
    std::function<int(const VelPatchCheckRequest& request)> checkForPatch;
    /// Ends the process; unset, std::exit.
    std::function<void(int exitCode)> exitProcess;
};

/// Replaces the hooks. Main thread, before the command line is parsed.
void SetCommandLineHooks(const VelPatchCommandLineHooks& hooks);

/// Makes the application folder the current one, reads the arguments (the first is the program's
/// name) and fills the process settings. May be called again while a window is up. With
/// "checkforpatch" it doesn't return: the process ends with the check's answer. True otherwise.
bool ParseCommandLine(const std::vector<CXString>& arguments);
bool ParseCommandLine(int argc, const char* const* argv);
/// Reads a command line without program name that another instance handed over; false if it holds
/// no argument (then nothing was changed).
bool ParseHandedOverCommandLine(absl::string_view text);
