// The event context with a thread of its own.
#pragma once

#include "runtime/CXGenericEventContextManualBase.h"
#include "runtime/CXThread.h"

/// Passes every 500 ms plus the duration of the pass; its handlers run on its thread and must be
/// quick. Used where the main thread may be busy, as for cancelling transfers.
class CXGenericEventContextThread : public CXGenericEventContextManualBase, public CXThread {
public:
    CXGenericEventContextThread();
    ~CXGenericEventContextThread() override;

    void Proc() override;

    /// Made and started on first use, destroyed when the main thread ends.
    static CXGenericEventContextThread* GetSingleton();
};
