"""Hands and eyes for real GTK windows: AT-SPI finds and presses, xdotool types.

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
    print(text)
    sys.exit(1)


def application(name):
    """The first running program of that name; None if there is none."""
    desktop = Atspi.get_desktop(0)
    for i in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(i)
        if app is not None and app.get_name() == name:
            return app
    return None


def wait_for(what, probe, find_app=None):
    """The first true answer of `probe`; in vain, what `find_app` gives is printed."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        try:
            answer = probe()
        except GLib.GError:  # a control went while it was looked at
            answer = None
        if answer:
            return answer
        time.sleep(0.05)
    for node in nodes(find_app()) if find_app is not None and find_app() is not None else ():
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
    return wait_for(f"{role} '{name}'", lambda: find(app, role, name), lambda: app)


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
