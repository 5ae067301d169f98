#include "kit/VelPatchControlWriter.h"

#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "stream/CXStreamFile.h"

namespace {

constexpr int32_t kFormatVersion = 1;

void SetText(DNValue& folder, const char* key, const CXString& text) {
    if (!text.IsEmpty()) {
        folder.SetNew(key, DNData::String(text));
    }
}

void WriteOperation(DNValue& folder, const PatchOperation& operation) {
    folder.SetNew("command", DNData::String(PatchCommandWord(operation.command)));
    SetText(folder, "source-filepath", operation.sourcePath);
    SetText(folder, "source-checksum", operation.sourceChecksum);
    SetText(folder, "destination-filepath", operation.destinationPath);
    SetText(folder, "destination-permissions", operation.destinationPermissions);
    SetText(folder, "destination-checksum", operation.destinationChecksum);
    if (operation.estimatedEffort != 0) {
        folder.SetNew("estimated-effort", DNData::Int64(operation.estimatedEffort));
    }
    if (operation.flags != 0) {
        folder.SetNew("flags", DNData::Int(static_cast<int32_t>(operation.flags)));
    }
}

DNValueRef MakeTree(const std::vector<PatchOperation>& operations, int64_t dataSize,
                    const CXString& dataChecksum) {
    DNValueRef root = new DNMemoryValue;
    root->SetNew("velpatch-version", DNData::Int(kFormatVersion));
    root->SetNew("datafilesize", DNData::Int64(dataSize));
    SetText(*root, "datafilechecksum", dataChecksum);
    const DNValueRef list = root->GetOrCreateFolder(DNData::String("patch-operations"));
    for (size_t i = 0; i < operations.size(); i++) {
        const DNValueRef entry = list->GetOrCreateFolder(DNData::String(CXString::Format("%d", i)));
        WriteOperation(*entry, operations[i]);
    }
    return root;
}

} // namespace

CXResult WriteControlFile(const CXString& path, const std::vector<PatchOperation>& operations,
                          int64_t dataSize, const CXString& dataChecksum) {
    CXStreamFile file;
    file.Open(path, kOpenRead | kOpenWrite | kOpenCreate | kOpenTruncate);
    if (!file.IsOpen()) {
        return CXResultCertainFailure(file.GetLastError());
    }
    const DNValueRef root = MakeTree(operations, dataSize, dataChecksum);
    TextConfig::Write(*root, file);
    file.Flush();
    file.Close();
    return file.GetLastError();
}
