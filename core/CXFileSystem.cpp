#include "core/CXFileSystem.h"

#include "core/CXExclusivePaths.h"
#include "core/CXLog.h"
#include "core/CXRandom.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"
#include "core/CXTime.h"

#include <algorithm>
#include <utility>

namespace {

/// Behind the name of a file that waits as a good copy while its successor moves in.
constexpr absl::string_view kBackupSuffix = ".abku";
constexpr uint64_t kCopyPiece = 65536;
constexpr uint32_t kUniqueRounds = 1000;
/// From this round on names are drawn instead of counted.
constexpr uint32_t kRandomNamesFrom = 500;

CXFileDriver& Driver() {
    return CXFileDriver::Current();
}

CXString BackupPath(const CXString& target) {
    CXStringEdit edit(target);
    edit.Append(kBackupSuffix);
    return edit.ToString();
}

/// The program's folder when a test says so. Never destroyed.
CXString& ApplicationFolderOverride() {
    static CXString* folder = new CXString;
    return *folder;
}

bool IsHeldHere(const CXString& path) {
    return CXExclusivePaths::Contains(CXFileSystem::MakeAbsolute(path));
}

/// IsWithin by the platform's idea of letter case.
bool IsWithinHere(const CXString& folder, const CXString& path) {
    if (!CXFileSystem::HasWindowsPaths()) {
        return CXFileSystem::IsWithin(folder, path);
    }
    const CXString start = path.Left(static_cast<int64_t>(folder.GetLength()));
    return EqualsNoCase(folder, start) && CXFileSystem::IsWithin(start, path);
}

/// Without trailing separators: with them a path of a link means what the link leads to. Elsewhere
/// than on Windows a backslash belongs to the name.
CXString WithoutTrailingSlashes(absl::string_view path) {
    const bool windows = CXFileSystem::HasWindowsPaths();
    while (path.size() > 1 && (path.back() == '/' || (windows && path.back() == '\\'))) {
        path.remove_suffix(1);
    }
    return CXString(path);
}

/// True if the path is a root by its text, or once its dot segments are folded. Where no path names
/// a server, any number of leading "/" is the root, too.
bool NamesRoot(absl::string_view path) {
    if (CXFileSystem::IsRoot(path) || CXFileSystem::IsRoot(CXFileSystem::MakeAbsolute(path))) {
        return true;
    }
    if (CXFileSystem::HasWindowsPaths() || path.substr(0, 2) != "//") {
        return false;
    }
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()) - 1);
    return CXFileSystem::IsRoot(CXFileSystem::MakeAbsolute(path));
}

/// The volume whose mount path is the longest one above `path`; null if none is.
const CXVolume* FindHolder(const CXString& path, const std::vector<CXVolume>& volumes) {
    const CXVolume* holder = nullptr;
    for (const CXVolume& volume : volumes) {
        if (IsWithinHere(CXFileSystem::GetCanonicalPath(volume.mountPath), path) &&
            (holder == nullptr || volume.mountPath.GetLength() > holder->mountPath.GetLength())) {
            holder = &volume;
        }
    }
    return holder;
}

/// True if both paths lead to one file, also through links.
bool IsSameFile(const CXString& a, const CXString& b) {
    if (CXFileSystem::MakeAbsolute(a) == CXFileSystem::MakeAbsolute(b)) {
        return true;
    }
    CXFileAttributes first;
    CXFileAttributes second;
    return Driver().GetAttributes(a, true, first) == 0 &&
           Driver().GetAttributes(b, true, second) == 0 && first.serial != 0 &&
           first.serial == second.serial && first.device == second.device;
}

/// A folder in the middle of a walk.
struct Level {
    CXString path;
    std::vector<CXFileEntry> entries;
    size_t next = 0;
};

/// Keeps the first failure.
void Remember(CXResult& first, CXResult result) {
    if (first == kCXResultOK) {
        first = result;
    }
}

