"""Scarce and broken surroundings: full, read-only and vanishing folders, calls that are interrupted or slow, and limits of
memory and descriptors. Supervision and service go on; a line or a file of evidence may be lost, never a half of one."""
import collections
import contextlib
import errno
import os
import resource
import shutil
import signal
import socket

from failing_calls import FailingCalls
from harness.daemon import ENGINES, OURS
from harness.frames import udp_flows, write_pcap
from harness.processes import CLONE_NEWNS, LIBC, descriptors, eventually, kib, mount, unshare
from harness.rpc import request
from trial import case, hold

INERT = ENGINES / "inert"
MS_RDONLY, MS_REMOUNT, MS_REC, MS_PRIVATE = 1, 32, 16384, 1 << 18


# --- what the cases share ----------------------------------------------------------------------------------
def small_disk(trial, size="64k"):
    """A folder with a file system of that size, which only this process and its children see."""
    folder = trial.folder / "disk"
    folder.mkdir()
    try:
        unshare(CLONE_NEWNS)
        mount("none", "/", flags=MS_REC | MS_PRIVATE)
    except OSError as e:
        trial.skipTest(f"no mount namespace: {e.strerror}")
    mount("tmpfs", folder, "tmpfs", data=f"size={size}")
    trial.addCleanup(LIBC.umount2, bytes(folder), 2)
    return folder


def start(trial, log, *args, engine=INERT, **more):
    return trial.daemon("-a", "--wd_reload", *args, log=log, engine=engine, **more)


def crash(daemon):
    """Ends the server; waits until the next one answers."""
    first = daemon.child()
    daemon.signal(signal.SIGSEGV, first)
    daemon.hold_other_child(first)


def serve(daemon, count, seconds=1):
    """Sends requests until `count` are answered; a reply may be lost on its way. Returns how many were."""
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
    disk = small_disk(trial)
    daemon = start(trial, disk / "log")
    filler = disk / "filler"
    with contextlib.suppress(OSError):
        filler.write_bytes(bytes(1 << 20))
    for _ in range(100):
        daemon.result("echo", {"message": "a line of more than there is room for"})
    crash(daemon)
    filler.unlink()
    serve(daemon, 3)
    daemon.check_log()
    for old in daemon.evidence():
        shutil.rmtree(old)  # gathered when there was no room
    daemon.hold_clean_end()
    return "serves on, reloads; its log consists of whole lines"


@case("disk read-only: at the start, while it runs")
def read_only_disk(trial):
    disk = small_disk(trial, "1m")
    mount(None, disk, flags=MS_REMOUNT | MS_RDONLY)
    daemon = start(trial, disk / "log")
    crash(daemon)
    hold(not daemon.evidence(), "evidence on a read-only disk?")
    mount(None, disk, flags=MS_REMOUNT)
    crash(daemon)
    hold(len(daemon.evidence()) == 1, "no evidence once it can be written")
    daemon.hold_clean_end()
    return "serves without log and evidence; both come with a writable disk"


def fresh_folder(folder):
    """Replaces whatever is there, if anything, with an empty folder."""
    if folder.is_dir() and not folder.is_symlink():
        shutil.rmtree(folder)
    else:
        folder.unlink(missing_ok=True)
    folder.mkdir()


DAMAGES = {"deleted": lambda path: None,
           "a file in its place": lambda path: path.write_text("in the way\n"),
           "a link to nowhere in its place": lambda path: path.symlink_to("/nowhere/at/all")}


def damaged(trial, part, damage):
    """The damage is done before the start, and again while a daemon runs. Once all is well again, all must work."""
    folder = trial.folder / "var"

    def do_damage():
        target = folder / part
        fresh_folder(target)
        target.rmdir()
        DAMAGES[damage](target)
    fresh_folder(folder)
    do_damage()
    at_start = start(trial, folder / "log")
    crash(at_start)
    at_start.hold_clean_end()
    fresh_folder(folder)
    daemon = start(trial, folder / "log")
    do_damage()
    crash(daemon)
    gathered = len(daemon.evidence())
    fresh_folder(folder)
    crash(daemon)  # brings the folders and the log back
    crash(daemon)
    hold((daemon.evidence()[-1] / "log").is_file(), "no evidence once the folder is back")
    daemon.hold_clean_end()
    return f"serves, reloads; evidence during it: {gathered}, afterwards: complete"


