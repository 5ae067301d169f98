#include "app/VelPatchElevation.h"

#include "app/config/VelPatchCommandLine.h"
#include "core/CXFileSystem.h"
#include "core/CXLog.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr char kRaiser[] = "pkexec";
/// How often a look is taken whether the question of the raiser has been answered.
constexpr std::chrono::milliseconds kAnswerPoll(20);
/// A new process goes by the name of its parent for a moment, so a raiser that isn't seen at once
/// is looked for again.
constexpr int kFirstLooks = 5;
/// What tells the raised program whose files and whose screen it is for; the raiser itself hands on
/// the language alone.
constexpr const char* kHandedOn[] = {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "DISPLAY",
                                     "XAUTHORITY"};

/// The program that was started last and hasn't been waited for; 0 for none.
std::atomic<pid_t> g_started{0};

/// The one who waits has nothing to end but the program that does the work. What a terminal asks
/// of it, it asks of the program itself.
void HandOnSignal(int signal) {
    kill(g_started, signal);
}

/// The variables for the raised program, as "NAME=value".
std::vector<std::string> ListHandedOn() {
    std::vector<std::string> list;
    for (const char* name : kHandedOn) {
        if (const char* value = getenv(name)) {
            list.push_back(std::string(name) + "=" + value);
        }
    }
    // A relative name is looked up in a folder of the user's that the other one doesn't know.
    const char* display = getenv("WAYLAND_DISPLAY");
    const char* folder = getenv("XDG_RUNTIME_DIR");
    if (display != nullptr && *display != 0) {
        const bool isRelative = *display != '/' && folder != nullptr;
        list.push_back(std::string("WAYLAND_DISPLAY=") +
                       (isRelative ? std::string(folder) + "/" : "") + display);
    }
    return list;
}

/// False if `child` has ended with `status`.
bool IsRunning(pid_t child, int& status) {
    pid_t got = 0;
    do {
        got = waitpid(child, &status, WNOHANG);
    } while (got < 0 && errno == EINTR);
    return got == 0;
}

/// Waits until the raiser has become the program that it was asked for. False if it ended instead.
bool WaitForAnswer(pid_t child) {
    const std::string name = "/proc/" + std::to_string(child) + "/comm";
    int looks = kFirstLooks;
    for (;;) {
        int status = 0;
        if (!IsRunning(child, status)) {
            g_started = 0;
            // Its own failures; every other code is that of the program, which was quick.
            const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 127;
            return code != 126 && code != 127;
        }
        std::string running;
        std::ifstream file(name);
        std::getline(file, running);
        if (running == kRaiser) {
            looks = 0;
        } else if (--looks < 0) {
            return true; // also where other users' programs are hidden
        }
        std::this_thread::sleep_for(kAnswerPoll);
    }
}

} // namespace

bool VelPatchElevation::MayWrite(const CXString& target) {
    CXString path = CXFileSystem::MakeAbsolute(target);
    while (!path.IsEmpty() && !CXFileSystem::Exists(path)) {
        path = CXFileSystem::GetParent(path);
    }
    return geteuid() == 0 || faccessat(AT_FDCWD, path.GetData(), W_OK, AT_EACCESS) == 0;
}

bool VelPatchElevation::StartElevated(const CXString& program, const CXString& arguments,
                                      const CXString& folder, bool raise) {
    std::vector<std::string> words;
    if (raise) {
        words = ListHandedOn();
        words.insert(words.begin(), {kRaiser, "env"});
    }
    words.push_back(program.GetData());
    for (const CXString& argument : SplitCommandLine(arguments)) {
        words.push_back(argument.GetData());
    }
    std::vector<char*> list;
    for (std::string& word : words) {
        list.push_back(word.data());
    }
    list.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, folder.GetData());
    pid_t child = 0;
    const int error = posix_spawnp(&child, list[0], &actions, nullptr, list.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        CXLogFormat("VelPatchElevation::StartElevated> error %d starting '%s'", error, list[0]);
        return false;
    }
    g_started = child;
    return !raise || WaitForAnswer(child);
}

void VelPatchElevation::WaitForStarted() {
    const pid_t child = g_started;
    if (child == 0) {
        return;
    }
    struct sigaction action = {};
    struct sigaction earlier = {};
    action.sa_handler = HandOnSignal;
    sigaction(SIGTERM, &action, &earlier);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    sigaction(SIGTERM, &earlier, nullptr);
    g_started = 0;
}
