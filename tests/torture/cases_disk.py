"""Scarce and broken surroundings: full, read-only and vanishing folders, calls that are interrupted or slow, and limits of
memory and descriptors. Supervision and service go on; a line or a file of evidence may be lost, never a half of one."""
import contextlib
import errno
import os
import resource
import shutil
import signal
import socket
import threading

from failing_calls import FailingCalls
from harness.daemon import ENGINES, OURS
from harness.frames import udp_flows, write_pcap
from harness.processes import CLONE_NEWNS, LIBC, descriptors, eventually, kib, mount, unshare
from harness.rpc import free_port, request
from trial import NotTried, case, hold, need

INERT = ENGINES / "inert"
MS_RDONLY, MS_REMOUNT, MS_REC, MS_PRIVATE = 1, 32, 16384, 1 << 18


# --- a file system of our own ------------------------------------------------------------------------------
def private_mounts():
    """From here on, what this process mounts is seen by it and its children alone."""
    if not hasattr(private_mounts, "done"):
        need(os.geteuid() == 0, "needs root")
        try:
            unshare(CLONE_NEWNS)
            mount("none", "/", flags=MS_REC | MS_PRIVATE)
        except OSError as e:
            raise NotTried(f"no mount namespace: {e.strerror}") from e
        private_mounts.done = True


@contextlib.contextmanager
def small_disk(trial, size="64k"):
    """A folder with its own file system of so many bytes."""
    private_mounts()
    folder = trial.folder / "disk"
    folder.mkdir()
    mount("tmpfs", folder, "tmpfs", data=f"size={size}")
    try:
        yield folder
    finally:
        LIBC.umount2(bytes(folder), 2)


def set_read_only(folder, on):
    mount(None, folder, flags=MS_REMOUNT | (MS_RDONLY if on else 0))


def fill(folder):
    """Takes all that is left of the disk; gives the file to remove for some room."""
    path = folder / "filler"
    with open(path, "wb", buffering=0) as file, contextlib.suppress(OSError):
        while True:
            file.write(bytes(4096))
    return path


# --- what must hold ----------------------------------------------------------------------------------------
def crash(daemon, signum=signal.SIGSEGV):
    """Ends the server; waits until the next one answers."""
    first = daemon.child()
    daemon.signal(signum, first)
    hold(eventually(lambda: daemon.child() not in (first, daemon.pid), 30), "no reload")
    hold(daemon.alive(30), "no answer after the reload")


def start(trial, log, *args, **more):
    return trial.daemon("-a", "--wd_reload", *args, log=log, **{"engine": INERT, **more})


def serve(daemon, count, seconds=1):
    """Requests until so many are answered. A reply may be lost on its way, and is asked for again."""
    lost, bound = 0, 50 + 3 * count
    while count:
        if daemon.ask(request("status"), seconds):
            count -= 1
        else:
            lost += 1
            hold(lost < bound, "replies stay away")
    return lost


# --- disks -------------------------------------------------------------------------------------------------
@case("disk fills up under log and evidence: start, crash, reload, room again")
def full_disk(trial):
    with small_disk(trial) as disk:
        daemon = start(trial, disk / "log", "-v", "debug")
        filler = fill(disk)
        serve(daemon, 100)
        crash(daemon)
        filler.unlink()
        serve(daemon, 3)
        daemon.check_log()
        for old in daemon.evidence():
            shutil.rmtree(old)  # of the time without room
        hold(daemon.end() == 0, "no clean end")
        daemon.check_log()
        return "serves on, reloads; its log consists of whole lines"


@case("disk full before the start")
def full_from_the_start(trial):
    with small_disk(trial) as disk:
        filler = fill(disk)
        daemon = start(trial, disk / "log")
        crash(daemon)
        filler.unlink()
        for old in daemon.evidence():
            shutil.rmtree(old)
        hold(daemon.end() == 0, "no clean end")
        return "starts, reloads, stops"


@case("disk read-only: at the start, while it runs")
def read_only_disk(trial):
    with small_disk(trial, "1m") as disk:
        set_read_only(disk, True)
        daemon = start(trial, disk / "log")
        crash(daemon)
        hold(not daemon.evidence(), "evidence on a read-only disk?")
        set_read_only(disk, False)
        crash(daemon)
        hold(len(daemon.evidence()) == 1, "no evidence once it can be written")
        hold(daemon.end() == 0, "no clean end")
        return "serves without log and evidence; both come with a writable disk"


