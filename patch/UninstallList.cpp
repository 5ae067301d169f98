#include "patch/UninstallList.h"

#include "core/CXFileSystem.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamTools.h"

namespace {

constexpr uint32_t kVersion = 0;
/// More than any system takes for a path.
constexpr uint32_t kLongestPath = 0x20000;

} // namespace

CXString GetUninstallListPath(const CXString& targetFolder) {
    return CXFileSystem::GetCanonicalPath(CXFileSystem::Join(targetFolder, "uninstall.dat"));
}

CXResult WriteUninstallList(const CXString& targetFolder, const std::vector<CXString>& paths) {
    const CXString path = GetUninstallListPath(targetFolder);
    if (paths.empty() || CXFileSystem::Exists(path)) {
        return kCXResultOK;
    }
    CXStreamFile file;
    file.Open(path, kOpenWrite | kOpenCreate);
    if (!file.IsOpen()) {
        return CXResultCertainFailure(file.GetLastError());
    }
    file.WriteU32(kVersion);
    for (const CXString& entry : paths) {
        WriteStreamString(file, entry);
    }
    file.Close();
    return file.GetLastError();
}

void ReadUninstallList(CXStream& stream, const std::function<void(const CXString&)>& entry) {
    uint32_t version = 0; // also that of a file too short to hold one
    stream.ReadU32(version);
    CXString path;
    while (version == kVersion && ReadStreamString(stream, path, kLongestPath)) {
        entry(path);
    }
}
