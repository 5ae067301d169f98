// What the fuzz targets share.
#pragma once

#include "core/CXLog.h"

#include <cstdint>
#include <cstdlib>

/// Ends the process when a promise is broken, which the fuzzer reports with its input.
inline void Check(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// Keeps the log of hostile inputs off the terminal.
inline void SilenceLog() {
    CXSetLogSink([](const char*) {});
}
