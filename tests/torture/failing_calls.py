"""The other end of shim/fail_nth.cpp: tells a running daemon which calls into the C library fail, and when."""
import errno
import mmap
import struct

from harness.daemon import BUILD
from trial import hold

SHIM = BUILD / "tests/libfail_nth.so"
LAYOUT = struct.Struct("=6i220s")  # armed, nth, every, error, count, hits, calls


class FailingCalls:
    """The rules in force, in memory that the daemon has mapped too. Nothing fails until `arm`."""

    def __init__(self, folder):
        hold(SHIM.exists(), f"no {SHIM}: build the target fail_nth")
        path = folder / "failing-calls"
        path.write_bytes(bytes(LAYOUT.size))
        with open(path, "r+b") as file:
            self.memory = mmap.mmap(file.fileno(), 0)
        self.preload = {"preload": SHIM, "env": {"FAIL_STATE": str(path)}}

    def arm(self, *calls, nth=1, every=0, error=errno.EIO):
        self.disarm()
        LAYOUT.pack_into(self.memory, 0, 0, nth, every, error, 0, 0, f",{','.join(calls)},".encode())
        self.memory[0] = 1

    def disarm(self):
        """Returns how many calls were hit since `arm`."""
        self.memory[0] = 0
        return LAYOUT.unpack_from(self.memory)[5]
