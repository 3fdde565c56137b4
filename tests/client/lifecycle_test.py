"""`wait` and `reload` against real daemons and engines, good ones and broken ones."""
import signal

from harness.case import OURS, SCRIPTED, SLAVE, DaemonTest
from harness.daemon import ENGINES
from harness.processes import eventually
from harness.program import Lacks, Program, ProgramChecks, brumectl, has, stdout_to_nobody

INERT = ENGINES / "inert"


class Wait(ProgramChecks, DaemonTest):
    def test_it_ends_when_it_is_so_and_follows_the_daemon_to_its_end(self):
        daemon = self.daemon(engine=INERT, ready=False)
        self.expect(["wait", "--timeout", "30"], 0, "not loaded\n", socket=daemon.path)
        with Program("wait", "--for", "activated", "--timeout", "30", socket=daemon.path) as activated, \
                Program("--json", "wait", "--for", "gone", "--timeout", "30", socket=daemon.path) as gone:
            daemon.result("load")
            daemon.result("activate", {"resources": {"max_flows": 1}})
            self.assertEqual((activated.wait(), activated.out()), (0, "activated\n"))
            daemon.end()
            self.assertEqual((gone.wait(), gone.out()), (0, '{"state":"gone"}\n'))

    def test_it_tells_what_it_saw_last_and_the_cause_that_the_log_has(self):
        daemon = self.daemon("-c", "nosuch.json")
        self.expect(["wait", "--for", "loaded", "--timeout", "2"], 4, "",
                    "brumectl: not loaded in time: the engine is not loaded; the last error in its log: "
                    "Failed to read config file: nosuch.json\n", socket=daemon.path)
        self.expect(["wait", "--timeout", "0.3"], 4, "", has("not answering in time: no daemon at /nosuch"),
                    socket="/nosuch")


class Reload(ProgramChecks, DaemonTest):
    def test_it_swaps_the_engine_with_what_it_was_told_and_goes_back_if_the_new_one_fails(self):
        daemon = self.daemon(engine=OURS, files={"script": "fail activate not today\n"})

        def back(state):
            return f"brumectl: the swap failed, the old engine runs: {state}\n"
        for words, status, out, *err in (
                (["reload"], 1, "", "brumectl: no engine is loaded that could be swapped\n"),
                (["load"], 0, "ok\n"),
                (["reload", ENGINES / "init_fails"], 1, has("failed: 100% broken"), back("deactivated")),
                (["activate", "--max_flows", "77"], 0, "ok\n"),
                (["collect", "enable", "flows"], 0, "ok\n"),
                (["reload"], 0, has("the new engine runs: activated\n")),
                (["--result", "collect", "show", "flows"], 0, has('"max":77,')),
                (["collect", "ls"], 0, has("yes")),
                (["reload", SCRIPTED], 1, has("activate: failed: not today\nunload: ok\n"), back("activated")),
                (["--result", "collect", "show", "flows"], 0, has('"max":77,')),
                (["reload", "/nosuch"], 1, Lacks("unload"), "brumectl: there is no libcvcp_u.so in /nosuch\n"),
                (["reload", "--dp_workers", "129"], 2, Lacks("unload"), has("'resources.dp_workers' ")),
                (["reload", INERT, "--json"], 0, has('{"engine":"new","state":"activated","steps":['))):
            self.expect(words, status, out, *err, socket=daemon.path)

    def test_it_attaches_again_or_does_nothing_where_only_a_restart_can(self):
        daemon = self.scripted("-a", "--attach", "if0")
        if SLAVE:
            self.expect(["reload"], 1, "", has("a daemon in slave mode can't attach if0 again"), socket=daemon.path)
            return
        self.expect(["reload"], 0, (has("attach if0: ok\n"), has("the new engine runs: activated (attached)\n")),
                    socket=daemon.path)
        daemon.script("fail deactivate stuck\n")
        self.expect(["reload"], 1, (has("deactivate: failed: stuck\nattach if0: ok\n"), Lacks("unload")),
                    has("the old engine runs: activated (attached)"), socket=daemon.path)

    def test_it_is_done_to_its_end_though_the_reader_or_the_user_is_gone_but_not_though_the_daemon_is(self):
        daemon = self.scripted("-a")
        status, _, _ = brumectl("reload", socket=daemon.path, setup=stdout_to_nobody)
        self.assertEqual(status, 128 + signal.SIGPIPE)
        self.assertEqual(daemon.result("status")["state"], "activated")
        first = len(daemon.engine_calls())
        daemon.script("delay deinit 500\n")
        with Program("reload", "--json", socket=daemon.path) as program:
            self.assertTrue(eventually(lambda: "deinit" in daemon.engine_calls()[first:]))
            self.assertEqual(program.end(signal.SIGINT), 128 + signal.SIGINT)
            self.assertIn('"engine":"new"', program.out())
        self.assertEqual(daemon.result("status")["state"], "activated")
        daemon.script("crash init abort\n")
        self.expect(["reload"], 3, has("/scripted: failed: no daemon at "),
                    has("Connection refused; 'wait' and 'evidence' tell what became of it\n"), socket=daemon.path)
