"""Publishes a patch stream service and asks a real nginx every question that players' programs ask.

  kit-publish.py BUILD-FOLDER
"""
import hashlib
import http.client
import os
import pathlib
import shlex
import shutil
import ssl
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from nginx_server import NginxServer  # noqa: E402

KIT = pathlib.Path(sys.argv[1]).resolve() / "bin" / "velpatch-kit"
HOSTILE = 'eve";} \\z $arg_u {#\'é'  # as a user name, a password, a stream and an installation id

SERVICE = """; What players are offered.
base-address "https://localhost:@PORT@/up/"
server
{
    listen "127.0.0.1:@PORT@"
    certificate "server.crt"
    certificate-key "server.key"
}
streams
{
    live ; this comment is part of the line
    {
        name "Live  ""Stream"" {};"
        anchor-file "RSNE.exe"
        builds
        {
            "1.0"
            {
                folder "build1"   
                control "p12/patch-control.txt"
                data "p12/patch-data.bin"
                description "Brings ""you"" to 2; $x {
second line"
            }
            ; The newest one.
            "2.0" { 
                folder "build2"
            }
        }
        installations
        {
            "rowan-2" {
                control "full/patch-control.txt"
                data "full/patch-data.bin"
                description "Installs 2"
            }
            "@HOSTILE@" {
                control "full/patch-control.txt"
                data "full/patch-data.bin"
                description "Hostile"
            }
        }
    }
    Live {
        name "The other Live"
        builds {
            one {
                anchor-checksum "0123456789abcdef0123456789abcdef"
            }
        }
    }
    beta {
        name "Beta"
        restricted true
        builds {
            one {
                anchor-checksum "0123456789abcdef0123456789abcdef"
            }
        }
    }
}
products
{
    any {
        bundle-id "works.rowan"
        default-stream Live
        streams {
            beta
            live
            Live
        }
    }
    special {
        bundle-id "works.rowan"
        installation-id "rowan-2"
        streams {
            live
        }
    }
    secret {
        bundle-id "works.secret"
        streams {
            beta
        }
    }
}
accounts
{
    ada {
        password "p&w=+% é"
        products {
            any
            special
            secret
        }
    }
    Ada {
        password "p&w=+% é"
        products {
            any
        }
        streams {
            beta
        }
    }
    "@HOSTILE@" {
        password "@HOSTILE@"
    }
}
""".replace("\n    live ; this comment is part of the line\n", "\n    ; Everybody's.\n    live\n")


def escape(text, hexadecimal="%%%02x"):
    """As the player's program does; or every byte, by another form."""
    plain = b"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~"
    return "".join(chr(b) if b in plain and hexadecimal == "%%%02x" else hexadecimal % b
                   for b in text.encode())


class Test:
    def __init__(self, folder):
        self.folder = folder
        self.server = NginxServer(folder / "log")
        self.failures = 0

    def expect(self, what, got, wanted):
        if got != wanted:
            self.failures += 1
            print(f"{what}: got {got!r}, wanted {wanted!r}")

    def kit(self, *words, code=0):
        done = subprocess.run([KIT, "-q", *words], cwd=self.folder, capture_output=True,
                              timeout=120, check=False)
        self.expect(f"exit code of {words}: {done.stderr.decode()}", done.returncode, code)
        return dict(line.split("\t", 1) for line in done.stdout.decode().splitlines())

    def write(self, name, text):
        path = self.folder / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def start(self):
        """Publishes for a port that is free, and serves."""
        text = SERVICE.replace("@HOSTILE@", HOSTILE.replace('"', '""'))

        def publish(port):
            self.write("service.txt", text.replace("@PORT@", str(port)))
            self.kit("publish", "service.txt", "out")
            return self.folder / "out/nginx/nginx.conf"
        self.server.start(publish)

    def get(self, path, headers=None):
        """(status, headers, body)."""
        context = ssl.create_default_context(cafile=self.folder / "server.crt")
        connection = http.client.HTTPSConnection("localhost", self.server.port, timeout=20,
                                                 context=context)
        connection.request("GET", path, headers=headers or {})
        reply = connection.getresponse()
        body = reply.read()
        connection.close()
        return reply.status, dict(reply.getheaders()), body

    def ask(self, script, query):
        status, headers, body = self.get(f"/up/streams/{script}.php?{query}")
        self.expect(f"status of {query}", status, 200)
        self.expect(f"cache control of {query}", headers.get("Cache-Control"), "no-store")
        return body.decode()

    def stream_check(self, query, wanted):
        self.expect(f"stream check {query}", self.ask("rollstockstreamcheck", query), wanted)

    def stream_file(self, query, wanted):
        """`wanted`: an error word, or the description."""
        reply = self.ask("getstreamfile", query)
        if reply.startswith("error "):
            got = reply.removeprefix('error "').removesuffix('"\n')
        else:
            got = reply.split('description "', 1)[1].removesuffix('"\n')
            self.expect(f"begin of {query}", reply.startswith(
                f'good 1\npatch-control-file "https://localhost:{self.server.port}/up/files/'), True)
        self.expect(f"stream file {query}", got, wanted)
        return reply


