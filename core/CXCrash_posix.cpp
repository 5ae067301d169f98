#include "core/CXCrash.h"

#include "core/CXFileSystem.h"
#include "core/CXString.h"

#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr int kMaxFrames = 64;
// Room for the handler when the fault is an exhausted stack.
constexpr size_t kHandlerStackBytes = 64 * 1024;

char g_dumpPath[4096];
std::atomic_flag g_handling = ATOMIC_FLAG_INIT;

void WriteText(int file, const char* text) {
    static_cast<void>(!::write(file, text, std::strlen(text)));
}

const char* NameOf(int signal) {
    switch (signal) {
    case SIGSEGV:
        return "SIGSEGV\n";
    case SIGBUS:
        return "SIGBUS\n";
    case SIGFPE:
        return "SIGFPE\n";
    case SIGILL:
        return "SIGILL\n";
    default:
        return "SIGABRT\n";
    }
}

// Calls nothing but what a signal handler may. All signals are blocked here: a fault inside the
// handler ends the process at once, and the signal that is raised again takes effect on return.
void HandleFault(int signal) {
    if (g_handling.test_and_set()) {
        // Another thread is writing its dump and then ends the process.
        for (;;) {
            ::pause();
        }
    }
    const int file =
        ::open(g_dumpPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file >= 0) {
        WriteText(file, "VelPatch ended by ");
        WriteText(file, NameOf(signal));
        void* frames[kMaxFrames];
        ::backtrace_symbols_fd(frames, ::backtrace(frames, kMaxFrames), file);
        ::close(file);
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

void CXInstallCrashHandler() {
    static std::atomic<bool> installed{false};
    if (installed.exchange(true)) {
        return;
    }
    const CXString path = CXFileSystem::Join(CXFileSystem::GetTempPath().View(), "crashdump.dmp");
    if (path.GetLength() >= sizeof(g_dumpPath)) {
        return;
    }
    std::memcpy(g_dumpPath, path.GetData(), path.GetLength() + 1);

    // The first call loads a library, which a handler may not do.
    void* frame = nullptr;
    ::backtrace(&frame, 1);

    // Belongs to the calling thread for the rest of the process; other threads use their own stack.
    static void* const memory = std::malloc(kHandlerStackBytes);
    stack_t stack{};
    stack.ss_sp = memory;
    stack.ss_size = kHandlerStackBytes;
    if (stack.ss_sp != nullptr) {
        ::sigaltstack(&stack, nullptr);
    }

    struct sigaction action {};
    action.sa_handler = HandleFault;
    action.sa_flags = SA_ONSTACK;
    sigfillset(&action.sa_mask);
    for (const int signal : kSignals) {
        ::sigaction(signal, &action, nullptr);
    }
}
