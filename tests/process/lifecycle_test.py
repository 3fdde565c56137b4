"""Start, stop and configuration of the real daemon."""
import os
import signal

from harness.case import BARE_METAL, SCRIPTED, SLAVE, DaemonTest, load_params
from harness.daemon import ENGINES
from harness.processes import kill

CAUSE = "CP shutdown - cause: "


class Lifecycle(DaemonTest):
    def test_the_start_tells_what_is_running(self):
        daemon = self.daemon()
        log = daemon.log_text()
        self.assertInOrder(["[server][INFO ] - Current session logging being saved at '", "Configured in: 'userspace mode'",
                            "Architecture:   ", " @ 32 bit", "Compiler:       gcc ", "Attributes:     ", "GIT SHA:        ",
                            "Version:        dev @ ", "Image:          dev",
                            "*************    in production     ************", "Waiting for messages"], log)
        self.assertIn("Waiting for messages", daemon.out())
        self.assertEqual(", bare metal" in log, BARE_METAL)
        self.assertEqual(", slave\n" in log, SLAVE)

    def test_a_start_that_fails_says_why_and_ends_with_status_zero(self):
        taken = f"127.0.0.1:{self.daemon(tcp=True).tcp}"
        for args, files, text in (
                (["-a"], {}, "Failed loading Corvo CP dynamic library: "),
                (["-s", taken], {}, f"Failed to bind address [TCP {taken}] : Address already in use"),
                (["-s", "/nowhere/at/all"], {}, "Bind failed [No such file or directory]"),
                (["-s", "/nowhere/at/all", "-v", "debug"], {}, "Destroying UNIX socket: /nowhere/at/all"),
                (["-a"], {".cvconfig": "[]"},
                 "Can't use configuration file (./.cvconfig) in conjunction with -a or --attach")):
            with self.subTest(text):
                daemon = self.daemon(*args, files=files, ready=False)
                self.assertEqual(daemon.wait_exit(), 0)
                self.assertIn(text, daemon.log_text())
                self.assertIn(CAUSE + "fatal error detected", daemon.log_text())

    def test_kernel_mode_is_told_and_has_shared_memory_of_its_own(self):
        daemon = self.daemon(mode="km", engine=SCRIPTED)
        self.assertIn("Configured in: 'kernel mode'", daemon.log_text())
        self.assertEqual(daemon.result("status")["mode"], "kernel")
        self.assertEqual(daemon.failure("load", {"shm": {"type": "devmem"}}),
                         "devmem SHM configuration is not supported on kernel mode")

    def test_an_engine_binds_to_the_daemon_and_brings_a_method_of_its_own(self):
        daemon = self.daemon()
        own = daemon.result("cmds")
        for _ in range(2):
            daemon.result("load", load_params(ENGINES / "closed"))
            self.assertIn("closed.all", daemon.result("cmds"))
            answer = daemon.result("closed.all", {"dir": str(daemon.folder)})
            self.assertTrue(answer)
            self.assertEqual({name: value for name, value in answer.items() if value is not True}, {})
            daemon.result("unload")
            self.assertEqual(daemon.result("cmds"), own)

    def test_a_stop_signal_during_the_automatic_start_ends_the_daemon_in_order(self):
        daemon = self.scripted("-a", script="delay init 700\n", ready=False)
        self.assertTrue(daemon.wait_for_log("Loading corvo engine"))
        daemon.signal(signal.SIGTERM)
        self.assertEqual(daemon.wait_exit(), 0)
        self.assertIn("Unloading corvo engine", daemon.log_text())
        self.assertIn(CAUSE + "received signal SIGTERM", daemon.log_text())
        self.assertIn("deinit", daemon.engine_calls())

    def test_the_stop_routine_brings_the_engine_down_in_order(self):
        daemon = self.scripted("-a", "--attach", "if0", "--attach", "if1")
        self.assertEqual(daemon.result("status")["state"], "activated (attached)")
        self.assertEqual(daemon.end(), 0)
        self.assertFalse(os.path.exists(daemon.path))
        self.assertInOrder(["intf_detach if0", "intf_detach if1", "deactivate", "deinit"], "\n".join(daemon.engine_calls()))

    def test_a_daemon_has_closed_the_standard_descriptors_but_the_pipe_to_its_parent(self):
        for watchdog in (False, True):
            starter = self.daemon("-d", watchdog=watchdog, ready=False)
            self.assertEqual(starter.wait_exit(), 0)
            self.assertTrue(starter.wait_for_log("Waiting for messages"))
            self.assertIn("Starting server as a daemon", starter.log_text())
            pid = starter.result("status")["pid"]
            self.addCleanup(kill, pid, signal.SIGKILL)

            def standard(pid=pid):
                links = [f"/proc/{pid}/fd/{fd}" for fd in range(3)]
                return [os.readlink(link).partition(":")[0] for link in links if os.path.lexists(link)]
            self.assertEqual(standard(), ["pipe"] * watchdog)
            # A library must not get one of these numbers for a file of its own.
            starter.result("load", load_params(SCRIPTED))
            self.assertEqual(standard(), ["/dev/null", "/dev/null", "pipe" if watchdog else "/dev/null"])
            kill(pid, signal.SIGKILL if watchdog else signal.SIGTERM)
            self.assertTrue(starter.wait_for_log("Restarting brumecpd is disabled" if watchdog else "received signal SIGTERM"))


