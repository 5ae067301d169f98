#include "patch/PatchControl.h"

#include "core/CXLog.h"
#include "core/CXText.h"
#include "dn/DNValue.h"
#include "dn/DNValueRef.h"
#include "dn/TextConfig.h"
#include "net/CXHTTPConnection.h"
#include "net/CXURI.h"
#include "patch/PatchPaths.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamFile.h"

namespace {

/// First format version that this program can't read.
constexpr int64_t kFirstUnknownVersion = 2;

/// A service that sends without end is not to fill the memory. Enough for half a million files.
constexpr uint64_t kLongestControlFile = 256ULL << 20;

/// Reads the tree from a local file; one that can't be opened gives an empty tree. A file that
/// opens and then can't be read to its end is a failure: it may well hold operations.
CXResult ReadTree(const CXString& path, DNValueRef& tree) {
    CXStreamFile file;
    file.Open(path, kOpenRead);
    if (!file.IsOpen()) {
        tree = DNValueRef();
        return kCXResultOK;
    }
    tree = TextConfig::Read(file);
    return file.GetLastError();
}

/// Fetches the whole text before any of it is read; more than kLongestControlFile is a failure.
CXResult FetchTree(const CXURI& uri, DNValueRef& tree) {
    CXStreamDynamicBuffer body;
    CXHTTPConnection connection;
    const CXResult result =
        connection.Get(uri, &body, nullptr, [](const CXStreamProgressCallbackData& progress) {
            return progress.bytesDone <= kLongestControlFile;
        });
    if (result == kCXResultOK) {
        body.Seek(0, kCXSeekStart);
        tree = TextConfig::Read(body);
    }
    return result;
}

} // namespace

CXResult LoadControlFile(const CXURI& uri, PatchControl& out,
                         const std::function<void(const CXString&)>& log) {
    DNValueRef tree;
    CXResult result = kCXResultInvalidArgument;
    if (EqualsNoCase(uri.scheme, "file")) {
        result = ReadTree(uri.ToFilePath(), tree);
    } else if (EqualsNoCase(uri.scheme, "http") || EqualsNoCase(uri.scheme, "https")) {
        result = FetchTree(uri, tree);
    }
    if (result != kCXResultOK) {
        return result;
    }
    if (tree->Get("velpatch-version")->GetInt64() >= kFirstUnknownVersion) {
        return kCXResultUnusable;
    }
    PatchControl control;
    ReadOperations(*tree, control.operations);
    CXString offender;
    if (!AreOperationPathsSafe(control.operations, offender)) {
        const CXString line = CXString::Format(
            "VelPatchTask_ApplyFilePatches::LoadControlFile> path leaves the target: '%s'",
            offender.GetData());
        if (log) {
            log(line);
        } else {
            CXLog(line);
        }
        return kCXResultBadData;
    }
    control.dataSize = tree->Get("datafilesize")->GetInt64();
    control.dataChecksum = tree->Get("datafilechecksum")->GetString();
    out = std::move(control);
    return kCXResultOK;
}
