#include "core/CXFileSystem.h"
#include "core/CXLog.h"
#include "core/CXPlatformText.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

CXString GetVariable(const char* name) {
    const char* value = getenv(name);
    return value != nullptr ? CXString(value) : CXString();
}

CXString GetHome() {
    CXString home = GetVariable("HOME");
    if (!home.IsEmpty()) {
        return home;
    }
    passwd entry = {};
    passwd* found = nullptr;
    char area[4096];
    return getpwuid_r(getuid(), &entry, area, sizeof area, &found) == 0 && found != nullptr
               ? CXString(entry.pw_dir)
               : CXString();
}

/// The folder that a variable names, else one below the home folder. Relative values don't count.
CXString GetUserFolder(const char* variable, absl::string_view belowHome) {
    const CXString value = GetVariable(variable);
    if (CXFileSystem::IsAbsolute(value)) {
        return CXFileSystem::StripTrailingSeparators(value);
    }
    const CXString home = GetHome();
    return home.IsEmpty() ? CXString() : CXFileSystem::Join(home, belowHome);
}

CXString GetDesktopFolder() {
    const CXString path =
        CXFileSystem::Join(GetUserFolder("XDG_CONFIG_HOME", ".config"), "user-dirs.dirs");
    CXStringEdit text;
    CXFileDriver& driver = CXFileDriver::Platform();
    CXFileHandle file = kCXNoFile;
    if (driver.Open(path, CXFileOpen(), file) == 0) {
        // A few lines; more than this isn't such a file.
        char piece[8192];
        uint64_t got = 0;
        if (driver.Read(file, piece, sizeof piece, got) == 0) {
            text.Append(absl::string_view(piece, static_cast<size_t>(got)));
        }
        driver.Close(file);
    }
    const CXString named = ParseDesktopFolder(text, GetHome());
    return named.IsEmpty() ? GetUserFolder("XDG_DESKTOP_DIR", "Desktop")
                           : CXFileSystem::StripTrailingSeparators(named);
}

/// The user who raised this process to administrator, if one did, and that user's environment.
class Caller {
public:
    Caller() {
        const uint64_t id = ToUInt64(GetVariable("PKEXEC_UID"), UINT64_MAX);
        passwd* found = nullptr;
        if (geteuid() != 0 || id > UINT_MAX ||
            getpwuid_r(static_cast<uid_t>(id), &m_entry, m_area, sizeof m_area, &found) != 0 ||
            found == nullptr) {
            return;
        }
        m_isThere = true;
        int count = static_cast<int>(m_groups.size());
        if (getgrouplist(m_entry.pw_name, m_entry.pw_gid, m_groups.data(), &count) < 0) {
            count = 0; // more groups than anything needs
        }
        m_groups.resize(static_cast<size_t>(count));
        m_user = std::string("USER=") + m_entry.pw_name;
        m_login = std::string("LOGNAME=") + m_entry.pw_name;
        for (char** variable = environ; *variable != nullptr; variable++) {
            const absl::string_view text(*variable);
            if (text.substr(0, 5) != "USER=" && text.substr(0, 8) != "LOGNAME=" &&
                text.substr(0, 11) != "PKEXEC_UID=") {
                m_environment.push_back(*variable);
            }
        }
        m_environment.insert(m_environment.end(), {m_user.data(), m_login.data(), nullptr});
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    char** GetEnvironment() { return m_isThere ? m_environment.data() : environ; }
    /// Becomes the user for good; safe in a forked child. True if there is none.
    bool Become() const {
        return !m_isThere || (setgroups(m_groups.size(), m_groups.data()) == 0 &&
                              setgid(m_entry.pw_gid) == 0 && setuid(m_entry.pw_uid) == 0);
    }

private:
    bool m_isThere = false;
    passwd m_entry = {};
    char m_area[4096];
    std::vector<gid_t> m_groups = std::vector<gid_t>(256);
    std::string m_user;
    std::string m_login;
    std::vector<char*> m_environment;
};

/// Runs in the forked child: only calls that are safe there. Reports errno through `report` and
/// leaves when the program can't be started.
[[noreturn]] void BecomeProgram(char* const* arguments, const char* folder, Caller& caller,
                                int report) {
    if (caller.Become() && (*folder == 0 || chdir(folder) == 0)) {
        execvpe(arguments[0], arguments, caller.GetEnvironment());
    }
    const int error = errno;
    [[maybe_unused]] const ssize_t put = write(report, &error, sizeof error);
    _exit(127);
}

} // namespace

