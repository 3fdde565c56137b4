"""`brumectl flows`: live flows of the real daemon with our engine."""
import csv
import io
import json
import signal

from harness import frames
from harness.case import OURS, DaemonTest, load_params
from harness.processes import eventually
from harness.program import ANY, Program, ProgramChecks, brumectl, has, starts


class Flows(ProgramChecks, DaemonTest):
    def setUp(self):
        super().setUp()
        self.it = self.daemon("-a", engine=OURS)

    def push(self, name, content=None, ns=0):
        path = self.captures / f"{name}.pcap"
        if content:
            frames.write_pcap(path, content)
        self.it.result("push_pcap", {"type": "filename", "filename": str(path), "reset": False, "ns_id": ns})

    def listed(self, *words):
        status, out, err = brumectl("--json", "flows", *words, socket=self.it.path)
        self.assertEqual((status, err), (0, ""))
        # Their times are those of the engine's clock, told by another, and so differ by a millisecond from list to list.
        return [{k: v for k, v in json.loads(line).items() if not k.endswith("_seen")} for line in out.splitlines()]

    def test_flows_are_filtered_and_sorted_by_engine_and_client_together(self):
        def fresh():
            """Pushed again each time, since closed flows age in seconds. That in the name space is the youngest."""
            for name, ns in (("sample", 0), ("dns", 7)):
                self.push(name, ns=ns)
            return self.listed()

        def is_of(name):
            return lambda f: any(f.get(m, "").endswith(name) for m in ("sni", "host"))

        for words, wanted in (
                (["--protocol", "dns"], lambda f: f["protocol"] == "DNS"),
                (["--port", "80"], lambda f: f.get("server_port") == 80),
                (["--host", "10.1.0.9"], lambda f: f["client"] == "10.1.0.9"), (["--ns", "7"], lambda f: f["ns_id"] == 7),
                (["--host", "10.1.0.8/31"], lambda f: f["client"] == "10.1.0.9"),
                (["--host", "FD00:1::/32"], lambda f: ":" in f["client"]), (["--host", "::/0"], lambda f: ":" in f["client"]),
                (["--host", "EXAMPLE.net"], is_of("example.net")), (["--host", "ample.net"], is_of("\0")),
                (["--min-bytes", "600", "--max-bytes", "1K"], lambda f: 600 <= f["bytes"] <= 1024),
                (["--max-age", "600"], lambda f: True), (["--min-age", "600"], lambda f: False)):
            with self.subTest(words):
                everything = fresh()
                self.assertEqual(self.listed(*words), [f for f in everything if wanted(f)])
        for order, key in (("bytes", lambda f: -f["bytes"]), ("packets", lambda f: -f["packets"]),
                           ("age", lambda f: f["ns_id"]), ("idle", lambda f: f["ns_id"]),
                           ("protocol", lambda f: f["protocol"]), ("name", lambda f: f.get("sni", f.get("host", "~")))):
            with self.subTest(order):
                self.assertEqual(len(fresh()), 17)
                there, back = ([key(f) for f in self.listed("--sort", order, *more)] for more in ([], ["-r"]))
                self.assertEqual((len(there), there, back), (17, sorted(there), sorted(back, reverse=True)))

    def test_people_and_programs_get_their_own_lines(self):
        self.expect(["flows"], 0, "No flows.\n", socket=self.it.path)
        self.push("http")
        self.expect(["flows"], 0, (starts("CLIENT"), has("10.1.0.2:40002        -> 10.2.0.80:80           tcp   HTTP  "),
                                   has("751 B  www.example.net\n")), socket=self.it.path)
        for line, found in (("--protocol H", "HTTP\t1 flow\n"), ("--host=10.2", "--host=10.2.0.80\t1 flow\n")):
            self.expect(["complete", f"--line=brumectl flows {line}"], 0, found, socket=self.it.path)
        row, = csv.DictReader(io.StringIO(brumectl("flows", "--csv", socket=self.it.path)[1]))
        self.assertEqual((row["server_port"], row["host"], row["packets"]), ("80", "www.example.net", "10"))
        out = brumectl("flows", socket=self.it.path, terminal=True)[1]
        self.assertEqual([len(line) <= 80 + len("\x1b[1m\x1b[0m") for line in out.splitlines()], [True] * 2, out)
        self.assertIn("\x1b[1mCLIENT", out)

    def test_a_list_of_many_pages_is_whole(self):
        self.push("many", frames.udp_flows(2500))
        for words, count in (([], 2500), (["-r"], 2500), (["--sort", "client"], 2500), (["-n", "1700"], 1700),
                             (["--sort", "client", "-n", "1700"], 1700)):
            with self.subTest(words):
                self.assertEqual(len({f["client_port"] for f in self.listed(*words)}), count)
        self.assertEqual([f["client_port"] for f in self.listed("--sort", "client", "-n", "1700")],
                         sorted(range(1024, 3524), key=str)[:1700])

    def test_what_comes_and_goes_is_marked_and_a_lost_daemon_waited_for(self):
        self.push("dns")
        with Program("flows", "-f", "-d", "0.1", socket=self.it.path) as text, \
                Program("--json", "flows", "-f", "-d", "0.1", "--protocol", "http", socket=self.it.path) as lines:
            self.assertTrue(text.wait_for_out("1 flow, 0 new, 0 ended\n  CLIENT"))
            self.push("http")
            self.assertTrue(text.wait_for_out("2 flows, 1 new, 0 ended\n  CLIENT"))
            self.assertTrue(text.wait_for_out("\n+ 10.1.0.2:40002 "))
            self.assertTrue(lines.wait_for_out('"change":"stays",'))
            self.it.result("coffee", {"func": "dp.ft.sui_ft_kill_all_flows"})
            self.assertTrue(text.wait_for_out("\n- 10.1.0.2:40001 "))
            self.assertTrue(lines.wait_for_out('"change":"ended",'))
            self.push("http")  # not before its end was seen: it could pass for the same flow
            self.assertTrue(lines.wait_for_out('"change":"new",'))
            for method, params, said in (("deactivate", None, "the engine isn't active; waiting\n"),
                                         ("activate", {"resources": {"max_flows": 9}}, "the flows are told again\n")):
                self.it.result(method, params)
                for program in (text, lines):
                    self.assertTrue(program.wait_for_err(said))
            self.it.end()
            for program in (text, lines):
                self.assertTrue(eventually(lambda p=program: p.err().count("; waiting\n") == 2))
                self.assertEqual(program.end(signal.SIGINT), 128 + signal.SIGINT)

    def test_what_cannot_be_listed_is_refused_without_an_error_in_the_daemons_log(self):
        mistakes = ((["--host", "10.0.0.0/33"], "must be from 0 to 32, not '33'"),
                    (["--host", "a/b"], "must be an address, a network"),
                    (["--port", "65536"], "must be from 0 to 65535"), (["--sort", "size"], "must be one of bytes, "),
                    (["--min-bytes", "2K", "--max-bytes", "1K"], "no flow has both"), (["--csv", "--json"], "choose one"),
                    (["--min-age", "3", "--max-age", "2"], "no flow has both"))
        for words, complaint in mistakes:
            self.expect(["flows", *words], 2, "", has(complaint), socket=self.it.path)
        bare, other, idle = self.daemon(engine=OURS), self.scripted("-a"), self.daemon(engine=OURS)
        idle.result("load", load_params())
        for daemon, complaint in ((bare, "no engine is loaded"), (idle, "the engine isn't active"),
                                  (other, "the engine that is loaded tells no flows: it has no method 'flows.list'")):
            for more in ([], ["-f"]):
                self.expect(["flows", *more], 1, "", f"brumectl: {complaint}\n", socket=daemon.path)
            self.assertNotIn("[ERROR]", daemon.log_text())
        self.expect(["flows"], 3, ANY, has("no daemon at "), socket=str(self.folder / "none"))

    def test_top_has_panes_of_flows_and_hosts(self):
        self.push("sample")
        with Program("top", "-d", "0.2", socket=self.it.path, terminal=True) as top:
            for key, shown in (("", " flows   every 0.2 s, by bytes a second"), ("\t", "CLIENT"), ("", "   0 B "),
                               ("p", " hosts   every 0.2 s, by packets"),
                               ("a", ", by age"), ("3", "HOST"), ("b", " overview   every 0.2 s, by bytes"), ("1", "PROTOCOL"),
                               ("?", "the next of overview flows hosts")):
                start = len(top.out())
                top.type(key)
                self.assertTrue(top.wait_for_out(shown, start), (key, shown))
                if key == "p":
                    self.assertTrue(top.wait_for_out("MQTT", start + top.out()[start:].index(shown)))
                    picture = top.out().rpartition("\x1b[H")[0].rpartition("\x1b[H")[2]
                    self.assertLess(picture.index("DNS"), picture.index("QUIC"), "not the one with most packets first")
            top.type("2")
            self.assertTrue(top.wait_for_out("   0 B ", len(top.out())))
            self.push("http")
            self.assertTrue(top.wait_for_out("\x1b[36m10.1.0.2:40002"), "no busy flow")
        for pane, shown, other in (("flows", "10.1.0.2:40002 ", "no method 'flows.list'"),
                                   ("hosts", "fd00:1::2 ", "no method 'flows.hosts'")):
            top = ["top", "-b", "-n", "1", "--pane", pane]
            self.expect(top, 0, has(shown), socket=self.it.path)
            listed = json.loads(brumectl("--json", *top, socket=self.it.path)[1])["list"]
            self.assertEqual(listed["total"], len(listed[pane]))
            self.expect(top, 0, has(other), socket=self.scripted("-a").path)
            self.expect(top, 0, has("no engine is loaded"), socket=self.daemon().path)
