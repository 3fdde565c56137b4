"""The words that stay: events, top and metrics, with the real daemon and our engine."""
import contextlib
import json
import re
import signal
import socket

from harness.case import OURS, DaemonTest
from harness.processes import eventually
from harness.program import ANY, Program, ProgramChecks, brumectl, has, starts
from harness.rpc import ask_tcp, free_port

RESTORED = "\x1b[?25h\x1b[0m\x1b[?1049l"


def subscribers(daemon):
    return daemon.result("notifications", {"cmd": "socket", "op": "ls"})["ls"]


def subscribe(daemon, path):
    daemon.result("notifications", {"cmd": "socket", "op": "add", "socket": str(path)})


class LiveWords(ProgramChecks, DaemonTest):
    def setUp(self):
        super().setUp()
        self.run_folder = self.folder / "run"
        self.run_folder.mkdir()

    def at(self, daemon, **more):
        """Where brumectl finds the daemon, and a runtime directory of the test's own."""
        return {"socket": daemon.path, "env": {"XDG_RUNTIME_DIR": str(self.run_folder)}, **more}

    def sockets(self):
        return [path for path in self.run_folder.iterdir() if path.is_socket()]

    def with_samples(self):
        daemon = self.daemon("-a", engine=OURS)
        daemon.result("push_pcap", {"type": "filename", "reset": False, "filename": str(self.captures / "sample.pcap")})
        return daemon

    # --- events
    def test_events_are_told_as_they_come_and_nothing_stays_behind(self):
        for signum in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            daemon = self.daemon()
            with Program("events", "-f", **self.at(daemon)) as follower:
                self.assertTrue(follower.wait_for_out("server.up"))
                self.assertTrue(follower.wait_for_out("notif.sock.add"))
                subscribe(daemon, "/no/such\x1b[2J")
                self.assertTrue(follower.wait_for_out("socket: '/no/such\\x1b[2J'"))
                self.assertEqual(follower.end(signum), 128 + signum)
            self.assertEqual(len(subscribers(daemon)), 1, "but the test's own")
            self.assertEqual(self.sockets(), [])

    def test_a_follower_outlives_its_daemon_and_cleans_up_without_it(self):
        daemon = self.daemon()
        with Program("events", "-f", "--sev", "warn", **self.at(daemon)) as follower:
            self.assertTrue(eventually(lambda: len(subscribers(daemon)) == 1))
            daemon.end()
            self.assertTrue(follower.wait_for_err("waiting for it"))
            self.assertEqual(self.sockets(), [])
            self.assertEqual(follower.end(signal.SIGINT), 128 + signal.SIGINT)
            others = [line for line in follower.out().splitlines() if "sched.hog" not in line]
            self.assertEqual(others, [], "no warnings but that the machine is slow")

    def test_over_tcp_a_followers_socket_is_in_the_folder_for_temporary_files_or_it_is_said_why_not(self):
        daemon = self.daemon(tcp=True)
        long_folder = self.run_folder / ("x" * 100)
        long_folder.mkdir()
        for folder, sockets, complaint in (
                (self.run_folder, 1, ""),
                (long_folder, 0, "$TMPDIR is too long for the path of a socket (107 bytes): "),
                (self.run_folder / "none", 0, "no socket can be made in $TMPDIR, ")):
            with self.subTest(complaint), Program("events", "-f", socket=f"127.0.0.1:{daemon.tcp}",
                                                  env={"XDG_RUNTIME_DIR": "", "TMPDIR": str(folder)}) as follower:
                self.assertTrue(follower.wait_for_out("notif.sock.add" if sockets else "server.up"))
                self.assertIn(complaint, follower.err())
                self.assertEqual(len(self.sockets()), sockets)
                self.assertEqual(follower.end(signal.SIGINT), 128 + signal.SIGINT)
                self.assertEqual(subscribers(daemon), [])
                self.assertEqual(self.sockets(), [])

    def test_only_subscribers_whose_sockets_are_gone_are_removed(self):
        daemon = self.daemon()
        listener, left = str(self.folder / "listener"), str(daemon.cwd / "left")
        with contextlib.ExitStack() as open_ones:
            for path in (listener, left):
                s = open_ones.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM))
                s.bind(path)
            s.close()
            for path in (listener, "left", "/no/such"):
                subscribe(daemon, path)
            _, out, err = brumectl("--json", "events", "gc", **self.at(daemon))
            self.assertEqual(json.loads(out)["removed"], ["left", "/no/such"], err)
            self.assertEqual([s["name"] for s in subscribers(daemon)], [listener])

    # --- metrics
    def test_metrics_are_named_by_what_they_can_do(self):
        text = brumectl("metrics", **self.at(self.with_samples()))[1]
        families = re.findall(r"^# TYPE (\S+) (\S+)$", text, re.M)
        self.assertGreater(len(families), 20)
        for name, kind in families:
            self.assertEqual(name.endswith("_total"), kind == "counter", name)
            self.assertFalse(name.endswith(("_count", "_sum", "_bucket")), name)
        self.assertNotIn(("brumecpd_alerts_total", "counter"), families, "they can be cleared")

    def test_metrics_are_served_until_interrupted(self):
        port = free_port()
        with Program("metrics", "--listen", f"127.0.0.1:{port}", **self.at(self.with_samples())) as server:
            self.assertTrue(server.wait_for_err("serving"))
            with socket.create_connection(("127.0.0.1", port)):  # one that says nothing
                for request, answer in (
                        (b"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n", b"HTTP/1.1 200 OK\r\n"),
                        (b"GET /metrics?x=1 HTTP/1.0\n\n", b'brumecpd_protocol_packets_total{protocol="HTTP"} '),
                        (b"GET / HTTP/1.1\r\n\r\n", b"HTTP/1.1 404 "),
                        (b"POST /metrics HTTP/1.1\r\n\r\n", b"HTTP/1.1 405 "),
                        (b"nonsense\r\n\r\n", b"HTTP/1.1 400 "),
                        (b"GET /" + b"x" * 9000, b"HTTP/1.1 431 ")):
                    self.assertIn(answer, ask_tcp(port, request))
            self.assertEqual(server.end(signal.SIGTERM), 128 + signal.SIGTERM)

    def test_without_an_answer_metrics_say_that_the_daemon_is_down_and_why(self):
        self.expect(["metrics"], 3, (starts("# no daemon at "), has("\nbrumecpd_up 0\n")), has("no daemon at "),
                    socket=str(self.folder / "none"))
        daemon, port = self.daemon(), free_port()
        with Program("--timeout", "0.7", "metrics", "--listen", f"127.0.0.1:{port}", **self.at(daemon)) as server:
            self.assertTrue(server.wait_for_err("serving"))
            daemon.signal(signal.SIGSTOP)
            # One after the other they would wait longer than any of them is kept.
            with contextlib.ExitStack() as open_ones:
                crowd = [open_ones.enter_context(socket.create_connection(("127.0.0.1", port), 20)) for _ in range(16)]
                for s in crowd:
                    s.sendall(b"GET /metrics HTTP/1.1\r\n\r\n")
                for s in crowd:
                    answer = b"".join(iter(lambda s=s: s.recv(65536), b""))
                    self.assertIn(b"# no answer from ", answer)
                    self.assertIn(b"brumecpd_up 0\n", answer)
            daemon.signal(signal.SIGCONT)

    # --- top
    def test_keys_change_what_is_shown_and_ctrl_z_gives_the_terminal_back(self):
        daemon = self.with_samples()
        with Program("top", "-d", "5", **self.at(daemon, terminal=True)) as top:
            for key, shown in (("", "every 5 s, by bytes a second"), ("f", "every 5 s, by flows"),
                               ("-", "every 2 s, by flows"), ("+", "every 5 s, by flows"), ("?", "protocols by packets"),
                               ("x", "PROTOCOL"), ("\x1a", "\x1b[?1049l\x1b[?1049h")):
                start = len(top.out()) if key else 0
                top.type(key)
                self.assertTrue(top.wait_for_out(shown, start), shown)
            top.type("q")
            self.assertEqual(top.wait(), 0)
            self.assertTrue(top.out().endswith(RESTORED))
        status, out, _ = brumectl("top", "-n", "1", **self.at(daemon, terminal=True))
        self.assertEqual(status, 0)
        self.assertIn("HTTP", out.partition("\x1b[?1049l")[2], "no picture stays")
        self.expect(["--json", "top", "-b", "-n", "1"], 0, (has('"used_memory":'), has('"cpu_sec":')), **self.at(daemon))

    def test_the_screen_comes_back_when_top_is_interrupted_though_the_daemon_is_gone(self):
        daemon = self.with_samples()
        with Program("top", "-d", "0.1", **self.at(daemon, terminal=True)) as top:
            self.assertTrue(top.wait_for_out("HTTP"))
            daemon.end()
            self.assertTrue(top.wait_for_out("no answer: no daemon at"))
            top.type("\x03")
            self.assertEqual(top.wait(), 128 + signal.SIGINT)
            self.assertIn(RESTORED, top.out())
        self.expect(["top"], 2, "", has("terminal"), **self.at(daemon))
        self.expect(["top", "-b", "-n", "1"], 3, ANY, has("no daemon at "), **self.at(daemon))