bool CXFileSystem::HasWindowsPaths() {
    return false;
}

CXString CXFileSystem::GetKnownFolder(KnownFolder folder) {
    switch (folder) {
    case KnownFolder::StartMenu: {
        const CXString data = GetUserFolder("XDG_DATA_HOME", ".local/share");
        return data.IsEmpty() ? CXString() : Join(data, "applications");
    }
    case KnownFolder::Desktop:
        return GetDesktopFolder();
    case KnownFolder::LocalAppData:
    case KnownFolder::ProgramFiles:
        break;
    }
    return GetUserFolder("XDG_DATA_HOME", ".local/share");
}

CXString CXFileSystem::GetTempPath() {
    const CXString folder = GetVariable("TMPDIR");
    return folder.IsEmpty() ? CXString("/tmp") : StripTrailingSeparators(folder);
}

CXString CXFileSystem::GetModulePath() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return length > 0 ? CXString(path, static_cast<size_t>(length)) : CXString();
}

CXString CXFileSystem::GetCurrentDirectory() {
    char* path = getcwd(nullptr, 0);
    CXString folder(path);
    free(path);
    return folder;
}

CXResult CXFileSystem::SetCurrentDirectory(const CXString& path) {
    return chdir(path.GetData()) == 0 ? kCXResultOK : CXResultFromErrno(errno);
}

CXResult CXFileSystem::GiveToFolderOwner(const CXString& path) {
    struct stat folder;
    if (geteuid() != 0) {
        return kCXResultOK;
    }
    const CXString parent = GetParent(MakeAbsolute(path));
    return stat(parent.GetData(), &folder) == 0 &&
                   lchown(path.GetData(), folder.st_uid, folder.st_gid) == 0
               ? kCXResultOK
               : CXResultFromErrno(errno);
}

CXResult CXFileSystem::Launch(const CXString& program, const std::vector<CXString>& arguments,
                              const CXString& folder) {
    // Everything that allocates happens before the fork.
    std::vector<char*> list;
    list.push_back(const_cast<char*>(program.GetData()));
    for (const CXString& argument : arguments) {
        list.push_back(const_cast<char*>(argument.GetData()));
    }
    list.push_back(nullptr);
    Caller caller;
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return CXResultFromErrno(errno);
    }
    const pid_t child = fork();
    if (child == 0) {
        // The program's parent is gone at once, so nobody has to wait for it.
        setsid();
        const pid_t grandchild = fork();
        if (grandchild == 0) {
            BecomeProgram(list.data(), folder.GetData(), caller, ends[1]);
        }
        _exit(grandchild < 0 ? 1 : 0);
    }
    int error = child < 0 ? errno : 0;
    close(ends[1]);
    if (child > 0) {
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        ssize_t got = 0;
        int reported = 0;
        do {
            got = read(ends[0], &reported, sizeof reported);
        } while (got < 0 && errno == EINTR);
        if (got == static_cast<ssize_t>(sizeof reported)) {
            error = reported;
        } else if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
            error = EAGAIN;
        }
    }
    close(ends[0]);
    return CXResultFromErrno(error);
}

CXResult CXFileSystem::OpenURL(const CXString& url) {
    // A text that begins with "-" would be an option to the opener.
    if (url.IsEmpty() || url.GetData()[0] == '-') {
        return kCXResultInvalidArgument;
    }
    return Launch("xdg-open", {url}, CXString());
}
