"""An engine that misbehaves in each of its functions, in each way that one can think of."""
import base64
import concurrent.futures
import json
import pathlib
import time

from harness.daemon import SCRIPTED
from harness.processes import children, eventually, state_of
from trial import case, hold, LINE

TEXT = b"100%s%n%d \x1b[2Jengine "
HOSTILE = TEXT + b'\xff\xfe "quoted\\'

LOAD = ("load", {"path": str(SCRIPTED)})
ACTIVE = [LOAD, ("activate", {"resources": {"max_flows": 10}})]
FRAME = base64.b64encode(bytes.fromhex("ffffffffffff0000000000010800450000210001000040117cc97f0000017f000001"
                                       "00350035000d000068656c6c6f")).decode()

ATTACH_AT_START = ("-a", "--attach", "lo")

# What makes the daemon call each function: requests, the last of which does.
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
# A failure of these is logged and goes to nobody.
UNHEARD = {"tick", "intf_detach"}

# What the engine is told to do: a line of its script, without the function's name behind the first word.
LINES = {"fail": b"fail " + HOSTILE, "fail_long": b"fail " + b"%" * 200000, "throw": b"crash throw " + HOSTILE,
         "throw_number": b"crash throw_int", "nonsense": b"nonsense", "crash": b"crash null", "exit": b"crash leave 3",
         "exit_0": b"crash leave 0",
         **{deed: b"crash " + deed.encode() for deed in ("leak", "greed", "flood", "close_std", "abort", "hang", "close")}}

# The functions that give something back.
TELLING = ["tick", "get_evfd", "push_pkts", "coffee", "get_version", "get_dps", "intf_get", "intf_attach", "intf_detach",
           "get_collectors", "collector_get_sample", "health_get", "health_conf_get"]


