// The pure text part of CXFileSystem: nothing here asks the system anything.
#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"

#include <algorithm>

namespace {

/// From this length in bytes on an absolute Windows path takes the extended form.
constexpr size_t kExtendedFrom = 230;

bool IsLetter(char byte) {
    return AsciiLower(static_cast<unsigned char>(byte)) >= 'a' &&
           AsciiLower(static_cast<unsigned char>(byte)) <= 'z';
}

bool HasDrive(absl::string_view path) {
    return path.size() >= 2 && IsLetter(path[0]) && path[1] == ':';
}

bool HasDriveRoot(absl::string_view path) {
    return path.size() >= 3 && HasDrive(path) && (path[2] == '/' || path[2] == '\\');
}

bool IsNetwork(absl::string_view path) {
    return path.size() >= 2 && path[0] == '/' && path[1] == '/';
}

bool LooksWindows(absl::string_view path) {
    return HasDriveRoot(path) || (path.size() >= 2 && path[0] == '\\' && path[1] == '\\');
}

CXString WithSlashes(absl::string_view path) {
    CXStringEdit edit(path);
    std::replace(edit.GetData(), edit.GetData() + edit.GetLength(), '\\', '/');
    return edit.ToString();
}

/// Bytes of the part that has no parent: "/", "X:/", "X:", "//server/share"; 0 for a relative path.
size_t RootLength(absl::string_view path) {
    if (IsNetwork(path)) {
        const size_t server = path.find('/', 2);
        const size_t share =
            server == absl::string_view::npos ? server : path.find('/', server + 1);
        return std::min(share, path.size());
    }
    if (HasDriveRoot(path)) {
        return 3;
    }
    if (HasDrive(path) && path.size() == 2) {
        return 2;
    }
    return !path.empty() && path[0] == '/' ? 1 : 0;
}

/// Index behind the last "/" of the path.
size_t NameStart(absl::string_view path) {
    const size_t slash = path.rfind('/');
    return slash == absl::string_view::npos ? 0 : slash + 1;
}

/// Index of the extension's dot in a name, or npos. A leading dot begins no extension.
size_t ExtensionDot(absl::string_view name) {
    const size_t dot = name.rfind('.');
    return dot == 0 ? absl::string_view::npos : dot;
}

/// Names of devices, whatever the extension and case. The tests look at fixed places only: the
/// first three bytes with an end or "." behind them, then the first four.
bool IsDeviceName(absl::string_view name) {
    if (name.size() < 3) {
        return false;
    }
    char upper[4] = {};
    for (size_t i = 0; i < std::min<size_t>(4, name.size()); ++i) {
        const char byte = name[i];
        upper[i] = byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 32) : byte;
    }
    const absl::string_view three(upper, 3);
    if (name.size() == 3 || name[3] == '.') {
        return three == "CON" || three == "AUX" || three == "PRN" || three == "NUL";
    }
    if (name.size() == 4 || name[4] == '.') {
        return (three == "COM" || three == "LPT") && upper[3] >= '1' && upper[3] <= '9';
    }
    return false;
}

/// Bytes that no Windows name may hold.
bool IsRefusedByte(char byte) {
    return static_cast<unsigned char>(byte) < 0x20 ||
           absl::string_view("/:\\*?\"<>|").find(byte) != absl::string_view::npos;
}

} // namespace

CXString CXFileSystem::Join(absl::string_view a, absl::string_view b) {
    if (a.empty()) {
        return CXString(b);
    }
    CXStringEdit edit(a);
    if (a.back() == '/') {
        if (!b.empty() && b.front() == '/') {
            b.remove_prefix(1);
        }
    } else if (b.empty() || b.front() != '/') {
        edit.AppendByte('/');
    }
    edit.Append(b);
    return edit.ToString();
}

CXString CXFileSystem::GetParent(absl::string_view path) {
    const size_t root = RootLength(path);
    if (path.size() <= root) {
        return CXString();
    }
    size_t end = NameStart(path);
    while (end > root && path[end - 1] == '/') {
        --end;
    }
    return CXString(path.substr(0, std::max(end, root)));
}

CXString CXFileSystem::GetFileName(absl::string_view path) {
    return CXString(path.substr(NameStart(path)));
}

CXString CXFileSystem::GetStem(absl::string_view path) {
    const absl::string_view name = path.substr(NameStart(path));
    return CXString(name.substr(0, ExtensionDot(name)));
}

CXString CXFileSystem::GetExtension(absl::string_view path) {
    const absl::string_view name = path.substr(NameStart(path));
    const size_t dot = ExtensionDot(name);
    return dot == absl::string_view::npos ? CXString() : CXString(name.substr(dot + 1));
}

bool CXFileSystem::IsAbsolute(absl::string_view path) {
    return (!path.empty() && path[0] == '/') || HasDriveRoot(path);
}

bool CXFileSystem::IsRoot(absl::string_view path) {
    if (IsNetwork(path)) {
        if (path.size() > 2 && path.back() == '/') {
            path.remove_suffix(1);
        }
        const size_t server = path.find('/', 2);
        return server != absl::string_view::npos && server > 2 && server + 1 < path.size() &&
               path.find('/', server + 1) == absl::string_view::npos;
    }
    return path == "/" ||
           (HasDrive(path) && (path.size() == 2 || (path.size() == 3 && HasDriveRoot(path))));
}

