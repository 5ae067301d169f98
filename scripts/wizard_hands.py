"""The wizard's windows, the same to use on both systems: GTK by assistive technology and keyboard,
Win32 under Wine by keyboard and wine_windows.exe's eyes.
"""
import os
import pathlib
import subprocess

from waiting import PATIENCE, fail, wait_for

ROOT = pathlib.Path(__file__).resolve().parents[1]


def xdotool(*words):
    subprocess.run(["xdotool", *words], check=True)


class Hands:
    """What both systems share; `work` is the folder whose programs are played with."""

    def __init__(self, work):
        self.work = work
        self.started = None

    def programs(self):
        """The words that each running copy of the player's program was started with."""
        found = []
        for entry in pathlib.Path("/proc").iterdir():
            try:
                line = (entry / "cmdline").read_bytes().decode("utf-8", "replace")
            except OSError:
                continue
            words = line.rstrip("\0").split("\0")
            if entry.name.isdigit() and self.local(words[0]).name == (
                    "velpatch" + self.suffix) and self.work in self.local(words[0]).parents:
                found.append(words)
        return found

    def run(self, words, **more):
        with open(self.work / "said", "wb") as said:
            self.started = subprocess.Popen([str(word) for word in words], stdout=said,
                                            stderr=subprocess.STDOUT, **more)

    def said(self):
        """What the program that was started last has written."""
        path = self.work / "said"
        return path.read_text(encoding="utf-8", errors="replace")[-3000:] if path.exists() else ""

    def gone(self):
        wait_for("the end", lambda: not self.programs(), self.programs)
        self.started.wait(PATIENCE)


class GtkHands(Hands):
    suffix, separator = "", "/"
    language_of_installer = {
        "locale": "de_DE", "welcome": "Willkommen bei", "next": "Weiter", "agree": "Ich stimme zu",
        "target": "Rowan Sails wird in diesem Ordner", "exists": "Diesen Ordner gibt es schon",
        "yes": "Ja", "ready": "Alles ist schon da", "install": "Installieren",
        "done": "Alles erledigt.", "launch": "Rowan Sails jetzt starten", "exit": "Beenden"}

    def __init__(self, work):
        super().__init__(work)
        import gtk_user  # its bindings are there only where GTK is played
        self.user = gtk_user
        self.share = pathlib.Path(os.environ["XDG_DATA_HOME"])
        self.app()  # a program that has to bring the services up itself may be seen by nobody

    def local(self, path):
        return pathlib.Path(path)

    def foreign(self, path):
        return str(path)

    def start(self, program, locale, *words):
        self.run([program, *words], env=dict(os.environ, LANGUAGE="", LC_ALL="",
                                             LANG=f"{locale}.UTF-8"))

    def app(self):
        return self.user.application("velpatch")

    def find(self, good):
        """The first control shown that `good` likes; the program may come and go meanwhile."""
        def probe():
            app = self.app()
            for node in self.user.nodes(app) if app is not None else ():
                if self.user.has(node, self.user.Atspi.StateType.SHOWING) and good(node):
                    return node
            return None
        return probe

    def see(self, text):
        """Waits for a text, which may be a part of what is shown or what stands in a field."""
        def good(node):
            return text in node.get_name() or (
                node.get_role_name() == "text" and text in self.user.text_of(node))
        return self.user.wait_for(f"'{text}'", self.find(good), self.app)

    def see_button(self, name):
        def good(node):
            return (node.get_role_name() == "push button" and node.get_name() == name
                    and self.user.has(node, self.user.Atspi.StateType.SENSITIVE))
        return self.user.wait_for(f"button '{name}'", self.find(good), self.app)

    def press(self, name):
        self.see_button(name).do_action(0)

    def untick(self, name):
        box = self.see(name)
        box.do_action(0)
        self.user.wait_for("the tick to go", lambda: not self.user.has(
            box, self.user.Atspi.StateType.CHECKED))

    def type_into(self, name, text):
        def is_focused():
            return self.app() is not None and self.user.focused(self.app()) == name
        self.user.wait_for(f"the focus in '{name}'", is_focused, self.app)
        xdotool("type", "--delay", "30", text)
        field = self.user.wait_for(name, self.find(
            lambda node: node.get_name() == name and "text" in node.get_role_name()))
        self.user.wait_for("what was typed", lambda: len(self.user.text_of(field)) == len(text))
        xdotool("key", "Tab")

    def registry(self):
        path = self.share / "velpatch-registry.dat"
        return path.read_text(encoding="utf-8") if path.exists() else ""

    def in_registry(self, path):
        return str(path).replace("/", "\\")

    def shortcut_places(self):
        return [self.share / "applications/Mostrel Works/Rowan Sails.desktop",
                pathlib.Path(os.environ["HOME"]) / "Desktop/Rowan Sails.desktop"]

    def leads_to(self, shortcut, program):
        text = shortcut.read_text(encoding="utf-8")
        return f'Exec="{program}"' in text and f"Path={program.parent}\n" in text and (
            os.access(shortcut, os.X_OK))

    def restart(self):
        return False  # nothing waits for one

    def close(self):
        if self.started is not None and self.started.poll() is None:
            self.started.kill()


