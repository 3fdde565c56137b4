"""A real ClickHouse receives the flows of three sensors, while everything fails that can, as docs/fleet.md has it."""
import itertools
import re
import socket
import subprocess
import urllib.error
import urllib.parse
import urllib.request

from harness.case import OURS, DaemonTest
from harness.daemon import ROOT
from harness.processes import CLONE_NEWNET, die_with_parent, eventually, unshare

SERVER = "127.0.0.1"
STATEMENTS = re.findall(r"```sql\n(.*?)```", (ROOT / "docs/fleet.md").read_text(), re.S)
INSERT = re.search(r"--path '(/\?query=INSERT.*?)'", (ROOT / "docs/fleet.md").read_text())[1]
CONFIGURATION = """<yandex><logger><level>warning</level><log>{0}/log</log><errorlog>{0}/errors</errorlog></logger>
<http_port>8123</http_port><listen_host>{1}</listen_host><path>{0}/</path><tmp_path>{0}/tmp/</tmp_path>
<users_config>{0}/users.xml</users_config><mark_cache_size>5368709120</mark_cache_size>
<default_profile>default</default_profile><default_database>default</default_database></yandex>"""
USERS = """<yandex><profiles><default></default></profiles><quotas><default></default></quotas><users><default><password/>
<networks><ip>::/0</ip></networks><profile>default</profile><quota>default</quota></default></users></yandex>"""


def run(*command):
    subprocess.run(command, check=True)


def ask_records(daemon, cmd, **more):
    return daemon.result("collect", {"cmd": cmd, "component": "records", **more})


class ClickHouse(DaemonTest):
    def setUp(self):
        super().setUp()
        unshare(CLONE_NEWNET)  # for good: receivers' tests need no network
        run("ip", "link", "set", "lo", "up")
        data = self.folder / "clickhouse"
        data.mkdir()
        (data / "config.xml").write_text(CONFIGURATION.format(data, SERVER))
        (data / "users.xml").write_text(USERS)

    def start_server(self):
        data = self.folder / "clickhouse"
        with open(data / "out", "ab") as out:
            self.server = subprocess.Popen(["clickhouse-server", f"--config-file={data}/config.xml"], cwd=data, stdout=out,
                                           stderr=out, preexec_fn=die_with_parent)
        self.addCleanup(self.server.wait)
        self.addCleanup(self.server.kill)
        self.assertTrue(eventually(lambda: self.query("SELECT 1"), 60), (data / "out").read_text())

    def query(self, text):
        """The rows, as texts; None where nobody answers."""
        url = f"http://{SERVER}:8123/?query={urllib.parse.quote(text)}"
        try:
            with urllib.request.urlopen(urllib.request.Request(url, data=b""), timeout=10) as answer:
                return [row.split("\t") for row in answer.read().decode().splitlines()]
        except urllib.error.HTTPError as e:
            self.fail(text + e.read().decode())
        except OSError:
            return None

    def sensor(self, number):
        """A daemon with an interface of its own; begins anew with the spool that it left."""
        config = self.folder / f"conf{number}"
        config.write_text(f"sensor = gate-{number}\nspool = {self.folder}/spool{number}\n")
        daemon = self.daemon("-a", "--attach", f"gate{number}", engine=OURS, env={"BRUMECP_ENGINE_CONF": str(config)})
        ask_records(daemon, "set_exporter", socket={"type": "http", "server": SERVER, "port": 8123, "path": INSERT})
        ask_records(daemon, "set_interval", interval=100)
        ask_records(daemon, "enable")
        return daemon

    def test_every_flow_arrives_though_server_and_sensors_go_and_come(self):
        self.start_server()
        create, *questions = STATEMENTS
        self.query(create)
        for number in (1, 2, 3):
            run("ip", "link", "add", f"gate{number}", "type", "veth", "peer", f"peer{number}")
            run("ip", "addr", "add", f"10.99.{number}.1/24", "dev", f"gate{number}")
            for name in ("peer", "gate"):
                run("ip", "link", "set", f"{name}{number}", "arp", "off", "addrgenmode", "none", "up")
        sensors = [self.sensor(number) for number in (1, 2, 3)]

        def send(numbers, first):
            """300 flows past each sensor, each a datagram from a port of its own."""
            for number, port in itertools.product(numbers, range(first, first + 300)):
                with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
                    s.bind((f"10.99.{number}.1", port))
                    s.sendto(b"x", (f"10.99.{number}.2", 9))

        def made(daemon, count):
            return eventually(lambda: ask_records(daemon, "show")["next"] > count, 20)
        send((1, 2, 3), 10000)
        self.assertTrue(eventually(lambda: int(self.query("SELECT count() FROM flows")[0][0]) > 100, 20))
        self.server.terminate()
        self.server.wait()
        send((1, 2, 3), 11000)
        for daemon in sensors:
            self.assertTrue(made(daemon, 600))
        sensors[1].kill()
        sensors[1] = self.sensor(2)
        send((2,), 12000)
        self.assertTrue(made(sensors[1], 900))
        self.start_server()
        send((1, 2, 3), 13000)

        def flows():
            return {sensor: int(count) for sensor, count in self.query(
                "SELECT sensor, uniqExact(client_port) FROM flows WHERE server_port = 9 GROUP BY sensor")}
        self.assertTrue(eventually(lambda: flows() == {"gate-1": 900, "gate-2": 1200, "gate-3": 900}, 60, 0.2), flows())
        for question in questions:
            self.query(question)
        for sensor, rows, records, doubles, missing, runs in self.query(questions[-2]):
            self.assertEqual((int(missing), int(runs)), (0, 2 if sensor == "gate-2" else 1), sensor)
            self.assertEqual(int(rows) - int(records), int(doubles))
        self.assertEqual(self.query(questions[-1]), [], "no gaps")
        sums = self.query("SELECT DISTINCT total FROM (SELECT sum(bytes) AS total FROM flows FINAL WHERE server_port = 9 "
                          "GROUP BY sensor, run, flow)")
        self.assertEqual(sums, [["43"]], "each flow's records add up to its datagram")
