"""`check` and `run` on configurations, beside a real daemon that is asked the same."""
import json
import re

from harness.case import BARE_METAL, SLAVE, DaemonTest
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


# Parameters of each method; only they, or the engine's state, can be wrong. Of some, what is found.
REQUESTS = {
    "ping": [None, {"x": 1}],
    "echo": [{"message": "x"}, ({}, "error echo: 'message' is missing"), {"message": 5}],
    "cmds": [None], "status": [None], "unload": [None], "deactivate": [None],
    "mt": [(None, "error mt: is refused by every daemon")],
    "pong": [(None, "error 'pong' is no method (did you mean 'ping'?)")],
    "load": [None, {"path": None, "cpaddr": "x"}, ({"path": 5}, "error load: 'path' must be a string, not a number"),
             ({"pth": "x"}, "warning load: 'pth' is no parameter"), {"shm": 5}, {"shm": {}}, {"shm": {"type": "x"}},
             ({"shm": {"type": "auto", "size": "x"}}, "warning load: 'shm.size' is not read here"),
             devmem(), devmem(size=-1, addr="1f"), devmem(addr="10000000000000000"), devmem(addr=" +0x1F"),
             (devmem(addr="1fg"), "error load: 'shm.addr' must be a hexadecimal")],
    "activate": [ACTIVATE[1], None, {"resources": {}}, resources(writable_shm=1),
                 (resources(max_flows=2 ** 32), "error activate: 'resources.max_flows' must be from 0 to 4294967295"),
                 (resources(max_flows=1.5), "error activate: 'resources.max_flows' must be a whole number, not a fraction"),
                 (resources(dp_workers=None), "'resources.dp_workers' is refused by a daemon in slave mode" if SLAVE else ""),
                 resources(dp_workers=128), resources(dp_workers=129)],
    "attach": [({"intf": "if0"}, "error attach: is refused by a daemon in slave mode" if SLAVE else ""), {}],
    "detach": [{"intf": "if0"}],
    "push_pcap": [BUFFER, {**BUFFER, "ns_id": 2 ** 32}, {**BUFFER, "reset": 1}, {"type": "buffer", "buffer": "AAAA"},
                  ({"type": "buffer", "reset": True}, "error push_pcap: 'buffer' is missing with 'type' \"buffer\""),
                  {"type": "filename", "reset": True}],
    "coffee": [{"func": "f", "args": [1] * 8}, ({"func": "f", "args": [1] * 9}, "error coffee: 'args' can hold"),
               {"func": "f", "args": [None]}, ({"func": "f", "args": [1, -2]}, "error coffee: 'args[1]' must be from 0"),
               {"args": []}],
    "collect": [{"cmd": "ls"}, {"cmd": "enable"}, {"cmd": "set_interval", "component": "c", "interval": -1},
                {"cmd": "set_exporter"}, {"cmd": "set_exporter", "socket": {"type": "none"}},
                {"cmd": "set_exporter", "socket": {"type": "http", "server": "h", "port": 65536, "path": "/"}}],
    "health": [{"cmd": "show"}, {"cmd": "configure"}, {"cmd": "show", "verbose": 1}],
    "log": [{"type": "log", "maxlines": 1}, {"type": "log", "maxlines": -1}, {"type": "verbosity"},
            ({"type": "verbosity", "verbosity": {"cmd": "set"}}, "error log: 'verbosity.level' is missing"),
            *({"type": "verbosity", "verbosity": v} for v in ({"cmd": "set", "level": "x"}, {"cmd": "get"}))],
    "events": [{"type": "hog"}, {"type": "x"}],
    "notifications": [{"cmd": "log", "op": "clear"}, {"cmd": "log", "op": "add"}, {"cmd": "log", "sev": "info"},
                      {"cmd": "alerts", "sev": "info"}, {"cmd": "socket"},
                      ({"cmd": "alerts", "op": "ls"}, "'op' can only be one of \"show\", \"clear\" here"),
                      *({"cmd": "socket", "op": op} for op in ("show", "add", "ls"))],
}
ALL = [(method, *(variant if isinstance(variant, tuple) else (variant, "")))
       for method, variants in REQUESTS.items() for variant in variants]


def configuration(requests):
    """A request a line, from the second line on."""
    return "[\n" + ",\n".join(json.dumps({"jsonrpc": "2.0", "id": i, "method": method, "params": (*params, None)[0]})
                              for i, (method, *params) in enumerate(requests)) + "]"


