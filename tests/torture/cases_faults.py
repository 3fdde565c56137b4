"""The n-th call of a kind fails, for each n until a run has fewer calls. In each phase of its life, the daemon must
answer afterwards or have stopped and said why, and must leave nothing behind."""
import errno
import signal

from failing_calls import FailingCalls
from harness.daemon import ENGINES, OURS
from harness.frames import udp_flows, write_pcap
from harness.processes import descriptors, eventually
from harness.rpc import request
from trial import case, hold

COUNTS = range(1, 201)
SHORT_COUNTS = (1, 2, 3, 5, 8, 13, 21, 34, 55, 89, 144)
# The others fail with EIO.
ERRORS = {
    **dict.fromkeys("accept4 epoll_create1 fopen fopen64 open openat pipe2 socket socketpair".split(), errno.EMFILE),
    **dict.fromkeys("dlopen epoll_wait fdopen recvfrom".split(), errno.ENOMEM),
    **dict.fromkeys("epoll_ctl mkdirat write".split(), errno.ENOSPC),
    "bind": errno.EADDRINUSE, "fork": errno.EAGAIN, "renameat": errno.EXDEV, "sendto": errno.ENOBUFS}

# When the daemon ends, one of these must be in its log or output.
CAUSES = ("CP shutdown - cause: ", "Fork has failed, exiting...", "Stderr pipe creation failed, exiting...")
# A library below nDPI aborts the process if it can't tell whether it must be "FIPS" compliant; that counts as a crash.
LIBRARY_ABORT = "FATAL: error reading `/proc/sys/crypto/fips_enabled' in libgcrypt"
DEAF = "Error detected on channel, exiting"


class Victim:
    """A daemon in which the calls of one kind can be made to fail; started anew where a failure has ended it."""

    def __init__(self, trial, call, *args, **more):
        self.trial, self.call, self.args, self.more = trial, call, args, more
        self.calls = FailingCalls(trial.folder)
        self.daemon = None

    def start(self, **more):
        # The full form loads what we ship, which costs a second; the short one an engine that does nothing.
        engine = ENGINES / "inert" if self.trial.short else OURS
        # A busy machine must not count as a hog.
        self.daemon = self.trial.daemon("-a", "--wd_hog_timeout", "20000", *self.args, engine=engine,
                                        **self.calls.preload, **self.more, **more)
        return self.daemon

    def arm(self, n):
        self.calls.arm(self.call, nth=n, error=ERRORS.get(self.call, errno.EIO))

    def settle(self):
        """Waits until it answers or has ended: True if it answers."""
        daemon = self.daemon
        hold(eventually(lambda: not daemon.running() or DEAF in daemon.told() or daemon.alive(0), 60),
             f"neither answers nor ends: {daemon.tail()}")
        if daemon.running() and DEAF in daemon.told():
            daemon.hold_clean_end()
        return daemon.running()

    def check_end(self):
        """Returns whether it could clean up."""
        status, told = self.daemon.process.returncode, self.daemon.told()
        if status == 1 and LIBRARY_ABORT in told:
            return False
        hold(status == 0 or (self.call == "fork" and status == 255), f"ended with {status}: {self.daemon.tail()}")
        hold(any(cause in told for cause in CAUSES), "ended without telling a cause")
        return True


def each_n(victim, run):
    """Runs with each n until no call fails any more."""
    tried, last = 0, 0
    for n in SHORT_COUNTS if victim.trial.short else COUNTS:
        try:
            run(n)
            if victim.calls.disarm() == 0:
                break
        except Exception as e:
            raise type(e)(f"n={n}: {e}") from e
        tried, last = tried + 1, n
    hold(tried, "never called")
    return f"{tried} n tried, up to the {last}."


# --- phases that a daemon goes through once: each n takes another one -------------------------------------------
def start(victim, n):
    """From the first instruction until it answers."""
    victim.arm(n)
    victim.start(ready=False)
    victim.settle()


