"""What every case of scripts/torture stands on: a daemon of its own in a folder of its own, clients of both transports,
and the checks that must hold afterwards, whatever was done to it."""
import collections
import contextlib
import itertools
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("TORTURE_BUILD", ROOT / "build")).resolve()
LINE = re.compile(rb"^\[ *\d+\] - \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d+ *- \(.*\) +- \[.{6}\]\[(ERROR|WARN |INFO |DEBUG)\] +- .*$")
# Messages of many lines: what the server printed to stderr, stacks of hogs, and at debug level what clients said.
LONG = re.compile(rb"\((corvo_wd_stderr|corvo_hog_reporter|corvo_rpc_worker)\.cpp:")
STAMP = re.compile(r"\d{4}(_\d\d){5}")
REPORTS = {"cvdump.json", "cv_hog_dump.txt"}

class NotTried(Exception):
    """What the case needs can't be had here; no fault of the daemon's."""


CASES = []
Case = collections.namedtuple("Case", "name short run")


class Broken(AssertionError):
    """Something that must hold doesn't."""


def case(name, *, short=True):
    """Registers a function that tries one thing. It gets a `Trial` and returns what was seen, in a few words.

    short: also part of the short form that runs before a change lands.
    """
    def register(function):
        CASES.append(Case(name, short, function))
        return function
    return register


def hold(condition, text):
    if not condition:
        raise Broken(text)


def need(condition, text):
    if not condition:
        raise NotTried(text)


def eventually(done, seconds=10, step=0.02):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if done():
            return True
        time.sleep(step)
    return done()


def request(method, params=None, id=1, **more):
    message = {"jsonrpc": "2.0", "id": id, "method": method, **more}
    if params is not None:
        message["params"] = params
    return json.dumps(message).encode()


def stat_of(pid):
    """Its state, parent, process group and session, as texts; None once it is reaped."""
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[:4]
    except OSError:
        return None


def processes():
    """The `stat_of` of each process, by its number."""
    return {pid: stat for pid in map(int, filter(str.isdigit, os.listdir("/proc"))) if (stat := stat_of(pid))}


def children(pid):
    """Descendants of a process; zombies too."""
    parents = {p: int(stat[1]) for p, stat in processes().items()}
    found = [pid]
    for p in found:
        found += [c for c, parent in parents.items() if parent == p]
    return found[1:]


def session(pid):
    """What runs in the session that this process began, orphans included."""
    return [p for p, (state, _, _, sid) in processes().items() if sid == str(pid) and state not in "ZX"]


def state_of(pid):
    return (stat_of(pid) or [None])[0]


def gone(pid):
    """It has ended. Who is left without a parent isn't reaped on every machine."""
    return state_of(pid) in (None, "Z", "X")


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def anonymous_kib(pid):
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return int(re.search(r"^Anonymous: +(\d+)", text, re.M)[1])


