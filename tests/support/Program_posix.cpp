#include "tests/support/Program.h"

#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

int RunProgram(const CXString& program, const std::vector<CXString>& arguments) {
    std::vector<char*> words{const_cast<char*>(program.GetData())};
    for (const CXString& argument : arguments) {
        words.push_back(const_cast<char*>(argument.GetData()));
    }
    words.push_back(nullptr);
    constexpr unsigned kLimitSeconds = 60;
    const pid_t child = fork();
    if (child == 0) {
        alarm(kLimitSeconds); // stays set in the new program
        execv(words[0], words.data());
        _exit(127);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
