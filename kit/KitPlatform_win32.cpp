#include "kit/KitPlatform.h"

#include "core/CXFileSystem.h"
#include "core/win32_api.h"

#include <psapi.h>

#include <atomic>

namespace KitPlatform {

namespace {

std::atomic<bool> s_interrupted{false};

BOOL WINAPI OnControl(DWORD) {
    // The second request ends the process: FALSE lets the default handler have it.
    return s_interrupted.exchange(true, std::memory_order_relaxed) ? FALSE : TRUE;
}

bool IsConsole(DWORD which) {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(which), &mode) != 0;
}

} // namespace

bool IsInputTerminal() {
    return IsConsole(STD_INPUT_HANDLE);
}

bool IsErrorTerminal() {
    return IsConsole(STD_ERROR_HANDLE);
}

int GetTerminalColumns() {
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info) == 0) {
        return 80;
    }
    return info.srWindow.Right - info.srWindow.Left + 1;
}

void CatchInterrupts() {
    SetConsoleCtrlHandler(OnControl, TRUE);
    SetConsoleOutputCP(CP_UTF8);
}

bool IsInterrupted() {
    return s_interrupted.load(std::memory_order_relaxed);
}

bool IsRegularFile(const CXString& path) {
    return CXFileSystem::Exists(path) && !CXFileSystem::IsDirectory(path) &&
           !CXFileSystem::IsLink(path);
}

void ReturnFreedMemory() {} // the system's heap does so by itself

uint64_t GetPeakMemory() {
    PROCESS_MEMORY_COUNTERS counters = {};
    counters.cb = sizeof counters;
    if (GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) == 0) {
        return 0;
    }
    return counters.PeakWorkingSetSize;
}

} // namespace KitPlatform
