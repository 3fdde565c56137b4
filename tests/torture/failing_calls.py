"""The other end of shim/fail_nth.cpp: tells a running daemon which calls into the C library fail, or wait, and when."""
import errno
import mmap
import struct

from harness.daemon import BUILD
from trial import hold

SHIM = BUILD / "tests/libfail_nth.so"

FIELDS = ("armed", "nth", "every", "and_on", "error", "delay_ms", "pid", "count", "hits")
FORMAT = "=9i220s"


class FailingCalls:
    """The rules in force, in memory that the daemon has mapped too. Nothing fails until `arm`."""

    def __init__(self, folder):
        hold(SHIM.exists(), f"no {SHIM}: build the target fail_nth")
        self.path = folder / "failing-calls"
        self.path.write_bytes(bytes(struct.calcsize(FORMAT)))
        with open(self.path, "r+b") as file:
            self.memory = mmap.mmap(file.fileno(), 0)
        self.preload = {"preload": SHIM, "env": {"FAIL_STATE": str(self.path)}}

    def arm(self, *calls, nth=1, every=0, and_on=0, error=errno.EIO, delay_ms=0, pid=0):
        self.disarm()
        names = f",{','.join(calls)},".encode()
        struct.pack_into(FORMAT, self.memory, 0, 0, nth, every, and_on, error, delay_ms, pid, 0, 0, names)
        self.put("armed", 1)

    def disarm(self):
        """Gives how many calls were hit since `arm`."""
        self.put("armed", 0)
        return self.get("hits")

    def put(self, field, value):
        struct.pack_into("=i", self.memory, 4 * FIELDS.index(field), value)

    def get(self, field):
        return struct.unpack_from("=i", self.memory, 4 * FIELDS.index(field))[0]
