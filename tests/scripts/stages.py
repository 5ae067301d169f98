"""Installs a game with the player's program, patches it and removes it, with no display.

  stages.py BIN FOLDER

BIN holds velpatch and velpatch-kit. The game brings the program along, so the patch replaces the
program that was started for it, and the uninstall removes it. Afterwards nothing may be there but
what is told below.
"""
import base64
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import time

BIN, WORK = (pathlib.Path(path) for path in sys.argv[1:3])
TARGET = WORK / "games/Rowan Sails"
HOME = WORK / "home"
DATA = HOME / ".local/share"
REGISTRY = DATA / "velpatch-registry.dat"
LINKS = [DATA / "applications/Works/Rowan.desktop", HOME / "Desktop/Rowan.desktop"]
ENVIRONMENT = {"PATH": os.environ["PATH"], "HOME": str(HOME), "TMPDIR": str(WORK / "temp")}
CONFIGURATION = """
product-name "Rowan Sails"
application-bundle-id "rowan.test"
installation-id "rowan"
installation-folder-name "Rowan Sails"
patch-anchor-file "game.sh"
start-menu-shortcut-folder "Works"
shortcut-filename "Rowan.lnk"
registry-edits
{
0 { root HKCU
path "Kept"
name "First"
type STRING
value "$(TARGETPATH)"
}
1 { root HKLM
path "Apps\\$(TARGETPATHKEY)"
name ""
type STRING
value "$(ANCHORPATH)"
}
2 { root HKCU
path "Folders"
name "$(iterative_key)"
type STRING
value "$(TARGETPATH)"
}
}
locales { en { "$x" "x"
} }
"""


def check(what, is_so):
    if not is_so:
        sys.exit(f"{what}\n" + (WORK / "log").read_text(errors="replace")[-3000:])


def wait_for(what, is_so):
    end = time.monotonic() + 30
    while not is_so() and time.monotonic() < end:
        time.sleep(0.05)
    check(what, is_so())


def kit(*words):
    subprocess.run([BIN / "velpatch-kit", "-q", *words], check=True, stdout=subprocess.DEVNULL)


def files(folder):
    """Contents and permissions by path; empty folders too."""
    return {str(path.relative_to(folder)):
            (path.stat().st_mode, None if path.is_dir() else path.read_bytes())
            for path in folder.rglob("*")}


def build(number):
    """A build of the game with the program in it, which is another one in each."""
    folder = WORK / f"build{number}"
    (folder / "data").mkdir(parents=True)
    shutil.copy(BIN / "velpatch", folder)
    with open(folder / "velpatch", "ab") as file:
        file.write(b"build %d" % number)  # behind what the system loads
    (folder / "game.sh").write_text(f"#!/bin/sh\necho {number} $PWD >>'{WORK}/played'\n")
    (folder / "game.sh").chmod(0o755)
    (folder / "data/patch-config.txt").write_text(CONFIGURATION)
    return folder


def play(program, *words):
    """One call, which returns when the last stage has done its work."""
    with open(WORK / "log", "wb") as log:
        subprocess.run([program, "--target", TARGET, "--start", *words], check=True, timeout=60,
                       env=ENVIRONMENT, stdin=subprocess.DEVNULL, stdout=log,
                       stderr=subprocess.STDOUT)
    left = [path.name for path in (WORK / "temp").iterdir()]
    check(f"the copy deletes itself: {left}", left in ([], ["velpatch-log.txt"]))


def write_settings(control, data):
    """What another run of the program has been told by the service."""
    record = b""
    for text in ("anna", "secret", "7", "Live", control.as_uri(), data.as_uri()):
        record += bytes([len(text)]) + text.encode()
    path = DATA / "rowan.test/velpatch-settings.dat"
    value = struct.pack(">I", 1) + base64.b64encode(record)
    path.write_bytes(b'"%s" "%s"\n' % (str(TARGET).lower().encode(), value))


for name in ("temp", "home/Desktop", "games"):
    (WORK / name).mkdir(parents=True)
os.umask(0o022)
first, second = build(1), build(2)
kit("make", "--full", first, WORK / "full")
kit("make", first, second, WORK / "patch")

# From a setup folder, which stays.
setup = WORK / "setup"
shutil.copytree(first, setup)
shutil.copy(WORK / "full/patch-control.txt", setup / "data")
shutil.copy(WORK / "full/patch-data.bin", setup / "data")
with open(setup / "data/patch-config.txt", "a", encoding="utf-8") as file:
    file.write('patch-is-installation true\npatch-control-file "patch-control.txt"\n'
               'patch-data-file "patch-data.bin"\n')
before = files(setup)
play(setup / "velpatch", "--no-desktop-shortcut")
installed = files(TARGET)
check("uninstall.dat lists the shortcut",
      str(LINKS[0]).encode() in installed.pop("uninstall.dat")[1])
check("the installation is the build", installed == files(first))
check("the setup folder stays as it was", files(setup) == before)
check("one shortcut was wanted", LINKS[0].exists() and not LINKS[1].exists())
wait_for("the game was started",
         lambda: (WORK / "played").exists() and (WORK / "played").read_text() == f"1 {TARGET}\n")
registry = REGISTRY.read_text()
check("the registry holds all", all(word in registry for word in ("Kept", "Apps", "Folders")))

# Where the patch lies, a later stage knows by the settings alone. It works from a copy, which must
# have a place.
write_settings(WORK / "patch/patch-control.txt", WORK / "patch/patch-data.bin")
ENVIRONMENT["TMPDIR"] = str(first / "game.sh/none")
play(TARGET / "velpatch")
check("a copy without a place is told",
      "Unable to create installation data temp folder. (result: " in (WORK / "log").read_text())
check("and changes nothing", files(TARGET).keys() == installed.keys() | {"uninstall.dat"})
ENVIRONMENT["TMPDIR"] = str(WORK / "temp")
play(TARGET / "velpatch", "--launchtargetonexit")
patched = files(TARGET)
del patched["uninstall.dat"]
check("the patch gives the second build, its program too", patched == files(second))
check("a second run makes a second shortcut",
      (LINKS[0].parent / "Rowan (1).desktop").exists() and LINKS[1].exists())
wait_for("the game was started once more", lambda: (WORK / "played").read_text().endswith(
    f"2 {TARGET}\n"))
check("nothing is noted twice", REGISTRY.read_text() == registry)

# The list is that of the first run, and the first entry is never undone.
play(TARGET / "velpatch", "--uninstall")
check("the game has gone", not TARGET.exists() and TARGET.parent.exists())
check("nothing is started", (WORK / "played").read_text().count("\n") == 2)
left = sorted(str(path.relative_to(HOME)) for path in HOME.rglob("*") if path.is_file())
check(f"what is left: {left}", left == [
    ".local/share/applications/Works/Rowan (1).desktop",
    ".local/share/rowan.test/velpatch-settings.dat",
    ".local/share/velpatch-registry.dat", "Desktop/Rowan.desktop"])
registry = REGISTRY.read_text()
check(f"the first entry alone is left\n{registry}",
      "First" in registry and "Apps" not in registry and "text:" in registry
      and registry.count("text:") == 1)
print("stages: good")
