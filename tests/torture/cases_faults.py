"""The n-th call of a kind fails, for every n up to a run in which none failed any more: in each phase of a daemon's life
it must answer afterwards, or have stopped with its cause told, and must hold on to nothing."""
import errno
import functools
import signal

from failing_calls import FailingCalls
from harness.daemon import ENGINES, OURS
from harness.frames import udp_flows, write_pcap
from harness.processes import descriptors, eventually
from harness.rpc import free_port, request
from trial import case, hold

MAX_N = 200
SHORT_COUNTS = (1, 2, 3, 5, 8, 13, 21, 34, 55, 89, 144)
ERRORS = {"accept4": errno.EMFILE, "epoll_ctl": errno.ENOSPC, "epoll_create1": errno.EMFILE, "epoll_wait": errno.ENOMEM,
          "fork": errno.EAGAIN, "fopen": errno.EMFILE, "fopen64": errno.EMFILE, "open": errno.EMFILE, "open64": errno.EMFILE,
          "pipe2": errno.EMFILE, "socket": errno.EMFILE, "socketpair": errno.EMFILE, "bind": errno.EADDRINUSE,
          "write": errno.ENOSPC, "mkdir": errno.ENOSPC, "rename": errno.EXDEV, "sendto": errno.ENOBUFS,
          "recvfrom": errno.ENOMEM, "dlopen": errno.ENOMEM, "fdopen": errno.ENOMEM, "timerfd_create": errno.EMFILE}

# How the daemon may end: each of these, in its log or output, is the told cause of a stop.
CAUSES = (b"CP shutdown - cause: ", b"Fork has failed, exiting...", b"Stderr pipe creation failed, exiting...")
# A library below nDPI ends the process where it can't tell whether it must be "FIPS" compliant. That's a crash, and is
# treated as one.
LIBRARY_ABORT = b"FATAL: error reading `/proc/sys/crypto/fips_enabled' in libgcrypt"
DEAF = b"Error detected on channel, exiting"


class Victim:
    """A daemon whose calls can be made to fail; started anew where a failure has ended it."""

    def __init__(self, trial, *args, **more):
        self.trial, self.more = trial, more
        # A busy machine isn't what is tried here.
        self.args = ("--wd_hog_timeout", "20000", *args)
        self.calls = FailingCalls(trial.folder)
        self.daemon = None

    def start(self, **more):
        # The full form loads what we ship, which costs a second; the short one an engine that does nothing.
        engine = ENGINES / "inert" if self.trial.short else OURS
        self.daemon = self.trial.daemon(*self.args, **{"engine": engine, **self.calls.preload, **self.more, **more})
        return self.daemon

    def ready(self):
        if not self.daemon or not self.daemon.running():
            self.start()
        return self.daemon

    def told(self):
        """What it has said so far, in its log or on stdout."""
        log = self.daemon.log.read_bytes() if self.daemon.log.is_file() else b""
        return log + self.daemon.said()

    def settle(self, seconds=60):
        """Waits until it answers or has ended: True if it answers."""
        daemon = self.daemon
        pinged = lambda: bool((daemon.call("ping", seconds=0.5) or {}).get("result"))
        hold(eventually(lambda: not daemon.running() or DEAF in self.told() or pinged(), seconds),
             f"neither answers nor ends: {self.trial.tail(daemon)}")
        if daemon.running() and DEAF in self.told():
            hold(daemon.end() == 0, "no clean end of a daemon that listens no more")
        return daemon.running()

    def check_end(self, call):
        """Gives whether it could clean up."""
        status = self.daemon.process.returncode
        if status == 1 and LIBRARY_ABORT in self.told():
            return False
        hold(status == 0 or (call == "fork" and status == 255), f"ended with {status}: {self.trial.tail(self.daemon)}")
        hold(any(cause in self.told() for cause in CAUSES), "ended without telling a cause")
        return True


def counts(trial):
    return SHORT_COUNTS if trial.short else range(1, MAX_N + 1)


def each_n(trial, call, run):
    """Runs until no call fails any more; `run` gets the rule and gives the number of calls hit."""
    tried, last = 0, 0
    for n in counts(trial):
        try:
            if run({"nth": n, "error": ERRORS[call]}) == 0:
                return f"{tried} n tried, up to the {last}." if tried else "never called"
        except Exception as e:
            raise type(e)(f"n={n}: {e}") from e
        tried, last = tried + 1, n
    return f"{tried} n tried, the last was the {last}."


# --- phases ------------------------------------------------------------------------------------------------
def start(trial, call):
    """From the first instruction until it answers; a start that failed leaves no socket file."""
    victim = Victim(trial, "-a", ready=False)

    def run(rule):
        victim.calls.arm(call, **rule)
        daemon = victim.start()
        answers = victim.settle()
        hits = victim.calls.disarm()
        if answers:
            hold(daemon.end() == 0, "no clean end")
        if victim.check_end(call):
            hold(not (daemon.folder / "s").exists(), "left its socket file behind")
        return hits
    return each_n(trial, call, run)


