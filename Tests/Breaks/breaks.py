#!/usr/bin/env python3
"""Breaks the library, one error path after another, and sees whether a test notices.

usage: breaks.py [--check | --list] [PATTERN]     (in the repository's root)

The tables are Tests/Breaks/*.toml; README.md there tells their format. The breaks are made in a copy of the sources,
build/breaks/tree, which is built in build/breaks/build. build/breaks/report.txt keeps what was printed.
"""

import concurrent.futures
import dataclasses
import fcntl
import fnmatch
import hashlib
import json
import os
import pathlib
import re
import resource
import select
import signal
import subprocess
import sys
import threading
import time
import tomllib

TABLES = pathlib.Path("Tests/Breaks")
WORK = pathlib.Path("build/breaks")
TREE = WORK / "tree"
BUILD = WORK / "build"
# What is built soonest; and broken code may warn.
OPTIONS = {
    "CMAKE_BUILD_TYPE": "Debug",
    "CMAKE_CXX_FLAGS_DEBUG": "",
    "CMAKE_EXE_LINKER_FLAGS": "-fuse-ld=gold",
    "CMAKE_SHARED_LINKER_FLAGS": "-fuse-ld=gold",
    "CMAKE_PROJECT_INCLUDE": "Tests/Breaks/breaks.cmake",
    "WFILESYSTEM_BUILD_EXAMPLES": "OFF",
    "WFILESYSTEM_BUILD_TOOLS": "OFF",
}
# The programs that test the library.
PROGRAMS = ["BaseTests", "DataTypeTests", "SynchTests", "FileSystemTests", "FaultTests", "TroubleTests"]
# A test that takes much longer than without the break hangs.
LEAST_LIMIT, LIMIT_FACTOR = 10, 10


@dataclasses.dataclass
class Break:
    """A break; with a reason, one that changes nothing."""

    name: str
    file: str
    old: str
    new: str
    scope: str | None
    tests: list
    reason: str | None = None

    @property
    def title(self):
        return f"{self.file}: {self.name}"

    def find(self, text):
        """Where the old text begins, or a string that tells why it is not to be found."""
        begin, end = 0, len(text)
        if self.scope is not None:
            if text.count(self.scope) != 1:
                return f"{self.scope!r} stands there {text.count(self.scope)} times"
            begin = text.index(self.scope)
            # Functions and classes end with a brace at the margin.
            end = text.find("\n}", begin)
            end = len(text) if end == -1 else end + 2
        count = text.count(self.old, begin, end)
        if count != 1:
            return f"{self.old!r} stands there {count} times"
        return text.index(self.old, begin, end)

    def apply(self, text):
        """The broken text."""
        at = self.find(text)
        return text[:at] + self.new + text[at + len(self.old):]


def load_table(path):
    """The breaks of a table, those that change nothing last."""
    table = tomllib.loads(path.read_text())
    result = []
    for kind in ("break", "equivalent"):
        for row in table.pop(kind, []):
            one = Break(
                name=row.pop("name"),
                file=row.pop("file", table.get("file")),
                old=row.pop("old").strip("\n"),
                new=row.pop("new").strip("\n"),
                scope=row.pop("in", None),
                tests=row.pop("tests", table.get("tests", [])),
                reason=row.pop("reason") if kind == "equivalent" else None,
            )
            if row or not one.file or not one.name or not one.old or one.old == one.new:
                sys.exit(f"{path}: '{one.name}' is incomplete, or has what is not known: {list(row)}")
            result.append(one)
    unknown = set(table) - {"file", "tests"}
    if unknown:
        sys.exit(f"{path}: not known: {unknown}")
    return result


def load_tables():
    """All breaks, those that change nothing included."""
    breaks = [one for path in sorted(TABLES.glob("*.toml")) for one in load_table(path)]
    titles = [one.title for one in breaks]
    for title in set(titles):
        if titles.count(title) > 1:
            sys.exit(f"there are two breaks '{title}'")
    return breaks


def misfit(one):
    """Why a break does not fit the sources; None where it does."""
    path = pathlib.Path(one.file)
    at = one.find(path.read_text()) if path.is_file() else "the file is not there"
    return at if isinstance(at, str) else None