/// Closes a file of the driver on leaving.
class OpenFile {
public:
    OpenFile() = default;
    ~OpenFile() { Close(); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    CXResult Open(const CXString& path, const CXFileOpen& how) {
        return CXResultFromOpenError(Driver().Open(path, how, m_file));
    }
    CXResult Close() {
        const CXFileHandle file = std::exchange(m_file, kCXNoFile);
        return file == kCXNoFile ? kCXResultOK : CXResultFromNativeError(Driver().Close(file));
    }
    CXFileHandle Get() const { return m_file; }

private:
    CXFileHandle m_file = kCXNoFile;
};

CXResult WriteAll(CXFileHandle file, const char* data, uint64_t count) {
    while (count != 0) {
        uint64_t done = 0;
        const CXNativeError error = Driver().Write(file, data, count, done);
        if (error != 0) {
            return CXResultFromNativeError(error);
        }
        if (done == 0) {
            return kCXResultNoResources;
        }
        data += done;
        count -= done;
    }
    return kCXResultOK;
}

CXResult CopyContents(CXFileHandle from, CXFileHandle to) {
    std::vector<char> piece(kCopyPiece);
    for (;;) {
        uint64_t got = 0;
        const CXNativeError error = Driver().Read(from, piece.data(), piece.size(), got);
        if (error != 0 || got == 0) {
            return CXResultFromNativeError(error);
        }
        const CXResult result = WriteAll(to, piece.data(), got);
        if (result != kCXResultOK) {
            return result;
        }
    }
}

} // namespace

// ---- Queries ----

bool CXFileSystem::Exists(const CXString& path) {
    CXFileAttributes attributes;
    const CXNativeError error = Driver().GetAttributes(path, false, attributes);
    const CXNativeErrors& errors = CXGetNativeErrors();
    if (error != 0 && error != errors.notFound && error != errors.pathNotFound) {
        CXLogFormat("CXFileSystem::Exists> error %d for %s", error, path.GetData());
    }
    return error == 0;
}

bool CXFileSystem::IsDirectory(const CXString& path) {
    CXFileAttributes attributes;
    return Driver().GetAttributes(path, true, attributes) == 0 && attributes.isDirectory;
}

bool CXFileSystem::IsLink(const CXString& path) {
    CXFileAttributes attributes;
    return Driver().GetAttributes(path, false, attributes) == 0 && attributes.isLink;
}

CXResult CXFileSystem::GetAttributes(const CXString& path, bool followLinks,
                                     CXFileAttributes& out) {
    return CXResultFromNativeError(Driver().GetAttributes(path, followLinks, out));
}

CXResult CXFileSystem::Enumerate(const CXString& folder, std::vector<CXFileEntry>& out) {
    return CXResultFromNativeError(Driver().List(folder, out));
}

uint64_t CXFileSystem::GetDirectorySize(const CXString& folder) {
    uint64_t total = 0;
    std::vector<CXString> waiting = {folder};
    while (!waiting.empty()) {
        const CXString path = std::move(waiting.back());
        waiting.pop_back();
        std::vector<CXFileEntry> entries;
        Enumerate(path, entries);
        for (const CXFileEntry& entry : entries) {
            const CXString child = Join(path, entry.name);
            CXFileAttributes attributes;
            if (entry.isDirectory) {
                waiting.push_back(child);
            } else if (!entry.isLink && GetAttributes(child, false, attributes) == kCXResultOK) {
                total += attributes.size;
            }
        }
    }
    return total;
}

CXString CXFileSystem::MakeAbsolute(absl::string_view path) {
    if (path.empty()) {
        return CXString();
    }
    if (IsAbsolute(path)) {
        return NormalisePath(path);
    }
    if (HasWindowsPaths() && IsRoot(path)) {
        return NormalisePath(Join(path, "/"));
    }
    return NormalisePath(Join(GetCurrentDirectory(), path));
}

CXString CXFileSystem::GetCanonicalPath(absl::string_view path) {
    return MakeAbsolute(path);
}

