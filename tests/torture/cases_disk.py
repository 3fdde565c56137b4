"""A disk that is full, folders that vanish, and calls that are interrupted. Supervision and service go on; a line or a file
of evidence may be lost, never a half of one."""
import contextlib
import errno
import shutil
import signal
import subprocess

from failing_calls import FailingCalls
from harness.daemon import ENGINES
from harness.processes import CLONE_NEWNS, unshare
from harness.rpc import request
from trial import case, hold


# --- what the cases share ----------------------------------------------------------------------------------
def start(trial, **more):
    return trial.daemon("-a", "--wd_reload", engine=ENGINES / "inert", **more)


def crash(daemon):
    """Ends the server; waits until the next one answers."""
    first = daemon.child()
    daemon.signal(signal.SIGSEGV, first)
    daemon.hold_other_child(first)


# --- disks -------------------------------------------------------------------------------------------------
@case("disk fills up under log and evidence: requests, crash, reload, room again")
def full_disk(trial):
    disk = trial.folder / "disk"
    disk.mkdir()
    try:
        unshare(CLONE_NEWNS)  # only this process and its children see it
    except OSError as e:
        trial.skipTest(f"no mount namespace: {e.strerror}")
    for words in (["--make-rprivate", "/"], ["-t", "tmpfs", "-o", "size=64k", "none", disk]):
        subprocess.run(["mount", *words], check=True)
    trial.addCleanup(subprocess.run, ["umount", "--lazy", disk], check=True)
    daemon = start(trial, log=disk / "log")
    filler = disk / "filler"
    with contextlib.suppress(OSError):
        filler.write_bytes(bytes(1 << 20))
    for _ in range(100):
        daemon.result("echo", {"message": "a line of more than there is room for"})
    crash(daemon)
    filler.unlink()
    daemon.result("echo", {"message": "room again"})
    hold("room again" in daemon.log_text(), "no line once there is room")
    daemon.check_log()
    for old in daemon.evidence():
        shutil.rmtree(old)  # gathered when there was no room
    daemon.hold_clean_end()
    return "serves on, reloads; its log consists of whole lines"


# --- folders ---------------------------------------------------------------------------------------------
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
    at_start = start(trial, log=folder / "log")
    crash(at_start)
    at_start.hold_clean_end()
    fresh_folder(folder)
    daemon = start(trial, log=folder / "log")
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


# --- interrupted calls -------------------------------------------------------------------------------------
INTERRUPTED = ("epoll_wait", "nanosleep", "read", "write", "recvfrom", "recv", "sendto", "send", "poll", "ppoll", "waitpid")


def serve(daemon, count):
    """Returns how many of so many requests have lost their replies."""
    lost = [daemon.ask(request("status"), 0.2) for _ in range(count)].count(None)
    hold(lost < count, "replies stay away")
    return lost


def interrupted(trial, every):
    calls = FailingCalls(trial.folder)
    calls.arm(*INTERRUPTED, every=every, error=errno.EINTR)
    daemon = start(trial, **calls.preload)
    lost = serve(daemon, 50 if trial.short else 1000)
    crash(daemon)
    lost += serve(daemon, 10)
    hold([(f / "cvdump.json").is_file() for f in daemon.evidence()] == [True], "no evidence")
    daemon.hold_clean_end()
    hits = calls.disarm()
    return f"{hits} calls interrupted, {lost} replies asked for again"


for nth in (5, 7, 11):
    case(f"each {nth}. interruptible call is interrupted: start, requests, crash, reload, stop", nth,
         short=nth == 5)(interrupted)
