"""Builds and tests everything; called by ./test.

The work is a list of stages on two lanes: one lane compiles, the other runs what is compiled, so
that the tests of one build run while the next one compiles. A stage prints one line when it ends;
output is shown only for what failed. The last line is always "N passed, M failed".
"""
import argparse
import concurrent.futures
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import source_checks
import tidy

ROOT = source_checks.ROOT
BUILD = os.path.join(ROOT, "build")
CORES = os.cpu_count() or 2
THREADED = ["test_runtime", "test_stream", "test_net", "test_patch", "test_kit", "test_app"]

ADDRESS_OPTIONS = {
    "ASAN_OPTIONS": "allocator_may_return_null=1:detect_stack_use_after_return=1",
    "UBSAN_OPTIONS": "print_stacktrace=1"}

CASE_ENDED = re.compile(r"^\[ *(OK|FAILED|SKIPPED) *\] ([^ ,]+\.[^ ,]+)(?:, where .*)? \((\d+) ms\)",
                        re.M)
CASE_BEGAN = re.compile(r"^\[ RUN      \] (\S+)", re.M)
CASES_CHOSEN = re.compile(r"^\[==========\] Running (\d+) tests?", re.M)
WINE_FAILED = re.compile(r"^wine client error:", re.M)


class Report:
    """Counts what passed and failed, and prints; shared by both lanes."""

    def __init__(self):
        self.lock = threading.Lock()
        self.passed = 0
        self.failures = []
        self.started = time.monotonic()

    def add(self, stage, passed, failures, seconds, note=""):
        """failures: list of (name, output)."""
        with self.lock:
            self.passed += passed
            self.failures += [f"{stage}: {name}" for name, _ in failures]
            for name, output in failures:
                print(f"--- {stage}: {name} failed")
                print(shorten(output))
            total = passed + len(failures)
            result = "ok" if not failures else f"{len(failures)} FAILED"
            print(f"{stage:<16}{seconds:7.1f} s  {total:5} checks  {result}{note}", flush=True)

    def close(self):
        seconds = time.monotonic() - self.started
        print(f"\nAll stages took {int(seconds // 60)} min {seconds % 60:.0f} s.")
        for name in self.failures[:100]:
            print(f"FAILED: {name}")
        print(f"{self.passed} passed, {len(self.failures)} failed")
        return 1 if self.failures else 0


def shorten(text, limit=12000):
    text = text.rstrip()
    if len(text) <= limit:
        return text
    return text[:limit // 3] + "\n[...]\n" + text[-2 * limit // 3:]


def run(command, timeout=None, env=None, cwd=ROOT):
    """(exit code, output, timed out). The whole process group goes when the time is up."""
    process = subprocess.Popen(command, cwd=cwd, env=env, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               start_new_session=True)
    try:
        output, _ = process.communicate(timeout=timeout)
        late = False
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, 9)
        output, _ = process.communicate()
        late = True
    return process.returncode, output.decode("utf-8", "replace").replace("\r\n", "\n"), late


def without_randomised_addresses():
    """The sanitizers' run-time libraries of Debian 12 need fixed shadow addresses, which newer
    kernels give only to a process without address randomisation."""
    command = ["setarch", os.uname().machine, "-R"]
    try:
        works = subprocess.run(command + ["true"], stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, check=False).returncode == 0
    except OSError:
        works = False
    return command if works else []