bool CXFileSystem::LeadsOutside(const CXString& root, const CXString& path, bool testLast) {
    const CXString top = MakeAbsolute(root);
    const CXString whole = MakeAbsolute(path);
    if (!IsWithin(top, whole)) {
        return true;
    }
    // Walked as written: behind a link ".." leads above what the link leads to, which the
    // normalised text doesn't show. Windows itself takes the normalised text.
    const bool asWritten = !HasWindowsPaths() && IsWithin(root, path);
    const absl::string_view text = asWritten ? path.View() : whole.View();
    CXString resolvedTop;
    for (size_t at = asWritten ? root.GetLength() : top.GetLength(); at < text.size();) {
        const size_t end = std::min(text.find('/', at + 1), text.size());
        const bool goesUp = text.substr(at, end - at) == "/..";
        at = end;
        if (end == text.size() && !testLast) {
            return false;
        }
        const CXString prefix(text.substr(0, end));
        CXFileAttributes attributes;
        if (Driver().GetAttributes(prefix, false, attributes) != 0) {
            return false;
        }
        if (!attributes.isLink && !goesUp) {
            continue;
        }
        if (resolvedTop.IsEmpty() && Driver().ResolvePath(top, resolvedTop) != 0) {
            return true;
        }
        // A link to nothing would have a file made wherever it points.
        CXString resolved;
        if (Driver().ResolvePath(prefix, resolved) != 0 || !IsWithin(resolvedTop, resolved)) {
            return true;
        }
    }
    return false;
}

// ---- Changes ----

CXResult CXFileSystem::Rename(const CXString& newPath, const CXString& existingPath) {
    return CXResultFromNativeError(Driver().Rename(newPath, existingPath));
}

CXResult CXFileSystem::CreateDirectory(const CXString& path) {
    const CXResult result = CXResultFromNativeError(Driver().MakeDirectory(path));
    return result == kCXResultAlreadyExists && IsDirectory(path) ? kCXResultOK : result;
}

CXResult CXFileSystem::CreateDirectories(const CXString& path) {
    std::vector<CXString> missing;
    CXString folder = WithoutTrailingSlashes(path);
    while (!folder.IsEmpty() && !IsDirectory(folder)) {
        missing.push_back(folder);
        folder = GetParent(folder);
    }
    for (size_t i = missing.size(); i-- != 0;) {
        const CXResult result = CreateDirectory(missing[i]);
        if (result != kCXResultOK) {
            return result;
        }
    }
    return kCXResultOK;
}

CXResult CXFileSystem::DeleteFile(const CXString& path) {
    return IsHeldHere(path) ? kCXResultInUse : CXResultFromDeleteError(Driver().RemoveFile(path));
}

CXResult CXFileSystem::DeleteDirectory(const CXString& path) {
    return IsHeldHere(path) ? kCXResultInUse
                            : CXResultFromDeleteError(Driver().RemoveDirectory(path));
}

CXResult CXFileSystem::DeleteRecursive(const CXString& path) {
    if (path.IsEmpty() || NamesRoot(path)) {
        return kCXResultAccessDenied;
    }
    const CXString top = WithoutTrailingSlashes(path);
    CXFileAttributes attributes;
    if (GetAttributes(top, false, attributes) != kCXResultOK || !attributes.isDirectory) {
        return DeleteFile(top);
    }
    CXResult first = kCXResultOK;
    std::vector<Level> levels;
    const auto enter = [&](const CXString& folder) {
        Level level;
        level.path = folder;
        Remember(first, Enumerate(folder, level.entries));
        levels.push_back(std::move(level));
    };
    enter(top);
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.entries.size()) {
            Remember(first, DeleteDirectory(level.path));
            levels.pop_back();
            continue;
        }
        const CXFileEntry& entry = level.entries[level.next++];
        const CXString child = Join(level.path, entry.name);
        if (entry.isDirectory) {
            enter(child);
        } else {
            Remember(first, DeleteFile(child));
        }
    }
    return first;
}

