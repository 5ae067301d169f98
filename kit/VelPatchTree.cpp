#include "kit/VelPatchTree.h"

#include "core/CXFileSystem.h"
#include "kit/KitPlatform.h"
#include "patch/FileChecksum.h"
#include "patch/PatchPaths.h"

#include <algorithm>

CXString VelPatchTreeEntry::GetPermissions() const {
    return mode == 0 ? CXString() : CXString::Format("posix:%04o", mode);
}

absl::string_view VelPatchTreeEntry::GetName() const {
    const absl::string_view view = path.View();
    const size_t slash = view.rfind('/');
    return slash == absl::string_view::npos ? view : view.substr(slash + 1);
}

CXResult VelPatchTree::Scan(const CXString& folder, CXString& problem) {
    m_folder = folder;
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
        const CXResult result = ScanFolder(relative, pending, problem);
        if (result != kCXResultOK) {
            m_entries.clear();
            return result;
        }
    }
    // By components: "a/b" belongs behind "a" and before "a.txt", though "." sorts before "/".
    std::sort(m_entries.begin(), m_entries.end(),
              [](const VelPatchTreeEntry& a, const VelPatchTreeEntry& b) {
                  const absl::string_view left = a.path.View();
                  const absl::string_view right = b.path.View();
                  return std::lexicographical_compare(
                      left.begin(), left.end(), right.begin(), right.end(), [](char x, char y) {
                          const int i = x == '/' ? 0 : static_cast<unsigned char>(x) + 1;
                          const int j = y == '/' ? 0 : static_cast<unsigned char>(y) + 1;
                          return i < j;
                      });
              });
    m_checksums.resize(m_entries.size());
    return kCXResultOK;
}

CXResult VelPatchTree::ScanFolder(const CXString& relative, std::vector<CXString>& pending,
                                  CXString& problem) {
    std::vector<CXFileEntry> names;
    const CXString folder = CXFileSystem::Join(m_folder, relative);
    CXResult result = CXFileSystem::Enumerate(folder, names);
    if (result != kCXResultOK) {
        problem = CXString::Format("'%s' can't be listed (result %d)", folder.GetData(), result);
        return result;
    }
    for (const CXFileEntry& name : names) {
        if (relative.IsEmpty() && name.name == kPatchTemporaryFolder) {
            continue;
        }
        VelPatchTreeEntry entry;
        entry.path = CXFileSystem::Join(relative, name.name);
        entry.isFolder = name.isDirectory;
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
            problem = CXString::Format("'%s' can't be read (result %d)", full.GetData(), result);
            return result;
        }
        entry.size = entry.isFolder ? 0 : attributes.size;
        entry.mode = attributes.mode;
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

uint64_t VelPatchTree::GetTotalSize() const {
    uint64_t total = 0;
    for (const VelPatchTreeEntry& entry : m_entries) {
        total += entry.size;
    }
    return total;
}
