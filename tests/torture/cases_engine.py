"""An engine that misbehaves in each of its functions, in every way that we could think of."""
import base64
import concurrent.futures
import json
import time

from harness.daemon import SCRIPTED
from harness.frames import udp
from harness.processes import children, eventually, stat_of, state_of
from trial import case, hold

TEXT = b"100%s%n%d \x1b[2Jengine "
HOSTILE = TEXT + b'\xff\xfe "quoted\\'

LOAD = ("load", {"path": str(SCRIPTED)})
ACTIVE = [LOAD, ("activate", {"resources": {"max_flows": 10}})]
FRAME = base64.b64encode(udp(b"hello")).decode()

# Requests for each function; the last one makes the daemon call it.
CALLS = {
    "init": [LOAD],
    "get_evfd": [LOAD],
    "tick": [LOAD],
    "deinit": [LOAD, ("unload", None)],
    "activate": ACTIVE,
    "deactivate": [*ACTIVE, ("deactivate", None)],
    "push_pkts": [*ACTIVE, ("push_pcap", {"type": "buffer", "buffer": FRAME, "reset": False, "extended": True})],
    "coffee": [LOAD, ("coffee", {"func": "brew"})],
    "get_version": ACTIVE,
    "get_dps": [*ACTIVE, ("status", None)],
    "intf_get": [*ACTIVE, ("status", None)],
    "intf_attach": [],
    "intf_detach": [("deactivate", None)],
    "collector_enable": [LOAD, ("collect", {"cmd": "enable", "component": "c"})],
    "collector_disable": [LOAD, ("collect", {"cmd": "disable", "component": "c"})],
    "collector_set_interval": [LOAD, ("collect", {"cmd": "set_interval", "component": "c", "interval": 1})],
    "collector_get_sample": [LOAD, ("collect", {"cmd": "show", "component": "c"})],
    "get_collectors": [LOAD, ("collect", {"cmd": "ls"})],
    "collect_set_exporter": [LOAD, ("collect", {"cmd": "set_exporter", "socket": {"type": "none"}})],
    "health_get": [LOAD, ("health", {"cmd": "show"})],
    "health_conf_get": [LOAD, ("health", {"cmd": "get_config"})],
    "health_conf_set": [LOAD, ("health", {"cmd": "configure", "json": {}})],
}
# A failure of these is only logged.
UNHEARD = {"tick", "intf_detach"}

# The functions that return something.
TELLING = ["tick", "get_evfd", "push_pkts", "coffee", "get_version", "get_dps", "intf_get", "intf_attach", "intf_detach",
           "get_collectors", "collector_get_sample", "health_get", "health_conf_get"]


