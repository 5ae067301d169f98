"""A real nginx with what the kit has published, as a child of the script that starts it."""
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import time

PATH = os.environ.get("PATH", "") + ":/usr/sbin:/usr/local/sbin:/sbin"
TRIES = 5  # a port that is free now may be another's in a moment
PATIENCE = 60.0


def unused_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class NginxServer:
    """Serves on a free port of this machine; what it says goes to `log`."""

    def __init__(self, log):
        self.log = pathlib.Path(log)
        self.port = 0
        self.process = None

    def start(self, publish):
        """`publish` writes a configuration for a port and gives its path."""
        for _ in range(TRIES):
            self.port = unused_port()
            if self.run(publish(self.port)):
                return
        raise SystemExit(self.log.read_text())

    def run(self, configuration):
        """Serves what the file says; false if nginx ends instead."""
        # Workers of another user couldn't reach a temporary folder.
        words = "daemon off;" + (" user root root;" if os.geteuid() == 0 else "")
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                [shutil.which("nginx", path=PATH), "-c", configuration, "-g", words,
                 "-e", "stderr"], stderr=log)
        end = time.monotonic() + PATIENCE
        while self.process.poll() is None and time.monotonic() < end:
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return True
            time.sleep(0.02)
        self.stop()
        return False

    def workers(self):
        pid = self.process.pid
        return pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text(encoding="utf-8").split()

    def reload(self):
        """Has it read its configuration again. For a moment old workers answer beside the new ones,
        so it waits until none of the old is left."""
        old = self.workers()
        self.process.send_signal(signal.SIGHUP)
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            now = self.workers()
            if now and not set(old) & set(now):
                return
            time.sleep(0.02)
        raise SystemExit("nginx never read its configuration again")

    def stop(self):
        if self.process is not None:
            self.process.terminate()  # it ends its workers
            self.process.wait()
            self.process = None
