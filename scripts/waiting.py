"""Waits for what is expected and never for a time, so a slow machine only makes a script slow."""
import sys
import time

PATIENCE = 90.0  # seconds


def fail(text):
    print(text, flush=True)
    sys.exit(1)


def wait_for(what, probe, dump=None):
    """The first true answer of `probe`; in vain, what `dump` gives is printed."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        answer = probe()
        if answer:
            return answer
        time.sleep(0.05)
    return fail(f"waited in vain for {what}\n{dump() if dump is not None else ''}")