class Build:
    """One build folder: how it is configured, and how its programs are started."""

    def __init__(self, preset, prefix=(), suffix="", environment=None):
        self.preset = preset
        self.folder = os.path.join(BUILD, preset)
        self.prefix = list(prefix)
        self.suffix = suffix
        self.environment = environment or {}

    def program(self, name):
        return os.path.join(self.folder, "bin", name + self.suffix)

    def compile(self, targets=()):
        """"" or the output of what failed."""
        cache = os.path.join(self.folder, "CMakeCache.txt")
        ready = os.path.exists(os.path.join(self.folder, "build.ninja")) and (
            "VELPATCH_HAS_TESTS:INTERNAL=ON" in open(cache, encoding="utf-8").read())
        if not ready:
            code, output, _ = run(["cmake", "--preset", self.preset])
            if code:
                return output
        command = ["cmake", "--build", self.folder, "-j", str(CORES), "--"]
        code, output, _ = run(command + ["-k", "0"] + list(targets))
        if code == 0:
            return ""
        # Only what the compiler said: not the list of finished steps.
        return re.sub(r"^\[\d+/\d+\] [^\n]*\n", "", output, flags=re.M)

    def targets(self, names):
        """Those of the names that this build has."""
        text = open(os.path.join(self.folder, "build.ninja"), encoding="utf-8").read()
        return [name for name in names if re.search(rf"^build {name}: phony", text, re.M)]

    def env(self, scratch):
        env = dict(os.environ, TMPDIR=scratch)
        env.update(self.environment)
        return env


def present(pattern, strip_extension=True):
    names = [os.path.basename(path) for path in glob.glob(os.path.join(ROOT, pattern))]
    return sorted(os.path.splitext(name)[0] if strip_extension else name for name in names)


def test_names():
    """Every tests/<layer> that has a *_test.cpp gives a program test_<layer>."""
    folders = {os.path.dirname(path) for path in glob.glob(os.path.join(ROOT, "tests/*/*_test.cpp"))}
    return sorted("test_" + os.path.basename(folder) for folder in folders)


class Job:
    """One process of the run lane; yields (passed, [(name, output)])."""

    def __init__(self, name, build, command, timeout, environment=None, gtest=False):
        self.name = name
        self.build = build
        self.command = command
        self.timeout = timeout
        self.environment = environment or {}
        self.gtest = gtest

    def __call__(self):
        scratch = tempfile.mkdtemp(prefix="velpatch-test-")
        os.chmod(scratch, 0o711)  # some tests let another user work below it
        try:
            env = self.build.env(scratch)
            env.update(self.environment)
            code, output, late = run(self.build.prefix + self.command, self.timeout, env)
            if code and WINE_FAILED.search(output):  # its server hung up on the program
                code, output, late = run(self.build.prefix + self.command, self.timeout, env)
        finally:
            shutil.rmtree(scratch, ignore_errors=True)
        if late:
            output += f"\n[stopped after {self.timeout} s]"
        return self.read_cases(code, output) if self.gtest else self.read_code(code, output)

    def read_code(self, code, output):
        if code == 77:
            return 0, []
        return (1, []) if code == 0 else (0, [(self.name, f"{output}\n[exit code {code}]")])

    def read_cases(self, code, output):
        passed, failures, ended = 0, [], set()
        for match in CASE_ENDED.finditer(output):
            ended.add(match.group(2))
            if match.group(1) == "FAILED":
                begin = output.rfind(f"[ RUN      ] {match.group(2)}\n", 0, match.start())
                failures.append((match.group(2), output[max(begin, 0):match.end()]))
            elif match.group(1) == "OK":
                passed += 1
        chosen = CASES_CHOSEN.search(output)
        if chosen and len(ended) < int(chosen.group(1)):
            began = CASE_BEGAN.findall(output)
            last = began[-1] if began else self.name
            failures.append((last, output[-6000:] + f"\n[ended early, exit code {code}]"))
        elif code != 0 and not failures:
            # Every case is well, and the process is not: a sanitizer's complaint, or the exit.
            failures.append((self.name, output[-8000:] + f"\n[exit code {code}]"))
        return passed, failures


def gtest_jobs(build, names, timeout, pattern=None):
    jobs = []
    for name in names:
        command = [build.program(name), "--gtest_color=no"]
        if pattern:
            command.append(f"--gtest_filter=*{pattern}*")
        for shard in range(CORES):
            jobs.append(Job(name, build, command, timeout, gtest=True, environment={
                "GTEST_TOTAL_SHARDS": str(CORES), "GTEST_SHARD_INDEX": str(shard)}))
    return jobs