def check(breaks):
    """Whether all breaks fit the sources; tells which do not."""
    misfits = [(one, why) for one in breaks if (why := misfit(one)) is not None]
    for one, why in misfits:
        print(f"DOES NOT APPLY  {one.title}: {why}")
    print(f"{len(breaks) - len(misfits)} of {len(breaks)} breaks apply")
    return not misfits


class Log:
    """Prints, and keeps what was printed."""

    def __init__(self, path):
        self.file = path.open("w")

    def __call__(self, text):
        print(text, flush=True)
        print(text, file=self.file, flush=True)


def copy_sources():
    """Makes the copy what the sources are now; what did not change keeps its time. Gives a digest of what is built."""
    listing = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], check=True, capture_output=True
    )
    names = {name for name in listing.stdout.decode().split("\0") if name and os.path.isfile(name)}
    if TREE.is_dir():
        for path in [path for path in TREE.rglob("*") if path.is_file() and str(path.relative_to(TREE)) not in names]:
            path.unlink()
    digest = hashlib.sha256()
    for name in sorted(names):
        source, copy = pathlib.Path(name), TREE / name
        content = source.read_bytes()
        if not copy.is_file() or copy.read_bytes() != content:
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_bytes(content)
        copy.chmod(source.stat().st_mode)
        if TABLES not in source.parents and source.suffix != ".md":
            digest.update(f"{name} {len(content)} ".encode() + content)
    return digest.hexdigest()


def build(programs):
    """The first error, or None."""
    run = subprocess.run(
        ["cmake", "--build", str(BUILD), "--target", *programs],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
    )
    if run.returncode == 0:
        return None
    lines = run.stdout.splitlines()
    return next((line for line in lines if "error:" in line), "\n".join(lines[-5:]))


def build_unbroken():
    """Copies the sources and builds them. Gives a digest of them."""
    digest = copy_sources()
    options = [f"-D{name}={value}" for name, value in OPTIONS.items()]
    configured = subprocess.run(
        ["cmake", "-S", str(TREE), "-B", str(BUILD), "-G", "Ninja", *options],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
    )
    if configured.returncode != 0:
        sys.exit(configured.stdout)
    error = build(PROGRAMS)
    if error is not None:
        sys.exit(f"without a break, the tests do not build: {error}")
    return digest


def list_tests():
    """The program of each test."""
    result = {}
    for program in PROGRAMS:
        command = [BUILD / "Tests" / program, "--gtest_list_tests"]
        run = subprocess.run(command, check=True, capture_output=True, text=True)
        suite = ""
        for line in run.stdout.splitlines():
            name = line.split("#")[0].rstrip()
            if name.startswith("  "):
                result[suite + name.strip()] = program
            else:
                suite = name
    return result


class Runner:
    """Runs tests, each as a process of its own, as many at once as there are processors."""

    def __init__(self, programs):
        self.programs = programs
        self.seconds = {}
        self.workers = os.cpu_count()

    def limit(self, test):
        return max(LEAST_LIMIT, LIMIT_FACTOR * self.seconds[test]) if test in self.seconds else 60

    def passes(self, test):
        """Whether the test passes; one that takes too long does not."""
        begin = time.monotonic()
        limit = self.limit(test)
        process = subprocess.Popen(
            [(BUILD / "Tests" / self.programs[test]).resolve(), f"--gtest_filter={test}"],
            cwd=BUILD / "Tests", stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            start_new_session=True,
        )
        # The process is looked at before it is waited for: until then nobody else gets its number.
        ended = os.pidfd_open(process.pid)
        try:
            in_time = bool(select.select([ended], [], [], limit)[0])
        finally:
            os.close(ended)
            os.killpg(process.pid, signal.SIGKILL)  # what the test started, too
            result = process.wait()
        self.seconds.setdefault(test, time.monotonic() - begin)
        return in_time and result == 0

    def first_failure(self, tests):
        """The name of a test that fails, twice in a row; None if there is none."""
        found = []
        stop = threading.Event()

        def run(test):
            if not stop.is_set() and not self.passes(test) and not self.passes(test):
                found.append(test)
                stop.set()

        with concurrent.futures.ThreadPoolExecutor(self.workers) as pool:
            list(pool.map(run, tests))
        return found[0] if found else None

    def sort(self, tests):
        """The fast ones first."""
        return sorted(tests, key=lambda test: self.seconds.get(test, 0))


