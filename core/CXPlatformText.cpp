#include "core/CXPlatformText.h"

#include "core/CXStringEdit.h"

#include <algorithm>

namespace {

/// File systems that hold no files of a user.
constexpr absl::string_view kKernelFileSystems[] = {
    "autofs",     "binfmt_misc", "bpf",        "cgroup",     "cgroup2",   "configfs",
    "debugfs",    "devpts",      "devtmpfs",   "efivarfs",   "fusectl",   "fuse.gvfsd-fuse",
    "fuse.lxcfs", "fuse.portal", "hugetlbfs",  "mqueue",     "nsfs",      "proc",
    "pstore",     "ramfs",       "rpc_pipefs", "securityfs", "selinuxfs", "sysfs",
    "tracefs"};

/// The next word of `line`, which is moved behind it and the blank.
absl::string_view NextWord(absl::string_view& line) {
    const size_t end = std::min(line.find(' '), line.size());
    const absl::string_view word = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
    return word;
}

/// The next line of `text`, which is moved behind it and its LF.
absl::string_view NextLine(absl::string_view& text) {
    const size_t end = std::min(text.find('\n'), text.size());
    const absl::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

bool IsOctal(char byte) {
    return byte >= '0' && byte <= '7';
}

/// The kernel writes blanks, tabs, line ends and backslashes as three octal digits.
CXString UnescapeMountPath(absl::string_view word) {
    CXStringEdit edit;
    for (size_t i = 0; i < word.size(); ++i) {
        if (word[i] == '\\' && i + 3 < word.size() && IsOctal(word[i + 1]) &&
            IsOctal(word[i + 2]) && IsOctal(word[i + 3])) {
            const int code = (word[i + 1] - '0') * 64 + (word[i + 2] - '0') * 8 + word[i + 3] - '0';
            edit.AppendByte(static_cast<char>(code));
            i += 3;
        } else {
            edit.AppendByte(word[i]);
        }
    }
    return edit.ToString();
}

/// String value of a desktop entry: the escapes of its own level.
void AppendEntryValue(CXStringEdit& edit, absl::string_view value) {
    for (const char byte : value) {
        switch (byte) {
        case '\n':
            edit.Append("\\n");
            break;
        case '\r':
            edit.Append("\\r");
            break;
        case '\t':
            edit.Append("\\t");
            break;
        case '\\':
            edit.Append("\\\\");
            break;
        default:
            edit.AppendByte(byte);
        }
    }
}

} // namespace

std::vector<CXString> ParseMountInfo(absl::string_view text) {
    std::vector<CXString> mounts;
    while (!text.empty()) {
        // id, parent, device, root, mount point, options, optional fields, "-", type, source, ...
        absl::string_view line = NextLine(text);
        for (int skipped = 0; skipped < 4; ++skipped) {
            NextWord(line);
        }
        const absl::string_view place = NextWord(line);
        while (!line.empty() && NextWord(line) != "-") {
        }
        const absl::string_view type = NextWord(line);
        if (place.empty() || place[0] != '/' || type.empty() ||
            std::find(std::begin(kKernelFileSystems), std::end(kKernelFileSystems), type) !=
                std::end(kKernelFileSystems)) {
            continue;
        }
        const CXString mount = UnescapeMountPath(place);
        if (std::find(mounts.begin(), mounts.end(), mount) == mounts.end()) {
            mounts.push_back(mount);
        }
    }
    return mounts;
}

CXString ParseDesktopFolder(absl::string_view text, absl::string_view home) {
    constexpr absl::string_view kKey = "XDG_DESKTOP_DIR=\"";
    constexpr absl::string_view kHome = "$HOME";
    CXString found;
    while (!text.empty()) {
        absl::string_view line = NextLine(text);
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (line.substr(0, kKey.size()) != kKey) {
            continue;
        }
        line.remove_prefix(kKey.size());
        CXStringEdit edit;
        if (line.substr(0, kHome.size()) == kHome) {
            edit.Append(home);
            line.remove_prefix(kHome.size());
        }
        for (size_t i = 0; i < line.size() && line[i] != '"'; ++i) {
            if (line[i] == '\\' && i + 1 < line.size()) {
                ++i;
            }
            edit.AppendByte(line[i]);
        }
        // Only absolute folders count.
        found = !edit.IsEmpty() && edit.View()[0] == '/' ? edit.ToString() : CXString();
    }
    return found;
}

CXString MakeDesktopEntry(absl::string_view name, absl::string_view program,
                          absl::string_view workingFolder) {
    // The command has a quoting level of its own inside the value's.
    CXStringEdit command(absl::string_view("\""));
    for (const char byte : program) {
        if (byte == '"' || byte == '`' || byte == '$' || byte == '\\') {
            command.AppendByte('\\');
        } else if (byte == '%') {
            command.AppendByte('%');
        }
        command.AppendByte(byte);
    }
    command.AppendByte('"');

    CXStringEdit edit(absl::string_view("[Desktop Entry]\nVersion=1.5\nType=Application\nName="));
    AppendEntryValue(edit, name);
    edit.Append("\nExec=");
    AppendEntryValue(edit, command);
    edit.Append("\nPath=");
    AppendEntryValue(edit, workingFolder);
    edit.Append("\nTerminal=false\n");
    return edit.ToString();
}

CXString MakeWindowsCommandLine(const std::vector<CXString>& arguments) {
    CXStringEdit edit;
    for (const CXString& argument : arguments) {
        if (!edit.IsEmpty()) {
            edit.AppendByte(' ');
        }
        const absl::string_view text = argument;
        if (!text.empty() && text.find_first_of(" \t\n\v\"") == absl::string_view::npos) {
            edit.Append(text);
            continue;
        }
        // Backslashes are doubled only where a quote follows them.
        edit.AppendByte('"');
        size_t backslashes = 0;
        for (const char byte : text) {
            if (byte == '\\') {
                ++backslashes;
            } else {
                if (byte == '"') {
                    for (size_t i = 0; i <= backslashes; ++i) {
                        edit.AppendByte('\\');
                    }
                }
                backslashes = 0;
            }
            edit.AppendByte(byte);
        }
        for (size_t i = 0; i < backslashes; ++i) {
            edit.AppendByte('\\');
        }
        edit.AppendByte('"');
    }
    return edit.ToString();
}

CXString FromWindowsPath(absl::string_view path) {
    constexpr absl::string_view kNetwork = "\\\\?\\UNC\\";
    constexpr absl::string_view kLocal = "\\\\?\\";
    CXStringEdit edit;
    if (path.substr(0, kNetwork.size()) == kNetwork) {
        edit.Append("//");
        path.remove_prefix(kNetwork.size());
    } else if (path.substr(0, kLocal.size()) == kLocal) {
        path.remove_prefix(kLocal.size());
    }
    edit.Append(path);
    std::replace(edit.GetData(), edit.GetData() + edit.GetLength(), '\\', '/');
    return edit.ToString();
}

CXString ToWindowsPath(absl::string_view path) {
    CXStringEdit edit(path);
    edit.ReplaceAll("/", "\\");
    return edit.ToString();
}