for where, inside in (("log folder", ""), ("cvevents", "cvevents")):
    for text in DAMAGES:
        case(f"{where} {text}: at the start, while it runs, put right", inside, text,
             short=(where, text) in (("log folder", "deleted"), ("cvevents", "a link to nowhere in its place")))(damaged)


# --- logs that are slow ------------------------------------------------------------------------------------
@case("each log line takes 50 ms")
def slow_log(trial):
    calls = FailingCalls(trial.folder)
    daemon = start(trial, trial.folder / "log", "--wd_hog_timeout", "1000", "-v", "debug", **calls.preload)
    calls.arm("fflush", every=1, error=0, delay_ms=50)
    serve(daemon, 2 if trial.short else 10, 20)
    hits = calls.disarm()
    hold(hits > 0, "nothing was slow")
    hold("ing child (state" not in daemon.log_text(), "aborted or killed for being slow")
    daemon.hold_clean_end()
    return f"{hits} slow writes, not taken for dead"


@case("log is a pipe: without a reader, with one that stalls")
def pipe_as_log(trial):
    pipe = trial.folder / "pipe"
    os.mkfifo(pipe)
    start(trial, pipe).hold_clean_end()
    stalled = os.open(pipe, os.O_RDONLY | os.O_NONBLOCK)
    daemon = start(trial, pipe, "-v", "debug")
    serve(daemon, 200 if trial.short else 1000)
    hold("result" in daemon.call("log", {"type": "log"}), "no answer to log")
    crash(daemon)
    daemon.hold_clean_end()
    hold(os.read(stalled, 1), "nothing came through the pipe")
    os.close(stalled)
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
    daemon.hold_clean_end()
    hits = calls.disarm()
    return f"{hits} calls interrupted, {lost} replies asked for again"


for nth in (5, 7, 11):
    case(f"each {nth}. interruptible call is interrupted: start, requests, crash, reload, stop", nth,
         short=nth == 5)(interrupted)


# --- limits ------------------------------------------------------------------------------------------------
def limit(kind, value):
    return lambda: resource.setrlimit(kind, (value, value))


def serves_with(trial, kind, value):
    """Whether it serves under the limit; if not, it has ended by itself and said something."""
    daemon = trial.daemon("-a", ready=False, engine=OURS, setup=limit(kind, value))
    hold(eventually(lambda: not daemon.running() or daemon.alive(0.1), 30), f"limit {value}: neither serves nor ends")
    if not daemon.running():
        hold(daemon.told(), f"limit {value}: ended without a word")
        return False
    hold(daemon.end() == 0, f"limit {value}: no clean end")
    return True


def limited_start(trial, kind, unit, few, many):
    served = {value: serves_with(trial, kind, value * unit) for value in (few if trial.short else many)}
    return "serves from " + next((f"{value} on" for value in served if served[value]), "none on")


case("start with a limit of the address space in MiB, growing", resource.RLIMIT_AS, 1 << 20, (16, 64, 400),
     (8, 16, 24, 32, 40, 48, 64, 80, 96, 112, 128, 160, 256, 512))(limited_start)
case("start with a limit of the descriptors, growing", resource.RLIMIT_NOFILE, 1, (3, 8, 16),
     range(1, 25))(limited_start)


@case("pushes that grow under a limit of the address space")
def limited_pushes(trial):
    daemon = start(trial, trial.folder / "log", engine=OURS)
    capture = trial.folder / "x.pcap"
    answers = collections.Counter()
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
    return f"{dict(answers)}, " + ("the same server" if same else "a new server, with evidence")


@case("64 descriptors and 200 idle connections")
def idle_connections(trial):
    daemon = trial.daemon("-a", tcp=True, engine=INERT, setup=limit(resource.RLIMIT_NOFILE, 64))
    before = descriptors(daemon.child())
    with contextlib.ExitStack() as idle:
        for i in range(200):
            idle.enter_context(socket.create_connection(("127.0.0.1", daemon.tcp), timeout=5))
            if i % 20 == 0:
                hold("result" in daemon.call("status", seconds=10), f"no answer beside {i} idle connections")
        hold(descriptors(daemon.child()) <= before + 32, "more are kept than half of the descriptors")
        for method, params in (("deactivate", None), ("unload", None), ("load", None), ("log", {"type": "log"})):
            daemon.result(method, params)
    hold(daemon.alive(), "no answer after they left")
    hold(daemon.log_text().count("connections are taken") == 1, "the bound is told more or less than once")
    return "new requests go before idle connections"
