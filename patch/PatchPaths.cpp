#include "patch/PatchPaths.h"

#include "core/CXFileSystem.h"
#include "core/CXText.h"

namespace {

/// Bytes. No system opens a longer one everywhere, and the work on a path's parents grows with the
/// square of its length.
constexpr size_t kLongestPath = 4096;

bool IsSeparator(char byte, bool windowsRules) {
    return byte == '/' || (windowsRules && byte == '\\');
}

/// The component as the file system will see it: Windows drops trailing dots and blanks.
absl::string_view EffectiveComponent(absl::string_view component, bool windowsRules) {
    if (!windowsRules || component == "." || component == "..") {
        return component;
    }
    while (!component.empty() && (component.back() == '.' || component.back() == ' ')) {
        component.remove_suffix(1);
    }
    return component;
}

bool HasDrive(absl::string_view path) {
    if (path.size() < 2 || path[1] != ':') {
        return false;
    }
    const unsigned char letter = AsciiLower(static_cast<unsigned char>(path[0]));
    return letter >= 'a' && letter <= 'z';
}

} // namespace

bool IsSafeOperationPath(absl::string_view path, bool windowsRules) {
    if (path.empty() || path.size() > kLongestPath || IsSeparator(path[0], windowsRules) ||
        HasDrive(path) || path.find('\0') != absl::string_view::npos ||
        (windowsRules && path.find(':') != absl::string_view::npos)) {
        return false;
    }
    int64_t depth = 0;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = start;
        while (end < path.size() && !IsSeparator(path[end], windowsRules)) {
            ++end;
        }
        const absl::string_view written = path.substr(start, end - start);
        const absl::string_view component = EffectiveComponent(written, windowsRules);
        start = end + 1;
        if (component == "..") {
            if (--depth < 0) {
                return false;
            }
        } else if (component.empty() && !written.empty()) {
            return false; // nothing but dots and blanks: Windows would read it as it likes
        } else if (!component.empty() && component != ".") {
            if (windowsRules && !CXFileSystem::IsValidFileName(component)) {
                return false; // above all a device, which is in no folder
            }
            // Without regard to case, since most players' file systems have none.
            if (depth == 0 && EqualsNoCase(component, CXString(kPatchTemporaryFolder))) {
                return false;
            }
            ++depth;
        }
    }
    return depth > 0;
}

bool AreOperationPathsSafe(const std::vector<PatchOperation>& operations, CXString& offender) {
    const bool windowsRules = UsesWindowsPaths();
    for (const PatchOperation& operation : operations) {
        if (!operation.sourcePath.IsEmpty() &&
            !IsSafeOperationPath(operation.sourcePath, windowsRules)) {
            offender = operation.sourcePath;
            return false;
        }
        if (!IsSafeOperationPath(operation.destinationPath, windowsRules)) {
            offender = operation.destinationPath;
            return false;
        }
    }
    return true;
}
