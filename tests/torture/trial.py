"""What the cases of scripts/torture share: a folder for each, daemons in it, and what must hold afterwards, whatever
was done to them."""
import collections
import concurrent.futures
import contextlib
import json
import re
import subprocess
import threading

from harness import daemon as tested
from harness.case import DaemonTest
from harness.processes import children, descriptors, eventually, session, state_of

LINE = re.compile(rb"^\[ *\d+\] - \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d+ *- \(.*\) +- \[.{6}\]\[(ERROR|WARN |INFO |DEBUG)\] +- .*$")
# Messages of many lines: what the server printed to stderr, stacks of hogs, and at debug level what clients said.
LONG = re.compile(rb"\((corvo_wd_stderr|corvo_hog_reporter|corvo_rpc_worker)\.cpp:")
STAMP = re.compile(r"\d{4}(_\d\d){5}")
REPORTS = {"cvdump.json", "cv_hog_dump.txt"}

# Takes the place of the C library's function; %s stands for what changes `*t`, the time of the clock `id`.
CLOCK = r"""
#define _GNU_SOURCE
#include <dlfcn.h>
#include <time.h>
int clock_gettime(clockid_t id, struct timespec* t) {
    static int (*real)(clockid_t, struct timespec*);
    if (!real) real = (int (*)(clockid_t, struct timespec*))dlsym(RTLD_NEXT, "clock_gettime");
    const int rc = real(id, t);
    %s
    return rc;
}
"""

CASES = []
Case = collections.namedtuple("Case", "name short run")


def case(name, *values, short=True):
    """Registers a function that tries one thing. It gets a `Trial` and the values, and returns what was seen, in short.

    short: also part of the short form that runs before a change lands.
    """
    def register(function):
        CASES.append(Case(name, short, lambda trial: function(trial, *values)))
        return function
    return register


def hold(condition, text):
    if not condition:
        raise AssertionError(text)


@contextlib.contextmanager
def meanwhile(act):
    """Calls `act` over and over until the block is left; yields the growing list of its results that are true."""
    over, results = threading.Event(), []

    def run():
        while not over.is_set():
            if result := act():
                results.append(result)
    with concurrent.futures.ThreadPoolExecutor(1) as pool:
        running = pool.submit(run)
        try:
            yield results
        finally:
            over.set()
        running.result()  # raises what `act` raised


class Daemon(tested.Daemon):
    """The real daemon, and what must hold when a case is over."""
    writes_failed = False  # set by a case that makes them fail
    broken_lines = ()  # how lines may begin because texts with line breaks are logged as they are

    def told(self):
        """In its log and on its output."""
        return self.log_text() + self.out() + self.err()

    def tail(self):
        return self.told()[-300:].replace("\n", " | ")

    def hold_clean_end(self):
        hold(self.end() == 0, "no clean end")

    def hold_descriptors(self, most, seconds=20):
        hold(eventually(lambda: descriptors(self.child()) <= most, seconds),
             f"{descriptors(self.child())} descriptors instead of {most}")

    def hold_other_child(self, old, seconds=30):
        """Another server has taken the place of `old`, and answers."""
        hold(eventually(lambda: state_of(old) is None, seconds), f"child {old} is still there")
        hold(eventually(lambda: self.child() not in (old, self.pid), 30), "no reload")
        hold(self.alive(30), "no answer after the reload")

    def check_log(self):
        """Every line is one of ours, or goes on with a message of many lines: nothing from outside has broken one."""
        last = b""
        for line in self.log.read_bytes().split(b"\n")[:-1] if self.log.is_file() else []:
            if LINE.match(line):
                last = line
            else:
                hold(LONG.search(last) or line.startswith(self.broken_lines), f"a malformed log line: {line[:120]!r}")

    def check_evidence(self):
        """A file is complete or absent, unless writes were made to fail."""
        folder = self.log.parent / "cvevents"
        for path in sorted(folder.rglob("*")):
            if path.is_dir():
                hold(path.parent == folder and STAMP.fullmatch(path.name), f"a folder {path.name} among the evidence")
                continue
            own = {".cveventsdummy"} if path.parent == folder else {"cvconfig.json", self.log.name}
            hold(path.name in own | REPORTS, f"{path.name} among the evidence")
            if not self.writes_failed:
                self.check_whole(path)

    def check_whole(self, path):
        content = path.read_bytes()
        hold(bool(content) != (path.name == ".cveventsdummy"), f"{path.name} of {len(content)} bytes among the evidence")
        if path.name == "cvdump.json":
            json.loads(content, strict=False)
        hold(path.name != self.log.name or content.endswith(b"\n"), "a log that is cut among the evidence")

    def check_all(self):
        """Ends it, and checks that nothing is left that shouldn't be."""
        self.check_zombies()
        self.end()
        hold(eventually(lambda: not session(self.pid), 5), f"processes stayed behind: {session(self.pid)}")
        self.check_log()
        self.check_evidence()

    def check_zombies(self):
        hold(eventually(lambda: not [p for p in children(self.pid) if state_of(p) == "Z"], 3), "zombies")


class Trial(DaemonTest):
    """One case's run."""
    make = Daemon

    def __init__(self, short):
        super().__init__()
        self.short = short

    def __enter__(self):
        self.setUp()
        return self

    def __exit__(self, kind, *_):
        try:
            for daemon in self.daemons if kind is None else []:
                daemon.check_all()
        finally:
            self.doCleanups()

    def daemon(self, *args, **more):
        return super().daemon(*args, **{"watchdog": True, **more})

    def clock(self, change):
        """What to preload for a clock that isn't the machine's."""
        shim = self.folder / "clock.so"
        subprocess.run(["cc", "-shared", "-fPIC", "-x", "c", "-", "-o", shim], input=(CLOCK % change).encode(), check=True)
        return shim
