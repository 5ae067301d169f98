"""Plays the wizard through AT-SPI and takes pictures: screens.py ROOT WORK OUT; see screens."""
import filecmp
import http.server
import os
import pathlib
import shutil
import ssl
import subprocess
import sys
import threading
import time
import urllib.parse

import gtk_user
from gtk_user import Atspi, find, has, key

ROOT, WORK, OUT = (pathlib.Path(word) for word in sys.argv[1:4])
BUSY = threading.Event()  # the service keeps the installation data back until it is set


class Service(http.server.BaseHTTPRequestHandler):
    """A patch stream service with one account and two streams, and the files of the patch."""
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        path = urllib.parse.urlparse(self.path).path
        base = f"https://localhost:{self.server.server_port}/"
        if path == "/streams/rollstockstreamcheck.php":
            body = b'good 1\nstream "live Live"\nstream "beta Beta"\ndefault-stream live\n'
        elif path == "/streams/getstreamfile.php":
            body = (f'good 1\npatch-control-file "{base}patch-control.txt"\n'
                    f'patch-data-file "{base}patch-data.bin"\n'
                    'description "Build 2: new harbours, calmer gulls, and 40 fixes."\n').encode()
        else:
            if path == "/patch-data.bin":
                BUSY.wait(60)
            body = (WORK / "patch" / path[1:]).read_bytes()
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *words):
        pass


def serve():
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Service)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(WORK / "server.pem", WORK / "key.pem")
    server.socket = context.wrap_socket(server.socket, server_side=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return f"https://localhost:{server.server_port}/"


def program(name, drop, add, patch=None):
    """A copy of the program with its own configuration; gives its path."""
    folder = WORK / name
    shutil.copytree(ROOT / "data", folder / "data")
    os.chmod(folder / "data", 0o755)
    shutil.copy(ROOT / "build/release/bin/velpatch", folder)
    config = folder / "data/patch-config.txt"
    lines = [line for line in config.read_text(encoding="utf-8").splitlines()
             if not line.startswith(drop)]
    config.unlink()
    config.write_text(add + "\n".join(lines) + "\n", encoding="utf-8")
    if patch is not None:
        for source, target in (("patch-control.txt", "control.txt"), ("patch-data.bin", "data.bin")):
            shutil.copy(WORK / patch / source, folder / "data" / target)
    return folder / "velpatch"


def app():
    return gtk_user.application("velpatch")


def see(name, role=None):
    """Waits for a control by its name (its beginning, with a role of labels)."""
    def probe():
        window = app()
        for node in gtk_user.nodes(window) if window is not None else ():
            if (has(node, Atspi.StateType.SHOWING) and node.get_name().startswith(name)
                    and role in (None, node.get_role_name())):
                return node
        return None
    return gtk_user.wait_for(f"'{name}'", probe, app)


def press(name):
    def probe():
        node = find(app(), "push button", name) if app() is not None else None
        return node if node is not None and has(node, Atspi.StateType.SENSITIVE) else None
    gtk_user.wait_for(f"button '{name}'", probe, app).do_action(0)


def shoot(name):
    """A picture, once two that follow each other are the same."""
    file, before = OUT / f"{name}.png", None
    for _ in range(40):
        time.sleep(0.3)
        subprocess.run(["import", "-window", "root", str(file)], check=True)
        now = subprocess.run(["identify", "-format", "%#", str(file)], check=True,
                             capture_output=True).stdout
        if now == before:
            break
        before = now
    subprocess.run(["mogrify", "-bordercolor", "black", "-border", "1", "-trim", "+repage",
                    str(file)], check=True)


def run(path, language, *words):
    environment = dict(os.environ, LANGUAGE="", LC_ALL="", LANG=f"{language}.UTF-8")
    return subprocess.Popen([path, *words], env=environment, stdout=subprocess.DEVNULL)


def gone():
    gtk_user.wait_for("the end", lambda: app() is None)


def same(target, build):
    """The build, with nothing but the list for the uninstall beside it."""
    def differs(pair):
        return (pair.left_only not in ([], ["uninstall.dat"]) or pair.right_only or
                pair.diff_files or any(differs(sub) for sub in pair.subdirs.values()))
    if differs(filecmp.dircmp(target, build)):
        gtk_user.fail(f"{target} is not {build}")


def online_patch(base):
    shutil.copytree(WORK / "game/build1", WORK / "player")
    path = program("online", ("patch-control-file", "patch-data-file", "patch-anchor-checksum"),
                   f'patch-service-base "{base}"\n')
    trust = path.parent / "data/openssl.crt"
    trust.unlink()
    shutil.copy(WORK / "server.pem", trust)
    process = run(path, "en_US", "--target", str(WORK / "player"))
    see("Rowan Sails will be patched")
    shoot("online-1-target")
    press("Next")
    user = see("User name:", "text")
    shoot("online-2-account")
    gtk_user.wait_for("the focus", lambda: gtk_user.focused(app()) == "User name:")
    for text in ("anna", "secret"):
        subprocess.run(["xdotool", "type", "--delay", "30", text], check=True)
        key("Tab")
    gtk_user.wait_for("the name", lambda: gtk_user.text_of(user) == "anna")
    press("Next")
    see("Patch stream: Live")
    shoot("online-3-stream")
    press("Change...")
    see("Beta")
    shoot("online-3-stream-list")
    press("Cancel")
    press("Next")
    see("Build 2: new harbours")
    shoot("online-4-check")
    press("Apply Patch")
    see("Downloading")
    shoot("online-5-patch")
    BUSY.set()
    see("All done.")
    shoot("online-6-done")
    press("Exit")
    gone()
    process.wait(60)
    same(WORK / "player", WORK / "game/build2")


def offline_installation():
    path = program("offline", ("patch-control-file", "patch-data-file", "patch-anchor-checksum",
                               "patch-is-installation"),
                   'patch-is-installation true\npatch-control-file "control.txt"\n'
                   'patch-data-file "data.bin"\n', "full")
    target = WORK / "Rowan Sails"
    target.mkdir()
    process = run(path, "de_DE", "--target", str(target))
    see("Willkommen bei")
    shoot("offline-1-welcome")
    press("Weiter")
    see("Ich stimme zu")
    shoot("offline-2-licence")
    press("Ich stimme zu")
    see("Rowan Sails wird in diesem Ordner")
    shoot("offline-3-target")
    press("Weiter")
    see("Diesen Ordner gibt es schon")
    shoot("offline-4-exists")
    press("Ja")
    see("Alles ist schon da")
    shoot("offline-5-check")
    press("Installieren")
    see("Alles erledigt.")
    shoot("offline-6-done")
    see("Rowan Sails jetzt starten").do_action(0)
    press("Beenden")
    gone()
    process.wait(60)
    same(target, WORK / "game/build2")


def uninstall():
    path = program("remover", ("patch-is-installation",), "patch-is-installation true\n")
    process = run(path, "en_US", "--uninstall", "--target", str(WORK / "Rowan Sails"))
    see("This will remove")
    shoot("uninstall-1-welcome")
    press("Next")
    see("This folder and everything in it")
    shoot("uninstall-2-target")
    press("Next")
    see("All done.")
    shoot("uninstall-3-done")
    press("Exit")
    gone()
    process.wait(60)
    if (WORK / "Rowan Sails").exists():
        gtk_user.fail("the uninstall left the folder")


online_patch(serve())
offline_installation()
uninstall()
print(f"screens: {len(list(OUT.glob('*.png')))} pictures in {OUT}")
