"""`check` and `run` on configurations, beside a real daemon that is asked the same."""
import json

from harness.case import BARE_METAL, SCRIPTED, SLAVE, DaemonTest
from harness.daemon import ENGINES
from harness.program import ANY, Lacks, ProgramChecks, brumectl, has

BUFFER = {"type": "buffer", "reset": True,
          "buffer": "AgAAAAACAgAAAAABCABFAAAoAAEAAEAGZs0KAAABCgAAAgPoAFAAAAABAAAAAFAC//+XpwAA"}
ACTIVATE = ("activate", {"resources": {"max_flows": 10.0}})
BEFORE = {"not loaded": [], "deactivated": [("load",)], "activated": [("load",), ACTIVATE],
          "activated (attached)": [("load",), ACTIVATE, *([] if SLAVE else [("attach", {"intf": "if0"})])]}


def resources(**more):
    return {"resources": {"max_flows": 1, **more}}


def devmem(**more):
    return {"shm": {"type": "devmem", "size": 1, **more}}


# Parameters of each method; only they, or the engine's state, can be wrong.
REQUESTS = {
    "ping": [None, {"x": 1}],
    "echo": [{"message": "x"}, {}, {"message": 5}],
    "cmds": [None], "status": [None], "mt": [None], "unload": [None], "deactivate": [None], "pong": [None],
    "load": [None, {"path": None, "cpaddr": "x"}, {"path": 5}, {"shm": 5}, {"shm": {}}, {"shm": {"type": "x"}}, devmem(),
             devmem(size=-1, addr="1f"), devmem(addr="1fg"), devmem(addr="10000000000000000"), devmem(addr=" +0x1F")],
    "activate": [ACTIVATE[1], resources(max_flows=2 ** 32), resources(max_flows=1.5), resources(writable_shm=1),
                 resources(dp_workers=None), resources(dp_workers=128), resources(dp_workers=129), {"resources": {}}, None],
    "attach": [{"intf": "if0"}, {}],
    "detach": [{"intf": "if0"}],
    "push_pcap": [BUFFER, {**BUFFER, "ns_id": 2 ** 32}, {**BUFFER, "reset": 1}, {"type": "buffer", "reset": True},
                  {"type": "buffer", "buffer": "AAAA"}, {"type": "filename", "reset": True}],
    "coffee": [{"func": "f", "args": [1] * 8}, {"func": "f", "args": [1] * 9}, {"func": "f", "args": [None]},
               {"func": "f", "args": [-1]}, {"args": []}],
    "collect": [{"cmd": "ls"}, {"cmd": "enable"}, {"cmd": "set_interval", "component": "c", "interval": -1},
                {"cmd": "set_exporter"}, {"cmd": "set_exporter", "socket": {"type": "none"}},
                {"cmd": "set_exporter", "socket": {"type": "http", "server": "h", "port": 65536, "path": "/"}}],
    "health": [{"cmd": "show"}, {"cmd": "configure"}, {"cmd": "show", "verbose": 1}],
    "log": [{"type": "log", "maxlines": 1}, {"type": "log", "maxlines": -1}, {"type": "verbosity"},
            *({"type": "verbosity", "verbosity": v} for v in ({"cmd": "set"}, {"cmd": "set", "level": "x"}, {"cmd": "get"}))],
    "events": [{"type": "hog"}, {"type": "x"}],
    "notifications": [{"cmd": "log", "op": "clear"}, {"cmd": "log", "op": "add"}, {"cmd": "log", "sev": "info"},
                      {"cmd": "alerts", "sev": "info"}, {"cmd": "alerts", "op": "ls"}, {"cmd": "socket"},
                      *({"cmd": "socket", "op": op} for op in ("show", "add", "ls"))],
}
ALL = [(method, params) for method, variants in REQUESTS.items() for params in variants]


def configuration(requests):
    """A line each, from the second on."""
    return "[\n" + ",\n".join(json.dumps({"jsonrpc": "2.0", "id": i, "method": method, "params": dict(*params) or None})
                              for i, (method, *params) in enumerate(requests)) + "]"


