// Fetches the data file into a local file, and shows how far it is.
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "core/CXTime.h"
#include "net/CXAddressMask.h"
#include "net/CXHTTPConnection.h"
#include "patch/TransferStatus.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "stream/CXStreamFile.h"

namespace {

/// Of one call; a connection that broke is worth another.
constexpr int kAttempts = 3;
constexpr uint32_t kFresh = kOpenWrite | kOpenCreate | kOpenTruncate;

/// One transfer from the front of the file, whose size tells the connection what is there already.
CXResult Transfer(CXHTTPConnection& connection, const CXURI& uri, CXStreamFile& file,
                  CXStringEdit& debugText, const CXHTTPProgress& progress) {
    file.ResetError();
    file.Seek(0, kCXSeekStart);
    const CXResult result = connection.Get(uri, &file, &debugText, progress);
    if (result != kCXResultOK) {
        return result;
    }
    // What still waits in the buffer may find the disk full.
    file.Flush();
    return file.GetLastError();
}

} // namespace

bool VelPatchTask_ApplyFilePatches::DownloadPatchData(const CXURI& uri, const CXString& path,
                                                      const CXHTTPProgress& callback,
                                                      CXStringEdit& title, CXStringEdit& detail,
                                                      bool resume) {
    title.Clear();
    detail.Clear();
    const CXString address = MaskAddress(uri.ToString());
    LogFormat("VelPatchTask_ApplyFilePatches::DownloadPatchData> %s -> %s", address.GetData(),
              path.GetData());
    CXStreamFile file;
    file.Open(path, resume ? kOpenWrite : kFresh);
    if (!file.IsOpen() && resume) {
        Log("VelPatchTask_ApplyFilePatches::DownloadPatchData> failed to open output file for "
            "resume. deleting");
        DeletePatiently(path);
        file.Open(path, kFresh);
    }
    if (!file.IsOpen()) {
        Log("VelPatchTask_ApplyFilePatches::DownloadPatchData> failed to open output file");
        title.Assign(GetLocalisedString("$velpatch_task_failed_to_open_output_file"));
        detail.AppendFormat("Result: %d. Path: %s", file.GetLastError(), path.GetData());
        return false;
    }
    CXHTTPConnection connection;
    connection.SetCancelEvent(GetEventRef(kEventStopRequested));
    CXStringEdit debugText;
    CXResult result = kCXResultCancelled;
    for (int attempt = 0; attempt < kAttempts && !IsStopRequested(); ++attempt) {
        result = Transfer(connection, uri, file, debugText, callback);
        if (result != kCXResultEndOfStream) {
            break;
        }
    }
    if (result == kCXResultOK) {
        Log("VelPatchTask_ApplyFilePatches::DownloadPatchData> done");
        return true;
    }
    title.Assign(GetLocalisedString("$velpatch_task_failed_to_download_installation_data"));
    detail.AppendFormat("Result: %d. Path: '%s'. URL: '%s'", result, path.GetData(),
                        address.GetData());
    Log("VelPatchTask_ApplyFilePatches::DownloadPatchData> failed to download installation data");
    LogFormat("**DETAILS:\n%s", detail.ToString().GetData());
    LogFormat("**DEBUG:\n%s", debugText.ToString().GetData());
    Log("**");
    return false;
}

bool VelPatchTask_ApplyFilePatches::FormatTransferStatus(const CXString& baseText,
                                                         const CXStreamProgressCallbackData& data) {
    const CXCriticalSectionGuard guard(m_lock);
    m_status.fraction = data.fraction;
    CXStringEdit text(baseText);
    AppendTransferStatus(data, CXTime::GetCurrentTime(), text);
    // It comes many times a second, and mostly with the same words.
    if (m_status.statusText.View() != text.View()) {
        m_status.statusText = text.ToString();
    }
    return !IsStopRequested();
}
