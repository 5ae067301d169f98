#include "runtime/CXThreadPlatform.h"

#include <process.h>

#include "core/win32_api.h"

namespace {

constexpr DWORD kNameException = 0x406D1388;

struct StartRecord {
    void (*entry)(void*);
    void* argument;
};

unsigned __stdcall Trampoline(void* pointer) {
    const StartRecord record = *static_cast<StartRecord*>(pointer);
    delete static_cast<StartRecord*>(pointer);
    record.entry(record.argument);
    return 0;
}

LONG CALLBACK PassNameException(EXCEPTION_POINTERS* pointers) {
    return pointers->ExceptionRecord->ExceptionCode == kNameException ? EXCEPTION_CONTINUE_EXECUTION
                                                                      : EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

bool CXThreadPlatform::Create(void (*entry)(void*), void* argument, uint32_t stackSize,
                              uintptr_t& handle, CXThreadId& id) {
    auto* record = new StartRecord{entry, argument};
    unsigned threadId = 0;
    handle = _beginthreadex(nullptr, stackSize, Trampoline, record, CREATE_SUSPENDED, &threadId);
    if (handle == 0) {
        delete record;
        return false;
    }
    id = threadId;
    // The body's first act is to take the lock that the caller holds, so it can be let go now.
    ResumeThread(reinterpret_cast<HANDLE>(handle));
    return true;
}

void CXThreadPlatform::Join(uintptr_t handle) {
    WaitForSingleObject(reinterpret_cast<HANDLE>(handle), INFINITE);
    CloseHandle(reinterpret_cast<HANDLE>(handle));
}

uint64_t CXThreadPlatform::GetNativeId() {
    return GetCurrentThreadId();
}

void CXThreadPlatform::SetPriority(uint64_t nativeId, int32_t priority) {
    static constexpr int kPriority[] = {1, 0, -1, -2, 0};
    if (priority < 0 || priority > 4) {
        return;
    }
    if (nativeId == GetCurrentThreadId()) {
        if (priority != 3) {
            SetThreadPriority(GetCurrentThread(), THREAD_MODE_BACKGROUND_END);
        }
        SetThreadPriority(GetCurrentThread(), kPriority[priority]);
        if (priority == 3) {
            SetThreadPriority(GetCurrentThread(), THREAD_MODE_BACKGROUND_BEGIN);
        }
        return;
    }
    HANDLE thread = OpenThread(THREAD_SET_INFORMATION, FALSE, static_cast<DWORD>(nativeId));
    if (thread != nullptr) {
        SetThreadPriority(thread, kPriority[priority]);
        CloseHandle(thread);
    }
}

void CXThreadPlatform::SetName(const char* name) {
    // Without a debugger nobody takes the exception, so a handler of our own passes over it.
    struct {
        DWORD type = 0x1000;
        const char* name;
        DWORD threadId = static_cast<DWORD>(-1);
        DWORD flags = 0;
    } info{.name = name};
    void* handler = AddVectoredExceptionHandler(1, PassNameException);
    if (handler == nullptr) {
        return;
    }
    RaiseException(kNameException, 0, sizeof(info) / sizeof(ULONG_PTR),
                   reinterpret_cast<const ULONG_PTR*>(&info));
    RemoveVectoredExceptionHandler(handler);
}

uint32_t CXThreadPlatform::GetProcessId() {
    return GetCurrentProcessId();
}
