#include "app/VelPatchEntry.h"

#include "core/win32_api.h"

#include <commctrl.h>
#include <ole2.h>

void VelPatchEntryPlatform::StartWindowServices() {
    INITCOMMONCONTROLSEX controls{};
    controls.dwSize = sizeof controls;
    controls.dwICC = ICC_STANDARD_CLASSES | ICC_USEREX_CLASSES;
    ::InitCommonControlsEx(&controls);
    ::OleInitialize(nullptr);
}

void VelPatchEntryPlatform::StopWindowServices() {
    ::OleUninitialize();
}
