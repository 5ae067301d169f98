"""Hands and eyes for real GTK windows: AT-SPI finds and presses, xdotool types."""
import subprocess

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

import waiting  # noqa: E402
from waiting import fail  # noqa: E402,F401


def application(name):
    """The first running program of that name; None if there is none."""
    desktop = Atspi.get_desktop(0)
    for i in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(i)
        if app is not None and app.get_name() == name:
            return app
    return None


def wait_for(what, probe, find_app=None):
    """As waiting.wait_for; in vain, what is shown of what `find_app` gives is printed."""
    def patient():
        try:
            return probe()
        except GLib.GError:  # a control went while it was looked at
            return None

    def dump():
        app = find_app() if find_app is not None else None
        return "\n".join(f"{node.get_role_name()} {node.get_name()!r}"
                         + (" active" if has(node, Atspi.StateType.ACTIVE) else "")
                         + (" focused" if has(node, Atspi.StateType.FOCUSED) else "")
                         for node in (nodes(app) if app is not None else ())
                         if has(node, Atspi.StateType.SHOWING))
    return waiting.wait_for(what, patient, dump)


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
