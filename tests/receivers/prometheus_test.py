"""A real Prometheus scrapes `brumectl metrics`, and its promtool tries the alert rules that we ship."""
import json
import pathlib
import re
import shutil
import subprocess
import urllib.parse
import urllib.request

from harness.case import OURS, DaemonTest
from harness.daemon import ROOT
from harness.processes import die_with_parent, eventually
from harness.program import Program, brumectl
from harness.rpc import free_port

RULES = ROOT / "packaging/examples/prometheus-alerts.yml"


class Prometheus(DaemonTest):
    def test_each_alert_fires_for_its_fault_alone(self):
        shutil.copy(RULES, self.folder / "alerts.yml")
        shutil.copy(pathlib.Path(__file__).with_name("alerts_test.yml"), self.folder)
        done = subprocess.run(["promtool", "test", "rules", "alerts_test.yml"], cwd=self.folder, text=True, capture_output=True)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_all_series_are_scraped_and_the_rules_know_their_names(self):
        daemon = self.daemon("-a", engine=OURS)
        daemon.result("push_pcap", {"type": "filename", "reset": False, "filename": str(self.captures / "sample.pcap")})
        told = set(re.findall(r"^# TYPE (\S+)", brumectl("metrics", socket=daemon.path)[1], re.M))
        source = (ROOT / "client/live/metrics_text.cpp").read_text()
        self.assertEqual(set(re.findall(r"brumecpd_\w+", RULES.read_text().split("groups:")[1])) -
                         set(re.findall(r'"(brumecpd_\w+)"', source)), set(), "not ours")
        metrics, web = free_port(), free_port()
        (self.folder / "prometheus.yml").write_text(json.dumps({
            "global": {"scrape_interval": "1s", "evaluation_interval": "1s"}, "rule_files": [str(RULES)],
            "scrape_configs": [{"job_name": "brumecpd", "static_configs": [{"targets": [f"127.0.0.1:{metrics}"]}]}]}))

        def query(text):
            url = f"http://127.0.0.1:{web}/api/v1/query?query={urllib.parse.quote(text)}"
            try:
                with urllib.request.urlopen(url, timeout=5) as answer:
                    return json.load(answer)["data"]["result"]
            except OSError:
                return []
        with Program("metrics", "--listen", f"127.0.0.1:{metrics}", socket=daemon.path), \
                open(self.folder / "log", "wb") as log, \
                subprocess.Popen(["prometheus", "--config.file=prometheus.yml", "--storage.tsdb.path=data",
                                  f"--web.listen-address=127.0.0.1:{web}"], cwd=self.folder, stdout=log, stderr=log,
                                 preexec_fn=die_with_parent) as prometheus:
            self.addCleanup(prometheus.wait)
            self.addCleanup(prometheus.kill)
            self.assertTrue(eventually(lambda: query("brumecpd_up"), 30), (self.folder / "log").read_text())
            self.assertEqual({row["metric"]["__name__"] for row in query('{__name__=~"brumecpd_.*"}')}, told)
            for _ in range(2):
                daemon.result("push_pcap", {"type": "filename", "reset": True, "filename": str(self.captures / "sample.pcap")})
                seen = query("brumecpd_pushed_packets_total")[0]["value"][1]
                self.assertTrue(eventually(lambda: query("brumecpd_pushed_packets_total")[0]["value"][1] != seen))
            self.assertEqual(query('resets({__name__=~"brumecpd_.*_total"}[5m]) > 0'), [], "a counter went down")
            daemon.end()
            self.assertTrue(eventually(lambda: query('ALERTS{alertname="BrumecpdUnreachable"}'), 30), "no alert is pending")
            prometheus.terminate()
