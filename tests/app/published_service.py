#!/usr/bin/env python3
"""Publishes builds as a studio does and serves them with a real nginx on a free loopback port.

  published_service.py KIT FOLDER

FOLDER holds "service.txt" with "@PORT@" for the port, and the folders of two builds, "build1" and
"build2". Once nginx answers, FOLDER/port holds its port; FOLDER/root.crt is the root to trust. It
runs until standard input ends; a line there stops nginx before, and makes FOLDER/stopped.
"""
import os
import pathlib
import socket
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "net"))
import peers


class PublishedService(peers.Peers):
    """The kit's work, and nginx at it."""

    def __init__(self, kit, folder):
        super().__init__(folder)
        self.program = kit

    def kit(self, *words):
        subprocess.run([self.program, "-q", *words], cwd=self.folder, check=True, timeout=300,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)

    def __enter__(self):
        self.make_certificates()
        self.kit("make", "build1", "build2", "patch")
        self.kit("make", "--full", "build2", "full")
        text = (self.folder / "service.txt").read_text(encoding="utf-8")
        # Workers of another user couldn't reach a temporary folder.
        words = "daemon off;" + (" user root root;" if os.geteuid() == 0 else "")
        for _ in range(peers.ATTEMPTS):
            with socket.socket() as probe:
                probe.bind(("127.0.0.1", 0))
                port = probe.getsockname()[1]
            (self.folder / "service.txt").write_text(text.replace("@PORT@", str(port)),
                                                     encoding="utf-8")
            self.kit("publish", "service.txt", "site")
            if self.start(["nginx", "-c", self.folder / "site/nginx/nginx.conf", "-g", words, "-e",
                           "stderr"], port):
                self.ports = {"HTTPS": port}
                return self
            self.stop()
        raise peers.PeerError((self.folder / "log").read_text(errors="replace"))

    def stop(self):
        for process in self.processes:
            process.terminate()  # it ends its workers
            process.wait()
        self.processes = []


def main():
    folder = pathlib.Path(sys.argv[2]).resolve()
    done = folder / "port.new"
    try:
        with PublishedService(pathlib.Path(sys.argv[1]).resolve(), folder) as service:
            done.write_text(f"{service.ports['HTTPS']}\n")
            done.rename(folder / "port")
            for _ in sys.stdin:
                service.stop()
                (folder / "stopped").touch()
    except (peers.PeerError, subprocess.SubprocessError, OSError) as problem:
        print(f"published_service.py: {problem}", file=sys.stderr)
        done.write_text("failed\n")
        done.rename(folder / "port")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
