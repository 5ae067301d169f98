#include "core/CXLock.h"

#include "core/win32_api.h"

CXThreadId CXCurrentThreadId() {
    return ::GetCurrentThreadId();
}
