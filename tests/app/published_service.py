#!/usr/bin/env python3
"""Publishes builds as a studio does and serves them with a real nginx on a free loopback port.

  published_service.py KIT FOLDER

FOLDER holds "service.txt" with "@PORT@" for the port, and the folders of two builds, "build1" and
"build2". Once nginx answers, FOLDER/port holds its port; FOLDER/root.crt is the root to trust. It
runs until standard input ends; a line there stops nginx before, and makes FOLDER/stopped.
"""
import pathlib
import subprocess
import sys

SCRIPTS = pathlib.Path(__file__).resolve().parents[2] / "scripts"
sys.path.insert(0, str(SCRIPTS))
from nginx_server import NginxServer

PROGRAM, FOLDER = (pathlib.Path(word).resolve() for word in sys.argv[1:3])


def run(*words):
    subprocess.run(words, cwd=FOLDER, check=True, timeout=300, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL)


def kit(*words):
    run(PROGRAM, "-q", *words)


def tell_port(text):
    (FOLDER / "port.new").write_text(f"{text}\n")
    (FOLDER / "port.new").rename(FOLDER / "port")


def main():
    server = NginxServer(FOLDER / "log")
    text = (FOLDER / "service.txt").read_text(encoding="utf-8")

    def publish(port):
        (FOLDER / "service.txt").write_text(text.replace("@PORT@", str(port)), encoding="utf-8")
        kit("publish", "service.txt", "site")
        return FOLDER / "site/nginx/nginx.conf"

    try:
        run(SCRIPTS / "make-root", FOLDER, "localhost")
        kit("make", "build1", "build2", "patch")
        kit("make", "--full", "build2", "full")
        server.start(publish)
        tell_port(server.port)
        for _ in sys.stdin:
            server.stop()
            (FOLDER / "stopped").touch()
    except (SystemExit, subprocess.SubprocessError, OSError) as problem:
        print(f"published_service.py: {problem}", file=sys.stderr)
        tell_port("failed")
        return 1
    finally:
        server.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
