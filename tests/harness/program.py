"""The real brumectl, run for a test."""
import contextlib
import fcntl
import os
import pathlib
import pty
import re
import select
import signal
import struct
import subprocess
import tempfile
import termios

from .daemon import BUILD, EMULATOR
from .processes import die_with_parent, eventually

BRUMECTL = BUILD / "bin/brumectl"


class Program:
    """Runs until it ends or the `with` block does."""

    def __init__(self, *words, socket="", input="", env=None, setup=None, terminal=False, stdout=None):
        """terminal: all three streams are one; `type` writes to it, `out` reads it. stdout: a descriptor instead of a file.
        setup: runs in the new process before the program."""
        self.folder = tempfile.TemporaryDirectory(prefix="brumectl-test-")
        home = pathlib.Path(self.folder.name)
        self.paths = {name: home / name for name in ("in", "out", "err")}
        self.paths["in"].write_bytes(input if isinstance(input, bytes) else input.encode())
        self.shown, self.terminal = b"", None
        environment = {**os.environ, "BRUMECTL_SOCKET": socket, "TERM": "xterm", "HOME": str(home), **(env or {})}

        def prepare():
            die_with_parent()
            for signum in (signal.SIGINT, signal.SIGHUP):  # a background job ignores these
                signal.signal(signum, signal.SIG_DFL)
            if terminal:
                fcntl.ioctl(0, termios.TIOCSCTTY, 0)
            if setup:
                setup()
        with contextlib.ExitStack() as files:
            if terminal:
                self.terminal, other = pty.openpty()
                fcntl.ioctl(other, termios.TIOCSWINSZ, struct.pack("4H", 24, 80, 0, 0))
                streams = [other] * 3
                files.callback(os.close, other)
            else:
                streams = [files.enter_context(open(self.paths[name], mode))
                           for name, mode in (("in", "rb"), ("out", "wb"), ("err", "wb"))]
            self.process = subprocess.Popen([*EMULATOR, str(BRUMECTL), *map(str, words)], env=environment, preexec_fn=prepare,
                                            stdin=streams[0], stdout=streams[1] if stdout is None else stdout,
                                            stderr=streams[2], start_new_session=terminal)
        self.pid = self.process.pid

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        if self.terminal is not None:
            os.close(self.terminal)
        self.folder.cleanup()

    def wait(self, seconds=30):
        """Its exit status; 128 plus the signal's number if a signal ended it."""
        assert eventually(lambda: (self.out(), self.process.poll())[1] is not None, seconds), \
            f"brumectl doesn't end; it said: {self.out()}{self.err()}"
        status = self.process.returncode
        return 128 - status if status < 0 else status

    def end(self, signum):
        self.process.send_signal(signum)
        return self.wait()

    def out(self):
        if self.terminal is None:
            return self.paths["out"].read_bytes().decode(errors="surrogateescape")
        with contextlib.suppress(OSError):  # the other side is closed
            while select.select([self.terminal], [], [], 0)[0]:
                piece = os.read(self.terminal, 4096)
                if not piece:
                    break
                self.shown += piece
        return self.shown.decode(errors="surrogateescape")

    def err(self):
        return "" if self.terminal is not None else self.paths["err"].read_bytes().decode(errors="surrogateescape")

    def type(self, keys):
        """Only at a terminal."""
        os.write(self.terminal, keys.encode())

    def wait_for_out(self, text, start=0):
        """After the first `start` characters."""
        return eventually(lambda: text in self.out()[start:])

    def wait_for_err(self, text):
        return eventually(lambda: text in self.err())


def brumectl(*words, **more):
    """Runs it to its end: status, what it printed, what it complained of."""
    with Program(*words, **more) as program:
        return program.wait(), program.out(), program.err()


def stdout_to_nobody():
    """For `setup`."""
    reader, writer = os.pipe()
    os.dup2(writer, 1)
    os.close(reader)


ANY = re.compile("")


class ProgramChecks:
    """For a test case: what is typed, and what must come of it."""

    def assertSays(self, expected, said, what):
        """Expected is the whole text, or a pattern in it, or a text that it `Lacks`, or several of those."""
        for part in expected if isinstance(expected, (tuple, list)) else [expected]:
            if isinstance(part, str):
                self.assertEqual(said, part, what)
            elif isinstance(part, Lacks):
                self.assertNotIn(part.text, said, what)
            else:
                self.assertRegex(said, part, what)

    def expect(self, words, status=0, out=ANY, err="", **more):
        """Also checks that nothing it prints controls a terminal."""
        result = brumectl(*words, **more)
        with self.subTest(words=words):
            self.assertEqual(result[0], status, result)
            self.assertSays(out, result[1], "out")
            self.assertSays(err, result[2], "err")
            self.assertNotIn("\x1b", result[1] + result[2])
        return result


def has(text):
    """The text, anywhere."""
    return re.compile(re.escape(text))


def starts(text):
    return re.compile(r"\A" + re.escape(text))


class Lacks:
    """A text that must not occur."""

    def __init__(self, text):
        self.text = text
