#include "kit/VelPatchTree.h"

#include "core/CXFileSystem.h"
#include "core/CXText.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchResultText.h"
#include "patch/FileChecksum.h"
#include "patch/PatchPaths.h"

#include <algorithm>

namespace {

/// By components: "a/b" belongs behind "a" and before "a.txt", though "." sorts before "/".
bool IsBefore(const VelPatchTreeEntry& a, const VelPatchTreeEntry& b) {
    const absl::string_view left = a.path.View();
    const absl::string_view right = b.path.View();
    return std::lexicographical_compare(
        left.begin(), left.end(), right.begin(), right.end(), [](char x, char y) {
            const int i = x == '/' ? 0 : static_cast<unsigned char>(x) + 1;
            const int j = y == '/' ? 0 : static_cast<unsigned char>(y) + 1;
            return i < j;
        });
}

} // namespace

CXString VelPatchTreeEntry::GetPermissions() const {
    return mode == 0 ? CXString() : CXString::Format("posix:%04o", mode);
}

absl::string_view VelPatchTreeEntry::GetName() const {
    const absl::string_view view = path.View();
    const size_t slash = view.rfind('/');
    return slash == absl::string_view::npos ? view : view.substr(slash + 1);
}

bool IsNameForWindows(absl::string_view name) {
    return CXFileSystem::IsValidFileName(name) && name.back() != '.' && name.back() != ' ';
}

bool MatchesGlob(absl::string_view path, absl::string_view glob) {
    if (glob.find('/') == absl::string_view::npos) {
        path = path.substr(path.rfind('/') + 1);
    }
    // Backtracking goes to the last star alone, or to the last double star when that fails, so the
    // time is at most the product of the lengths and one of them.
    struct Star {
        size_t glob = absl::string_view::npos; ///< behind it
        size_t path = 0;                       ///< how far it reaches
    };
    Star single;
    Star wide;
    size_t at = 0;
    size_t in = 0;
    while (at < path.size() || in < glob.size()) {
        if (in < glob.size() && glob[in] == '*') {
            const bool isWide = in + 1 < glob.size() && glob[in + 1] == '*';
            in += isWide ? 2 : 1;
            (isWide ? wide : single) = {in, at};
            if (isWide) {
                single = Star();
            }
            continue;
        }
        if (at < path.size() && in < glob.size() && glob[in] == '?' && path[at] != '/') {
            at += std::max<size_t>(CodePointSize(path.substr(at)), 1);
            in++;
            continue;
        }
        if (at < path.size() && in < glob.size() && glob[in] == path[at]) {
            at++;
            in++;
            continue;
        }
        if (single.glob != absl::string_view::npos && single.path < path.size() &&
            path[single.path] != '/') {
            at = ++single.path;
            in = single.glob;
        } else if (wide.glob != absl::string_view::npos && wide.path < path.size()) {
            at = ++wide.path;
            in = wide.glob;
            single = Star();
        } else {
            return false;
        }
    }
    return true;
}

CXResult VelPatchTree::Scan(const CXString& folder, const std::vector<CXString>& ignored,
                            CXString& problem) {
    m_folder = folder;
    m_ignored = ignored;
    m_entries.clear();
    m_checksums.clear();
    if (!CXFileSystem::IsDirectory(folder)) {
        problem = CXString::Format("'%s' is not a folder", folder.GetData());
        return kCXResultNotFound;
    }
    // An own stack: the depth of a tree is not ours to trust.
    std::vector<CXString> pending = {CXString()};
    while (!pending.empty()) {
        const CXString relative = pending.back();
        pending.pop_back();
        const CXResult result = ScanFolder(relative, pending, ignored, problem);
        if (result != kCXResultOK) {
            m_entries.clear();
            return result;
        }
    }
    std::sort(m_entries.begin(), m_entries.end(), IsBefore);
    m_checksums.resize(m_entries.size());
    return kCXResultOK;
}

CXResult VelPatchTree::ScanFolder(const CXString& relative, std::vector<CXString>& pending,
                                  const std::vector<CXString>& ignored, CXString& problem) {
    std::vector<CXFileEntry> names;
    const CXString folder = CXFileSystem::Join(m_folder, relative);
    CXResult result = CXFileSystem::Enumerate(folder, names);
    if (result != kCXResultOK) {
        problem =
            CXString::Format("'%s' can't be listed: %s", folder.GetData(), ResultText(result));
        return result;
    }
    for (const CXFileEntry& name : names) {
        if (relative.IsEmpty() && name.name == kPatchTemporaryFolder) {
            continue;
        }
        VelPatchTreeEntry entry;
        entry.path = CXFileSystem::Join(relative, name.name);
        entry.isFolder = name.isDirectory;
        if (std::any_of(ignored.begin(), ignored.end(), [&](const CXString& glob) {
                return MatchesGlob(entry.path.View(), glob.View());
            })) {
            continue;
        }
        const CXString full = CXFileSystem::Join(m_folder, entry.path);
        if (name.isLink) {
            problem = CXString::Format("'%s' is a link, which a patch can't carry", full.GetData());
            return kCXResultNotSupported;
        }
        if (!entry.isFolder && !KitPlatform::IsRegularFile(full)) {
            problem = CXString::Format(
                "'%s' is neither a file nor a folder, which a patch can't carry", full.GetData());
            return kCXResultNotSupported;
        }
        CXFileAttributes attributes;
        result = CXFileSystem::GetAttributes(full, false, attributes);
        if (result != kCXResultOK) {
            problem =
                CXString::Format("'%s' can't be read: %s", full.GetData(), ResultText(result));
            return result;
        }
        entry.size = entry.isFolder ? 0 : attributes.size;
        entry.mode = attributes.mode;
        entry.modified = attributes.modified;
        if (entry.isFolder) {
            pending.push_back(entry.path);
        }
        m_entries.push_back(entry);
    }
    return kCXResultOK;
}

CXString VelPatchTree::GetFullPath(size_t index) const {
    return CXFileSystem::Join(m_folder, m_entries[index].path);
}

const CXString& VelPatchTree::GetChecksum(size_t index) {
    CXString& checksum = m_checksums[index];
    if (checksum.IsEmpty()) {
        MD5OfFile(GetFullPath(index), checksum);
    }
    return checksum;
}

CXString VelPatchTree::FindChanged() const {
    VelPatchTree now;
    CXString problem;
    if (now.Scan(m_folder, m_ignored, problem) != kCXResultOK) {
        return m_folder; // what can't be listed any more has been changed
    }
    const size_t count = std::min(m_entries.size(), now.m_entries.size());
    for (size_t i = 0; i < count; i++) {
        const VelPatchTreeEntry& then = m_entries[i];
        const VelPatchTreeEntry& entry = now.m_entries[i];
        if (entry.path != then.path) {
            // The one that sorts first is what the other list lacks.
            return IsBefore(entry, then) ? now.GetFullPath(i) : GetFullPath(i);
        }
        const bool isTouched = entry.size != then.size || entry.modified != then.modified;
        if (entry.isFolder != then.isFolder || (!entry.isFolder && isTouched)) {
            return GetFullPath(i);
        }
    }
    if (count < m_entries.size()) {
        return GetFullPath(count);
    }
    return count < now.m_entries.size() ? now.GetFullPath(count) : CXString();
}

uint64_t VelPatchTree::GetTotalSize() const {
    uint64_t total = 0;
    for (const VelPatchTreeEntry& entry : m_entries) {
        total += entry.size;
    }
    return total;
}
