#!/usr/bin/env python3
"""Starts real servers on free loopback ports: nginx with http and https, its own plain proxy, and a
tinyproxy for tunnels.

  peers.py FOLDER [-- COMMAND...]

Files are served from FOLDER/www; FOLDER/root.crt is the root of the server's certificate, which
names "localhost". Once all are up, FOLDER/ports holds "HTTP HTTPS PLAIN-PROXY TUNNEL-PROXY". They
run until the command ends, or until standard input does; a line there kills nginx before. A failure
leaves "failed" in FOLDER/ports and the servers' words in FOLDER/log.
"""
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import time

DATA = pathlib.Path(__file__).resolve().parent / "data"
ATTEMPTS = 5  # another process may take a port that was free
# Servers lie in folders that the PATH of an ordinary user lacks.
PATH = os.environ.get("PATH", "") + ":/usr/sbin:/usr/local/sbin:/sbin"


class PeerError(Exception):
    """A server or a tool that is missing, or doesn't work."""


class Peers:
    """Makes the certificates and starts the servers; a context manager that stops them."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder).resolve()
        self.ports = {}
        self.processes = []
        (self.folder / "www").mkdir(exist_ok=True)

    def __enter__(self):
        self.make_certificates()
        for _ in range(ATTEMPTS):
            names = ("HTTP", "HTTPS", "PROXY", "TUNNEL")
            sockets = [socket.socket() for _ in names]
            for one in sockets:
                one.bind(("127.0.0.1", 0))
            self.ports = {name: one.getsockname()[1] for name, one in zip(names, sockets)}
            for one in sockets:
                one.close()
            if self.start_nginx() and self.start_tinyproxy():
                return self
            self.stop()
        raise PeerError((self.folder / "log").read_text(errors="replace"))

    def __exit__(self, *_):
        self.stop()

    def stop(self):
        for process in self.processes:
            process.kill()
            process.wait()
        self.processes = []

    def make_certificates(self):
        key = ["-newkey", "rsa:2048", "-nodes"]
        self.openssl("req", "-x509", *key, "-days", "2", "-subj", "/CN=Test root", "-keyout",
                     "root.key", "-out", "root.crt")
        self.openssl("req", *key, "-subj", "/CN=localhost", "-keyout", "server.key", "-out",
                     "server.csr")
        (self.folder / "names").write_text("subjectAltName=DNS:localhost\n")
        self.openssl("x509", "-req", "-in", "server.csr", "-CA", "root.crt", "-CAkey", "root.key",
                     "-CAcreateserial", "-days", "2", "-extfile", "names", "-out", "server.crt")

    def openssl(self, *words):
        done = subprocess.run(["openssl", *words], cwd=self.folder, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False)
        if done.returncode != 0:
            raise PeerError(done.stderr.decode(errors="replace"))

    def start(self, words, port):
        """False if it doesn't take connections."""
        program = shutil.which(words[0], path=PATH)
        if program is None:
            raise PeerError(f"{words[0]} is missing")
        with open(self.folder / "log", "ab") as log:
            process = subprocess.Popen([program, *map(str, words[1:])], stdin=subprocess.DEVNULL,
                                       stdout=log, stderr=log)
        self.processes.append(process)
        for _ in range(1000):
            with socket.socket() as probe:
                if process.poll() is not None:
                    return False
                if probe.connect_ex(("127.0.0.1", port)) == 0:
                    return True
            time.sleep(0.01)
        return False

    def start_nginx(self):
        text = (DATA / "nginx.conf").read_text(encoding="ascii")
        for name, value in {"FOLDER": self.folder, **self.ports}.items():
            text = text.replace(f"@{name}@", str(value))
        (self.folder / "nginx.conf").write_text(text)
        return self.start(["nginx", "-c", self.folder / "nginx.conf", "-p", self.folder, "-e",
                           self.folder / "log"], self.ports["HTTP"])

    def start_tinyproxy(self):
        (self.folder / "tinyproxy.conf").write_text(
            f"Port {self.ports['TUNNEL']}\nListen 127.0.0.1\nAllow 127.0.0.1\nTimeout 20\n"
            f"ConnectPort {self.ports['HTTPS']}\n")
        return self.start(["tinyproxy", "-d", "-c", self.folder / "tinyproxy.conf"],
                          self.ports["TUNNEL"])


def main():
    folder = pathlib.Path(sys.argv[1])
    done = folder / "ports.new"
    try:
        with Peers(folder) as peers:
            done.write_text(" ".join(str(port) for port in peers.ports.values()) + "\n")
            done.rename(folder / "ports")
            if sys.argv[2:3] == ["--"]:
                return subprocess.call(sys.argv[3:])
            for _ in sys.stdin:
                peers.processes[0].kill()
                (folder / "nginx-is-gone").touch()
    except PeerError as problem:
        print(f"peers.py: {problem}", file=sys.stderr)
        done.write_text("failed\n")
        done.rename(folder / "ports")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