CXResult CXFileSystem::CopyFile(const CXString& source, const CXString& destination,
                                bool overwrite) {
    // Opening the destination would empty the source.
    if (IsSameFile(source, destination)) {
        return kCXResultAccessDenied;
    }
    if (IsHeldHere(destination)) {
        return kCXResultInUse;
    }
    OpenFile from;
    CXResult result = from.Open(source, CXFileOpen());
    if (result != kCXResultOK) {
        return result;
    }
    CXFileOpen how;
    how.access = CXFileOpen::Access::ReadWrite;
    how.creation = overwrite ? CXFileOpen::Creation::CreateAlways : CXFileOpen::Creation::CreateNew;
    how.share = CXFileOpen::Share::Delete;
    OpenFile to;
    result = to.Open(destination, how);
    if (result != kCXResultOK) {
        return result;
    }
    result = CopyContents(from.Get(), to.Get());
    Remember(result, to.Close());
    if (result == kCXResultOK) {
        return CopyMode(source, destination);
    }
    DeleteFile(destination);
    return result;
}

CXResult CXFileSystem::CopyDirectory(const CXString& source, const CXString& destination) {
    if (IsWithinHere(MakeAbsolute(source), MakeAbsolute(destination))) {
        return kCXResultInvalidArgument;
    }
    std::vector<std::pair<CXString, CXString>> folders = {{source, destination}};
    for (size_t i = 0; i < folders.size(); ++i) {
        const CXString from = folders[i].first;
        const CXString to = folders[i].second;
        std::vector<CXFileEntry> entries;
        CXResult result = Enumerate(from, entries);
        if (result == kCXResultOK) {
            result = CreateDirectories(to);
        }
        for (const CXFileEntry& entry : entries) {
            if (result != kCXResultOK) {
                break;
            }
            if (entry.isDirectory) {
                folders.emplace_back(Join(from, entry.name), Join(to, entry.name));
            } else {
                result = CopyFile(Join(from, entry.name), Join(to, entry.name), true);
            }
        }
        if (result != kCXResultOK) {
            return result;
        }
    }
    // Modes last and from below: a folder may be read-only.
    for (size_t i = folders.size(); i-- != 0;) {
        const CXResult result = CopyMode(folders[i].first, folders[i].second);
        if (result != kCXResultOK) {
            return result;
        }
    }
    return kCXResultOK;
}

CXResult CXFileSystem::ReplaceWithBackup(const CXString& target, const CXString& replacement) {
    const CXString backup = BackupPath(target);
    if (Exists(target)) {
        DeleteFile(backup);
        const CXResult result = Rename(backup, target);
        if (result != kCXResultOK) {
            DeleteFile(replacement);
            return result;
        }
    }
    const CXResult result = Rename(target, replacement);
    if (result != kCXResultOK) {
        // Also without a target of this call: the backup may be what an interrupted one left.
        Rename(target, backup);
        DeleteFile(replacement);
        return result;
    }
    DeleteFile(backup);
    return kCXResultOK;
}

CXResult CXFileSystem::RecoverBackup(const CXString& target) {
    const CXString backup = BackupPath(target);
    if (!Exists(backup)) {
        return kCXResultOK;
    }
    if (Exists(target)) {
        DeleteFile(backup);
        return kCXResultOK;
    }
    return Rename(target, backup);
}

