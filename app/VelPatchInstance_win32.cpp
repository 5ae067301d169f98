#include "app/VelPatchInstance.h"

#include "core/win32_api.h"

#include <psapi.h>

#include <string>

namespace {

constexpr DWORD kMaxImageUnits = 260;

struct Search {
    std::u16string ownImage;
    HWND found = nullptr;
};

/// Image of a process in the system's own form; empty if it can't be told.
std::u16string ImageOf(HANDLE process) {
    wchar_t path[kMaxImageUnits];
    const DWORD units = ::GetProcessImageFileNameW(process, path, kMaxImageUnits);
    return std::u16string(reinterpret_cast<const char16_t*>(path), units);
}

/// Ends the enumeration at the first window of a process with this one's image.
BOOL CALLBACK LookAtWindow(HWND window, LPARAM parameter) {
    Search& search = *reinterpret_cast<Search*>(parameter);
    DWORD processId = 0;
    ::GetWindowThreadProcessId(window, &processId);
    const HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
    if (process == nullptr) {
        return TRUE;
    }
    const std::u16string image = ImageOf(process);
    ::CloseHandle(process);
    if (!IsSameImage(std::u16string_view(image), std::u16string_view(search.ownImage))) {
        return TRUE;
    }
    search.found = window;
    return FALSE;
}

} // namespace

bool HandOverToRunningInstance(absl::string_view line, const char*) {
    Search search;
    search.ownImage = ImageOf(::GetCurrentProcess());
    ::EnumWindows(LookAtWindow, reinterpret_cast<LPARAM>(&search));
    if (search.found == nullptr || line.size() >= kHandOverMaxBytes) {
        return false;
    }
    std::string text(line);
    COPYDATASTRUCT message{};
    message.dwData = kHandOverTag;
    message.cbData = static_cast<DWORD>(text.size() + 1);
    message.lpData = text.data();
    const LRESULT answer =
        ::SendMessageW(search.found, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&message));
    if (answer != static_cast<LRESULT>(kHandOverAccepted)) {
        return false;
    }
    ::BringWindowToTop(search.found);
    return true;
}

struct VelPatchInstanceListener::Endpoint {};

VelPatchInstanceListener::VelPatchInstanceListener(VelPatchHandOverReceiver&, const char*) {}

VelPatchInstanceListener::~VelPatchInstanceListener() = default;

bool VelPatchInstanceListener::IsListening() const {
    return true;
}

void VelPatchInstanceListener::Poll() {}
