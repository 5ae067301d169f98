#include "core/CXCrash.h"

#include "core/CXFileSystem.h"
#include "core/CXLock.h"
#include "core/CXStringUTF16.h"

#include "core/win32_api.h"

#include <dbghelp.h>

namespace {

// Made at start-up: a crashed process should allocate as little as possible.
struct CrashHandler {
    CXCriticalSection lock;
    CXStringUTF16 dumpPath;
};

CrashHandler& TheHandler() {
    static CXImmortal<CrashHandler> handler;
    return handler.Get();
}

LONG WINAPI HandleFault(EXCEPTION_POINTERS* pointers) {
    CrashHandler& handler = TheHandler();
    const CXCriticalSectionGuard guard(handler.lock);
    const HANDLE file =
        ::CreateFileW(reinterpret_cast<const wchar_t*>(handler.dumpPath.GetUnits()), GENERIC_WRITE,
                      FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        MINIDUMP_EXCEPTION_INFORMATION information{};
        information.ThreadId = ::GetCurrentThreadId();
        information.ExceptionPointers = pointers;
        information.ClientPointers = TRUE;
        ::MiniDumpWriteDump(::GetCurrentProcess(), ::GetCurrentProcessId(), file,
                            MiniDumpWithIndirectlyReferencedMemory, &information, nullptr, nullptr);
        ::CloseHandle(file);
    }
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace

void CXInstallCrashHandler() {
    CrashHandler& handler = TheHandler();
    const CXCriticalSectionGuard guard(handler.lock);
    if (!handler.dumpPath.IsEmpty()) {
        return;
    }
    const CXString path = CXFileSystem::Join(CXFileSystem::GetTempPath(), "crashdump.dmp");
    handler.dumpPath = ToUTF16(CXFileSystem::GetExtendedPath(path));
    ::SetUnhandledExceptionFilter(HandleFault);
}