def reload(victim, n):
    """From a crash until the next server answers; the evidence is looked at when the trial ends."""
    daemon = victim.start()
    first = daemon.child()
    victim.arm(n)
    daemon.signal(signal.SIGSEGV, first)
    hold(eventually(lambda: not daemon.running() or daemon.child() not in (first, daemon.pid), 20), "no reload")
    victim.settle()


def stop(victim, n):
    victim.start()
    victim.arm(n)
    victim.daemon.hold_clean_end()


def once(act, *args):
    def phase(trial, call):
        victim = Victim(trial, call, *args)

        def run(n):
            act(victim, n)
            daemon = victim.daemon
            daemon.writes_failed = call == "write"
            if daemon.running():
                victim.calls.disarm()
                daemon.hold_clean_end()
            if victim.check_end() and act != reload:
                hold(not (daemon.folder / "s").exists(), "left its socket file behind")
        return each_n(victim, run)
    return phase


# --- phases in which requests are served ------------------------------------------------------------------------
def serving(requests, tcp=False):
    """The daemon must be as able afterwards as before, and hold no more descriptors."""
    def phase(trial, call):
        capture = write_pcap(trial.folder / "x.pcap", udp_flows(50))
        chosen = [(m, {**p, "filename": str(capture)} if p and "filename" in p else p) for m, p in requests]
        victim = Victim(trial, call, tcp=tcp)
        held = {}

        def run(n):
            if not victim.daemon or not victim.daemon.running():
                daemon = victim.start()
                check_able(daemon, chosen)
                held[daemon.pid] = descriptors(daemon.child())
            daemon = victim.daemon
            victim.arm(n)
            for method, params in chosen:
                daemon.ask(request(method, params), 0.3)  # many replies get lost
            victim.calls.disarm()
            if victim.settle():
                check_able(daemon, chosen)
                daemon.hold_descriptors(held[daemon.pid], 2)
            else:
                victim.check_end()
        return each_n(victim, run)
    return phase


def check_able(daemon, requests):
    """Whatever state a failure left, ordinary requests bring it back to work."""
    if daemon.result("status")["state"] == "not loaded":
        daemon.result("load")
    if daemon.result("status")["state"] == "deactivated":
        daemon.result(*ACTIVATE)
    for method, params in requests:
        daemon.result(method, params)


ACTIVATE = ("activate", {"resources": {"max_flows": 16384}})
REQUESTS = [("status", None), ("log", {"type": "log", "maxlines": 5}), ("notifications", {"cmd": "log"}),
            ("collect", {"cmd": "ls"}), ("health", {"cmd": "show"}), ("cmds", None)]
RELOADING = [("deactivate", None), ("unload", None), ("load", None), ACTIVATE]
PUSHING = [("push_pcap", {"type": "filename", "filename": "", "reset": True})]

# phase: what it does, the calls that fail in it, and those of them that the short form tries too
PHASES = {
    "start": (once(start),
              "socket bind setsockopt epoll_create1 epoll_ctl socketpair pipe2 fork open openat fopen fopen64 fdopen "
              "mkdirat dlopen", "bind epoll_ctl fork pipe2 open mkdirat dlopen"),
    "requests": (serving(REQUESTS), "recvfrom sendto epoll_ctl epoll_wait open fopen64 read",
                 "recvfrom sendto epoll_ctl"),
    "requests over TCP": (serving(REQUESTS, tcp=True), "accept4 epoll_ctl recv send", "accept4 epoll_ctl recv send"),
    "unload and load": (serving(RELOADING), "dlopen epoll_create1 epoll_ctl", "dlopen epoll_ctl"),
    "push": (serving(PUSHING), "open fdopen epoll_ctl sendto", "open"),
    "reload": (once(reload, "--wd_reload"),
               "fork pipe2 open openat fopen write mkdirat renameat read socket bind epoll_ctl dlopen ppoll",
               "fork mkdirat write renameat"),
    "stop": (once(stop), "open write epoll_ctl read", "open"),
}
for name, (phase_of, calls, short) in PHASES.items():
    for failing in calls.split():
        case(f"n-th {failing} fails: {name}", failing, short=failing in short.split())(phase_of)
