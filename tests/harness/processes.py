"""What /proc knows about processes, and waiting for conditions instead of sleeping."""
import contextlib
import ctypes
import os
import pathlib
import re
import signal
import subprocess
import time

LIBC = ctypes.CDLL(None, use_errno=True)
PR_SET_PDEATHSIG = 1
CLONE_NEWNS, CLONE_NEWTIME, CLONE_NEWNET = 0x20000, 0x80, 0x40000000


def eventually(done, seconds=10, step=0.005):
    """Calls `done` until it returns something true or the time is over. Returns its last answer."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if answer := done():
            return answer
        time.sleep(step)
    return done()


def stat_of(pid):
    """Its fields from the state on, as texts; None once it is reaped."""
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
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
    return [p for p, stat in processes().items() if stat[3] == str(pid) and stat[0] not in "ZX"]


def state_of(pid):
    return (stat_of(pid) or [None])[0]


def gone(pid):
    """Whether it has ended. Not every machine reaps orphans."""
    return state_of(pid) in (None, "Z", "X")


def kill(pid, signum):
    with contextlib.suppress(ProcessLookupError):
        os.kill(pid, signum)


def kill_session(pid):
    while left := session(pid):
        for p in left:
            kill(p, signal.SIGKILL)
        time.sleep(0.005)


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def kib(pid, what, file="status"):
    """A size from /proc, such as VmHWM."""
    return int(re.search(rf"^{what}:\s+(\d+)", pathlib.Path(f"/proc/{pid}/{file}").read_text(), re.M)[1])


def die_with_parent():
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def permitted(setup):
    """Whether a new process may do what `setup` does."""
    with contextlib.suppress(subprocess.SubprocessError):
        return bool(subprocess.run(["true"], preexec_fn=setup, check=True))
    return False


def checked(result):
    """Raises OSError with errno if a call into the C library failed."""
    if result != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


def unshare(flags):
    checked(LIBC.unshare(flags))


def starting_at(monotonic_ms):
    """For `setup`: the program's monotonic clock starts at this time."""
    def setup():
        offset = monotonic_ms - time.monotonic_ns() // 1_000_000
        unshare(CLONE_NEWTIME)
        with open("/proc/self/timens_offsets", "w", encoding="ascii") as f:
            f.write(f"monotonic {offset // 1000} {offset % 1000 * 1_000_000}\n")
    return setup
