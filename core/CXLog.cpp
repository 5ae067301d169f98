#include "core/CXLog.h"

#include "core/CXDebugger.h"
#include "core/CXLock.h"
#include "core/CXStringEdit.h"
#include "core/CXTime.h"

#include <atomic>
#include <cstdio>

namespace {

constinit std::atomic<CXLogSink> g_sink{nullptr};
constinit std::atomic<bool> g_suppressStop{false};
constinit std::atomic<void (*)()> g_keyboardHookRemover{nullptr};

// The hook may report errors of its own, so its lock can be taken again.
struct ErrorHook {
    CXRecursiveLock lock;
    CXErrorHook hook = nullptr;
};

ErrorHook& TheErrorHook() {
    static CXImmortal<ErrorHook> hook;
    return hook.Get();
}

// Builds the stamped line, NUL behind it, and hands it to the sink.
void EmitLine(absl::string_view text, CXStringEdit& line) {
    CXAppendTimeStamp(line, CXTime::GetCurrentTime());
    line.Append(text);
    const size_t length = line.GetLength();
    line.Append(absl::string_view("\n\0", 2));
    line.GetData()[length] = 0;
    if (const CXLogSink sink = g_sink.load()) {
        sink(line.GetData());
        line.GetData()[length] = '\n';
    } else {
        // One write, so that the lines of several threads don't mix.
        line.GetData()[length] = '\n';
        std::fwrite(line.GetData(), 1, length + 1, stdout);
    }
}

} // namespace

void CXAppendTimeStamp(CXStringEdit& line, int64_t timestamp) {
    const CXTimeNatural time(timestamp);
    line.AppendFormat("%02u%02u%02u.%02u:%02u:%02u.%03u|", time.year % 100, time.month, time.day,
                      time.hour, time.minute, time.second, timestamp % 1000);
}

void CXLog(absl::string_view text) {
    CXStringEdit line;
    EmitLine(text, line);
    CXDebugger::Write(line.GetData());
}

void CXError(absl::string_view text) {
    CXStringEdit line;
    EmitLine(text, line);
    {
        ErrorHook& hook = TheErrorHook();
        const CXRecursiveLockGuard guard(hook.lock);
        if (hook.hook != nullptr) {
            const CXString plain(line.GetData(), line.GetLength() - 2);
            if (hook.hook(plain.GetData())) {
                return;
            }
        }
    }
    CXDebugger::Write(line.GetData());
    if (!g_suppressStop.load() && CXDebugger::IsPresent()) {
        // A hook left in place would freeze the keyboard while the program stands still.
        if (void (*remover)() = g_keyboardHookRemover.load()) {
            remover();
        }
        CXDebugger::Break();
    }
}

CXLogSink CXSetLogSink(CXLogSink sink) {
    return g_sink.exchange(sink);
}

CXErrorHook CXSetErrorHook(CXErrorHook hook) {
    ErrorHook& current = TheErrorHook();
    const CXRecursiveLockGuard guard(current.lock);
    const CXErrorHook earlier = current.hook;
    current.hook = hook;
    return earlier;
}

void CXSuppressDebuggerStop(bool suppress) {
    g_suppressStop = suppress;
}

void CXSetKeyboardHookRemover(void (*remover)()) {
    g_keyboardHookRemover = remover;
}