def error(word):
    return f'error "{word}"\n'


def check_replies(test):
    password = escape("p&w=+% é")
    ada = f"u=ada&p={password}"
    end = "&loc=US&id=works.rowan&i=0&iid=x"
    lower, upper, beta = ('stream "live Live  ""Stream"" {};"\n', 'stream "Live The other Live"\n',
                          'stream "beta Beta"\n')
    everything = "good 1\n" + upper + lower + 'default-stream "Live"\n'
    check = test.stream_check
    check(ada + end, everything)
    check(ada + "&loc=US&id=works.rowan&iid=x", everything)  # no "i": a run without a window
    check(f"u=Ada&p={password}{end}",  # the other Ada may use beta, too
          "good 1\n" + upper + beta + lower + 'default-stream "Live"\n')
    check(ada + "&loc=US&id=works.rowan&i=1&iid=rowan-2",
          "good 1\n" + lower + 'default-stream "live"\n')
    check(f"u=Ada&p={password}&loc=US&id=works.rowan&i=1&iid=rowan-2", error("no-patch-streams"))
    check(f"u=%61%64%61&p={escape('p&w=+% é', '%%%02X')}{end}", everything)
    check(f"u=ada&p=p%26w=%2b%25+%C3%a9{end}", everything)
    for login in ("u=&p=", "u=ada&p=", f"u=&p={password}", f"p={password}", "u=ada", ""):
        check(login + end, error("login_details_not_received"))
    for login in (f"u=ADA&p={password}", f"u=ada&p={escape('P&w=+% é')}", f"u=ad&p={password}",
                  f"u=xada&p={password}", f"u=ada&p={password}x", "u=ada%00&p=x", "u=ada%26p&p=w",
                  f"u=ada{escape('&' + 'p&w=+% é')}&p=x", "u=g1&p=g1", "u=.*&p=.*"):
        check(login + end, error("invalid-myrollstock-details"))
    check(ada + "&loc=US&id=works.secret&i=0&iid=x", error("no-patch-streams"))
    check(ada + "&loc=US&id=works.Rowan&i=0&iid=x", error("no-patch-streams"))
    check(ada + "&loc=US&id=&i=0&iid=", error("no-patch-streams"))
    hostile = f"u={escape(HOSTILE)}&p={escape(HOSTILE)}"
    check(hostile + end, error("no-products-owned"))

    build1, build2 = (hashlib.md5((test.folder / name / "RSNE.exe").read_bytes()).hexdigest()
                      for name in ("build1", "build2"))
    file = test.stream_file
    file(f"{ada}&stream=live&build={build1}&loc=US", 'Brings ""you"" to 2; $x {\nsecond line')
    for stream, build, wanted in (
            ("live", build2, "no-patches-available"),
            ("live", "rowan-2", "Installs 2"),
            ("live", escape(HOSTILE), "Hostile"),
            ("live", "Rowan-2", "unknown-build"),
            ("live", "0123456789abcdef0123456789abcdef", "unknown-build"),
            ("live", "", "unknown-build"),
            ("Live", build1, "unknown-build"),
            ("Live", "0123456789abcdef0123456789abcdef", "no-patches-available"),
            ("LIVE", build1, "no-patch-streams"),
            ("beta", "0123456789abcdef0123456789abcdef", "no-patch-streams"),
            ("s1", build1, "no-patch-streams"),
            ("", "", "no-patch-streams")):
        file(f"{ada}&stream={stream}&build={build}&loc=US", wanted)
    file(f"u=Ada&p={password}&stream=beta&build=0123456789abcdef0123456789abcdef&loc=US",
         "no-patches-available")
    file(f"u=ada&p=x&stream=live&build={build1}&loc=US", "invalid-myrollstock-details")
    file(f"u=&p=&stream=live&build={build1}&loc=US", "login_details_not_received")
    return build1


