"""Runs the player's program with --checkforpatch against a service of its own.

  check_for_patch.py PROGRAM FOLDER

FOLDER holds root.crt, server.crt and server.key of a server named "localhost".
"""
import base64
import hashlib
import http.server
import os
import pathlib
import shlex
import shutil
import ssl
import subprocess
import sys
import threading
import time

ANCHOR = b"the installed build\n"
BUILD = hashlib.md5(ANCHOR).hexdigest()
ACCOUNT = "username \"anna o'h\"\npassword \"p&=\u00e9\"\n"
IDENTITY = "u=anna%20o%27h&p=p%26%3d%c3%a9"
CHECK = f"/sub/streams/rollstockstreamcheck.php?{IDENTITY}&loc=US&id=velpatch.test&iid=inst-1"
GOOD = "good 1\nstream \"7 Seven\"\ndefault-stream 42\n"


def file_request(stream):
    return f"/sub/streams/getstreamfile.php?{IDENTITY}&stream={stream}&build={BUILD}&loc=US"


# What is run, the replies to both requests, whether a stream is given on the command line, the exit
# code, and the requests that are made.
CASES = (
    ("a patch", GOOD, "good 1\n", None, 1, (CHECK, file_request("42"))),
    ("up to date", GOOD, "error no-patches-available\n", None, 0, (CHECK, file_request("42"))),
    ("a patch on a given stream", "", "good 1\n", "b c", 1, (file_request("b%20c"),)),
    ("not good", GOOD, "good 0\n", None, 2, (CHECK, file_request("42"))),
    ("no account", "error login_details_not_received\n", "", None, 2, (CHECK,)),
    ("wrong account", "error invalid-myrollstock-details\n", "", None, 3, (CHECK,)),
    ("no streams", "error no-patch-streams\n", "", None, 3, (CHECK,)),
    ("no products", "error no-products-owned\n", "", None, 3, (CHECK,)),
    ("a refused request", None, "", None, 2, (CHECK,)),
)


class Service(http.server.BaseHTTPRequestHandler):
    """Replies with two texts and keeps the requests."""
    replies = ("", "")
    requests = []

    def do_GET(self):  # pylint: disable=invalid-name
        self.requests.append(self.path)
        reply = self.replies[0 if "streamcheck" in self.path else 1]
        body = (reply or "good 1\n").encode()
        self.send_response(403 if reply is None else 200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):  # pylint: disable=arguments-differ
        pass


def serve(folder):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(folder / "server.crt", folder / "server.key")
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Service)
    server.socket = context.wrap_socket(server.socket, server_side=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server.server_address[1]


def main(program, folder):
    folder = pathlib.Path(folder)
    data = folder / "app" / "data"
    data.mkdir(parents=True)
    copy = folder / "app" / os.path.basename(program)
    shutil.copy(program, copy)
    shutil.copy(folder / "root.crt", data / "openssl.crt")
    (folder / "game").mkdir()
    (folder / "game" / "game.bin").write_bytes(ANCHOR)
    port = serve(folder)

    def configure(base):
        (data / "patch-config.txt").write_text(
            "application-bundle-id velpatch.test\npatch-anchor-file game.bin\n"
            f"installation-id inst-1\npatch-service-base \"{base}\"\n")

    configure(f"https://localhost:{port}/sub")
    environment = dict(os.environ, XDG_DATA_HOME=str(folder / "user"))
    environment.pop("DISPLAY", None)
    failures = []

    def run(what, words, code, requests):
        Service.requests = []
        begin = time.monotonic()
        done = subprocess.run([*shlex.split(os.environ.get("VELPATCH_RUN", "")), str(copy), *words],
                              cwd=folder, env=environment, timeout=120, check=False,
                              stdin=subprocess.DEVNULL)
        took = time.monotonic() - begin
        if done.returncode != code:
            failures.append(f"{what}: exit code {done.returncode}, wanted {code}")
        if tuple(Service.requests) != tuple(requests):
            failures.append(f"{what}: asked for {Service.requests}")
        return took

    game = str(folder / "game")
    times = []
    for what, check, file, stream, code, requests in CASES:
        Service.replies = (check, file)
        text = ACCOUNT + (f"stream-id \"{stream}\"\n" if stream else "")
        words = ["--checkforpatch", "--target", game, "--locale", "de", "--settings",
                 base64.b64encode(text.encode()).decode()]
        times.append(run(what, words, code, requests))
    run("no target", ["--checkforpatch"], 2, ())
    run("no anchor file", ["--checkforpatch", "--target", str(folder)], 2, ())
    configure("https://localhost:1/")
    run("nobody there", words, 2, ())
    saved = folder / "user" / "velpatch.test" / "velpatch-settings.dat"
    if saved.exists():
        failures.append("the account was saved")
    # A launcher waits for it. Wine's own start takes longer; the best of all stands a busy machine.
    if not os.environ.get("VELPATCH_RUN") and min(times) > 0.3:
        failures.append("an answer takes more than 300 ms")
    print(f"process to exit code in {1000 * min(times):.0f} to {1000 * max(times):.0f} ms")
    print("\n".join(failures) or "check for a patch: good")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
