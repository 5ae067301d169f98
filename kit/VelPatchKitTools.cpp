#include "kit/VelPatchKitTools.h"

#include "app/config/VelPatchConfiguration.h"
#include "core/CXFileSystem.h"
#include "core/CXText.h"
#include "core/CXTime.h"
#include "kit/KitPlatform.h"
#include "kit/VelPatchConsole.h"
#include "kit/VelPatchKit.h"
#include "kit/VelPatchResultText.h"
#include "kit/VelPatchRunner.h"
#include "net/CXAddressMask.h"
#include "net/CXSSLContext.h"
#include "net/CXURI.h"
#include "patch/PatchControl.h"
#include "stream/CXStreamFile.h"

namespace {

// Between a prompt and the retry that was promised for it; the cause needs time to go away.
constexpr uint32_t kRetryPauseMilliseconds = 1000;

} // namespace

CXString TypedPath(const std::string& text) {
    return CXFileSystem::MakeAbsolute(
        CXFileSystem::FromForeignPath(absl::string_view(text.data(), text.size())));
}

bool IsWebAddress(absl::string_view text) {
    const CXURI uri{text};
    return EqualsNoCase(uri.scheme, "http") || EqualsNoCase(uri.scheme, "https");
}

CXURI TypedAddress(const std::string& text) {
    const absl::string_view view(text.data(), text.size());
    return IsWebAddress(view) ? CXURI(view) : CXURI(FileURIOfPath(TypedPath(text)));
}

bool TrustTypedFile(const std::string& text, VelPatchConsole& console) {
    const CXString path = TypedPath(text);
    CXSSLContext context;
    if (context.LoadVerifyFile(path) != kCXResultOK) {
        console.Complain(CXString::Format("'%s' holds no certificates", path.GetData()));
        return false;
    }
    CXSSLContext::SetDefaultVerifyFile(path);
    return true;
}

bool OpenForReading(CXStreamFile& file, const CXString& path, VelPatchConsole& console) {
    file.Open(path, kOpenRead);
    if (!file.IsOpen() || CXFileSystem::IsDirectory(path)) {
        console.Complain(CXString::Format("'%s' can't be read", path.GetData()));
        return false;
    }
    return true;
}

int WriteNewFile(const CXString& path, VelPatchConsole& console,
                 const std::function<CXResult(CXStreamFile&)>& write) {
    const CXString temporary = CXString::Format("%s.tmp", path.GetData());
    CXStreamFile file;
    file.Open(temporary, kOpenRead | kOpenWrite | kOpenCreate | kOpenTruncate);
    CXResult result = CXResultCertainFailure(file.GetLastError());
    if (file.IsOpen()) {
        result = write(file);
        file.Flush();
        file.Close();
        if (result == kCXResultOK) {
            result = file.GetLastError();
        }
        if (result == kCXResultOK) {
            result = CXFileSystem::ReplaceWithBackup(path, temporary);
        }
    }
    if (result == kCXResultOK) {
        return kKitDone;
    }
    CXFileSystem::DeleteFile(temporary);
    if (result == kCXResultCancelled) {
        console.Complain("stopped");
        return kKitStopped;
    }
    console.Complain(
        result == kCXResultBadData
            ? CXString::Format("'%s' isn't made: it would be wrong", path.GetData())
            : CXString::Format("'%s' can't be written: %s", path.GetData(), ResultText(result)));
    return kKitFailed;
}

bool LoadTypedControl(const std::string& text, VelPatchConsole& console, PatchControl& control,
                      uint64_t& size) {
    size = 0;
    CXString name(text.data(), text.size());
    if (!IsWebAddress(name)) {
        const CXString path = TypedPath(text);
        CXStreamFile file;
        if (!OpenForReading(file, path, console)) {
            return false;
        }
        size = file.GetSize();
        name = path;
    } else {
        name = MaskAddress(name);
    }
    const CXResult result = LoadControlFile(
        TypedAddress(text), control, [&console](const CXString& line) { console.Complain(line); });
    if (result == kCXResultEndOfStream && IsWebAddress(name)) {
        console.Complain(CXString::Format(
            "'%s' can't be fetched: nobody answers, or the answer ends too soon", name.GetData()));
        return false;
    }
    if (result != kCXResultOK) {
        console.Complain(CXString::Format("'%s' is not a control file that can be used: %s",
                                          name.GetData(), ResultText(result)));
        return false;
    }
    if (control.operations.empty()) {
        console.Complain(CXString::Format("'%s' holds no operations", name.GetData()));
        return false;
    }
    return true;
}

VelPatchWatcher WatchOnConsole(VelPatchConsole& console, bool retries) {
    VelPatchWatcher watcher;
    watcher.status = [&console](const TaskStatus& status) {
        if (!status.statusText.IsEmpty()) {
            console.ShowProgress(status.statusText, status.state == kTaskStateMeasured
                                                        ? static_cast<double>(status.fraction)
                                                        : -1);
        }
    };
    watcher.prompt = [&console, retries](const TaskStatus& status) {
        if (KitPlatform::IsInputTerminal() && KitPlatform::IsErrorTerminal()) {
            return console.Ask(status.failureTitle, status.failureDetail, "Try again?");
        }
        console.Complain(status.failureTitle);
        if (!status.failureDetail.IsEmpty()) {
            console.Complain(status.failureDetail);
        }
        if (retries) {
            CXSleep(kRetryPauseMilliseconds);
        }
        return retries;
    };
    watcher.isStopped = KitPlatform::IsInterrupted;
    return watcher;
}
