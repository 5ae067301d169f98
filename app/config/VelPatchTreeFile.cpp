#include "app/config/VelPatchTreeFile.h"

#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "stream/CXStreamFile.h"

bool ReadTreeFile(const CXString& path, DNValueRef& root) {
    root = new DNMemoryValue;
    const bool isRecovered = CXFileSystem::RecoverBackup(path) == kCXResultOK;
    CXStreamFile file;
    file.Open(path, kOpenRead);
    if (file.GetLastError() != kCXResultOK) {
        return isRecovered && file.GetLastError() == kCXResultNotFound;
    }
    root = TextConfig::Read(file);
    return file.GetLastError() == kCXResultOK;
}

CXResult WriteTreeFile(const CXString& path, const DNValue& root, const CXString& permissions) {
    CXStringEdit temporaryName(path.View());
    temporaryName.Append(".tmp");
    const CXString temporary = temporaryName.ToString();
    CXStreamFile file;
    file.Open(temporary, kOpenWrite | kOpenCreate | kOpenTruncate);
    if (file.GetLastError() != kCXResultOK) {
        return file.GetLastError();
    }
    CXFileSystem::SetFilePermissions(temporary, permissions);
    CXFileSystem::GiveToFolderOwner(temporary);
    TextConfig::Write(root, file);
    file.Flush();
    const CXResult result = file.GetLastError();
    file.Close();
    if (result != kCXResultOK) {
        CXFileSystem::DeleteFile(temporary);
        return result;
    }
    return CXFileSystem::ReplaceWithBackup(path, temporary);
}