CXString CXFileSystem::NormalisePath(absl::string_view path) {
    CXString converted;
    if (LooksWindows(path)) {
        converted = WithSlashes(path);
        path = converted;
    }
    // The first two components behind "//" name the server and the share: ".." can't drop them.
    const bool network = IsNetwork(path);
    const size_t fixed = network ? 2 : 0;
    const size_t rootLength = network ? 2 : RootLength(path);
    const absl::string_view root = path.substr(0, rootLength);

    std::vector<absl::string_view> kept;
    for (size_t at = rootLength; at < path.size();) {
        const size_t end = std::min(path.find('/', at), path.size());
        const absl::string_view part = path.substr(at, end - at);
        at = end + 1;
        if (part.empty() || part == ".") {
            continue;
        }
        if (part != ".." || (kept.size() <= fixed && rootLength == 0) ||
            (!kept.empty() && kept.back() == ".." && rootLength == 0)) {
            kept.push_back(part);
        } else if (kept.size() > fixed) {
            kept.pop_back();
        }
    }

    CXStringEdit edit(root);
    for (size_t i = 0; i < kept.size(); ++i) {
        if (i != 0) {
            edit.AppendByte('/');
        }
        edit.Append(kept[i]);
    }
    // A relative path must not turn into an absolute one when its front goes ("./C:/x").
    if (rootLength == 0 && (RootLength(edit) != 0 || LooksWindows(edit))) {
        const CXString rest = edit.ToString();
        edit.Assign("./");
        edit.Append(rest);
    }
    if (network && kept.size() == 2 && path.back() == '/') {
        edit.AppendByte('/');
    }
    return edit.ToString();
}

CXString CXFileSystem::StripTrailingSeparators(absl::string_view path) {
    while (path.size() > 1 && (path.back() == '/' || path.back() == '\\')) {
        path.remove_suffix(1);
    }
    return CXString(path);
}

CXString CXFileSystem::FromForeignPath(absl::string_view path) {
    return HasWindowsPaths() || LooksWindows(path) ? WithSlashes(path) : CXString(path);
}

CXString CXFileSystem::GetExtendedPath(absl::string_view path) {
    if (path.size() < kExtendedFrom || !IsAbsolute(path)) {
        return CXString(path);
    }
    CXStringEdit edit;
    if (IsNetwork(path)) {
        edit.Append("\\\\?\\UNC\\");
        path.remove_prefix(2);
    } else {
        edit.Append("\\\\?\\");
    }
    edit.Append(path);
    std::replace(edit.GetData(), edit.GetData() + edit.GetLength(), '/', '\\');
    return edit.ToString();
}

CXString CXFileSystem::ToFileURI(absl::string_view path) {
    CXStringEdit edit(absl::string_view("file:"));
    if (HasDriveRoot(path)) {
        edit.Append("///");
    } else if (IsAbsolute(path)) {
        edit.Append("//");
    }
    edit.Append(path);
    return edit.ToString();
}

bool CXFileSystem::IsValidFileName(absl::string_view name) {
    return !name.empty() && name != "." && name != ".." && !IsDeviceName(name) &&
           std::none_of(name.begin(), name.end(), IsRefusedByte);
}

bool CXFileSystem::IsValidPath(absl::string_view path) {
    if (path.empty() || path.find('\0') != absl::string_view::npos) {
        return false;
    }
    // Elsewhere any other byte may stand in a name, and no name is a device.
    if (!HasWindowsPaths()) {
        return true;
    }
    for (size_t at = HasDrive(path) ? 2 : 0; at < path.size();) {
        const size_t end = std::min(path.find_first_of("/\\", at), path.size());
        const absl::string_view part = path.substr(at, end - at);
        at = end + 1;
        if (!part.empty() && part != "." && part != ".." && !IsValidFileName(part)) {
            return false;
        }
    }
    return true;
}

CXString CXFileSystem::SanitiseFileName(absl::string_view name) {
    CXStringEdit edit;
    for (size_t i = 0; i < name.size(); ++i) {
        const char byte = name[i];
        const bool printable = byte >= 0x20 && byte <= 0x7E;
        const bool keep = printable && !IsRefusedByte(byte) && !(i == 0 && byte == '.');
        edit.AppendByte(keep ? byte : '_');
    }
    if (edit.IsEmpty()) {
        edit.Append("Untitled");
    }
    if (IsDeviceName(edit.View())) {
        const CXString device = edit.ToString();
        edit.Assign("_");
        edit.Append(device);
    }
    if (edit.View().back() == '.') {
        edit.AppendByte('_');
    }
    return edit.ToString();
}

bool CXFileSystem::IsWithin(absl::string_view folder, absl::string_view path) {
    if (folder.empty() || path.substr(0, folder.size()) != folder) {
        return false;
    }
    return path.size() == folder.size() || folder.back() == '/' || path[folder.size()] == '/';
}

bool CXFileSystem::ParsePosixPermissions(absl::string_view text, uint32_t& mode) {
    constexpr absl::string_view kPrefix = "posix:";
    mode = 0;
    if (text.substr(0, kPrefix.size()) != kPrefix || text.size() == kPrefix.size()) {
        return false;
    }
    for (const char digit : text.substr(kPrefix.size())) {
        if (digit < '0' || digit > '7') {
            return false;
        }
        mode = mode * 8 + static_cast<uint32_t>(digit - '0');
        if (mode > 07777) {
            return false;
        }
    }
    return true;
}