def check_files(test, build):
    """What the replies name can be fetched and applied, and what they don't can't be reached."""
    query = f"u=ada&p={escape('p&w=+% é')}&stream=live&build={build}&loc=US"
    reply = test.ask("getstreamfile", query)
    control, data = (reply.split(f'patch-{which}-file "')[1].split('"')[0]
                     for which in ("control", "data"))
    path = "/up/files/" + data.rsplit("/", 1)[1]
    status, headers, body = test.get(path, {"Range": "bytes=5-"})
    test.expect("a range", (status, headers.get("Accept-Ranges"), "immutable" in headers.get(
        "Cache-Control", "")), (200, None, True))
    test.expect("the whole file", body, (test.folder / "p12/patch-data.bin").read_bytes())
    shutil.copytree(test.folder / "build1", test.folder / "target")
    (test.folder / "fetched.bin").write_bytes(body[:20])
    test.kit("fetch", control, "fetched.txt", "--ca", "server.crt")
    test.kit("fetch", data, "fetched.bin", "--ca", "server.crt", "--resume")
    test.expect("fetched", (test.folder / "fetched.bin").read_bytes(), body)
    test.kit("apply", control, "target", "--data", data, "--ca", "server.crt")
    test.expect("patched", (test.folder / "target/RSNE.exe").read_bytes(),
                (test.folder / "build2/RSNE.exe").read_bytes())
    for address in ("/up/nginx/velpatch-http.conf", "/up/files/", "/up/files/../service.txt", "/",
                    "/up/files../nginx/nginx.conf", "/up/streams/"):
        test.expect(address, test.get(address)[0] in (400, 403, 404), True)
    logs = "".join(path.read_text() for path in (test.folder / "out/run/log").iterdir())
    test.expect("passwords in the logs", "p%26w" in logs or "p=" in logs, False)


def check_new_build(test, build1):
    """A new build comes, the one before gets a patch; a server that runs sees nothing of it until
    it is told."""
    before = (test.folder / "service.txt").read_text(encoding="utf-8")
    words = ["--add-build", "live", "3.0", "--anchor", "build3/RSNE.exe", "--patch", "2.0=p23",
             "--installation", "rowan-2=full3", "--description", "To 3"]
    test.kit("publish", "service.txt", "out", *words[:-4], code=2)
    test.expect("the service file", (test.folder / "service.txt").read_text("utf-8"), before)
    test.kit("publish", "service.txt", "out", *words)
    after = (test.folder / "service.txt").read_text(encoding="utf-8")
    test.expect("the comment", "            ; The newest one.\n" in after, True)
    start = before.index('"1.0"')
    end = before.index('"2.0"')
    test.expect("the other build", before[start:end] in after, True)
    test.expect("the rest", after.endswith(before[before.index("    Live {"):]), True)
    test.kit("publish", "service.txt", "out", *words, code=2)  # it is there by now

    ada = f"u=ada&p={escape('p&w=+% é')}"
    build2, build3 = (hashlib.md5((test.folder / name / "RSNE.exe").read_bytes()).hexdigest()
                      for name in ("build2", "build3"))
    test.stream_file(f"{ada}&stream=live&build={build2}&loc=US", "no-patches-available")
    test.stream_file(f"{ada}&stream=live&build=rowan-2&loc=US", "Installs 2")
    test.server.reload()
    for build, wanted in ((build1, 'Brings ""you"" to 2; $x {\nsecond line'), (build2, "To 3"),
                          (build3, "no-patches-available"), ("rowan-2", "To 3"),
                          (escape(HOSTILE), "Hostile")):
        test.stream_file(f"{ada}&stream=live&build={build}&loc=US", wanted)

    # The first installation is still the hostile one's; a patch that goes takes its files along.
    files = test.folder / "out/files"
    test.expect("files", len(list(files.iterdir())), 8)
    text = after.replace("p12/", "p12again/")
    shutil.copytree(test.folder / "p13", test.folder / "p12again")
    test.write("service.txt", text)
    test.kit("publish", "service.txt", "out")
    test.expect("files before pruning", len(list(files.iterdir())), 10)
    test.expect("pruned", test.kit("publish", "service.txt", "out", "--prune")["files-removed"],
                "4")  # control and data, their reply, and that of the first installation
    test.expect("files after pruning", len(list(files.iterdir())), 8)