class WineHands(Hands):
    suffix, separator = ".exe", "\\"
    language_of_installer = {
        "locale": "en_US", "welcome": "Welcome to", "next": "Next", "agree": "I Agree",
        "target": "Rowan Sails will be installed", "exists": "This folder exists already",
        "yes": "Yes", "ready": "Everything is here", "install": "Install", "done": "All done.",
        "launch": "Start Rowan Sails now", "exit": "Exit"}
    keys = (r"HKLM\SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\Uninstall",
            r"HKLM\SOFTWARE\Mostrel Works", r"HKCR\rspfile")

    def __init__(self, work):
        super().__init__(work)
        self.drive = pathlib.Path(os.environ["VELPATCH_WINEPREFIX"]) / "drive_c"
        # What an earlier play that failed has left.
        old = [line for line in self.registry().splitlines() if line.startswith("HKEY_")
               and "\\rowan-sails" in line]
        for key in (*old, *self.keys[1:]):
            self.wine("reg", "delete", key, "/f")
        for path in self.shortcut_places():
            for old in path.parent.glob(f"{path.stem}*.lnk"):
                old.unlink()
        self.open_eyes()

    def open_eyes(self):
        self.eyes = subprocess.Popen(
            [ROOT / "scripts/wine-run", ROOT / "build/wine/windows.exe"], text=True,
            encoding="utf-8", stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL)

    def wine(self, *words):
        # Through a file: services that come up with it would keep a pipe open.
        answer = self.work / "wine-answer"
        with open(answer, "wb") as out:
            subprocess.run([ROOT / "scripts/wine-run", *words], stdin=subprocess.DEVNULL,
                           stdout=out, stderr=subprocess.DEVNULL, timeout=PATIENCE, check=False)
        return answer.read_text(encoding="utf-8", errors="replace").replace("\r", "")

    def local(self, path):
        path = path.replace("\\", "/")
        if path[:2].lower() == "c:":
            return pathlib.Path(str(self.drive) + path[2:])
        return pathlib.Path(path[2:] if path[1:2] == ":" else path)

    def foreign(self, path):
        return f"Z:{path}"

    def start(self, program, _locale, *words):
        self.run([ROOT / "scripts/wine-run", self.foreign(program), *words])

    def look(self):
        """(class, enabled, focused, ticked, text) of what is shown."""
        self.eyes.stdin.write("\n")
        self.eyes.stdin.flush()
        seen = []
        for line in self.eyes.stdout:
            line = line.rstrip("\r\n")
            if line == ".":
                return seen
            name, *flags, text = line.split("\t", 4)
            seen.append((name, *(flag != "-" for flag in flags), text))
        return fail("Wine is gone")

    def find(self, good):
        return lambda: next((control for control in self.look() if good(*control)), None)

    def see(self, text):
        return wait_for(f"'{text}'", self.find(lambda *control: text in control[4]),
                        self.look)

    def see_button(self, name):
        return wait_for(f"button '{name}'", self.find(
            lambda kind, enabled, _focus, _tick, text: kind == "Button" and enabled
            and text == name), self.look)

    def focus(self, name):
        """Walks there with the Tab key."""
        def focused():
            return next((place for place in enumerate(self.look()) if place[1][2]), None)
        for _ in range(20):
            here = wait_for("some focus", focused, self.look)
            if here[1][4] == name:
                return
            xdotool("key", "Tab")
            wait_for("another focus", lambda: focused() not in (None, here), self.look)
        fail(f"Tab never came to '{name}': {self.look()}")

    def press(self, name):
        self.see_button(name)
        self.focus(name)
        xdotool("key", "space")

    def untick(self, name):
        self.focus(name)
        xdotool("key", "space")
        wait_for("the tick to go", self.find(lambda _kind, _enabled, _focus, ticked, text:
                                             text == name and not ticked), self.look)

    def type_into(self, _name, text):
        """Into the field that has the focus; the label's name is the next control's here."""
        wait_for("the focus in a field", self.find(lambda kind, _enabled, focus, _tick, inside:
                                                   kind == "Edit" and focus and not inside),
                 self.look)
        xdotool("type", "--delay", "30", text)
        wait_for("what was typed", self.find(lambda kind, _enabled, focus, _tick, inside:
                                             focus and len(inside) == len(text)), self.look)
        xdotool("key", "Tab")

    def registry(self):
        return "".join(self.wine("reg", "query", key, "/s") for key in self.keys)

    def in_registry(self, path):
        return self.foreign(path).replace("/", "\\")

    def shortcut_places(self):
        return [self.drive / "ProgramData/Microsoft/Windows/Start Menu/Programs/Mostrel Works"
                / "Rowan Sails.lnk", self.drive / "users/Public/Desktop/Rowan Sails.lnk"]

    def leads_to(self, shortcut, program):
        data = shortcut.read_bytes()
        path = self.in_registry(program)
        return path.encode() in data or path.encode("utf-16-le") in data

    def restart(self):
        """The next start of the system; true, for things are done there."""
        self.wine("wineboot", "-r")
        self.close()
        self.open_eyes()
        return True

    def close(self):
        self.eyes.stdin.close()
        self.eyes.wait(PATIENCE)


def make(system, work):
    return GtkHands(work) if system == "gtk" else WineHands(work)
