"""Live traffic and the real daemon, in a network namespace of their own."""
import fcntl
import pathlib
import signal
import socket
import struct
import unittest

from harness.case import OURS, SANITIZED, DaemonTest
from harness.processes import CLONE_NEWNET, LIBC, checked, eventually, unshare

SIOCGIFFLAGS, SIOCSIFFLAGS, IFF_UP = 0x8913, 0x8914, 1
DNS_QUERY = bytes.fromhex("123401000001000000000000") + b"\x07example\x03com\0" + bytes.fromhex("00010001")


def set_loopback(up):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
        flags, = struct.unpack_from("h", fcntl.ioctl(s, SIOCGIFFLAGS, struct.pack("16sh14x", b"lo", 0)), 16)
        fcntl.ioctl(s, SIOCSIFFLAGS, struct.pack("16sh14x", b"lo", flags | IFF_UP if up else flags & ~IFF_UP))


class Live(DaemonTest):
    def test_traffic_of_an_attached_interface_is_counted_exported_and_watched(self):
        try:
            unshare(CLONE_NEWNET)  # for good: no other test here needs a network
        except OSError as e:
            self.skipTest(f"no network namespace: {e.strerror}")
        set_loopback(True)
        daemon = self.daemon("-a", "--attach", "lo", engine=OURS)
        self.assertEqual(daemon.result("status")["state"], "activated (attached)")
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:  # without one, ICMP would answer
            receiver.bind(("127.0.0.1", 53))
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
                for _ in range(3):
                    sender.sendto(DNS_QUERY, ("127.0.0.1", 53))

        def dns():
            return daemon.result("collect", {"cmd": "show", "component": "protocols"})["open"].get("DNS", {}).get("packets")
        self.assertTrue(eventually(lambda: dns() == 3), dns())

        samples = daemon.folder / "samples"

        def export_to(**receiver):
            daemon.result("collect", {"cmd": "set_exporter", "socket": receiver})
        export_to(type="http", server="127.0.0.1", port=1, path="/")
        daemon.result("collect", {"cmd": "set_interval", "component": "protocols", "interval": 100})
        daemon.result("collect", {"cmd": "enable", "component": "protocols"})
        self.assertTrue(eventually(lambda: "export.failed" in [
            alert["name"] for alert in daemon.result("notifications", {"cmd": "alerts"})["notif"]["alerts"]]))
        export_to(type="file", path=str(samples))
        self.assertTrue(eventually(lambda: samples.exists() and samples.read_text().count("\n") > 2
                                   and '"DNS":{' in samples.read_text()))

        self.assertEqual(daemon.result("health", {"cmd": "show"})["items"]["flow_table"], "ok")
        set_loopback(False)
        self.assertTrue(daemon.wait_for_log("Engine error 'interface 'lo' can't be captured from: Network is down'"))
        self.assertEqual(daemon.end(), 0)

    @unittest.skipIf(SANITIZED, "the sanitizer reports crashes in its own way")
    def test_a_worker_that_crashes_leaves_its_own_stack(self):
        config = self.folder / "conf"
        config.write_text("workers = 2\n")
        daemon = self.daemon("-a", engine=OURS, watchdog=True, env={"BRUMECP_ENGINE_CONF": str(config)})
        server = daemon.next_child()
        tasks = {(task / "comm").read_text().strip(): int(task.name)
                 for task in pathlib.Path(f"/proc/{server}/task").iterdir()}
        checked(LIBC.tgkill(server, tasks["dp-worker-2"], signal.SIGSEGV))
        self.assertEqual(daemon.wait_exit(60), 1)
        report, = daemon.folder.glob("cvevents/**/cvdump.json")
        self.assertIn("libcvcp_u.so(", report.read_text())
        if "\n#0 " in daemon.log_text():  # resolving names has a time limit
            self.assertRegex(daemon.log_text(), r'worker\.cpp", line \d+, in work\n')