def check_refusals(test):
    """Nothing is written when anything is wrong."""
    def tree():
        return {path: path.read_bytes() for path in (test.folder / "out").rglob("*")
                if path.is_file() and "run" not in path.parts}
    before = tree()
    good = (test.folder / "service.txt").read_text(encoding="utf-8")
    for old, new in (("p12again/patch-data", "p23/patch-data"), ("p12again/patch-c", "p23/patch-c"),
                     ('folder "build2"', 'folder "gone"'), ("server.key", "gone.key"),
                     ("default-stream Live", "default-stream gone")):
        test.expect(old, old in good, True)
        test.write("bad.txt", good.replace(old, new))
        test.kit("publish", "bad.txt", "out", code=2)
    test.kit("publish", "service.txt", "build1", code=2)  # a folder of something else
    test.kit("publish", "service.txt", "a $name", code=2)
    test.expect("what stood there", tree() == before, True)
    modes = {path.name: path.stat().st_mode & 0o777 for path in (
        test.folder / "out/nginx", test.folder / "out/nginx/velpatch-http.conf")}
    test.expect("modes", modes, {"nginx": 0o700, "velpatch-http.conf": 0o600})


def check_hashed(test):
    """The same logins, with digests in the server's hands."""
    text = (test.folder / "service.txt").read_text(encoding="utf-8")
    test.write("service.txt", "hash-passwords true\n" + text)
    test.kit("publish", "service.txt", "out")
    test.server.reload()
    password = escape("p&w=+% é")
    for login, wanted in ((f"u=ada&p={password}", None), (f"u=Ada&p={password}", "no-patch-streams"),
                          (f"u=%61d%61&p={password}", None),
                          (f"u={escape(HOSTILE)}&p={escape(HOSTILE)}", "no-products-owned"),
                          (f"u=ADA&p={password}", "invalid-myrollstock-details"),
                          (f"u=ada&p={escape(HOSTILE)}", "invalid-myrollstock-details"),
                          ("u=none&p=", "login_details_not_received"),
                          (f"u=&p={password}", "login_details_not_received"),
                          ("u=none&p=x", "invalid-myrollstock-details")):
        wanted = error(wanted) if wanted else 'good 1\nstream "live Live  ""Stream"" {};"\n' \
            'default-stream "live"\n'
        test.stream_check(login + "&id=works.rowan&iid=rowan-2", wanted)


def check_document(test):
    """The example of the document is a good service file, and its next build can be added."""
    text = (pathlib.Path(__file__).resolve().parents[2] / "docs/service.md").read_text("utf-8")
    build1 = hashlib.md5((test.folder / "build1/RSNE.exe").read_bytes()).hexdigest()
    example = text.split("```\n")[1].replace("84f2bdcf4776e180b8b35c1764720c0a", build1)
    test.write("doc/service.txt", example)
    command = text.split("velpatch-kit publish service.txt site --add-build")[1].split("\n\n")[0]
    for source, folder in (
            ("p12", "patches/1.0-to-1.1"), ("p23", "patches/1.1-to-1.2"),
            ("p13", "patches/1.0-to-1.2"), ("full", "installations/1.1"),
            ("full3", "installations/1.2"), ("build2", "builds/1.1"), ("build3", "builds/1.2")):
        shutil.copytree(test.folder / source, test.folder / "doc" / folder)
    (test.folder / "doc/keys").mkdir()
    for file in ("server.crt", "server.key"):
        shutil.copy(test.folder / file, test.folder / "doc/keys" / file)
    words = shlex.split(command.replace("\\\n", " "))
    done = subprocess.run([KIT, "publish", "service.txt", "site", "--add-build", *words],
                          cwd=test.folder / "doc", capture_output=True, text=True, check=False)
    test.expect("docs/service.md", (done.returncode, "warning" in done.stderr.lower()), (0, False))
    test.expect("its patches", "patches\t3\n" in done.stdout, True)


def main():
    with tempfile.TemporaryDirectory() as name:
        test = Test(pathlib.Path(name).resolve())
        for build in (1, 2, 3):
            test.write(f"build{build}/RSNE.exe", "".join(
                f"{hashlib.md5(b'%d' % (i // 9 + build * (i % 7 == 0))).hexdigest()}\n"
                for i in range(900 + build)))
            test.write(f"build{build}/other", "the same\n")
        for old, new in ((1, 2), (2, 3), (1, 3)):
            test.kit("make", f"build{old}", f"build{new}", f"p{old}{new}")
        test.kit("make", "--full", "build2", "full")
        test.kit("make", "--full", "build3", "full3")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                        "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost",
                        "-keyout", "server.key", "-out", "server.crt"], cwd=test.folder,
                       capture_output=True, check=True)
        test.start()
        try:
            build1 = check_replies(test)
            check_files(test, build1)
            check_new_build(test, build1)
            check_refusals(test)
            check_hashed(test)
            check_document(test)
        finally:
            test.server.stop()
        if test.failures:
            print((test.folder / "log").read_text()[-3000:])
            return 1
    print("velpatch-kit publish: good")
    return 0


if __name__ == "__main__":
    sys.exit(main())
