#include "app/VelPatchLaunch.h"

#include "core/CXFileSystem.h"
#include "core/CXLog.h"
#include "core/CXPlatformText.h"

void LaunchTarget(const CXString& target, const CXString& anchorFile) {
    const CXString program = CXFileSystem::GetCanonicalPath(CXFileSystem::Join(target, anchorFile));
    if (!CXFileSystem::Exists(program)) {
        return;
    }
    CXResult result = CXFileSystem::Launch(program, {}, CXFileSystem::GetParent(program));
    if (result != kCXResultOK) {
        // No program by itself.
        result = CXFileSystem::OpenURL(CXFileSystem::HasWindowsPaths() ? ToWindowsPath(program)
                                                                       : program);
    }
    if (result != kCXResultOK) {
        CXLogFormat("LaunchTarget> result %d starting '%s'", result, program.GetData());
    }
}

void OpenAddress(const CXString& address) {
    if (!address.IsEmpty() && CXFileSystem::OpenURL(address) != kCXResultOK) {
        CXLogFormat("OpenAddress> unable to open '%s'", address.GetData());
    }
}
