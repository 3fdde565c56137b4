"""Deaths at random moments, and clocks that jump. The moments are seeded, so that a run can be repeated."""
import itertools
import os
import random
import signal
import time

from harness.daemon import OURS
from harness.processes import descriptors, eventually, session
from trial import case, hold, meanwhile

RELOAD = ("--wd_reload", "--wd_reload_backoff_multiplier", "1", "--wd_reload_backoff_reset_interval", "1")
IMPATIENT = ("--wd_hog_timeout", "1000", "--wd_kill_timeout", "3000")


def load(daemon):
    """Sends requests without a pause. Yields the growing list of replies."""
    methods = itertools.cycle([("ping",), ("status",), ("cmds",), ("events", {"type": "hog"})])

    def ask():
        reply = daemon.call(*next(methods), seconds=0.2)
        hold(reply is None or "result" in reply, f"a wrong reply: {reply}")
        if reply is None:
            time.sleep(0.01)
        return reply
    return meanwhile(ask)


# --- the child ends -------------------------------------------------------------------------------------------
def pause(daemon, child):
    time.sleep(0.7)  # nobody is judged before the first heartbeat
    daemon.signal(signal.SIGSTOP, child)
    time.sleep(0.3)  # a heartbeat may be half a second old
    daemon.signal(signal.SIGCONT, child)
    hold(daemon.alive(), "no answer after the pause")
    hold(daemon.child() == child, "a short pause cost the child its life")


# None stands for a pause.
ENDS = [signal.SIGKILL, signal.SIGSEGV, None, signal.SIGKILL, signal.SIGSEGV, signal.SIGBUS, signal.SIGSTOP]


@case("a child killed, crashed and stopped at random moments under load")
def random_ends(trial):
    rng = random.Random(22)
    daemon = trial.daemon("-a", *RELOAD, *IMPATIENT, engine=OURS)
    rounds = 6 if trial.short else 50
    crashes, held, held_by_child = 0, descriptors(daemon.pid), descriptors(daemon.child())
    with load(daemon) as replies:
        for i in range(rounds):
            time.sleep(rng.uniform(0, 0.3))
            child, end = daemon.child(), ENDS[i % len(ENDS)]
            if end is None:
                pause(daemon, child)
            else:
                time.sleep(end == signal.SIGSTOP)  # as in `pause`
                daemon.signal(end, child)
                daemon.hold_other_child(child)
                crashes += 1
            daemon.check_zombies()
            hold(eventually(lambda: descriptors(daemon.pid) == held, 2), f"the parent holds {descriptors(daemon.pid)}")
    daemon.hold_descriptors(held_by_child, 2)
    found = len(daemon.evidence())
    hold(crashes // 2 < found <= crashes, f"{found} folders of evidence for {crashes} ends")
    hold(all((folder / "log").is_file() for folder in daemon.evidence()), "evidence without a log")
    hold(daemon.result("status")["state"] == "activated", "not activated")
    return f"{rounds} rounds, {len(replies)} replies meanwhile, {found} folders of evidence"


@case("SIGTERM at random moments, the start included")
def sigterm(trial):
    rng = random.Random(7)
    rounds = 15 if trial.short else 100
    early = 0
    for _ in range(rounds):
        daemon = trial.daemon("-a", ready=False, engine=OURS)
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
    child = daemon.next_child()
    time.sleep(0.6)  # the first heartbeat
    daemon.signal(signal.SIGSTOP)
    with load(daemon) as replies:
        time.sleep(2)
        at_first = len(replies)
        time.sleep(2)
    hold(len(replies) > at_first, "the child doesn't answer meanwhile")
    daemon.signal(signal.SIGCONT)
    time.sleep(1)
    hold(daemon.child() == child and daemon.alive(), "the child paid for its parent's pause")
    return f"{len(replies)} replies meanwhile; the child lives on"


# --- clocks ---------------------------------------------------------------------------------------------------
@case("a wall clock that jumps by an hour, ten years, thirty years with each look at it")
def wall_clock(trial):
    jumps = trial.clock("""static const long long steps[] = {0, -3600, 315360000, -1000000000, 5};
    static unsigned turn;
    if (id == CLOCK_REALTIME && rc == 0) t->tv_sec += steps[turn++ % 5];""")
    daemon = trial.daemon("-a", "-v", "debug", *RELOAD, *IMPATIENT, engine=OURS, preload=jumps)
    child = daemon.child()
    with load(daemon) as replies:
        time.sleep(3)
    hold(daemon.child() == child, "the child was replaced")
    log = daemon.log_text()
    hold("No heartbeat" not in log, "a hog that never was")
    daemon.signal(signal.SIGSEGV, child)
    daemon.hold_other_child(child)
    hold(len({line[10:14] for line in log.splitlines()}) > 1, "the clock doesn't jump")
    hold(len(daemon.evidence()) == 1, "no evidence")
    hold(daemon.result("status")["uptime"] < 60, "a wrong uptime")
    return f"{len(replies)} replies; no hog, uptime and reload as ever"