def remove(path):
    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path)
    else:
        path.unlink(missing_ok=True)


def put_file(path):
    remove(path)
    path.write_text("in the way\n")


def put_dead_link(path):
    remove(path)
    path.symlink_to("/nowhere/at/all")


DAMAGES = {"deleted": remove, "a file in its place": put_file, "a link to nowhere in its place": put_dead_link}


def damaged(trial, part, damage):
    """The daemon is damaged at its start, and again while it runs; what it then does must work once all is well again."""
    folder = trial.folder / "var"
    target = {"log folder": folder, "cvevents": folder / "cvevents"}[part]
    folder.mkdir()
    damage(target)
    log = folder / "log"
    at_start = start(trial, log)
    crash(at_start)
    hold(at_start.end() == 0, "no clean end")
    remove(folder)
    folder.mkdir()
    daemon = start(trial, log)
    damage(target)
    crash(daemon)
    gathered = len(daemon.evidence())
    remove(folder)
    folder.mkdir()
    crash(daemon)  # brings the folders and the log back
    crash(daemon)
    hold((daemon.evidence()[-1] / "log").is_file(), "no evidence once the folder is back")
    hold(daemon.end() == 0, "no clean end")
    return f"serves, reloads; evidence during it: {gathered}, afterwards: complete"


for part in ("log folder", "cvevents"):
    for text, damage in DAMAGES.items():
        case(f"{part} {text}: at the start, while it runs, put right", short=part == "cvevents" and damage is put_dead_link)(
            lambda trial, part=part, damage=damage: damaged(trial, part, damage))


# --- logs that are slow ------------------------------------------------------------------------------------
@case("each log line takes 50 ms")
def slow_log(trial):
    calls = FailingCalls(trial.folder)
    daemon = start(trial, trial.folder / "log", "--wd_hog_timeout", "1000", **calls.preload)
    daemon.call("log", {"type": "verbosity", "verbosity": {"cmd": "reset", "level": "debug"}})
    calls.arm("fflush", every=1, error=0, delay_ms=50)
    serve(daemon, 2 if trial.short else 10, 20)
    hits = calls.disarm()
    hold(hits > 0, "nothing was slow")
    hold(b"ing child (state" not in daemon.log.read_bytes(), "aborted or killed for being slow")
    hold(daemon.end() == 0, "no clean end")
    return f"{hits} slow writes, not taken for dead"


def read_some(path, ready, done):
    with open(path, "rb", buffering=0):
        ready.set()
        done.wait()


@case("log is a pipe: without a reader, with one that stalls")
def pipe_as_log(trial):
    pipe = trial.folder / "pipe"
    os.mkfifo(pipe)
    unread = start(trial, pipe)
    hold(unread.end() == 0, "no clean end")
    ready, done = threading.Event(), threading.Event()
    reader = threading.Thread(target=read_some, args=(pipe, ready, done))
    reader.start()
    try:
        daemon = start(trial, pipe, "-v", "debug")
        hold(ready.wait(10), "nobody opened the pipe")
        serve(daemon, 200 if trial.short else 1000)
        hold("result" in daemon.call("log", {"type": "log"}), "no answer to log")
        crash(daemon)
        hold(daemon.end() == 0, "no clean end")
    finally:
        done.set()
        with contextlib.suppress(OSError):  # a reader that nobody let in waits in its open
            os.close(os.open(pipe, os.O_WRONLY | os.O_NONBLOCK))
        reader.join()
    return "lines are lost, requests and supervision are not"


# --- interrupted calls -------------------------------------------------------------------------------------
INTERRUPTED = ("epoll_wait", "nanosleep", "read", "write", "recvfrom", "recv", "sendto", "send", "poll", "ppoll", "waitpid")