CXString CXFileSystem::CreateUniqueFileName(const CXString* parent, absl::string_view name) {
    if (parent == nullptr) {
        CXLog("CXFileSystem::CreateUniqueFileName> null parent folder path");
        return CXString();
    }
    const CXString clean = SanitiseFileName(name);
    const CXString stem = GetStem(clean);
    const CXString extension = GetExtension(clean);
    CXFileOpen how;
    how.access = CXFileOpen::Access::ReadWrite;
    how.creation = CXFileOpen::Creation::CreateNew;
    how.share = CXFileOpen::Share::Delete;
    CXString candidate = Join(*parent, clean);
    for (uint32_t round = 1; round <= kUniqueRounds; ++round) {
        OpenFile file;
        if (!Exists(candidate) && file.Open(candidate, how) == kCXResultOK) {
            return candidate;
        }
        CXStringEdit next;
        if (round < kRandomNamesFrom) {
            next.Append(stem);
            next.AppendFormat("-%u", round);
            if (!extension.IsEmpty()) {
                next.AppendByte('.');
                next.Append(extension);
            }
        } else {
            next.AppendFormat("temp-%x%x%x", static_cast<uint32_t>(CXTime::GetCurrentTime()),
                              RandomU32(), RandomU32());
        }
        candidate = Join(*parent, next);
    }
    CXLogFormat("CXFileSystem::CreateUniqueFileName> unable to create a unique file path at '%s'",
                parent->GetData());
    return CXString();
}

bool CXFileSystem::GetFilePermissions(const CXString& path, CXString& out) {
    return Driver().GetPermissions(path, out) == 0;
}

CXResult CXFileSystem::SetFilePermissions(const CXString& path, const CXString& text) {
    if (text.IsEmpty()) {
        return kCXResultOK;
    }
    uint32_t mode = 0;
    if (!HasWindowsPaths() && text.Left(6) == "posix:" && !ParsePosixPermissions(text, mode)) {
        return kCXResultUnusable;
    }
    return CXResultFromNativeError(Driver().SetPermissions(path, text));
}

CXResult CXFileSystem::CopyMode(const CXString& from, const CXString& to) {
    CXFileAttributes attributes;
    const CXResult result = GetAttributes(from, true, attributes);
    return result == kCXResultOK ? CXResultFromNativeError(Driver().SetMode(to, attributes.mode))
                                 : result;
}

CXResult CXFileSystem::DeleteAtReboot(const CXString& path) {
    return CXResultFromNativeError(Driver().RemoveAtReboot(path));
}

absl::string_view CXFileSystem::GetLinkExtension() {
    return HasWindowsPaths() ? ".lnk" : ".desktop";
}

CXResult CXFileSystem::CreateLink(const CXString& path, const CXString& target,
                                  const CXString& workingFolder, const CXString& name) {
    const absl::string_view extension = GetLinkExtension();
    CXStringEdit edit(path);
    if (!EqualsNoCase(path.Right(static_cast<int64_t>(extension.size())), extension)) {
        edit.Append(extension);
    }
    return CXResultFromNativeError(Driver().MakeLink(edit.ToString(), target, workingFolder, name));
}

// ---- Volumes ----

std::vector<CXVolume> CXFileSystem::ListVolumes() {
    std::vector<CXVolume> volumes;
    Driver().ListVolumes(volumes);
    return volumes;
}

CXString CXFileSystem::GetVolumeRoot(const CXString& path) {
    const std::vector<CXVolume> volumes = ListVolumes();
    const CXVolume* holder = FindHolder(GetCanonicalPath(path), volumes);
    return holder != nullptr ? holder->mountPath : CXString();
}

bool CXFileSystem::IsOnVolume(const CXString& path, const CXString& mountPath,
                              const std::vector<CXVolume>& volumes) {
    const CXString place = GetCanonicalPath(path);
    const CXString mount = GetCanonicalPath(mountPath);
    if (mount.IsEmpty() || !IsWithinHere(mount, place)) {
        return false;
    }
    if (HasWindowsPaths()) {
        return true;
    }
    // Every path lies below "/": only the mount that really holds it counts.
    const CXVolume* holder = FindHolder(place, volumes);
    return holder == nullptr || GetCanonicalPath(holder->mountPath) == mount;
}

// ---- Folders of the process ----

CXString CXFileSystem::GetApplicationFolder() {
    const CXString folder = ApplicationFolderOverride();
    return folder.IsEmpty() ? GetParent(GetModulePath()) : folder;
}

void CXFileSystem::SetApplicationFolder(const CXString& folder) {
    ApplicationFolderOverride() = folder;
}