PING = '{"jsonrpc":"2.0","id":1,"method":"ping"}'
UNLOADED = '{"jsonrpc":"2.0","id":2,"method":"extender.hello"}'
LOADED = '{"jsonrpc":"2.0","id":1,"method":"load"},' + UNLOADED
# What is found in a text, and where.
TEXTS = (
    ("", f"// a comment\n[{PING}] /* and\n another */ // one"),
    ("2:8 error Syntax error", '[\n {"a": tru}]'),
    ("1:1 error ", ""),
    ("1:1 error Values are nested too deeply", "[" * 100000),
    ("1:1 error a configuration is an array", "{}"),
    ("1:1 warning no requests\n1:4 warning ignored", "[] []"),
    ("1:2 error a request is an object", "[null]"),
    (f"1:{len(PING) + 5} error a request", f"[[{PING}, 5]]"),
    ("2:14 error 'jsonrpc'", '[\n  {"jsonrpc":"1.0","id":1,"method":"ping"}]'),
    ("1:2 error 'method' is missing", '[{"jsonrpc":"2.0","id":1}]'),
    ("1:28 warning 'parms' is no member of a request, the daemon ignores it (did you mean 'params'?)",
     '[{"jsonrpc":"2.0","id":"é","parms":{},"method":"ping"}]'),
    ("1:2 warning without an 'id'", '[{"jsonrpc":"2.0","method":"ping"}]'),
    ("1:35 error 'extender.hello' is no method", f"[{UNLOADED}]"),
    (f"1:{len(LOADED) - 15} warning 'extender.hello' is no method of the daemon", f"[{LOADED}]"),
    ("1:35 error echo: 'params' must be an object; anything else stops the daemon",
     '[{"jsonrpc":"2.0","id":1,"params":[5],"method":"echo"}]'),
    ("2:23 warning another request has the id 1", f'[{PING},\n{{"jsonrpc":"2.0","id":1,"method":"status"}}]'),
)
# The only request with a finding, counted from 1, and the finding. The daemon has no engine at first.
ORDERS = (
    (0, "", "load activate attach push_pcap deactivate unload unload load"),
    (2, "is activated or activated (attached); by then it is deactivated", "load push_pcap activate"),
    (1, "needs an engine that is deactivated; by then it is not loaded", "activate push_pcap"),
    (3, "is not loaded; by then it is activated", "load activate load push_pcap"),
    (3, "is deactivated; by then it is activated", "load activate activate"),
    (4, "not loaded or deactivated; by then it is activated (attached)", "load activate attach unload load"),
    (1, "by then it is not loaded", "health load"),
    (2, "a 'shutdown' stands before this", "shutdown ping"),
    (0, "", "ping shutdown"),
)


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

    def findings(self, texts, *options):
        """For each text the findings, as lines of LINE:COLUMN SEVERITY TEXT."""
        if BARE_METAL:
            self.skipTest("engines are loaded without shared memory")
        files = [self.write(f"{i}.json", text) for i, text in enumerate(texts)]
        found = {str(file): "" for file in files}
        for row in json.loads(brumectl("--json", "check", *options, *files, socket="/nonexistent")[1]):
            found[row["file"]] += "{line}:{column} {severity} {text}\n".format(**row)
        return found.values()

    def test_calls_an_error_what_the_daemon_refuses(self):
        """The daemon, the rules in the method table and what reads them can only change together."""
        for state, before in BEFORE.items():
            found = self.findings(configuration([*before, request]) for *request, _ in ALL)
            daemon = self.daemon_in(state)
            for text, (method, params, expected) in zip(found, ALL):
                self.assertIn(expected, text)
                reply = daemon.call(method, params)
                error = re.search(rf"^{len(before) + 2}:\d+ error ", text, re.M)
                self.assertEqual(error is not None, "error" in reply, f"{state}: {method} {params} {reply}")
                if daemon.result("status")["state"] != state:
                    daemon = self.daemon_in(state)

    def test_finds_what_is_wrong_and_where(self):
        for (expected, text), found in zip(TEXTS, self.findings(text for _, text in TEXTS)):
            self.assertTrue(found.startswith(expected) if expected else not found, f"{expected}: {found}{text[:1000]}")

    def test_finds_what_the_engines_state_refuses_once_for_each_slip(self):
        good = {"activate": ACTIVATE[1:], "attach": [{"intf": "if0"}], "push_pcap": [BUFFER], "health": [{"cmd": "show"}]}
        sequences = [[(method, *good.get(method, [])) for method in methods.split()] for *_, methods in ORDERS]
        for order, found in zip(ORDERS, self.findings(map(configuration, sequences), "--standalone")):
            line, text, _ = order
            self.assertRegex(found, rf"\A{line + 1}:.*{re.escape(text)}.*\n\Z" if line else r"\A\Z", order)

    def test_has_nothing_against_the_examples_that_succeed(self):
        requests = [(example.get("x-states", ["not loaded"])[0], method["name"],
                     {param["name"]: param["value"] for param in example["params"]})
                    for method in json.loads(brumectl("schema", socket="/nonexistent")[1])["methods"]
                    for example in method["examples"] if "x-error" not in example]
        self.assertGreater(len(requests), 20)
        for found, request in zip(self.findings(configuration([*BEFORE[state], request])
                                                for state, *request in requests), requests):
            self.assertEqual(found, "", request)

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
                (("run", good), 1, ANY, has("nothing was sent")),
                (("run", "--force", good), 1, has("already loaded"), ANY)):
            self.expect(words, *outcome, socket=daemon.path)