def interrupted(trial, every):
    calls = FailingCalls(trial.folder)
    calls.arm(*INTERRUPTED, every=every, error=errno.EINTR)
    daemon = start(trial, trial.folder / "log", **calls.preload)
    lost = serve(daemon, 50 if trial.short else 1000, seconds=0.2)
    crash(daemon)
    lost += serve(daemon, 10, seconds=0.2)
    hold([(f / "cvdump.json").is_file() for f in daemon.evidence()] == [True], "no evidence")
    hold(daemon.end() == 0, "no clean end")
    hits = calls.disarm()
    return f"{hits} calls interrupted, {lost} replies asked for again"


for every, short in ((5, True), (7, False), (11, False)):
    case(f"each {every}. interruptible call is interrupted: start, requests, crash, reload, stop", short=short)(
        lambda trial, every=every: interrupted(trial, every))


# --- limits ------------------------------------------------------------------------------------------------
def limit(kind, value):
    return lambda: resource.setrlimit(kind, (value, value))


def start_limited(trial, kind, value):
    """Gives whether the daemon serves under the limit; if not, it has ended by itself and said something."""
    daemon = trial.daemon("-a", ready=False, engine=OURS, setup=limit(kind, value))
    hold(eventually(lambda: not daemon.running() or daemon.alive(0.1), 30), f"limit {value}: neither serves nor ends")
    if daemon.running():
        hold(daemon.end() == 0, f"limit {value}: no clean end")
        return True
    hold(daemon.said(), f"limit {value}: ended without a word")
    return False


@case("start with a limit of the address space, growing")
def limited_start(trial):
    tried = {mib: start_limited(trial, resource.RLIMIT_AS, mib << 20)
             for mib in ((16, 64, 400) if trial.short else (8, 16, 24, 32, 40, 48, 64, 80, 96, 112, 128, 160, 256, 512))}
    return "serves from " + next((f"{mib} MiB on" for mib, served in tried.items() if served), "none on")


@case("start with a limit of the descriptors, growing")
def limited_descriptors(trial):
    tried = {n: start_limited(trial, resource.RLIMIT_NOFILE, n) for n in ((3, 8, 16) if trial.short else range(1, 25))}
    return "serves from " + next((f"{n} on" for n, served in tried.items() if served), "none on")


@case("pushes that grow under a limit of the address space")
def limited_pushes(trial):
    daemon = start(trial, trial.folder / "log", engine=OURS)
    capture = trial.folder / "x.pcap"
    answers = {"result": 0, "error": 0, "none": 0}
    pushed = {"type": "filename", "filename": str(capture), "reset": True, "extended": True}
    server = daemon.child()
    write_pcap(capture, udp_flows(100))
    daemon.call("push_pcap", pushed)
    resource.prlimit(server, resource.RLIMIT_AS, ((kib(server, "VmSize") + 8192) << 10, -1))
    for frames in (100, 1000, 5000, 20000, 50000):
        write_pcap(capture, udp_flows(frames))
        reply = daemon.call("push_pcap", pushed, seconds=5)
        answers[next((k for k in ("result", "error") if reply and k in reply), "none")] += 1
        hold(daemon.alive(30), f"no answer after {frames} frames")
    same = daemon.child() == server
    return f"{answers}, " + ("the same server" if same else "a new server, with evidence")


@case("64 descriptors and 200 idle connections")
def idle_connections(trial):
    port = free_port()
    daemon = trial.daemon("-a", tcp=port, engine=INERT, setup=limit(resource.RLIMIT_NOFILE, 64))
    before = descriptors(daemon.child())
    with contextlib.ExitStack() as idle:
        for i in range(200):
            idle.enter_context(socket.create_connection(("127.0.0.1", port), timeout=5))
            if i % 20 == 0:
                hold("result" in daemon.call("status", seconds=10), f"no answer beside {i} idle connections")
        hold(descriptors(daemon.child()) <= before + 32, "more are kept than half of the descriptors")
        for method, params in (("deactivate", None), ("unload", None), ("load", None),
                               ("activate", {"resources": {"max_flows": 100}}), ("log", {"type": "log"})):
            reply = daemon.call(method, params)
            hold(reply and "result" in reply, f"{method}: {reply}")
    hold(daemon.alive(), "no answer after they left")
    hold(daemon.log.read_bytes().count(b"connections are taken") == 1, "the bound is told more or less than once")
    return "new requests go before idle connections"