class Run:
    """One deed in one function of a daemon's own engine."""

    def __init__(self, trial, deed, function):
        self.deed, self.function, self.calls = deed, function, CALLS[function]
        args = ["--wd_reload"]
        if function in ("intf_attach", "intf_detach"):
            args += ["-a", "--attach", "lo"]
        if deed == "hang":
            args += ["--wd_hog_timeout", "500", "--wd_kill_timeout", "1500"]
        verb, _, rest = DEEDS[deed][0].partition(b" ")
        name = function.encode()
        # "once": the engine removes its script when it does the deed, so that it does so once.
        self.daemon = trial.daemon(*args, ready=False, engine=SCRIPTED,
                                   files={"script": b"once %b\n%b %b %b\n" % (name, verb, name, rest)})
        self.daemon.broken_lines = (b"break",)  # from the names that nonsense gives
        self.reply = None

    def provoke(self):
        """Up to the deed; before that everything must work."""
        if self.function != "intf_attach":
            hold(self.daemon.alive(20), "no answer after the start")
            self.child = self.daemon.child()
            if self.deed == "hang":
                time.sleep(1)  # nobody is judged before the first heartbeat
            for method, params in self.calls[:-1]:
                self.daemon.result(method, params)
            self.reply = self.daemon.call(*self.calls[-1], seconds=3)
        hold(eventually(lambda: not (self.daemon.cwd / "script").exists()), "it was never called")

    # --- what is expected
    def refused(self):
        """Whoever asked hears why; nothing else has happened."""
        if self.function == "intf_attach":
            return self.stopped()
        # A refusal this long may not fit into a reply.
        if self.function not in UNHEARD and not (self.deed == "fail_long" and self.reply is None):
            text = json.dumps((self.reply or {}).get("error", {}).get("specific_err"))
            expected = {"throw_number": "unknown type", "fail_long": "%%%"}.get(self.deed, json.dumps(TEXT.decode())[1:-1])
            hold(expected in text, f"no refusal: {str(self.reply)[:200]}")
        self.same()

    def same(self):
        """The same child goes on, and can be asked for everything again."""
        hold(self.daemon.alive(), "no answer")
        if self.function != "intf_attach":
            hold(self.daemon.child() == self.child, "the child was replaced")
        self.daemon.result("status")

    def stuck(self):
        """Until its first heartbeat a child may take as long as it likes; a stop still ends it."""
        time.sleep(3)  # longer than all time-outs
        hold(self.daemon.running() and self.daemon.call("ping", seconds=0.5) is None, "it answers")

    def reloaded(self):
        """Another child answers, and the first one's end has left its traces."""
        if self.deed == "hang" and self.function == "intf_attach":
            return self.stuck()
        hold(self.daemon.alive(20), "no answer after the reload")
        if self.function != "intf_attach":
            hold(state_of(self.child) is None, "the old child is there")
        hold("PROCESS TERMINATION OCCURRED" in self.evidence("log") + self.daemon.told(), "no word of the end")
        if self.deed in ("crash", "abort", "hang"):
            hold('"backtrace"' in self.evidence("cvdump.json"), "no report of the signal")
        for method, params in self.calls:
            hold(self.daemon.call(method, params), f"{method} isn't answered after the reload")

    def evidence(self, name):
        return "".join(path.read_text(errors="replace") for folder in self.daemon.evidence() for path in folder.glob(name))

    def stopped(self):
        """The server ended itself in order, and the parent with it."""
        hold(eventually(lambda: not self.daemon.running(), 20), "it still runs")
        hold(self.daemon.process.returncode == 0, f"status {self.daemon.process.returncode}")

    def deaf(self):
        """If its next step needs a descriptor that is gone, it stops in order. Else it hears nobody any more, but is
        idle and can be stopped."""
        spent, written = self.spent(), len(self.daemon.told())
        time.sleep(1)
        if not self.daemon.running():
            hold("CP shutdown - cause: " in self.daemon.told(), "ended without telling a cause")
            return self.stopped()
        hold(self.daemon.child() != self.daemon.pid, "no child")
        hold(self.spent() - spent <= 30, f"{self.spent() - spent} % of a processor")
        hold(len(self.daemon.told()) - written < 100000, "100 KB of log in a second")

    def spent(self):
        """Processor time of the child, in hundredths of a second."""
        return sum(int(ticks) for p in children(self.daemon.pid) for ticks in stat_of(p)[11:13])


# The line of the engine's script, without the function's name after the first word; what follows; how it is checked.
DEEDS = {
    "fail": (b"fail " + HOSTILE, "refused with the engine's words", Run.refused),
    "fail_long": (b"fail " + b"%" * 200000, "refused", Run.refused),
    "throw": (b"crash throw " + HOSTILE, "refused with the exception's words", Run.refused),
    "throw_number": (b"crash throw_int", "refused", Run.refused),
    "nonsense": (b"nonsense", "answered", Run.same),
    "leak": (b"crash leak", "answered", Run.same),
    "greed": (b"crash greed", "answered with no descriptor left", Run.same),
    "flood": (b"crash flood", "answered", Run.same),
    "close_std": (b"crash close_std", "answered", Run.same),
    "crash": (b"crash null", "reloaded, reported", Run.reloaded),
    "abort": (b"crash abort", "reloaded, reported", Run.reloaded),
    "hang": (b"crash hang", "aborted by the watchdog, reloaded, reported", Run.reloaded),
    "exit": (b"crash leave 3", "reloaded", Run.reloaded),
    "exit_0": (b"crash leave 0", "stopped, as an orderly end is", Run.stopped),
    "close": (b"crash close", "stopped in order, or deaf, calm, stoppable", Run.deaf),
}


def one_run(trial, deed, function):
    try:
        run = Run(trial, deed, function)
        run.provoke()
        DEEDS[deed][2](run)
        if run.daemon.running():
            run.daemon.hold_clean_end()
        run.daemon.check_all()
        return None
    except Exception as e:  # one of many: reported with its function, after the others
        return f"{function}: {e}"


def mischief(trial, index, deed):
    functions = TELLING if deed == "nonsense" else list(CALLS)
    functions = functions[index % 7::7] if trial.short else functions
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        faults = [f for f in pool.map(lambda f: one_run(trial, deed, f), functions) if f]
    hold(not faults, "; ".join(faults))
    return f"{len(functions)} functions: {DEEDS[deed][1]}"


for number, name in enumerate(DEEDS):
    case(f"an engine that does '{name}' in each of its functions", number, name)(mischief)
