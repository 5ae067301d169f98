#include "app/VelPatchSelfDelete.h"

#include "core/CXFileSystem.h"
#include "core/CXText.h"

#include <vector>

namespace {

bool IsSameName(absl::string_view a, absl::string_view b) {
    return CXFileSystem::HasWindowsPaths() ? EqualsNoCase(a, b) : a == b;
}

/// A running program's own files can't be removed on Windows, and needn't wait elsewhere.
void Remove(const CXString& path, bool isFolder) {
    if (CXFileSystem::HasWindowsPaths()) {
        CXFileSystem::DeleteAtReboot(path);
    } else if (isFolder) {
        CXFileSystem::DeleteDirectory(path);
    } else {
        CXFileSystem::DeleteFile(path);
    }
}

} // namespace

bool VelPatchSelfDelete::IsLibrary(absl::string_view name, bool isWindows) {
    const CXString extension = CXFileSystem::GetExtension(name);
    if (isWindows) {
        return EqualsNoCase(extension, "dll");
    }
    return extension == "dll" || extension == "so" || name.find(".so.") != absl::string_view::npos;
}

bool VelPatchSelfDelete::Run(const CXString& program, const ShowBox& showBox) {
    const CXString folder = CXFileSystem::GetParent(program);
    const CXString programName = CXFileSystem::GetFileName(program);
    const bool isWindows = CXFileSystem::HasWindowsPaths();
    std::vector<CXFileEntry> entries;
    if (CXFileSystem::Enumerate(folder, entries) != kCXResultOK) {
        return false; // whose it is can't be said
    }
    for (const CXFileEntry& entry : entries) {
        const bool isData = entry.isDirectory && IsSameName(entry.name, "data");
        if (!isData && !IsSameName(entry.name, programName) && !IsLibrary(entry.name, isWindows) &&
            entry.name.GetData()[0] != '.') {
            showBox("Unexpected file in patch folder", CXFileSystem::Join(folder, entry.name));
            return false;
        }
    }
    CXFileSystem::DeleteRecursive(CXFileSystem::Join(folder, "data"));
    for (const CXFileEntry& entry : entries) {
        if (!IsSameName(entry.name, programName) && IsLibrary(entry.name, isWindows)) {
            Remove(CXFileSystem::Join(folder, entry.name), entry.isDirectory);
        }
    }
    Remove(program, false);
    Remove(folder, true);
    return true;
}
