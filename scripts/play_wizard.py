"""Plays the wizard in real windows; see screens.

  play_wizard.py gtk|windows BUILD-FOLDER WORK [OUT]

WORK holds the builds of the game as game/build1 and game/build2, and its patches as patch and full.
Pictures of the pages go to OUT.
"""
import filecmp
import hashlib
import pathlib
import shutil
import subprocess
import sys
import time

import wizard_hands
from nginx_server import NginxServer
from waiting import fail, wait_for

ROOT = pathlib.Path(__file__).resolve().parents[1]
SYSTEM = sys.argv[1]
BUILD, WORK = (pathlib.Path(word).resolve() for word in sys.argv[2:4])
OUT = pathlib.Path(sys.argv[4]) if len(sys.argv) > 4 else None
HANDS = wizard_hands.make(SYSTEM, WORK)
USER, PASSWORD = "skipper@example.com", "wind & tide"
PRODUCT = "Rowan Sails"
BACKGROUND = "#8090a0"  # of pictures, as in screens
TARGET = WORK / PRODUCT
OFFLINE = ("patch-control-file", "patch-data-file", "patch-anchor-checksum")
SHIPPED = ["velpatch" + HANDS.suffix] + [f"data/{path.name}" for path in (ROOT / "data").iterdir()]
SERVICE = """base-address "https://localhost:@PORT@/"
server
{
    listen "127.0.0.1:@PORT@"
    certificate "server.crt"
    certificate-key "server.key"
}
streams
{
    live
    {
        name "Live"
        anchor-file "RSNE.exe"
        builds
        {
            one
            {
                folder "game/build1"
                control "patch/patch-control.txt"
                data "patch/patch-data.bin"
                description "Build 2: new harbours, calmer gulls, and 40 fixes."
            }
        }
    }
    beta
    {
        name "Beta"
        builds
        {
            one
            {
                anchor-checksum "0123456789abcdef0123456789abcdef"
            }
        }
    }
}
products
{
    game
    {
        bundle-id "works.mostrel.rowan-sails"
        default-stream live
        streams
        {
            live
            beta
        }
    }
}
accounts
{
    "@USER@"
    {
        password "@PASSWORD@"
        products
        {
            game
        }
    }
}
"""


class Service:
    """The patch stream service, which at first sends so slowly that no download ends."""

    def __init__(self):
        subprocess.run([ROOT / "scripts/make-root", WORK, "localhost"], check=True)
        self.server = NginxServer(WORK / "nginx.log")
        self.server.start(self.publish)
        self.base = f"https://localhost:{self.server.port}/"

    def publish(self, port):
        text = SERVICE.replace("@PORT@", str(port)).replace("@USER@", USER)
        (WORK / "service.txt").write_text(text.replace("@PASSWORD@", PASSWORD), encoding="utf-8")
        subprocess.run([ROOT / "build/release/bin/velpatch-kit", "-q", "publish", "service.txt",
                        "site"], cwd=WORK, check=True, capture_output=True)
        self.configuration = WORK / "site/nginx/nginx.conf"
        plain = self.configuration.read_text(encoding="utf-8")
        if plain.count("http {") != 1:
            fail("no place for the rate in nginx.conf")
        self.configuration.write_text(plain.replace("http {", "http { limit_rate 30k;"),
                                      encoding="utf-8")
        return self.configuration

    def come_back(self):
        """On the same port, and fast."""
        slow = self.configuration.read_text(encoding="utf-8")
        self.configuration.write_text(slow.replace("limit_rate 30k;", ""), encoding="utf-8")
        if not self.server.run(self.configuration):
            fail("nginx does not come back")


def ship(folder, drop, add, patch=None):
    """The program with its own configuration, as a product ships it; gives the program's path."""
    (folder / "data").mkdir(parents=True, exist_ok=True)
    for source in (ROOT / "data").iterdir():
        shutil.copy(source, folder / "data")
    program = folder / SHIPPED[0]
    shutil.copy(BUILD / "bin" / SHIPPED[0], program)
    config = folder / "data/patch-config.txt"
    config.chmod(0o644)
    lines = [line for line in config.read_text(encoding="utf-8").splitlines()
             if not line.startswith(drop)]
    config.write_text(add + "\n".join(lines) + "\n", encoding="utf-8")
    if patch is not None:
        for source, target in (("patch-control.txt", "control.txt"), ("patch-data.bin", "data.bin")):
            shutil.copy(WORK / patch / source, folder / "data" / target)
    return program


