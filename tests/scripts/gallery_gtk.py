"""Drives the gallery's GTK window through AT-SPI and through its keyboard (xdotool).

Waits for what it expects and never for a time, so a slow machine only makes it slow.
"""
import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../scripts"))
import gtk_user  # noqa: E402
from gtk_user import Atspi, fail, find, focused, get, has, key, nodes, text_of  # noqa: E402


def gallery():
    return gtk_user.application("velpatch-gallery")


def wait_for(what, probe):
    return gtk_user.wait_for(what, probe, gallery)


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

# An open menu has the keys for itself: Escape closes it and doesn't press the window's button.
key("F10")
get(app, "menu item", "Close")
key("Right")
get(app, "menu item", "Select All")
key("Escape")
wait_for("the menu to close", lambda: find(app, "menu item", "Select All") is None)

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
