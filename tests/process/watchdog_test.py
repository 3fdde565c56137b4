"""The supervising parent and its server: killed, stopped, flooded, orphaned."""
import contextlib
import fcntl
import os
import pathlib
import signal
import time

from harness.case import SANITIZED, DaemonTest
from harness.processes import eventually, gone, kill

SHORT_TIMEOUTS = ("--wd_hog_timeout", "200", "--wd_kill_timeout", "600", "-v", "debug")
PATIENCE = 3 if SANITIZED else 1  # a slow build would miss short time-outs


def stderr_of(server):
    """A second write end of the pipe that is the server's stderr."""
    return os.open(f"/proc/{server}/fd/2", os.O_WRONLY | os.O_NONBLOCK)


class Watchdog(DaemonTest):
    def supervised(self, *args, **more):
        return self.daemon(*args, watchdog=True, **more)

    def test_an_abnormal_end_is_reported_and_its_evidence_gathered(self):
        killed = ("[INFO ] - Detailed report was not created due to brutal kill of process\n",)
        for signum, name, gathered, more in (
                (signal.SIGKILL, "Killed", ["cvconfig.json", "log"], killed),
                (signal.SIGSEGV, "Segmentation fault", ["cvconfig.json", "cvdump.json", "log"], ())):
            if SANITIZED and signum == signal.SIGSEGV:
                continue  # the sanitizer turns that into an exit
            with self.subTest(name):
                daemon = self.supervised("-c", "conf", "--nocore", files={"conf": "[]"})
                server = daemon.next_child()
                self.assertRegex(pathlib.Path(f"/proc/{server}/limits").read_text(), r"core file size +0 +0 ")
                # More last words than the parent reads at a time, all there before it sees the end.
                daemon.signal(signal.SIGSTOP)
                pipe = stderr_of(server)
                fcntl.fcntl(pipe, fcntl.F_SETPIPE_SZ, 1 << 20)
                os.write(pipe, b"x" * 200_000 + b"\nlast words\n")
                os.close(pipe)
                kill(server, signum)
                daemon.signal(signal.SIGCONT)
                self.assertEqual(daemon.wait_exit(), 1)
                self.assertIn("last words", daemon.log_text())
                self.assertIn("Restarting brumecpd is disabled", daemon.log_text())
                [event] = daemon.evidence()
                self.assertEqual(sorted(os.listdir(event)), gathered)
                self.assertEqual(len(os.listdir(event.parent)), 2, "itself and a dummy")
                self.assertEqual(event.stat().st_mode & 0o7037, 0)
                self.assertInOrder(["[ERROR] -     PROCESS TERMINATION OCCURRED    \n", "[ERROR] - Exit code: 0\n",
                                    f"[ERROR] - Terminated by signal [{name}]\n", "[ERROR] - Core dump not created\n", *more],
                                   (event / "log").read_text())

    def test_a_stop_of_the_parent_stops_the_server_at_any_moment(self):
        for early in (False, True):
            for name in ("SIGTERM", "SIGINT"):
                with self.subTest(name, early=early):
                    daemon = self.supervised(ready=not early)
                    self.assertTrue(daemon.wait_for_log("Launched"))
                    daemon.signal(getattr(signal, name))
                    self.assertEqual(daemon.wait_exit(8 * PATIENCE), 0, "a stop that got lost costs ten seconds")
                    log = daemon.log_text()
                    for text in (f"Stopped by {name}, passing to child", f"CP shutdown - cause: received signal {name}",
                                 "[INFO ] - Process terminated normally\n"):
                        self.assertIn(text, log)
                    self.assertNotIn("TERMINATION OCCURRED", log)
                    self.assertEqual(daemon.evidence(), [])

    def test_a_silent_server_is_asked_then_aborted_and_never_counts_as_normal_but_without_hog_detection_left_alone(self):
        spared, daemon = self.supervised(*SHORT_TIMEOUTS, "--wd_no_hog"), self.supervised(*SHORT_TIMEOUTS)
        servers = spared.next_child(), daemon.next_child()
        for its, server in zip((spared, daemon), servers):
            its.signal(signal.SIGUSR2)  # the first heartbeat: nobody is judged before it
            kill(server, signal.SIGSTOP)
        self.assertTrue(daemon.wait_for_log("Aborting child (state T)"))
        self.assertIn("Sending HOG signal to child (state T)", daemon.log_text())
        for server in servers:
            kill(server, signal.SIGCONT)
        self.assertEqual(daemon.wait_exit(), 1)
        self.assertInOrder(["[ERROR] - Process killed by watchdog since not responding (HOG details may still exist)\n",
                            "Terminated by signal [Aborted]"], daemon.log_text())
        self.assertTrue((daemon.evidence()[-1] / "cvdump.json").exists())
        self.assertEqual(spared.end(), 0)
        self.assertIn("Hog detection disabled", spared.log_text())
        self.assertNotIn("No heartbeat for", spared.log_text())

    def test_a_server_that_exits_is_replaced_after_a_growing_delay_or_its_exit_code_is_the_parents(self):
        alone, daemon = (self.scripted("-a", *more, watchdog=True, ready=False, script="crash tick exit 3\n")
                         for more in ((), ("--wd_reload",)))
        self.assertEqual(alone.wait_exit(), 3)
        self.assertEqual(len(alone.evidence()), 1)
        self.assertTrue(daemon.wait_for_log("Restarting brumecpd in 2 seconds", 10 * PATIENCE))
        self.assertInOrder(["Exit code: 3", "Restarting brumecpd\n", "Exit code: 3"], daemon.log_text())
        daemon.script("")
        self.assertTrue(daemon.alive())
        self.assertEqual(daemon.result("status")["state"], "activated")
        self.assertEqual(daemon.end(), 0)

    def test_a_flood_of_stderr_holds_up_neither_judgement_nor_end(self):
        daemon = self.supervised("--wd_hog_timeout", "200", "--wd_kill_timeout", "3000")
        server = daemon.next_child()
        # A second writer goes on writing to the pipe when the server is gone.
        pipe = stderr_of(server)
        self.addCleanup(os.close, pipe)

        def flood(rounds):
            for _ in range(rounds):
                if not daemon.running():
                    return
                with contextlib.suppress(BlockingIOError, BrokenPipeError):
                    while True:
                        os.write(pipe, b"x" * 4096)
                time.sleep(0.005)
        flood(100)
        self.assertNotIn("Aborting child", daemon.log_text())
        kill(server, signal.SIGKILL)
        flood(1000)
        self.assertEqual(daemon.wait_exit(0.1), 1, "the end was seen during the flood")

    def test_when_the_parent_is_killed_the_server_goes_on_alone(self):
        for more in ((), ("--wd_no_hog",)):
            daemon = self.supervised("--wd_hog_timeout", "200", *more)
            server = daemon.next_child()
            daemon.process.kill()
            daemon.wait_exit()
            self.assertTrue(more or daemon.wait_for_log("Parent PID has changed, heartbeats won't be sent"))
            # Writes must fail, rather than fill a pipe that nobody empties.
            pipe = stderr_of(server)
            self.addCleanup(os.close, pipe)

            def refused(pipe=pipe):
                try:
                    return os.write(pipe, b"x") < 0
                except BrokenPipeError:
                    return True
            self.assertTrue(eventually(refused))
            kill(server, signal.SIGUSR2)  # its stack goes there, too
            self.assertTrue(daemon.alive())
            kill(server, signal.SIGTERM)
            self.assertTrue(eventually(lambda server=server: gone(server)))
            self.assertFalse(os.path.exists(daemon.path))

    def test_a_log_that_cannot_be_written_costs_lines_only(self):
        full = self.folder / "full"
        full.symlink_to("/dev/full")
        for log, logfile, said in ((full, str(full), ()), (pathlib.Path("/nowhere/log"), "", (
                "Failed creating a log file: '/nowhere/log'", "Creating dir for events '", "Couldn't open signal dump file\n"))):
            with self.subTest(log=log):
                daemon = self.supervised("--wd_reload", log=log)
                self.assertEqual(daemon.result("status")["logfile"], logfile)
                server = daemon.next_child()
                kill(server, signal.SIGKILL)
                daemon.next_child(server)
                self.assertTrue(daemon.alive())
                self.assertEqual(daemon.end(), 0)
                for text in said:
                    self.assertIn(text, daemon.out())
