"""Whole sessions with the real daemon, our engine and engines that bind back into the daemon."""
import pathlib

from harness.case import OURS, SCRIPTED, DaemonTest, load_params
from harness.daemon import ENGINES


class Session(DaemonTest):
    def test_a_capture_is_classified_by_our_engine_over_both_transports(self):
        for tcp in (False, True):
            with self.subTest(tcp=tcp):
                daemon = self.daemon(engine=OURS, tcp=tcp)
                daemon.result("load", load_params())
                daemon.result("activate", {"resources": {"max_flows": 1000}})
                params = {"type": "filename", "reset": True, "filename": str(self.captures / "sample.pcap")}
                counts = daemon.result("push_pcap", params)
                self.assertGreaterEqual(len(counts), 12, counts)
                self.assertGreater(counts["DNS"], 0, counts)
                self.assertEqual(daemon.result("push_pcap", params), counts, "a reset makes the second run like the first")

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

    def test_an_engine_can_be_replaced_by_another_without_a_restart(self):
        daemon = self.daemon(engine=OURS)
        for _ in range(3):
            versions = []
            for engine in (None, SCRIPTED):
                daemon.result("load", load_params(engine))
                daemon.result("activate", {"resources": {"max_flows": 10}})
                versions.append(daemon.result("status")["version"])
                daemon.result("deactivate")
                daemon.result("unload")
            self.assertNotEqual(*versions)
        maps = pathlib.Path(f"/proc/{daemon.pid}/maps").read_text()
        self.assertNotIn("libcvcp_u.so", maps, "a closed engine is still mapped")
