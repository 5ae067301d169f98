// The diagnostic output: CXLog for information, CXError for a failure worth stopping for.
#pragma once

#include "core/CXString.h"

class CXStringEdit;

/// Takes a whole stamped line without line end; called from any thread.
using CXLogSink = void (*)(const char* line);
/// Takes a stamped line; true swallows it.
using CXErrorHook = bool (*)(const char* line);

/// Writes one line with a time stamp to the sink (standard output when none is set) and to the
/// debugger channel. Any thread; lines don't mix.
void CXLog(absl::string_view text);
/// As CXLog, then the error hook; with a debugger attached it breaks unless suppressed.
void CXError(absl::string_view text);

/// The two with a printf-like format (see CXString::Format).
template <typename... Args> void CXLogFormat(const char* format, const Args&... args) {
    CXLog(CXString::Format(format, args...));
}
template <typename... Args> void CXErrorFormat(const char* format, const Args&... args) {
    CXError(CXString::Format(format, args...));
}

/// Appends the prefix of a log line for `timestamp` (ms since the Unix epoch), in local time:
/// "240615.10:22:05.123|".
void CXAppendTimeStamp(CXStringEdit& line, int64_t timestamp);

/// Replaces the line sink; null restores standard output. Returns the earlier one.
CXLogSink CXSetLogSink(CXLogSink sink);
/// Replaces the error hook; null for none. Returns the earlier one.
CXErrorHook CXSetErrorHook(CXErrorHook hook);
/// Suppresses the debugger stop of CXError.
void CXSuppressDebuggerStop(bool suppress);
/// Called before a debugger stop so that a window layer can remove its keyboard hook; null: none.
void CXSetKeyboardHookRemover(void (*remover)());