def shoot(name):
    """A picture, once two that follow each other are the same."""
    if OUT is None:
        return
    file, before = OUT / f"{SYSTEM}-{name}.png", None
    for _ in range(20):
        time.sleep(0.3)
        subprocess.run(["import", "-window", "root", str(file)], check=True)
        now = subprocess.run(["identify", "-format", "%#", str(file)], check=True,
                             capture_output=True).stdout
        if now == before:
            break
        before = now
    # The desktop behind gets the colour of the page that the pictures are put on.
    subprocess.run(["mogrify", "-fuzz", "1%", "-fill", BACKGROUND, "-draw", "color 0,0 floodfill",
                    "-trim", "+repage", str(file)], check=True)


def same(target, build, extra=()):
    """Whether the folder holds the build and nothing else but the `extra` files."""
    extra = set(extra)

    def differences(pair, path):
        for name in pair.left_only + pair.diff_files + pair.funny_files:
            if path + name not in extra:
                yield path + name
        yield from (path + name for name in pair.right_only)
        for name, below in pair.subdirs.items():
            yield from differences(below, f"{path}{name}/")
    filecmp.clear_cache()
    wrong = list(differences(filecmp.dircmp(target, build, ignore=[], hide=[]), ""))
    wrong += [name for name in extra if not (target / name).exists()]
    if wrong:
        fail(f"{target} is not {build}: {wrong}")
    for path in build.rglob("*"):  # the comparison before trusts sizes and times
        if path.is_file() and path.read_bytes() != (target / path.relative_to(build)).read_bytes():
            fail(f"{target} is not {build}: {path}")


def check(what, good):
    if not good:
        fail(f"{what}: not so\nregistry: {HANDS.registry()}\nprograms: {HANDS.programs()}")


def stage(number, program, words=()):
    """Waits until one program alone is left, which is of that stage; gives its path."""
    def probe():
        running = HANDS.programs()
        return running if len(running) == 1 and ["--escalationstage", str(number)] == (
            running[0][3:5]) else None
    words_there = wait_for(f"stage {number}", probe, HANDS.programs)[0]
    copy = HANDS.local(words_there[0])
    target = ["--target", HANDS.foreign(TARGET), "--escalationstage", str(number), "--start"]
    if words_there[1:6] != target or words_there[6:] != list(words):
        fail(f"stage {number} was started with {words_there}")
    if (copy == program) != (number == 1):
        fail(f"stage {number} is {copy}")
    return copy


def copy_is_gone(copy):
    """The copy deletes itself; where a program can't while it runs, the next start does the rest."""
    wait_for("the end of the copy's data", lambda: not (copy.parent / "data").exists())
    if copy.exists() and HANDS.restart():
        wait_for("the end of the copy", lambda: not copy.parent.exists())
    check(f"{copy} has deleted itself", not copy.parent.exists())


def shortcuts_of(listed):
    """Paths in an uninstall list."""
    data, paths = listed.read_bytes()[4:], []
    while data:
        size, data = data[0], data[1:]
        paths.append(HANDS.local(data[:size].decode()))
        data = data[size:]
    return paths


def install():
    """Offline, from a folder of its own: one relaunch."""
    program = ship(WORK / "setup", OFFLINE + ("patch-is-installation",),
                   'patch-is-installation true\npatch-control-file "control.txt"\n'
                   'patch-data-file "data.bin"\n', "full")
    TARGET.mkdir()
    text = HANDS.language_of_installer
    HANDS.start(program, text["locale"], "--target", HANDS.foreign(TARGET))
    HANDS.see(text["welcome"])
    shoot("install-1-welcome")
    HANDS.press(text["next"])
    HANDS.see_button(text["agree"])
    shoot("install-2-licence")
    HANDS.press(text["agree"])
    HANDS.see(text["target"])
    shoot("install-3-target")
    HANDS.press(text["next"])
    HANDS.see(text["exists"])
    shoot("install-4-exists")
    HANDS.press(text["yes"])
    HANDS.see(text["ready"])
    shoot("install-5-check")
    HANDS.press(text["install"])
    HANDS.see(text["done"])
    stage(1, program, ["--launchtargetonexit"])
    shoot("install-6-done")
    HANDS.untick(text["launch"])
    HANDS.press(text["exit"])
    HANDS.gone()
    same(TARGET, WORK / "game/build1", ["uninstall.dat"])
    made = shortcuts_of(TARGET / "uninstall.dat")
    check("two shortcuts", made == HANDS.shortcut_places() and all(p.exists() for p in made))
    check("they lead to the game", all(HANDS.leads_to(p, TARGET / "RSNE.exe") for p in made))
    registry = HANDS.registry()
    for word in ("DisplayName", "EstimatedSize", "UninstallString", "Folders", "--installcontent",
                 HANDS.in_registry(TARGET)):
        check(f"'{word}' in the registry", word in registry)
    return made


