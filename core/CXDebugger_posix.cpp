#include "core/CXDebugger.h"

#include "core/CXText.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

void CXDebugger::Write(const char* text) {
    static const bool wanted = std::getenv("VELPATCH_DEBUG") != nullptr;
    if (!wanted) {
        return;
    }
    size_t left = std::strlen(text);
    while (left != 0) {
        const ssize_t written = ::write(STDERR_FILENO, text, left);
        if (written <= 0) {
            return;
        }
        text += written;
        left -= static_cast<size_t>(written);
    }
}

bool CXDebugger::IsPresent() {
    const int file = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    char text[4096];
    const ssize_t count = ::read(file, text, sizeof(text));
    ::close(file);
    if (count <= 0) {
        return false;
    }
    constexpr absl::string_view kKey = "TracerPid:\t";
    absl::string_view status(text, static_cast<size_t>(count));
    const size_t at = status.find(kKey);
    if (at == absl::string_view::npos) {
        return false;
    }
    status.remove_prefix(at + kKey.size());
    int64_t tracer = 0;
    return ParseInt64(status, tracer) && tracer != 0;
}

void CXDebugger::Break() {
    std::raise(SIGTRAP);
}