class Run:
    """One deed in one function of a daemon's own engine."""

    def __init__(self, trial, deed, function):
        self.deed, self.function = deed, function
        self.at_start = function.startswith("intf_") and function != "intf_get"
        self.calls = CALLS[function]
        args = ["--wd_reload", *(ATTACH_AT_START if self.at_start else ())]
        if deed == "hang":
            args += ["--wd_hog_timeout", "500", "--wd_kill_timeout", "1500"]
        self.daemon = trial.daemon(*args, ready=False, engine=SCRIPTED, env={"TEST_ENGINE_SCRIPT": "../script"},
                                   before=self.write_script)
        self.daemon.check_log = self.check_log
        self.folder = self.daemon.folder
        self.reply = None

    def write_script(self, folder):
        """The engine takes it away when it does the deed, so that it does so once."""
        self.mark = folder / "script"
        verb, _, rest = LINES[self.deed].partition(b" ")
        name = self.function.encode()
        self.mark.write_bytes(b"once %b\n%b %b %b\n" % (name, verb, name, rest))

    def done(self):
        return not self.mark.exists()

    def provoke(self):
        """Up to the deed; before that everything must work."""
        if self.function == "intf_attach":
            hold(eventually(self.done), "it was never called")
            return
        hold(self.daemon.alive(20), "no answer after the start")
        self.child = self.daemon.child()
        if self.deed == "hang":
            time.sleep(1)  # nobody is judged before his first heartbeat
        for method, params in self.calls[:-1]:
            hold("result" in (self.daemon.call(method, params) or {}), f"{method} failed before the deed")
        self.reply = self.daemon.call(*self.calls[-1], seconds=3)
        hold(eventually(self.done), "it was never called")

    # --- what is expected
    def refused(self):
        """Whoever asked hears why; nothing else has happened."""
        if self.function == "intf_attach":
            return self.stopped()
        if self.function not in UNHEARD and not (self.deed == "fail_long" and self.reply is None):
            text = json.dumps((self.reply or {}).get("error", {}).get("specific_err"))
            expected = {"throw_number": "unknown type", "fail_long": "%%%"}.get(self.deed, json.dumps(TEXT.decode())[1:-1])
            hold(expected in text, f"no refusal: {str(self.reply)[:200]}")
        self.same()

    def same(self):
        """The same child answers, and can be asked to do everything again."""
        hold(self.daemon.alive(), "no answer")
        if self.function != "intf_attach":
            hold(self.daemon.child() == self.child, "the child was replaced")
        state = self.daemon.call("status")
        hold(state and "result" in state, f"no status: {str(state)[:200]}")

    def stuck(self):
        """Before its first heartbeat a child may take as long as it likes; a stop still ends it."""
        time.sleep(3)  # longer than all time-outs
        hold(self.daemon.running() and self.daemon.call("ping", seconds=0.5) is None, "it answers")

    def reloaded(self):
        """Another child answers, and the first one's end has left its traces."""
        if self.deed == "hang" and self.function == "intf_attach":
            return self.stuck()
        hold(self.daemon.alive(20), "no answer after the reload")
        if self.function != "intf_attach":
            hold(state_of(self.child) is None, "the old child is there")
        log = self.daemon.log.read_bytes()
        hold(b"PROCESS TERMINATION OCCURRED" in self.evidence() + log, "no word of the end")
        if self.deed in ("crash", "abort", "hang"):
            hold(b'"backtrace"' in self.evidence("cvdump.json"), "no report of the signal")
        for method, params in self.calls:
            hold(self.daemon.call(method, params), f"{method} isn't answered after the reload")

    def evidence(self, name="log"):
        return b"".join(p.read_bytes() for p in self.folder.glob(f"cvevents/*/{name}"))

    def stopped(self):
        """The server ended itself in order, and the parent with it."""
        hold(eventually(lambda: not self.daemon.running(), 20), "it still runs")
        hold(self.daemon.process.returncode == 0, f"status {self.daemon.process.returncode}")

    def deaf(self):
        """What it does next may need a descriptor that is gone; then it stops in order. Else nobody can be heard any more, but
        that costs nothing, and it can be stopped."""
        before = self.spent(), self.written()
        time.sleep(1)
        if not self.daemon.running():
            hold(b"CP shutdown - cause: " in self.daemon.said(), "ended without telling a cause")
            return self.stopped()
        hold(self.daemon.child() != self.daemon.pid, "no child")
        hold(self.spent() - before[0] <= 30, f"{self.spent() - before[0]} % of a processor")
        hold(self.written() - before[1] < 100000, f"{self.written() - before[1]} bytes of log in a second")

    def written(self):
        return self.daemon.log.stat().st_size + len(self.daemon.said())

    def spent(self):
        """Processor time of the child, in hundredths of a second."""
        below = children(self.daemon.pid)
        fields = [pathlib.Path(f"/proc/{p}/stat").read_text().rpartition(")")[2].split() for p in below]
        return sum(int(f[11]) + int(f[12]) for f in fields)

    def check_log(self):
        """Lines of ours are whole; what the engine printed or said stands between them as it came."""
        text = self.daemon.log.read_bytes()
        for line in text.split(b"\n")[:-1]:
            hold(LINE.match(line) or b"engine" in line or b"#" in line or b" in " in line or not line.startswith(b"["),
                 f"a malformed log line: {line[:120]!r}")

    def finish(self):
        if self.daemon.running():
            hold(self.daemon.end() == 0, "no clean end")
        self.daemon.check_all()


DEEDS = {
    "fail": ("refused with the engine's words", Run.refused),
    "fail_long": ("refused", Run.refused),
    "throw": ("refused with the exception's words", Run.refused),
    "throw_number": ("refused", Run.refused),
    "nonsense": ("answered", Run.same),
    "leak": ("answered", Run.same),
    "greed": ("answered with no descriptor left", Run.same),
    "flood": ("answered", Run.same),
    "close_std": ("answered", Run.same),
    "crash": ("reloaded, reported", Run.reloaded),
    "abort": ("reloaded, reported", Run.reloaded),
    "hang": ("aborted by the watchdog, reloaded, reported", Run.reloaded),
    "exit": ("reloaded", Run.reloaded),
    "exit_0": ("stopped, as an orderly end is", Run.stopped),
    "close": ("stopped in order, or deaf, calm, stoppable", Run.deaf),
}


def one_run(trial, deed, function):
    try:
        run = Run(trial, deed, function)
        run.provoke()
        DEEDS[deed][1](run)
        run.finish()
        return None
    except Exception as e:  # one of many: told with its name, after the others
        return f"{function}: {e}"


def register(index, deed, outcome):
    @case(f"an engine that does '{deed}' in each of its functions")
    def mischief(trial):
        functions = TELLING if deed == "nonsense" else list(CALLS)
        functions = functions[index % 7::7] if trial.short else functions
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            faults = [f for f in pool.map(lambda f: one_run(trial, deed, f), functions) if f]
        hold(not faults, "; ".join(faults))
        return f"{len(functions)} functions: {outcome}"


for number, (name, (result, _)) in enumerate(DEEDS.items()):
    register(number, name, result)
