"""A daemon that has been up for weeks: its clock passes the limits of 32-bit milliseconds while it is watched."""
import signal

from harness.case import DaemonTest
from harness.processes import children, eventually, kill, permitted, starting_at

BEFORE_MS = 2500


class Clock(DaemonTest):
    def test_supervision_outlives_31_and_32_bits_of_milliseconds(self):
        for limit_ms in (2 ** 31, 2 ** 32):
            if not permitted(starting_at(limit_ms)):
                self.skipTest("no time namespaces here")
            with self.subTest(limit_ms):
                self.outlive(limit_ms)

    def outlive(self, limit_ms):
        daemon = self.daemon("--wd_hog_timeout", "4000", "--wd_kill_timeout", "9000", "--wd_reload", "-v", "debug",
                             watchdog=True, setup=starting_at(limit_ms - BEFORE_MS))
        self.assertAlmostEqual(daemon.result("ping")["ts"] * 1000, limit_ms, delta=60000)
        self.assertTrue(eventually(lambda: daemon.result("ping")["ts"] * 1000 > limit_ms))
        # Reloading measures time, too: a second crash soon after the first costs two seconds.
        server = daemon.next_child()
        kill(server, signal.SIGKILL)
        daemon.next_child(server)
        self.assertTrue(daemon.alive())
        self.assertEqual(len(children(daemon.pid)), 1)
        self.assertLess(daemon.result("status")["uptime"], 60)
        self.assertEqual(daemon.end(), 0)
        self.assertNotIn("No heartbeat for", daemon.log_text())
