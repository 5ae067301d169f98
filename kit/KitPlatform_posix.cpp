#include "kit/KitPlatform.h"

#include <atomic>
#include <csignal>
#include <malloc.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KitPlatform {

namespace {

std::atomic<bool> s_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free); // set in a signal handler

void OnSignal(int number) {
    if (s_interrupted.exchange(true, std::memory_order_relaxed)) {
        std::signal(number, SIG_DFL);
        raise(number);
    }
}

} // namespace

bool IsInputTerminal() {
    return isatty(STDIN_FILENO) == 1;
}

bool IsErrorTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

int GetTerminalColumns() {
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return 80;
    }
    return size.ws_col;
}

void CatchInterrupts() {
    struct sigaction action = {};
    action.sa_handler = OnSignal; // no SA_RESTART: a read of the answer to a prompt ends
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
}

bool IsInterrupted() {
    return s_interrupted.load(std::memory_order_relaxed);
}

bool IsRegularFile(const CXString& path) {
    struct stat info = {};
    return lstat(path.GetData(), &info) == 0 && S_ISREG(info.st_mode);
}

void ReturnFreedMemory() {
    // A threshold of our own also ends its growth with each block that is freed.
    constexpr int kLargeBlock = 1 << 20;
    mallopt(M_MMAP_THRESHOLD, kLargeBlock);
}

uint64_t GetPeakMemory() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<uint64_t>(usage.ru_maxrss) * 1024;
}

} // namespace KitPlatform
