// The event context of the main thread.
#pragma once

#include "runtime/CXGenericEventContextManualBase.h"
#include "runtime/CXTask.h"

/// Passes once per task pass of the main thread, so its handlers run there, at most some 10 ms
/// after their event came about.
class CXGenericEventContextManual : public CXGenericEventContextManualBase, public CXTask {
public:
    /// Attaches itself to the main thread's task host.
    CXGenericEventContextManual();
    ~CXGenericEventContextManual() override;

    void Proc() override { RunPass(); }

    /// Made on first use, destroyed when the main thread ends.
    static CXGenericEventContextManual* GetSingleton();
};