def ask_all(daemon, requests):
    for method, params in requests:
        daemon.ask(request(method, params), 0.3)  # many a reply gets lost


def serving(requests, **more):
    """A phase in which requests are served: it must be as able afterwards as before, and hold no more descriptors."""
    def phase(trial, call):
        capture = write_pcap(trial.folder / "x.pcap", udp_flows(50))
        chosen = [(m, {**p, "filename": str(capture)} if p and "filename" in p else p) for m, p in requests]
        port = {"tcp": free_port()} if more.get("tcp") else {}
        victim = Victim(trial, "-a", **port)
        held = {}

        def run(rule):
            daemon = victim.ready()
            if daemon.pid not in held:
                check_able(daemon, chosen)
                held[daemon.pid] = descriptors(daemon.child())
            victim.calls.arm(call, **rule)
            ask_all(daemon, chosen)
            hits = victim.calls.disarm()
            if victim.settle():
                check_able(daemon, chosen)
                now = held[daemon.pid]
                hold(eventually(lambda: descriptors(daemon.child()) <= now, 2), "holds more descriptors than before")
            else:
                victim.check_end(call)
            return hits
        return each_n(trial, call, run)
    return phase


def check_able(daemon, requests):
    """Whatever state a failure left, ordinary requests bring it back to work."""
    if daemon.call("status")["result"]["state"] == "not loaded":
        hold("result" in daemon.call("load"), "can't load any more")
    if daemon.call("status")["result"]["state"] == "deactivated":
        hold("result" in daemon.call(*ACTIVATE), "can't activate any more")
    for method, params in requests:
        reply = daemon.call(method, params)
        hold("result" in reply, f"{method} fails: {reply}")


def reload(trial, call):
    """From a crash until the next server answers; the evidence is looked at when the trial ends."""
    victim = Victim(trial, "-a", "--wd_reload")

    def run(rule):
        daemon = victim.start()
        first = daemon.child()
        daemon.writes_failed = call == "write"
        victim.calls.arm(call, **rule)
        daemon.signal(signal.SIGSEGV, first)
        hold(eventually(lambda: not daemon.running() or daemon.child() not in (first, daemon.pid), 20), "no reload")
        answers = victim.settle()
        hits = victim.calls.disarm()
        if answers:
            hold(daemon.end() == 0, "no clean end")
        victim.check_end(call)
        return hits
    return each_n(trial, call, run)


def stop(trial, call):
    victim = Victim(trial, "-a")

    def run(rule):
        daemon = victim.start()
        daemon.writes_failed = call == "write"
        victim.calls.arm(call, **rule)
        status = daemon.end()
        hits = victim.calls.disarm()
        hold(status == 0, f"ended with {status}")
        victim.check_end(call)
        hold(not (daemon.folder / "s").exists(), "left its socket file behind")
        return hits
    return each_n(trial, call, run)


ACTIVATE = ("activate", {"resources": {"max_flows": 16384}})
REQUESTS = [("status", None), ("log", {"type": "log", "maxlines": 5}), ("notifications", {"cmd": "log"}),
            ("collect", {"cmd": "ls"}), ("health", {"cmd": "show"}), ("cmds", None)]
RELOADING = [("deactivate", None), ("unload", None), ("load", None), ACTIVATE]
PUSHING = [("push_pcap", {"type": "filename", "filename": "", "reset": True})]

# phase: what it does, the calls that fail in it, and those of them that the short form tries too
PHASES = {
    "start": (start, "socket bind chmod setsockopt epoll_create1 epoll_ctl socketpair pipe2 fork open fopen fopen64 fdopen "
                     "write mkdir dlopen", "bind epoll_ctl fork open mkdir dlopen"),
    "requests": (serving(REQUESTS), "recvfrom sendto epoll_ctl epoll_wait open fopen fopen64 read write socket",
                 "recvfrom sendto epoll_ctl"),
    "requests over TCP": (serving(REQUESTS, tcp=True), "accept4 epoll_ctl recv send", "accept4 epoll_ctl"),
    "unload and load": (serving(RELOADING), "dlopen open fopen64 epoll_create1 epoll_ctl timerfd_create socket read write",
                        "dlopen epoll_ctl"),
    "push": (serving(PUSHING), "open open64 fdopen read epoll_ctl sendto", "open64"),
    "reload": (reload, "fork pipe2 open fopen write mkdir rename read socket bind epoll_ctl dlopen ppoll",
               "fork rename"),
    "stop": (stop, "open write epoll_ctl fopen read epoll_wait send", "open"),
}


def register():
    for phase, (run, calls, short) in PHASES.items():
        for call in calls.split():
            ERRORS.setdefault(call, errno.EIO)
            case(f"n-th {call} fails: {phase}", short=call in short.split())(functools.partial(run, call=call))


register()
