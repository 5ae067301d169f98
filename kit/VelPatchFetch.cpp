#include "kit/VelPatchFetch.h"

#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "core/CXTime.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchConsole.h"
#include "kit/VelPatchKit.h"
#include "kit/VelPatchResultText.h"
#include "net/CXAddressMask.h"
#include "net/CXHTTPConnection.h"
#include "runtime/CXGenericEvent.h"
#include "stream/CXStreamFile.h"

#include <algorithm>

namespace {

constexpr int64_t kRedrawMs = 200;
constexpr double kBytesPerMiB = 1048576.0;

/// Ends a transfer that stalls, when nothing calls the progress function.
class InterruptEvent : public CXGenericEvent {
public:
    ~InterruptEvent() override { DetachRefs(); }
    bool Test() override { return KitPlatform::IsInterrupted(); }
};

/// Watches one transfer.
class FetchProgress {
public:
    explicit FetchProgress(VelPatchConsole& console) : m_console(console) {}

    bool operator()(const CXStreamProgressCallbackData& data) {
        m_bytes = data.bytesDone;
        const int64_t now = CXTime::GetCurrentTime();
        if (now - m_lastDrawn >= kRedrawMs || data.bytesDone == data.bytesTotal) {
            m_lastDrawn = now;
            // Lines that are not redrawn would repeat at every change of the rate.
            const CXString activity =
                KitPlatform::IsErrorTerminal()
                    ? CXString::Format("fetching, %.1f MiB at %.1f MiB/s",
                                       static_cast<double>(m_bytes) / kBytesPerMiB, GetRate())
                    : CXString("fetching");
            m_console.ShowProgress(
                activity, data.sizeUnknown != 0 ? -1.0 : static_cast<double>(data.fraction));
        }
        return !KitPlatform::IsInterrupted();
    }

    uint64_t GetBytes() const { return m_bytes; }
    double GetSeconds() const {
        return static_cast<double>(std::max<int64_t>(CXTime::GetCurrentTime() - m_start, 1)) /
               1000.0;
    }
    /// MiB per second since the start.
    double GetRate() const { return static_cast<double>(m_bytes) / kBytesPerMiB / GetSeconds(); }

private:
    VelPatchConsole& m_console;
    int64_t m_start = CXTime::GetCurrentTime();
    int64_t m_lastDrawn = 0;
    uint64_t m_bytes = 0;
};

bool OpenOutput(const VelPatchFetchOptions& options, CXStreamFile& file) {
    if (options.resume) {
        file.Open(options.path, kOpenWrite);
    }
    if (!file.IsOpen()) {
        file.Open(options.path, kOpenWrite | kOpenCreate | kOpenTruncate);
    }
    return file.IsOpen();
}

const char* Explain(CXResult result, int32_t status) {
    switch (result) {
    case kCXResultNotFound:
        return status == 404 ? "there is no such file" : "the host has no address";
    case kCXResultEndOfStream:
        return status == 0 ? "the server can't be reached" : "the connection ended early";
    case kCXResultAccessDenied:
        return "the TLS handshake failed; is the server's root in the trust file?";
    case kCXResultBadData:
        return status == 206 ? "the server sends the rest alone, which this client refuses; fetch "
                               "the whole file"
                             : "the reply is malformed, or redirects lead nowhere";
    case kCXResultUnusable:
        return "the address, or one that it leads to, is neither http nor https";
    case kCXResultFailed:
        return "the trust file is missing, or the certificate is another host's";
    case kCXResultInvalidArgument:
        return status == 0 ? "the address or the proxy is malformed" : "the server refuses";
    default:
        return "the transfer failed";
    }
}

} // namespace

int FetchFile(const VelPatchFetchOptions& options, VelPatchConsole& console) {
    const CXURI uri{options.address.View()};
    if (uri.host.IsEmpty() || (uri.scheme != "http" && uri.scheme != "https")) {
        console.Complain(CXString::Format("'%s' is no http or https address",
                                          MaskAddress(options.address).GetData()));
        return kKitUsage;
    }
    InterruptEvent interrupt;
    CXHTTPConnection connection;
    connection.SetCancelEvent(CXGenericEventRef(&interrupt));
    connection.SetProxy(options.proxy);
    CXStreamFile file;
    if (!OpenOutput(options, file)) {
        console.Complain(CXString::Format("'%s' can't be written: %s", options.path.GetData(),
                                          ResultText(file.GetLastError())));
        return kKitUsage;
    }

    const uint64_t sizeBefore = file.GetSize();
    FetchProgress progress(console);
    CXStringEdit debugText;
    CXResult result = connection.Get(uri, &file, &debugText, std::ref(progress));
    const double seconds = progress.GetSeconds();
    const double rate = progress.GetRate();
    const int32_t status = connection.GetStatus();
    if (result == kCXResultOK && status == 200) {
        file.SetSize(file.GetPosition()); // the whole file: nothing of an older, longer one stays
    } else if (result != kCXResultOK && status != 200 && status != 206) {
        // A refusal's body has overwritten the front of what was there.
        file.SetSize(progress.GetBytes() == 0 ? sizeBefore : 0);
    }
    const uint64_t size = file.GetSize();
    file.Close();
    if (result == kCXResultOK) {
        result = file.GetLastError();
    } else if (size == 0) {
        CXFileSystem::DeleteFile(options.path);
    }
    console.EndProgress();
    console.PutData("result", CXString::Format("%d", result));
    console.PutData("status", CXString::Format("%d", status));
    console.PutData("bytes", progress.GetBytes());
    console.PutData("file-bytes", size);
    console.PutData("seconds", CXString::Format("%.3f", seconds));
    console.PutData("mib-per-second", CXString::Format("%.1f", rate));
    if (result == kCXResultOK) {
        console.Say(CXString::Format("Fetched %.1f MiB in %.1f s (%.1f MiB/s).",
                                     static_cast<double>(progress.GetBytes()) / kBytesPerMiB,
                                     seconds, rate));
        return kKitDone;
    }
    if (KitPlatform::IsInterrupted()) {
        console.Complain("stopped");
        return kKitStopped;
    }
    console.Complain(
        CXString::Format("%s (result %d, status %d)", Explain(result, status), result, status));
    if (!debugText.IsEmpty()) {
        console.Say(debugText.ToString());
    }
    return kKitFailed;
}