def choose(tests, patterns):
    """The tests that fit one of the patterns, in the order of the patterns."""
    result = {}
    for pattern in patterns:
        fitting = fnmatch.filter(tests, pattern)
        if not fitting:
            sys.exit(f"no test is named '{pattern}'")
        result.update(dict.fromkeys(fitting))
    return list(result)


class Judge:
    """Says whether a break is noticed. What noticed it the last time is asked first."""

    def __init__(self, runner):
        self.runner = runner
        self.path = WORK / "noticed.json"
        self.noticed = json.loads(self.path.read_text()) if self.path.is_file() else {}

    def rounds(self, one):
        """The tests, in groups that are run one after the other; each group is of one program."""
        programs = self.runner.programs
        left = list(programs)
        known = self.noticed.get(one.title)
        if known in programs:
            left.remove(known)
            yield [known]
        likely = [test for test in choose(list(programs), one.tests) if test in left]
        for tests in (likely, [test for test in left if test not in likely]):
            for program in dict.fromkeys(programs[test] for test in tests):
                yield self.runner.sort(test for test in tests if programs[test] == program)

    def verdict(self, one):
        """What is to be said of a break that is in place, and whether that is well."""
        for tests in self.rounds(one):
            error = build([self.runner.programs[tests[0]]])
            if error is not None:
                return f"DOES NOT BUILD  {error}", False
            failed = self.runner.first_failure(tests)
            if failed is not None:
                self.noticed[one.title] = failed
                self.path.write_text(json.dumps(self.noticed, indent=1))
                return f"KILLED by {failed}", True
        return "SURVIVED", False


def run_breaks(breaks):
    """Whether all breaks, which fit the sources, are caught."""
    begin = time.monotonic()
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    WORK.mkdir(parents=True, exist_ok=True)
    lock = (WORK / "lock").open("w")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        sys.exit("another run is at work")
    log = Log(WORK / "report.txt")

    digest = build_unbroken()
    runner = Runner(list_tests())
    for one in breaks:
        choose(list(runner.programs), one.tests)
    unbroken = WORK / "unbroken.json"
    known = json.loads(unbroken.read_text()) if unbroken.is_file() else {}
    if known.get("digest") == digest:
        runner.seconds = known["seconds"]
    else:
        failed = runner.first_failure(list(runner.programs))
        if failed is not None:
            sys.exit(f"without a break, {failed} fails")
        unbroken.write_text(json.dumps({"digest": digest, "seconds": runner.seconds}))
    log(f"{len(runner.programs)} tests, which pass without a break")

    judge = Judge(runner)
    caught = 0
    for number, one in enumerate(breaks, 1):
        path = TREE / one.file
        text = path.read_text()
        try:
            path.write_text(one.apply(text))
            verdict, is_caught = judge.verdict(one)
        finally:
            path.write_text(text)
        caught += is_caught
        log(f"{number}/{len(breaks)}  {verdict}  | {one.title}")

    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    log(f"{caught} of {len(breaks)} breaks caught, in {time.monotonic() - begin:.0f} s,"
        f" with {used.ru_utime + used.ru_stime:.0f} s of the processors")
    return caught == len(breaks)


def main():
    arguments = sys.argv[1:]
    mode = arguments.pop(0) if arguments and arguments[0].startswith("--") else "--run"
    if mode not in ("--run", "--check", "--list") or len(arguments) > 1:
        sys.exit("usage: breaks.py [--check | --list] [PATTERN]")
    pattern = arguments[0] if arguments else ""
    breaks = [one for one in load_tables() if re.search(pattern, one.title)]
    if not breaks:
        sys.exit(f"no break fits '{pattern}'")

    if mode == "--check":
        return check(breaks)
    if mode == "--list":
        for one in breaks:
            print(one.title + (f" (changes nothing: {one.reason})" if one.reason else ""))
        return True
    return check(breaks) and run_breaks([one for one in breaks if one.reason is None])


if __name__ == "__main__":
    sys.exit(0 if main() else 1)