def replay_jobs(build, timeout, pattern=None):
    jobs = []
    for name in build.targets(present("fuzz/fuzz_*.cpp")):
        if pattern and pattern not in name:
            continue
        corpus = f"fuzz/corpus/{name[len('fuzz_'):]}"
        arguments = [corpus] if os.path.isdir(os.path.join(ROOT, corpus)) else []
        jobs.append(Job(f"replay {name}", build, [build.program(name)] + arguments, timeout))
    return jobs


def fuzz_jobs(build, seconds):
    """Each fuzz target runs on a copy of its seeds, so that the tree stays clean."""
    jobs = []
    for target in build.targets(present("fuzz/fuzz_*.cpp")):
        name = target[len("fuzz_"):]
        work = os.path.join(BUILD, "fuzz-work", name)
        findings = os.path.join(BUILD, "fuzz-findings", name, "")
        os.makedirs(work, exist_ok=True)
        os.makedirs(findings, exist_ok=True)
        command = [build.program(target), f"-max_total_time={seconds}", "-timeout=20",
                   "-rss_limit_mb=2048", "-verbosity=0", f"-artifact_prefix={findings}"]
        words = os.path.join(ROOT, "fuzz", "dict", name + ".dict")
        if os.path.exists(words):
            command.append(f"-dict={words}")
        command.append(work)
        seeds = os.path.join(ROOT, "fuzz", "corpus", name)
        if os.path.isdir(seeds):
            command.append(seeds)
        jobs.append(Job(target, build, command, seconds + 120))
    return jobs


def script_jobs(build, windows, pattern=None):
    """tests/scripts/*.sh; under Wine only those that say "# Runs under Wine too"."""
    jobs = []
    for name in present("tests/scripts/*.sh", strip_extension=False):
        if pattern and pattern not in name:
            continue
        path = os.path.join(ROOT, "tests", "scripts", name)
        with open(path, encoding="utf-8") as file:
            both = "# Runs under Wine too" in file.read(1500)
        if windows and not both:
            continue
        environment = {"VELPATCH_RUN": " ".join(build.prefix), "VELPATCH_EXE": build.suffix}
        host = Build(build.preset, (), build.suffix, build.environment)
        jobs.append(Job(f"scripts/{name}", host, ["bash", path, build.folder], 600, environment))
    return jobs


