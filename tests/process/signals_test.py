"""What signals leave behind: the real daemon under its watchdog, crashed and halted for real."""
import os
import signal
import time
import unittest

from harness.case import SANITIZED, SCRIPTED, DaemonTest, load_params
from harness.processes import kill
from harness.rpc import request, unix_client

CRASHES = {"raise 11": "Segmentation fault", "abort": "Aborted", "raise 4": "Illegal instruction",
           "raise 8": "Floating point exception", "raise 7": "Bus error", "raise 31": "Bad system call",
           "null": "Segmentation fault", "overflow": "Segmentation fault", "heap": "Aborted", "inmalloc": "Aborted"}
# How the report and the log name the function that crashed.
STACK = "libcvcp_u.so(corvo_api_cp_coffee+", " corvo_api_cp_coffee\n"
STACKS = {"overflow": ("libcvcp_u.so(", " overflow_stack\n"), "heap": (STACK[0], ""), "inmalloc": ("libcvcp_u.so(", "")}


class Signals(DaemonTest):
    def at_work(self, *args, engine=None, **more):
        """A supervised daemon with a scripted engine at work in it."""
        daemon = self.scripted(*args, watchdog=True, **more)
        daemon.result("load", load_params(engine))
        daemon.result("activate", {"resources": {"max_flows": 10}})
        return daemon

    def send_coffee(self, daemon, size=0):
        """Sends a request of `size` bytes that calls the engine; doesn't wait for the reply."""
        text = request("coffee", {"func": "brew"})
        client = unix_client(daemon.path)
        self.addCleanup(client.close)
        client.send(b"{" + b" " * (size - len(text)) + text[1:])

    @staticmethod
    def reports(daemon, name="cvdump.json"):
        return [path.read_text() for path in sorted((daemon.folder / "cvevents").rglob(name))]

    @unittest.skipIf(SANITIZED, "the sanitizer reports crashes in its own way")
    def test_a_server_that_dies_inside_the_engine_leaves_a_whole_report_and_its_stack(self):
        daemons, servers = {}, {}  # all at once: one of them takes its time to die
        for crash in CRASHES:
            # Without a thread's own reserve, any use of a locked heap waits for ever.
            daemons[crash] = self.at_work(env={"GLIBC_TUNABLES": "glibc.malloc.tcache_count=0"})
            servers[crash] = daemons[crash].next_child()
            daemons[crash].script(f"crash coffee {crash}")
            self.send_coffee(daemons[crash], 60000)  # as long as a request may be
        for crash, description in CRASHES.items():
            with self.subTest(crash):
                daemon = daemons[crash]
                self.assertEqual(daemon.wait_exit(60), 1)
                [report] = self.reports(daemon)
                self.assertTrue(report.startswith(f'{{ "signal": "{description}", "time": '), report[:100])
                self.assertIn('"engine": { "mode": "userspace", "state": "activated", "version": {"version":"scripted"}\n, '
                              f'"path": "cp lib path: ../lib"}}, "process": {{ "pid": {servers[crash]}}}, '
                              f'"logfile": "{daemon.log}", "backtrace":"', report)
                in_report, in_log = STACKS.get(crash, STACK)
                self.assertIn(in_report, report)
                # Resolving names has a time limit. The innermost frame is printed last.
                if "\n#0 " in daemon.log_text():
                    self.assertIn(in_log, daemon.log_text())
                self.assertNotIn('Object ""', daemon.log_text())
                self.assertTrue(report.endswith('\n"}'))
                self.assertIn(f"Printing stack trace due to received signal '{description}'", daemon.log_text())
                self.assertIn(f"Terminated by signal [{description}]", daemon.log_text())

    def test_a_stack_is_printed_on_request_and_an_orderly_stop_leaves_its_cause_and_no_half_of_a_long_path(self):
        engine = self.folder / ("x" * 87)
        engine.symlink_to(SCRIPTED)
        daemon = self.at_work(engine=engine)
        for signum in (signal.SIGUSR2, signal.SIGPIPE):
            kill(daemon.next_child(), signum)
        self.assertTrue(daemon.wait_for_log("Printing stack trace due to received signal 'ASSERT'"))
        self.assertTrue(daemon.wait_for_log("Stack trace (most recent call last)"))
        self.assertEqual(daemon.result("status")["state"], "activated")
        self.assertEqual(daemon.end(), 0)
        self.assertIn("CP shutdown - cause: received signal SIGTERM", daemon.log_text())
        [report] = self.reports(daemon)
        self.assertTrue(report.startswith('{ "signal": "received signal SIGTERM", "time": '), report[:100])
        self.assertIn('"state": "activated"', report)
        self.assertIn('"path": "cp lib path: "}', report)

    def test_a_hog_leaves_one_report_that_the_events_method_shows(self):
        daemon = self.at_work("--wd_hog_timeout", "1500")
        # The engine's pause ends with the first signal, as any wait in the server does.
        daemon.script("delay coffee 900000")
        time.sleep(0.9)  # the watchdog judges nobody before the first heartbeat
        self.send_coffee(daemon)
        # The parent logs the hog at the next heartbeat, before or after the server has made its report.
        for text in ("HOG lasted ", "***Stack trace***"):
            self.assertTrue(daemon.wait_for_log(text, 30))
        [event] = daemon.result("events", {"type": "hog"})["events"]
        self.assertEqual(event["type"], "hog")
        self.assertEqual(event["engine"]["version"]["version"], "scripted")
        self.assertEqual((event["process"]["pid"], event["platform"]["release"]), (daemon.next_child(), os.uname().release))
        self.assertTrue(event["backtrace"].startswith("-HOG DETECTED:\ntime: "))
        self.assertIn("libcvcp_u.so", event["backtrace"])
        self.assertEqual(len(self.reports(daemon)), 1)
        self.assertEqual(self.reports(daemon, "cv_hog_dump.txt"), [])
        self.assertIn("HOG data saved to: ", daemon.log_text())
        self.assertEqual(daemon.end(), 0)
        self.assertRegex("".join(self.reports(daemon)), r'SIGTERM", "time": \d+, "uptime": [1-9]')