def patch_online(service):
    """From inside the game's folder, which the installation's traces tell: both relaunches."""
    program = ship(TARGET, OFFLINE, f'patch-service-base "{service.base}"\n')
    trust = TARGET / "data/openssl.crt"
    trust.chmod(0o644)
    shutil.copy(WORK / "root.crt", trust)
    HANDS.start(program, "en_US")
    HANDS.see("Rowan Sails will be patched")
    HANDS.see(HANDS.in_registry(TARGET).replace("\\", HANDS.separator))
    shoot("patch-1-target")
    HANDS.press("Next")
    HANDS.see("Please sign in")
    shoot("patch-2-account")
    HANDS.type_into("User name:", USER)
    HANDS.type_into("Password:", PASSWORD)
    HANDS.press("Next")
    HANDS.see("Patch stream: Live")
    shoot("patch-3-stream")
    HANDS.press("Change...")
    HANDS.see("Beta")
    shoot("patch-4-streams")
    HANDS.press("Cancel")
    HANDS.press("Next")
    HANDS.see("Build 2: new harbours")
    shoot("patch-5-check")
    HANDS.press("Apply Patch")
    HANDS.see(" KiB/s, ")
    copy = stage(2, program, ["--selfdeleteonexit"])
    shoot("patch-6-work")
    service.server.stop()
    HANDS.see("The installation data could not be downloaded.")
    shoot("patch-7-prompt")
    service.come_back()
    HANDS.press("Try Again")
    HANDS.see("All done.")
    shoot("patch-8-done")
    HANDS.press("Exit")
    HANDS.gone()
    same(TARGET, WORK / "game/build2", SHIPPED + ["uninstall.dat"])
    copy_is_gone(copy)


def fail_offline():
    """A file of the game is damaged, deep down in folders: said in words, and nothing changes."""
    target = WORK / "/".join(["AFolderWhoseNameHasNothingAtWhichALineCouldEndThoughItIsLongerThanAnyLine"] * 3)
    shutil.copytree(WORK / "game/build1", target)
    anchor = hashlib.md5((target / "RSNE.exe").read_bytes()).hexdigest()
    program = ship(WORK / "patcher", OFFLINE, 'patch-control-file "control.txt"\n'
                   f'patch-data-file "data.bin"\npatch-anchor-checksum "{anchor}"\n', "patch")
    edited = (path.relative_to(target) for path in sorted((target / "data").rglob("*"))
              if path.is_file() and path.stat().st_size > 100)
    damaged = next(target / path for path in edited if (WORK / "game/build2" / path).exists() and (
        WORK / "game/build2" / path).read_bytes() != (target / path).read_bytes())
    damaged.chmod(0o644)
    damaged.write_bytes(b"damaged" + damaged.read_bytes()[7:])
    shutil.copytree(target, WORK / "before")
    HANDS.start(program, "en_US", "--target", HANDS.foreign(target))
    HANDS.see("Rowan Sails will be patched")
    shoot("failure-1-target")
    HANDS.press("Next")
    HANDS.see("Everything is here")
    HANDS.press("Apply Patch")
    HANDS.see("The patch can't be applied")
    shoot("failure-2-told")
    HANDS.press("OK")
    HANDS.see("That did not work.")
    shoot("failure-3-after")
    HANDS.press("Exit")
    HANDS.gone()
    same(target, WORK / "before")


def uninstall(made):
    """By the program that came with the game: it works from a copy."""
    program = TARGET / SHIPPED[0]
    HANDS.start(program, "en_US", "--uninstall")
    HANDS.see("This will remove")
    shoot("uninstall-1-welcome")
    HANDS.press("Next")
    HANDS.see("This folder and everything in it")
    shoot("uninstall-2-target")
    HANDS.press("Next")
    HANDS.see("All done.")
    copy = stage(2, program, ["--uninstall", "--selfdeleteonexit"])
    shoot("uninstall-3-done")
    HANDS.press("Exit")
    HANDS.gone()
    check("the folder is gone", not TARGET.exists())
    check("the shortcuts are gone", not any(path.exists() for path in made))
    check("the shortcuts' folder stays", made[0].parent.exists())
    registry = HANDS.registry()
    for word in ("DisplayName", "EstimatedSize", "--installcontent", HANDS.in_registry(TARGET)):
        check(f"no '{word}' in the registry", word not in registry)
    check("the empty list of folders stays", "Folders" in registry)
    copy_is_gone(copy)


started = Service()
try:
    shortcuts = install()
    patch_online(started)
    fail_offline()
    uninstall(shortcuts)
except SystemExit:
    print(f"running: {HANDS.programs()}\nsaid: {HANDS.said()}")
    raise
finally:
    started.server.stop()
    HANDS.close()
print(f"wizard, {SYSTEM}: installed, patched, removed"
      + (f"; {len(list(OUT.glob(SYSTEM + '-*.png')))} pictures in {OUT}" if OUT else ""))