class ConfigFile(DaemonTest):
    def test_it_runs_its_requests_and_stops_the_daemon_at_the_first_failure(self):
        for name, content, logged, stops in (
                ("nothing to do", "[]", ["Reading Configuration from file: f"], False),
                ("comments, and a request without id whose failure nobody sees",
                 '''[ /* hello */ {"jsonrpc":"2.0","method":"nosuch"},
                      {"jsonrpc":"2.0","id":1,"method":"echo","params":{"message":"50% done"}} ]''', ["50% done"], False),
                ("an object", "{}", ["Json Array of commands expected in config file"], True),
                ("no JSON", "[", ["Failed to parse config file: \n["], True),
                ("too deep", "[" * 100000, ["Failed to parse config file: "], True),
                ("a batch runs whole, and its error is specific",
                 '''[[{"jsonrpc":"2.0","id":1,"method":"echo"},
                      {"jsonrpc":"2.0","id":2,"method":"echo","params":{"message":"second of the batch"}}],
                     {"jsonrpc":"2.0","id":3,"method":"echo","params":{"message":"never"}}]''',
                 ["second of the batch", "Config file error: field 'message' is missing",
                  "Config file encountered an error, exiting"], True),
                ("a message where there's nothing more specific", '[{"jsonrpc":"2.0","id":1,"method":"nosuch"}]',
                 ["Config file error: Method 'nosuch' not registered"], True)):
            with self.subTest(name):
                daemon = self.daemon("-c", "f", files={"f": content}, ready=not stops)
                if stops:
                    self.assertEqual(daemon.wait_exit(), 0)
                    self.assertIn(CAUSE + "unknown error", daemon.log_text())
                for text in logged:
                    self.assertTrue(daemon.wait_for_log(text), f"{text}\n{daemon.log_text()}")
                self.assertNotIn("Never", daemon.log_text())
                self.assertNotIn("- never", daemon.log_text())

    def test_the_default_one_is_played_when_it_stands_in_the_working_directory(self):
        daemon = self.daemon(files={".cvconfig": '[{"jsonrpc":"2.0","id":1,"method":"shutdown"}]'}, ready=False)
        self.assertEqual(daemon.wait_exit(), 0)
        self.assertIn("Reading Configuration from file: ./.cvconfig", daemon.log_text())
        self.assertIn("server received 'shutdown' request", daemon.log_text())
