#include "app/VelPatchConsole.h"

#include <atomic>
#include <csignal>
#include <unistd.h>

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

bool VelPatchConsole::IsTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

void VelPatchConsole::CatchInterrupts() {
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction present = {};
        const bool isIgnored =
            sigaction(number, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
        if (!isIgnored) { // as under nohup
            sigaction(number, &action, nullptr);
        }
    }
}

bool VelPatchConsole::IsInterrupted() {
    return s_interrupted.load(std::memory_order_relaxed);
}
