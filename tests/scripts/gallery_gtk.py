"""Drives the gallery's GTK window through AT-SPI and through its keyboard (xdotool).

Waits for what it expects and never for a time, so a slow machine only makes it slow.
"""
import subprocess
import sys
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

PATIENCE = 60.0


def fail(text):
    print("gallery:", text)
    sys.exit(1)


def wait_for(what, probe):
    """The first true answer of `probe`."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        try:
            answer = probe()
        except GLib.GError:  # a control went while it was looked at
            answer = None
        if answer:
            return answer
        time.sleep(0.05)
    for node in nodes(gallery()):
        if has(node, Atspi.StateType.SHOWING):
            print(node.get_role_name(), repr(node.get_name()),
                  "active" if has(node, Atspi.StateType.ACTIVE) else "",
                  "focused" if has(node, Atspi.StateType.FOCUSED) else "")
    return fail(f"waited in vain for {what}")


def nodes(start):
    yield start
    for i in range(start.get_child_count()):
        child = start.get_child_at_index(i)
        if child is not None:
            yield from nodes(child)


def has(node, state):
    return node.get_state_set().contains(state)


def find(app, role, name):
    for node in nodes(app):
        if (node.get_role_name() == role and node.get_name() == name
                and has(node, Atspi.StateType.SHOWING)):
            return node
    return None


def get(app, role, name):
    return wait_for(f"{role} '{name}'", lambda: find(app, role, name))


def key(*names):
    subprocess.run(["xdotool", "key", "--clearmodifiers", *names], check=True)


def text_of(node):
    return Atspi.Text.get_text(node, 0, -1)


def focused(app):
    """The name of what has the focus in the active window; others remember theirs."""
    for i in range(app.get_child_count()):
        window = app.get_child_at_index(i)
        if window is None or not has(window, Atspi.StateType.ACTIVE):
            continue
        for node in nodes(window):
            if has(node, Atspi.StateType.FOCUSED) and has(node, Atspi.StateType.FOCUSABLE):
                return node.get_name()
    return None


def gallery():
    desktop = Atspi.get_desktop(0)
    for i in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(i)
        if app is not None and app.get_name() == "velpatch-gallery":
            return app
    return None


app = wait_for("the gallery", gallery)
user = get(app, "text", "User name:")
get(app, "password text", "Password:")
get(app, "check box", "Put a shortcut on the desktop")
get(app, "progress bar", "Measured:")
get(app, "list item", "Testing")
get(app, "text", "Styled text")
get(app, "image", "Colours")

# Whoever can't see the window hears a name for each stop of the keyboard.
for node in nodes(app):
    if (has(node, Atspi.StateType.FOCUSABLE) and has(node, Atspi.StateType.SHOWING)
            and not node.get_name()):
        fail(f"a {node.get_role_name()} without a name")

# Keys: typing goes where the focus is, Tab goes everywhere and comes back.
user.grab_focus()
wait_for("the focus in the first field", lambda: focused(app) == "User name:")
subprocess.run(["xdotool", "type", "--delay", "30", "anna"], check=True)
wait_for("what was typed", lambda: text_of(user) == "anna")
stops = ["User name:"]
for _ in range(30):
    key("Tab")
    before = stops[-1]
    stops.append(wait_for("the next stop", lambda: focused(app) not in (before, None)
                          and focused(app)))
    if stops[-1] == stops[0]:
        break
for wanted in ("Password:", "Folder:", "Put a shortcut on the desktop", "Testing", "Styled text",
               "Message...", "Disable Form", "Exit", "Next"):
    if wanted not in stops:
        fail(f"Tab never came to '{wanted}': {stops}")

# A sheet over the window: pressed open by assistive technology, closed by Enter.
get(app, "push button", "Message...").do_action(0)
get(app, "label", "A message sheet. Tasks go on below it.")
wait_for("the sheet's button to have the focus", lambda: focused(app) == "OK")
key("Return")
wait_for("the sheet to close",
         lambda: find(app, "label", "A message sheet. Tasks go on below it.") is None)

# Space toggles a check box.
box = get(app, "check box", "Put a shortcut on the desktop")
was = has(box, Atspi.StateType.CHECKED)
box.grab_focus()
wait_for("the check box to have the focus",
         lambda: focused(app) == "Put a shortcut on the desktop")
key("space")
wait_for("the check box to change", lambda: has(box, Atspi.StateType.CHECKED) != was)

key("Escape")
print("gallery: fine")
