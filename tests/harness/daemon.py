"""The real daemon, started in a folder of its own."""
import contextlib
import json
import os
import pathlib
import signal
import subprocess

from .processes import children, die_with_parent, eventually, gone, kill, kill_session
from .rpc import ask_tcp, ask_unix, request

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("BRUMECPD_BUILD", ROOT / "build")).resolve()
ENGINES = BUILD / "tests/engines"
OURS = BUILD / "lib"
SCRIPTED = ENGINES / "scripted"
# What starts the programs if they were built for another machine.
EMULATOR = os.environ.get("BRUMECPD_EMULATOR", "").split()


def build_option(name):
    """How this build was configured."""
    lines = (BUILD / "CMakeCache.txt").read_text().splitlines()
    value = next(line.partition("=")[2] for line in lines if line.startswith(f"{name}:"))
    return value not in ("OFF", "none", "")


class Daemon:
    """Runs in `folder`/bin, logs to `folder`/log, listens at `folder`/s or the port `tcp`, leads a session of its own."""

    def __init__(self, folder, *args, tcp=0, engine=None, env=None, watchdog=True, preload=None, setup=None, log=None,
                 mode="us", files=None):
        """engine: a folder, made reachable as ../lib. files: texts or bytes by name, for its working directory.
        setup: runs in the new process before the program."""
        self.folder = pathlib.Path(folder)
        self.cwd = self.folder / "bin"
        self.cwd.mkdir(exist_ok=True)
        self.log = pathlib.Path(log or self.folder / "log")
        self.tcp = tcp
        self.path = str(self.folder / "s")
        if engine and not (self.folder / "lib").exists():
            (self.folder / "lib").symlink_to(engine)
        for name, content in (files or {}).items():
            (self.cwd / name).write_bytes(content if isinstance(content, bytes) else content.encode())
        command = [*EMULATOR, BUILD / "bin/brumecpd", "-m", mode, "-s", f"127.0.0.1:{tcp}" if tcp else self.path,
                   "-l", self.log, *([] if watchdog else ["--wd_disable"]), *args]
        environment = {**os.environ, "TEST_ENGINE_SCRIPT": "script", "TEST_ENGINE_LOG": "calls", **(env or {})}
        if preload:
            environment["LD_PRELOAD"] = str(preload)

        def prepare():
            die_with_parent()
            if setup:
                setup()
        with open(self.folder / "out", "ab") as out, open(self.folder / "err", "ab") as err:
            self.process = subprocess.Popen([str(word) for word in command], cwd=self.cwd, env=environment,
                                            stdin=subprocess.DEVNULL, stdout=out, stderr=err, preexec_fn=prepare,
                                            start_new_session=True)
        self.pid = self.process.pid

    # --- asking
    def raw(self, message, seconds=20):
        """Returns the reply's bytes. Raises OSError if none comes in time or nobody listens."""
        if isinstance(message, str):
            message = message.encode()
        return ask_tcp(self.tcp, message + b"\n", seconds) if self.tcp else ask_unix(self.path, message, seconds)

    def ask(self, message, seconds=10):
        """The reply's bytes, or None."""
        with contextlib.suppress(OSError):
            return self.raw(message, seconds)
        return None

    def call(self, method, params=None, seconds=10):
        """The whole reply as a value, or None."""
        reply = self.ask(request(method, params), seconds)
        return None if reply is None else json.loads(reply)

    def result(self, method, params=None):
        """The result of a request that must succeed."""
        reply = json.loads(self.raw(request(method, params)))
        assert "result" in reply, f"{method} failed: {reply}"
        return reply["result"]

    def failure(self, method, params=None):
        """The `specific_err` of a request that must fail."""
        reply = json.loads(self.raw(request(method, params)))
        assert "error" in reply, f"{method} succeeded: {reply}"
        return reply["error"]["specific_err"]

    def alive(self, seconds=10):
        """Whether `ping` is answered before the time is over."""
        return eventually(lambda: "result" in (self.call("ping", seconds=0.5) or {}), seconds)

    # --- what it wrote
    def log_text(self):
        return self.log.read_text(errors="replace") if self.log.is_file() else ""

    def out(self):
        return (self.folder / "out").read_text(errors="replace")

    def err(self):
        return (self.folder / "err").read_text(errors="replace")

    def wait_for_log(self, text, seconds=10):
        return eventually(lambda: text in self.log_text(), seconds)

    def evidence(self):
        """The folders of gathered evidence, oldest first."""
        return sorted((self.log.parent / "cvevents").glob("[0-9]*"))

    # --- the scripted engine
    def script(self, text):
        (self.cwd / "script").write_text(text)

    def engine_calls(self):
        """What the engine was called with, without the ticks, whose times vary."""
        path = self.cwd / "calls"
        return [line for line in path.read_text().splitlines() if line != "tick"] if path.exists() else []

    # --- processes
    def running(self):
        return self.process.poll() is None

    def child(self, other_than=None):
        """The supervised process, unless it is `other_than`. If there is none, the daemon's first process."""
        return next((p for p in children(self.pid) if not gone(p) and p != other_than), self.pid)

    def next_child(self, old=None):
        """Waits for the supervised process that follows `old`."""
        assert eventually(lambda: self.child(old) != self.pid), f"no child but {old}\n{self.log_text()}"
        return self.child(old)

    def signal(self, signum, pid=None):
        if pid or self.running():  # else its number may have been reused
            kill(pid or self.pid, signum)

    def wait_exit(self, seconds=20):
        """Returns its exit status, minus the number of the signal that ended it; None if it still runs."""
        with contextlib.suppress(subprocess.TimeoutExpired):
            return self.process.wait(seconds)
        return None

    def end(self, seconds=20):
        """Stops it if it still runs. Returns its status, or None if it had to be killed."""
        self.signal(signal.SIGTERM)
        status = self.wait_exit(seconds)
        if status is None:
            self.kill()
        return status

    def kill(self):
        """Also kills everything that it has started, orphans included."""
        kill_session(self.pid)
        self.process.wait()
