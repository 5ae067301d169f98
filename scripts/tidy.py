#!/usr/bin/env python3
"""Runs clang-tidy over the product's sources, or over the files given.

A source that came out clean is remembered by a hash of its text, of every header of ours that it
reaches, and of the configuration, so that a second run only looks at what changed.
"""
import concurrent.futures
import hashlib
import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import source_checks

ROOT = source_checks.ROOT
CACHE = os.path.join(ROOT, "build", "tidy-cache")
ARGUMENTS = ["-std=c++20", "-I.", '-DVELPATCH_VERSION="0"',
             '-DVELPATCH_SERVICE_BASE="https://localhost/"']
PRODUCT = ["core", "runtime", "stream", "dn", "net", "patch", "ui", "app", "kit"]


def arguments():
    """How clang-tidy compiles; with the window system's headers where they are installed."""
    flags = subprocess.run(["pkg-config", "--cflags", "gtk+-3.0"], stdout=subprocess.PIPE,
                           stderr=subprocess.DEVNULL, text=True, check=False).stdout.split()
    return ARGUMENTS + [re.sub("^-I", "-isystem", flag) for flag in flags]


def reached(path, seen):
    """Adds path and all headers of ours that it includes, however deep, to seen."""
    todo = [path]
    while todo:
        current = todo.pop()
        if current in seen or not os.path.exists(os.path.join(ROOT, current)):
            continue
        text = source_checks.read(current)
        seen[current] = text
        todo += re.findall(r'^\s*#\s*include\s+"([^"]+)"', text, re.M)
    return seen


def key_of(path, common):
    digest = hashlib.sha256(common)
    for name, text in sorted(reached(path, {}).items()):
        digest.update(name.encode() + b"\0" + text.encode() + b"\0")
    return digest.hexdigest()


def examine(path, common, options):
    """The complaints about one file: an empty text when it is clean."""
    mark = os.path.join(CACHE, key_of(path, common))
    if os.path.exists(mark):
        os.utime(mark)
        return ""
    run = subprocess.run(["clang-tidy", "--quiet", path, "--"] + options, cwd=ROOT, text=True,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
    if run.returncode == 0:
        open(mark, "w", encoding="utf-8").close()
        return ""
    return run.stdout.strip() or f"{path}: clang-tidy ended with {run.returncode}"


def forget_old(limit=4000):
    marks = sorted((os.path.join(CACHE, name) for name in os.listdir(CACHE)), key=os.path.getmtime)
    for mark in marks[:-limit]:
        os.remove(mark)


def run(files=None, jobs=None):
    """Complaints of all files, one text per file that has any."""
    if not files:
        files = [path for path in source_checks.code_files(PRODUCT)
                 if path.endswith(".cpp") and not path.endswith("_win32.cpp")]
    os.makedirs(CACHE, exist_ok=True)
    options = arguments()
    version = subprocess.run(["clang-tidy", "--version"], stdout=subprocess.PIPE, check=True).stdout
    with open(os.path.join(ROOT, ".clang-tidy"), "rb") as file:
        common = version + file.read() + " ".join(options).encode()
    with concurrent.futures.ThreadPoolExecutor(jobs or os.cpu_count()) as pool:
        complaints = [text for text in pool.map(lambda path: examine(path, common, options), files) if text]
    forget_old()
    return complaints


if __name__ == "__main__":
    found = run([os.path.relpath(os.path.abspath(name), ROOT) for name in sys.argv[1:]])
    print("\n".join(found) if found else "clean")
    sys.exit(1 if found else 0)
