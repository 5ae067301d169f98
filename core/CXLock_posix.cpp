#include "core/CXLock.h"

#include <sys/syscall.h>
#include <unistd.h>

CXThreadId CXCurrentThreadId() {
    static thread_local CXThreadId id = 0;
    if (id == 0) {
        id = static_cast<CXThreadId>(::syscall(SYS_gettid));
    }
    return id;
}