class Daemon:
    """The real daemon: in `folder`/bin, its log `folder`/log, its Unix socket `folder`/s unless tcp is a port."""

    def __init__(self, folder, *args, tcp=0, engine=None, env=None, watchdog=True, preload=None, setup=None, bin_dir=None,
                 log=None):
        self.folder = pathlib.Path(folder)
        self.cwd = pathlib.Path(bin_dir) if bin_dir else self.folder / "bin"
        self.cwd.mkdir(exist_ok=True)
        self.log = pathlib.Path(log or self.folder / "log")
        self.tcp = tcp
        self.path = str(self.folder / "s")
        self.writes_failed = False  # by a case
        if engine and not (self.folder / "lib").exists():
            (self.folder / "lib").symlink_to(engine)
        command = [str(BUILD / "bin/brumecpd"), "-m", "us", "-s", f"127.0.0.1:{tcp}" if tcp else self.path,
                   "-l", str(self.log), *([] if watchdog else ["--wd_disable"]), *args]
        environment = {**os.environ, **(env or {})}
        if preload:
            environment["LD_PRELOAD"] = str(preload)
        self.out = open(self.folder / "out", "ab")
        self.process = subprocess.Popen(command, cwd=self.cwd, env=environment, stdin=subprocess.DEVNULL,
                                        stdout=self.out, stderr=self.out, preexec_fn=setup, start_new_session=True)
        self.pid = self.process.pid

    # --- asking
    def ask(self, message, seconds=10):
        """The reply's bytes, or None where none comes in time or nobody listens."""
        with contextlib.suppress(OSError):
            return self._ask(message, seconds)
        return None

    def _ask(self, message, seconds):
        if self.tcp:
            with socket.create_connection(("127.0.0.1", self.tcp), timeout=seconds) as s:
                s.sendall(message + b"\n")
                reply = b""
                while piece := s.recv(1 << 20):
                    reply += piece
                return reply
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as s:
            s.bind("")
            s.settimeout(seconds)
            s.connect(self.path)
            s.send(message)
            return s.recv(16 << 20)

    def call(self, method, params=None, seconds=10):
        """The whole reply as a value, or None."""
        reply = self.ask(request(method, params), seconds)
        return None if reply is None else json.loads(reply)

    def alive(self, seconds=10):
        """`ping` is answered before the time is over."""
        def pinged():
            reply = self.call("ping", seconds=0.5)
            return bool(reply and "result" in reply)
        return eventually(pinged, seconds)

    # --- processes
    def running(self):
        return self.process.poll() is None

    def child(self):
        """The supervised process; the only one with the watchdog off."""
        below = [p for p in children(self.pid) if not gone(p)]
        return below[0] if below else self.pid

    def signal(self, signum, pid=None):
        if pid is None and not self.running():
            return  # its number may be another's by now
        with contextlib.suppress(ProcessLookupError):
            os.kill(pid or self.pid, signum)

    def end(self, seconds=20):
        """Stops it if it still runs; the wait status as subprocess has it, or None if it had to be killed."""
        self.signal(signal.SIGTERM)
        try:
            return self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            self.kill()
            return None
        finally:
            self.out.close()

    def kill(self):
        """All that it has started, too, whoever is its parent by now."""
        while left := session(self.pid):
            for p in left:
                self.signal(signal.SIGKILL, p)
            time.sleep(0.01)
        self.process.wait()

    # --- what must hold afterwards
    def check_log(self):
        """Every line is one of ours, or goes on with a message of many lines: nothing from outside has broken one."""
        if not self.log.is_file():
            return
        last = b""
        for line in self.log.read_bytes().split(b"\n")[:-1]:
            if LINE.match(line):
                last = line
            else:
                hold(LONG.search(last), f"a malformed log line: {line[:120]!r}")

    def evidence(self):
        """The folders of gathered evidence, oldest first."""
        return sorted((self.log.parent / "cvevents").glob("2*"))

    def check_evidence(self):
        """Complete or absent; but where writes were made to fail, a file may lack what they would have written. A log that is
        no file, such as a pipe, leaves an empty copy."""
        folder = self.log.parent / "cvevents"
        for path in sorted(folder.rglob("*")):
            if path.is_dir():
                hold(path.parent == folder and STAMP.fullmatch(path.name), f"a folder {path.name} among the evidence")
                continue
            own = {".cveventsdummy"} if path.parent == folder else {"cvconfig.json", self.log.name}
            hold(path.name in own | REPORTS, f"{path.name} among the evidence")
            if not self.writes_failed and (path.name != self.log.name or self.log.is_file()):
                self.check_whole(path)

    def check_whole(self, path):
        content = path.read_bytes()
        hold(bool(content) != (path.name == ".cveventsdummy"), f"{path.name} of {len(content)} bytes among the evidence")
        if path.name == "cvdump.json":
            with contextlib.suppress(ValueError):
                return json.loads(content, strict=False)
            raise Broken(f"half a report: {content[-80:]!r}")
        hold(path.name != self.log.name or content.endswith(b"\n"), "a log that is cut among the evidence")

    def check_all(self):
        """Ends it, and sees that nothing is left but what should be."""
        self.check_zombies()
        self.end()
        hold(eventually(lambda: not session(self.pid), 5), f"processes stayed behind: {session(self.pid)}")
        self.check_log()
        self.check_evidence()

    def check_zombies(self):
        zombies = [p for p in children(self.pid) if state_of(p) == "Z"]
        hold(eventually(lambda: not [p for p in children(self.pid) if state_of(p) == "Z"], 3), f"zombies {zombies}")


class Trial:
    """One case's run: its folder, its daemons, its end."""

    def __init__(self, short):
        self.short = short
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="torture-"))
        self.daemons = []
        self.numbers = itertools.count(1)  # threads may share a trial

    def daemon(self, *args, ready=True, **more):
        folder = self.folder / str(next(self.numbers))
        folder.mkdir()
        daemon = Daemon(folder, *args, **more)
        self.daemons.append(daemon)
        if ready:
            hold(daemon.alive(20), f"no answer after the start: {self.tail(daemon)}")
        return daemon

    @staticmethod
    def tail(daemon):
        return (daemon.folder / "out").read_bytes()[-300:].decode(errors="replace").replace("\n", " | ")

    @staticmethod
    def free_port():
        with socket.socket() as s:
            s.bind(("127.0.0.1", 0))
            return s.getsockname()[1]

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        try:
            for daemon in self.daemons if kind is None else []:
                daemon.check_all()
        finally:
            for daemon in self.daemons:
                daemon.kill()
            shutil.rmtree(self.folder, ignore_errors=True)
