"""Checks that read the sources: layers, platform seam, forbidden constructs.

Each check returns a list of complaints, "file:line: text". Run alone, this prints them all.
"""
import os
import re
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# What each layer may include besides itself.
BELOW = {
    "core": [],
    "runtime": ["core"],
    "stream": ["core", "runtime"],
    "dn": ["core", "runtime", "stream"],
    "net": ["core", "runtime", "stream", "dn"],
    "patch": ["core", "runtime", "stream", "dn", "net"],
    "ui": ["core", "runtime", "stream", "dn"],
    "app/config": ["core", "runtime", "stream", "dn", "net"],
    "kit": ["core", "runtime", "stream", "dn", "net", "patch", "app/config"],
    "app": ["core", "runtime", "stream", "dn", "net", "patch", "ui", "app/config"],
}
CODE_FOLDERS = ["core", "runtime", "stream", "dn", "net", "patch", "ui", "app", "kit", "tests",
                "fuzz", "bench"]

WIN32_HEADERS = re.compile(
    r"<(windows|winsock2|ws2tcpip|winternl|winioctl|shlobj|shlobj_core|shellapi|shobjidl|aclapi|"
    r"sddl|bcrypt|dbghelp|objbase|combaseapi|psapi|tlhelp32|io|direct)\.h>", re.I)
POSIX_HEADERS = re.compile(
    r"<(unistd|fcntl|dirent|pthread|dlfcn|poll|pwd|grp|netdb|utime|ftw|glob|mntent|termios|"
    r"sys/[a-z_]+|netinet/[a-z]+|arpa/[a-z]+|linux/[a-z_]+)\.h>")
TOOLKIT_HEADERS = re.compile(r"<(X11/|gtk/|gdk/|glib|gio/|pango/|cairo)")


def code_files(folders=CODE_FOLDERS):
    """All C++ files below the folders, as paths relative to the root, in a stable order."""
    found = []
    for folder in folders:
        for where, subfolders, names in os.walk(os.path.join(ROOT, folder)):
            subfolders[:] = sorted(f for f in subfolders if f != "corpus")
            found += [os.path.relpath(os.path.join(where, name), ROOT)
                      for name in sorted(names) if name.endswith((".cpp", ".h"))]
    return found


def read(path):
    with open(os.path.join(ROOT, path), encoding="utf-8", errors="replace") as file:
        return file.read()


TOKEN = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(?P<tag>[^\s()\\]{0,16})\(.*?\)(?P=tag)"|"(?:\\.|[^"\\\n])*"|'
    r"(?<![0-9A-Za-z_])'(?:\\.|[^'\\\n])+'", re.S)


def bare_code(text):
    """The text with comments and literals blanked out, lines kept in place."""
    return TOKEN.sub(lambda match: re.sub(r"[^\n]", " ", match.group()), text)


def layer_of(path):
    for layer in ("app/config", "core", "runtime", "stream", "dn", "net", "patch", "ui", "kit",
                  "app"):
        if path.startswith(layer + "/"):
            return layer
    return None


def check_layers():
    """No include points to a layer above its own."""
    complaints = []
    for path in code_files():
        layer = layer_of(path)
        for number, line in enumerate(read(path).splitlines(), 1):
            match = re.match(r'\s*#\s*include\s+"([^"]+)"', line)
            if not match:
                continue
            target = match.group(1)
            if target.startswith(("absl/", "gtest/")):
                continue
            if not os.path.exists(os.path.join(ROOT, target)):
                complaints.append(f'{path}:{number}: "{target}" is not a path from the root')
            elif layer is not None:
                other = layer_of(target)
                if other != layer and other not in BELOW[layer]:
                    complaints.append(f"{path}:{number}: {layer} may not include {target}")
    return complaints


def check_seam():
    """What belongs to one system stays in the files that are named after it."""
    complaints = []
    for path in code_files(["core", "runtime", "stream", "dn", "net", "patch", "ui", "app", "kit"]):
        win32 = path.endswith(("_win32.cpp", "_win32.h")) or path == "core/win32_api.h"
        posix = path.endswith(("_posix.cpp", "_posix.h"))
        backend = "backend" in path.lower()
        for number, line in enumerate(read(path).splitlines(), 1):
            where = f"{path}:{number}:"
            if re.match(r"\s*#", line) is None:
                continue
            if WIN32_HEADERS.search(line) and not win32:
                complaints.append(f"{where} a Windows header outside a _win32.cpp file")
            if re.search(r"<windows\.h>", line, re.I) and path != "core/win32_api.h":
                complaints.append(f"{where} windows.h comes through core/win32_api.h")
            if '"core/win32_api.h"' in line and not win32:
                complaints.append(f"{where} core/win32_api.h outside a _win32.cpp file")
            if POSIX_HEADERS.search(line) and not posix:
                complaints.append(f"{where} a POSIX header outside a _posix.cpp file")
            if TOOLKIT_HEADERS.search(line) and not backend:
                complaints.append(f"{where} a toolkit header outside a backend")
            if re.search(r"\b(_WIN32|WIN32|_WIN64|__linux__|__unix__)\b", line) and not (
                    win32 or posix):
                complaints.append(f"{where} a system's macro in shared code: use sibling files")
    return complaints


def check_constructs():
    """No exceptions and no run-time type information in the layers (the kit's command line
    library throws, so the kit may catch)."""
    complaints = []
    pattern = re.compile(r"\b(throw|try|catch|dynamic_cast|typeid)\b")
    for path in code_files(["core", "runtime", "stream", "dn", "net", "patch", "ui", "app"]):
        for number, line in enumerate(bare_code(read(path)).splitlines(), 1):
            match = pattern.search(line)
            if match:
                complaints.append(f"{path}:{number}: {match.group()} in our own code")
    return complaints


def check_text_keys():
    """The sources look up no text that is missing from the list of text keys, which the check of a
    configuration goes by."""
    listing = "app/config/VelPatchTextKeys.cpp"
    pattern = re.compile(r'"(\$(?:velpatch|please)_\w+)"')
    known = set(pattern.findall(read(listing)))
    complaints = []
    for path in code_files(["core", "runtime", "stream", "dn", "net", "patch", "ui", "app"]):
        for number, line in enumerate(read(path).splitlines(), 1):
            complaints += [f"{path}:{number}: {key} is missing from {listing}"
                           for key in pattern.findall(line) if key not in known]
    return complaints


if __name__ == "__main__":
    problems = check_layers() + check_seam() + check_constructs() + check_text_keys()
    print("\n".join(problems) if problems else "clean")
    sys.exit(1 if problems else 0)
