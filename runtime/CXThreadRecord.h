// What the runtime keeps per thread.
#pragma once

#include "core/CXLock.h"

class CXThread;

/// Thread-local record. The block cache and the cached thread id live in core.
struct CXThreadRecord {
    CXThread* thread = nullptr;            ///< object of this thread, or null
    CXThreadId hostOverride = kCXNoThread; ///< thread whose task host counts as this one's

    /// The calling thread's record.
    static CXThreadRecord& Get();
};