class Check(ProgramChecks, DaemonTest):
    def write(self, name, text):
        path = self.folder / name
        path.write_text(text)
        return path

    def daemon_in(self, state):
        attached = ("-a", "--attach", "if0") if state == "activated (attached)" else ()
        daemon = self.scripted(*attached, script="class push_pkts 7 HTTP\n")
        for method, *params in [] if attached else BEFORE[state]:
            daemon.result(method, *params)
        return daemon

    def test_calls_an_error_what_the_daemon_refuses(self):
        """A change of the daemon, of the rules in the method table or of what reads them: none goes alone."""
        if BARE_METAL:
            self.skipTest("engines are loaded without shared memory")
        for state, before in BEFORE.items():
            files = [self.write(f"{i}.json", configuration([*before, (method, params or {})]))
                     for i, (method, params) in enumerate(ALL)]
            found = json.loads(brumectl("--json", "check", *files, socket="/nonexistent")[1])
            errors = {row["file"] for row in found if row["severity"] == "error" and row["line"] == len(before) + 2}
            daemon = self.daemon_in(state)
            for file, (method, params) in zip(files, ALL):
                reply = daemon.call(method, params)
                self.assertEqual(str(file) in errors, "error" in reply, f"{state}: {method} {params} {reply}")
                if daemon.result("status")["state"] != state:
                    daemon = self.daemon_in(state)

    def test_files_are_told_apart_and_the_status_is_what_was_found(self):
        odd = '[{"jsonrpc":"2.0","method":"ping"}]'
        clean, odd_file = self.write("clean", configuration([("ping",)])), self.write("odd", odd)
        packaged = has("daemon in slave mode, as the one packaged" if SLAVE else "standalone daemon, as the one packaged")
        for words, *outcome in (
                ((clean, odd_file), 0, has(f"{odd_file}:1:2: warning: "), ANY if BARE_METAL else packaged),
                ((clean, "--standalone"), 0, "", "Judged for a standalone daemon, as the option says.\n"),
                ((clean, "--slave-mode"), 0, "", has("daemon in slave mode, as the option")),
                ((clean, "--slave-mode", "--standalone"), 2, "", ANY),
                (("--strict", clean, "-"), 1, has("<stdin>:1:2: warning: "), ANY),
                ((clean, self.folder / "none"), 1, ANY, has(str(self.folder / "none"))),
                ((), 2, "", ANY)):
            self.expect(["check", *words], *outcome, socket="/nonexistent", input=odd)
        self.assertEqual(json.loads(brumectl("--json", "check", odd_file)[1])[0]["column"], 2)

    def test_a_run_ends_at_the_first_request_that_fails(self):
        daemon = self.daemon(engine=ENGINES / "inert")
        bad = self.write("bad", configuration([("load", {"path": "/nosuch"}), ("status",)]))
        wrong = self.write("list", configuration([("ping", {"x": 1}), ("status",)]).replace('{"x": 1}', "[1]"))
        good = self.write("good", configuration(BEFORE["activated"]))
        stopped, went_on = has("[1/2] load: failed: path '/nosuch' is not"), has("[2/2] status: ok")
        for words, *outcome in (
                (("run", bad), 1, (stopped, Lacks("[2/2]")), ANY),
                (("run", "--keep-going", bad), 1, (stopped, went_on), ANY),
                (("run", "--force", "--keep-going", wrong), 1, (has("[1/2] ping: failed: params"), went_on), ANY),
                (("--json", "run", bad), 1, has('"error":{"code":-32000,'), ANY),
                (("--json", "run", bad, "-k"), 1, has('"id":1,"jsonrpc"'), ANY),
                (("run", good), 0, ANY, ""),
                (("status",), 0, has("state:          activated"), ""),
                (("run", good), 1, ANY, has("nothing was sent")),  # refused before anything is sent
                (("run", "--force", good), 1, has("already loaded"), ANY)):
            self.expect(words, *outcome, socket=daemon.path)