class Driver:
    def __init__(self, options):
        self.options = options
        self.report = Report()
        self.run_lane = concurrent.futures.ThreadPoolExecutor(1)
        self.waiting = []

    def check(self, name, function):
        begin = time.monotonic()
        complaints = function()
        failures = [(name, "\n".join(complaints))] if complaints else []
        self.report.add(name, 0 if failures else 1, failures, time.monotonic() - begin)

    def compile(self, build, targets=()):
        begin = time.monotonic()
        output = build.compile(targets)
        failures = [("build", output)] if output else []
        self.report.add(f"build {build.preset}", 0 if failures else 1, failures,
                        time.monotonic() - begin)
        return not failures

    def later(self, stage, make_jobs, workers=CORES):
        """Runs the jobs on the run lane, behind what already waits there."""
        def work():
            begin = time.monotonic()
            passed, failures = 0, []
            try:
                with concurrent.futures.ThreadPoolExecutor(workers) as pool:
                    for good, bad in pool.map(lambda job: job(), make_jobs()):
                        passed += good
                        failures += bad
            except Exception as error:  # pylint: disable=broad-except
                failures.append((stage, f"the test driver failed: {error!r}"))
            self.report.add(stage, passed, failures, time.monotonic() - begin)
        self.waiting.append(self.run_lane.submit(work))

    def finish(self):
        for future in self.waiting:
            future.result()
        self.run_lane.shutdown()
        return self.report.close()

    # The stages.

    def sources(self):
        self.check("layers", source_checks.check_layers)
        self.check("seam", source_checks.check_seam)
        self.check("constructs", source_checks.check_constructs)
        self.check("text keys", source_checks.check_text_keys)

    def format(self):
        def work():
            files = source_checks.code_files()
            _, output, _ = run(["clang-format", "--dry-run", "--Werror"] + files) if files else (
                0, "", False)
            return [line for line in output.splitlines() if "error:" in line]
        self.check("format", work)

    def tidy(self):
        self.check("tidy", lambda: [shorten(text, 4000) for text in tidy.run(jobs=CORES)])

    def unit(self, pattern=None):
        build = Build("release")
        if self.compile(build):
            self.later("tests", lambda: gtest_jobs(build, build.targets(test_names()), 300, pattern)
                       + replay_jobs(build, 120, pattern))
            if present("tests/scripts/*.sh"):
                self.later("scripts", lambda: script_jobs(build, False, pattern))

    def asan(self):
        build = Build("asan", without_randomised_addresses(), environment=ADDRESS_OPTIONS)
        if self.compile(build):
            self.later("asan+ubsan", lambda: gtest_jobs(build, build.targets(test_names()), 600))
            if present("fuzz/fuzz_*.cpp"):
                self.later("fuzz", lambda: fuzz_jobs(build, self.options.fuzz_seconds))

    def fuzz(self):
        """The fuzz targets alone, optimised: for long runs."""
        build = Build("fuzz", without_randomised_addresses(), environment=ADDRESS_OPTIONS)
        if self.compile(build, present("fuzz/fuzz_*.cpp")):
            self.later("fuzz", lambda: fuzz_jobs(build, self.options.fuzz_seconds))

    def tsan(self):
        build = Build("tsan", without_randomised_addresses(), environment={
            "TSAN_OPTIONS": "halt_on_error=0:second_deadlock_stack=1"})
        names = [name for name in test_names() if name in THREADED]
        if names and self.compile(build, names):
            self.later("tsan", lambda: gtest_jobs(build, build.targets(names), 600))

    def windows(self):
        begin = time.monotonic()
        code, output, _ = run([os.path.join(ROOT, "scripts", "windows-sysroot")])
        self.report.add("sysroot", 0 if code else 1, [("sysroot", output)] if code else [],
                        time.monotonic() - begin)
        wine = [os.path.join(ROOT, "scripts", "wine-run")]
        build = Build("windows", wine, ".exe")
        if code:
            return
        # Packages of another version mean another sysroot, which a made build would not see.
        known = os.path.join(build.folder, "CMakeCache.txt")
        if os.path.exists(known) and output.split()[-1] not in open(known, encoding="utf-8").read():
            shutil.rmtree(build.folder)
        if not self.compile(build):
            return

        def jobs():
            started, text, _ = run([os.path.join(ROOT, "scripts", "wine-prefix"), "start"], 300)
            if started:
                raise RuntimeError(text)
            return (gtest_jobs(build, build.targets(test_names()), 600) + replay_jobs(build, 120)
                    + script_jobs(build, True))
        self.later("wine", jobs)
        self.waiting.append(self.run_lane.submit(
            lambda: run([os.path.join(ROOT, "scripts", "wine-prefix"), "stop"], 60)))


def main():
    parser = argparse.ArgumentParser(prog="./test", description="Builds and tests everything.")
    parser.add_argument("--all", action="store_true",
                        help="also build for Windows and run the tests under Wine")
    parser.add_argument("--only", metavar="WHAT",
                        help="one stage (sources, format, tidy, asan, fuzz, tsan, windows), or the "
                        "release build's test cases whose names contain WHAT")
    parser.add_argument("--fuzz-seconds", type=int, default=5, metavar="N",
                        help="time for each fuzz target (default 5)")
    driver = Driver(parser.parse_args())
    stages = {"sources": driver.sources, "format": driver.format, "tidy": driver.tidy,
              "asan": driver.asan, "fuzz": driver.fuzz, "tsan": driver.tsan, "windows": driver.windows}
    only = driver.options.only
    if only in stages:
        stages[only]()
    elif only:
        driver.unit(only)
    else:
        driver.sources()
        driver.format()
        driver.unit()
        driver.asan()
        driver.tsan()
        driver.tidy()
        if driver.options.all:
            driver.windows()
    return driver.finish()


if __name__ == "__main__":
    sys.exit(main())
