"""Ends at moments that nobody chose, and clocks that move. Random moments are seeded: a run can be repeated."""
import os
import random
import signal
import subprocess
import threading
import time

from harness.daemon import OURS
from harness.processes import descriptors, eventually, session, state_of
from trial import case, hold

ENGINE = OURS
RELOAD = ("--wd_reload", "--wd_reload_backoff_multiplier", "1", "--wd_reload_backoff_reset_interval", "1")
IMPATIENT = ("--wd_hog_timeout", "1000", "--wd_kill_timeout", "3000")


class Load(threading.Thread):
    """Requests without a pause until the block is left. Replies may be missing, wrong ones may not come."""

    def __init__(self, daemon):
        super().__init__(daemon=True)
        self.target, self.over, self.answered, self.wrong = daemon, False, 0, []

    def run(self):
        methods = ["ping", "status", "cmds", "events"]
        while not self.over:
            method = methods[self.answered % 4]
            reply = self.target.call(method, {"type": "hog"} if method == "events" else None, seconds=0.2)
            if reply is None:
                time.sleep(0.01)
            elif "result" in reply:
                self.answered += 1
            else:
                self.wrong.append(reply)

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.over = True
        self.join()


def replaced(daemon, child, seconds=30):
    """The child is gone and another one answers."""
    hold(eventually(lambda: state_of(child) is None, seconds), f"child {child} is still there")
    hold(eventually(lambda: daemon.child() not in (child, daemon.pid), 10), "no other child")
    hold(daemon.alive(20), "the new child doesn't answer")


def evidence(daemon):
    """Folders of evidence, each with the log that belongs to it."""
    daemon.check_evidence()
    for folder in daemon.evidence():
        hold((folder / "log").is_file(), f"no log in {folder.name}")
    return daemon.evidence()


# --- the child ends -------------------------------------------------------------------------------------------
def stop_for_a_while(_, daemon, child):
    time.sleep(0.7)  # nobody is judged before his first heartbeat
    daemon.signal(signal.SIGSTOP, child)
    time.sleep(0.3)  # a heartbeat may be half a second old
    daemon.signal(signal.SIGCONT, child)
    hold(daemon.alive(), "no answer after the pause")
    hold(daemon.child() == child, "a short pause cost the child its life")


def stop_for_ever(_, daemon, child):
    time.sleep(1)
    daemon.signal(signal.SIGSTOP, child)
    replaced(daemon, child)


def deadly(signum):
    def end(_, daemon, child):
        daemon.signal(signum, child)
        replaced(daemon, child)
    return end


ENDS = [deadly(signal.SIGKILL), deadly(signal.SIGSEGV), stop_for_a_while, deadly(signal.SIGKILL), deadly(signal.SIGSEGV),
        deadly(signal.SIGBUS), stop_for_ever]


@case("a child killed, crashed and stopped at random moments under load")
def random_ends(trial):
    rng = random.Random(22)
    daemon = trial.daemon("-a", *RELOAD, *IMPATIENT, engine=ENGINE)
    rounds = 6 if trial.short else 50
    crashes, held = 0, descriptors(daemon.pid)
    with Load(daemon) as load:
        for i in range(rounds):
            time.sleep(rng.uniform(0, 0.3))
            end = ENDS[i % len(ENDS)]
            crashes += end is not stop_for_a_while
            end(rng, daemon, daemon.child())
            daemon.check_zombies()
            hold(eventually(lambda: descriptors(daemon.pid) == held, 2), f"the parent has {descriptors(daemon.pid)} descriptors")
    hold(not load.wrong, f"a wrong reply: {load.wrong[:1]}")
    found = len(evidence(daemon))
    hold(crashes // 2 < found <= crashes, f"{found} folders of evidence for {crashes} ends")
    hold(daemon.call("status")["result"]["state"] == "activated", "not activated")
    return f"{rounds} rounds, {load.answered} replies meanwhile, {found} folders of evidence"


@case("SIGTERM at random moments, the start included")
def sigterm(trial):
    rng = random.Random(7)
    rounds = 15 if trial.short else 100
    early = 0
    for _ in range(rounds):
        daemon = trial.daemon("-a", ready=False, engine=ENGINE)
        time.sleep(rng.uniform(0, 0.25))
        daemon.signal(signal.SIGTERM)
        status = daemon.process.wait(20)
        # Before main has run there are no handlers.
        early += status == -signal.SIGTERM
        hold(status in (0, -signal.SIGTERM), f"status {status}")
        hold(status == 0 or not daemon.log.exists(), "a signal's death after the start")
        hold(eventually(lambda daemon=daemon: not session(daemon.pid), 5), "a child stayed behind")
        hold(not os.path.exists(daemon.path), "the socket stayed behind")
        hold(not daemon.evidence(), "evidence of an orderly stop")
    return f"{rounds} starts; each ended with 0 ({early} before main), nothing left"


@case("a parent that is stopped for longer than all time-outs")
def stopped_parent(trial):
    daemon = trial.daemon(*RELOAD, *IMPATIENT)
    hold(eventually(lambda: daemon.child() != daemon.pid), "no child")
    child = daemon.child()
    time.sleep(0.6)  # the first heartbeat
    daemon.signal(signal.SIGSTOP)
    with Load(daemon) as load:
        time.sleep(2)
        at_first = load.answered
        time.sleep(2)
    hold(load.answered > at_first, "the child doesn't answer meanwhile")
    daemon.signal(signal.SIGCONT)
    time.sleep(1)
    hold(daemon.child() == child and daemon.alive(), "the child paid for its parent's pause")
    return f"{load.answered} replies meanwhile; the child lives on"


# --- clocks ---------------------------------------------------------------------------------------------------
STEPS = r"""
#define _GNU_SOURCE
#include <dlfcn.h>
#include <time.h>
int clock_gettime(clockid_t id, struct timespec* t) {
    static int (*real)(clockid_t, struct timespec*);
    static const long long steps[] = {0, -3600, 315360000, -1000000000, 5};
    static unsigned turn;
    if (!real) real = (int (*)(clockid_t, struct timespec*))dlsym(RTLD_NEXT, "clock_gettime");
    const int rc = real(id, t);
    if (id == CLOCK_REALTIME && rc == 0) t->tv_sec += steps[turn++ % 5];
    return rc;
}
"""


@case("a wall clock that jumps by an hour, ten years, thirty years with each look at it")
def wall_clock(trial):
    shim = trial.folder / "steps.so"
    subprocess.run(["cc", "-shared", "-fPIC", "-x", "c", "-", "-o", shim], input=STEPS.encode(), check=True)
    daemon = trial.daemon("-a", "-v", "debug", *RELOAD, *IMPATIENT, engine=ENGINE, preload=shim)
    child = daemon.child()
    with Load(daemon) as load:
        time.sleep(3)
    hold(daemon.child() == child, "the child was replaced")
    log = daemon.log.read_bytes()
    hold(b"No heartbeat" not in log, "a hog that never was")
    daemon.signal(signal.SIGSEGV, child)
    replaced(daemon, child)
    hold(len({line[10:14] for line in log.split(b"\n")}) > 1, "the clock doesn't jump")
    hold(len(evidence(daemon)) == 1, "no evidence")
    hold(daemon.call("status")["result"]["uptime"] < 60, "a wrong uptime")
    return f"{load.answered} replies; no hog, uptime and reload as ever"
