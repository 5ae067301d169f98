#include "app/VelPatchElevation.h"

#include "core/CXLog.h"
#include "core/CXPlatformText.h"
#include "core/CXStringUTF16.h"

#include "core/win32_api.h"
#include <objbase.h>
#include <shellapi.h>

namespace {

const wchar_t* Wide(const CXStringUTF16& text) {
    return reinterpret_cast<const wchar_t*>(text.GetUnits());
}

} // namespace

bool VelPatchElevation::MayWrite(const CXString& /*target*/) {
    return false;
}

bool VelPatchElevation::StartElevated(const CXString& program, const CXString& arguments,
                                      const CXString& folder, bool /*raise*/) {
    const HRESULT entered =
        ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
    const CXStringUTF16 file = ToUTF16(ToWindowsPath(program));
    const CXStringUTF16 parameters = ToUTF16(arguments);
    const CXStringUTF16 directory = ToUTF16(ToWindowsPath(folder));
    SHELLEXECUTEINFOW info = {};
    info.cbSize = sizeof info;
    info.fMask = SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI; // the caller tells of a failure
    info.lpVerb = L"runas";
    info.lpFile = Wide(file);
    info.lpParameters = Wide(parameters);
    info.lpDirectory = Wide(directory);
    info.nShow = SW_SHOWNORMAL;
    const bool isStarted = ::ShellExecuteExW(&info) != FALSE;
    if (!isStarted) {
        CXLogFormat("VelPatchElevation::StartElevated> error %d starting '%s'", ::GetLastError(),
                    program.GetData());
    }
    if (SUCCEEDED(entered)) {
        ::CoUninitialize();
    }
    return isStarted;
}

void VelPatchElevation::WaitForStarted() {}
