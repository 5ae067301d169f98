#include "app/config/VelPatchTreeFile.h"

#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamTools.h"

#include <algorithm>

namespace {

/// Bytes; such files are a few lines for each folder or key.
constexpr uint64_t kLargestFile = 64 << 20;

/// A brace that closes nothing must not cost what stands behind it: that may be other folders'.
void ParseBeyondStrayBraces(absl::string_view text, DNValue& root) {
    while (!text.empty()) {
        TextConfig::Trace trace;
        TextConfig::Parse(text.data(), text.size(), root, &trace);
        text.remove_prefix(std::min(trace.strayBrace, text.size()));
        text.remove_prefix(std::min(text.find_first_not_of("} \t\r\n"), text.size()));
    }
}

} // namespace

bool ReadTreeFile(const CXString& path, DNValueRef& root) {
    root = new DNMemoryValue;
    const bool isRecovered = CXFileSystem::RecoverBackup(path) == kCXResultOK;
    CXStringEdit text;
    const CXResult result = ReadWholeFile(path, text, kLargestFile);
    if (result != kCXResultOK) {
        return isRecovered && result == kCXResultNotFound;
    }
    ParseBeyondStrayBraces(text.View(), *root);
    return true;
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
