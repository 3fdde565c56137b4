"""nfcapd takes what `brumectl flows --ipfix` sends, and nfdump names the applications."""
import signal
import subprocess

from harness.case import OURS, DaemonTest
from harness.processes import die_with_parent, eventually
from harness.program import Program
from harness.rpc import free_port


class Nfdump(DaemonTest):
    def test_every_flow_has_its_applications_name(self):
        daemon, port = self.daemon("-a", "-v", "debug", engine=OURS), free_port()
        kept = self.folder / "kept"
        kept.mkdir()
        with open(self.folder / "nfcapd", "wb") as said, \
                subprocess.Popen(["nfcapd", "-l", kept, "-b", "127.0.0.1", "-p", str(port)], stdout=said, stderr=said,
                                 preexec_fn=die_with_parent) as collector, \
                Program("flows", "--ipfix", f"127.0.0.1:{port}", "--for-nfdump", "-d", "0.2", socket=daemon.path) as exporter:
            self.addCleanup(collector.kill)
            self.assertTrue(eventually(lambda: "Startup" in (self.folder / "nfcapd").read_text(errors="replace")))
            self.await_look(daemon, 1)  # flows that are there before it aren't exported
            daemon.result("push_pcap", {"type": "filename", "reset": False, "filename": str(self.captures / "sample.pcap")})
            flows = daemon.result("flows.list", {"dpaddr": "dp0"})["flows"]
            self.await_look(daemon, 3)
            self.assertEqual(exporter.end(signal.SIGINT), 128 + signal.SIGINT)
            collector.terminate()
            collector.wait(10)
        shown = subprocess.run(["nfdump", "-q", "-R", str(kept), "-o", "fmt:%nbnam"], text=True, capture_output=True).stdout
        names = sorted(line.partition("/")[0] for line in shown.splitlines())
        wanted = sorted(flow["protocol"].partition(".")[2] or flow["protocol"] for flow in flows)
        self.assertEqual(names, wanted, (self.folder / "nfcapd").read_text(errors="replace"))

    def await_look(self, daemon, more):
        """Waits until the exporter has asked for flows so many times more."""
        before = daemon.log_text().count("flows.list")
        self.assertTrue(eventually(lambda: daemon.log_text().count("flows.list") >= before + more))
