#include "core/CXFileSystem.h"
#include "core/CXPlatformText.h"
#include "core/CXStringUTF16.h"

#include <utility>

#include "core/win32_api.h"
#include <knownfolders.h>
#include <shellapi.h>
#include <shlobj.h>

namespace {

/// The program demands more rights than ours; not in every set of headers.
constexpr DWORD kElevationRequired = 740;

const wchar_t* Wide(const CXStringUTF16& text) {
    return reinterpret_cast<const wchar_t*>(text.GetUnits());
}

CXString ToProgramPath(const wchar_t* path) {
    return CXFileSystem::StripTrailingSeparators(
        FromWindowsPath(FromUTF16(reinterpret_cast<const char16_t*>(path))));
}

CXResult LastResult() {
    return CXResultCertainFailure(CXResultFromWin32Error(GetLastError()));
}

/// Asks a call of the form "buffer, size in units -> length, or the size needed".
template <typename Call> CXString AskPath(Call call) {
    std::vector<wchar_t> area(MAX_PATH + 1);
    for (;;) {
        const DWORD length = call(area.data(), static_cast<DWORD>(area.size()));
        if (length == 0) {
            return CXString();
        }
        if (length < area.size()) {
            return FromWindowsPath(FromUTF16(reinterpret_cast<const char16_t*>(area.data())));
        }
        area.resize(area.size() * 2 + length);
    }
}

CXString GetShellFolder(const KNOWNFOLDERID& id) {
    wchar_t* path = nullptr;
    CXString folder;
    if (SUCCEEDED(SHGetKnownFolderPath(id, 0, nullptr, &path))) {
        folder = ToProgramPath(path);
    }
    CoTaskMemFree(path);
    return folder;
}

/// Starts something through the shell; no dialog on failure.
CXResult ShellOpen(const CXString& file, const CXString& parameters, const CXString& folder) {
    const CXStringUTF16 wideFile = ToUTF16(file);
    const CXStringUTF16 wideParameters = ToUTF16(parameters);
    const CXStringUTF16 wideFolder = ToUTF16(folder);
    SHELLEXECUTEINFOW info = {};
    info.cbSize = sizeof info;
    info.fMask = SEE_MASK_FLAG_NO_UI;
    info.lpVerb = L"open";
    info.lpFile = Wide(wideFile);
    info.lpParameters = parameters.IsEmpty() ? nullptr : Wide(wideParameters);
    info.lpDirectory = folder.IsEmpty() ? nullptr : Wide(wideFolder);
    info.nShow = SW_SHOWNORMAL;
    return ShellExecuteExW(&info) ? kCXResultOK : LastResult();
}

} // namespace

bool CXFileSystem::HasWindowsPaths() {
    return true;
}

CXString CXFileSystem::GetKnownFolder(KnownFolder folder) {
    switch (folder) {
    case KnownFolder::LocalAppData: {
        wchar_t path[MAX_PATH] = {};
        const bool named = SUCCEEDED(SHGetFolderPathW(
            nullptr, CSIDL_LOCAL_APPDATA | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT, path));
        return named ? ToProgramPath(path) : CXString();
    }
    case KnownFolder::StartMenu:
        return GetShellFolder(FOLDERID_CommonPrograms);
    case KnownFolder::Desktop:
        return GetShellFolder(FOLDERID_PublicDesktop);
    case KnownFolder::ProgramFiles:
        break;
    }
    return GetShellFolder(FOLDERID_ProgramFiles);
}

CXString CXFileSystem::GetTempPath() {
    return StripTrailingSeparators(
        AskPath([](wchar_t* area, DWORD size) { return GetTempPathW(size, area); }));
}

CXString CXFileSystem::GetModulePath() {
    return AskPath(
        [](wchar_t* area, DWORD size) { return GetModuleFileNameW(nullptr, area, size); });
}

CXString CXFileSystem::GetCurrentDirectory() {
    return AskPath([](wchar_t* area, DWORD size) { return GetCurrentDirectoryW(size, area); });
}

CXResult CXFileSystem::SetCurrentDirectory(const CXString& path) {
    return SetCurrentDirectoryW(Wide(ToUTF16(path))) ? kCXResultOK : LastResult();
}

CXResult CXFileSystem::GiveToFolderOwner(const CXString& /*path*/) {
    return kCXResultOK;
}

CXResult CXFileSystem::Launch(const CXString& program, const std::vector<CXString>& arguments,
                              const CXString& folder) {
    std::vector<CXString> whole = {program};
    whole.insert(whole.end(), arguments.begin(), arguments.end());
    // The call writes into its command line.
    const CXStringUTF16 text = ToUTF16(MakeWindowsCommandLine(whole));
    std::vector<wchar_t> line(Wide(text), Wide(text) + text.CountUnits() + 1);
    const CXStringUTF16 wideFolder = ToUTF16(folder);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                       folder.IsEmpty() ? nullptr : Wide(wideFolder), &startup, &process)) {
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        return kCXResultOK;
    }
    // Only the shell can ask for the rights that some programs demand.
    return GetLastError() == kElevationRequired
               ? ShellOpen(program, MakeWindowsCommandLine(arguments), folder)
               : LastResult();
}

CXResult CXFileSystem::OpenURL(const CXString& url) {
    return url.IsEmpty() ? kCXResultInvalidArgument : ShellOpen(url, CXString(), CXString());
}
