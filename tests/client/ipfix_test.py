"""`brumectl flows --ipfix`: records of live flows, as a collector receives them."""
import contextlib
import io
import shutil
import signal
import socket
import struct
import subprocess
import unittest

from harness import frames
from harness.case import OURS, DaemonTest
from harness.daemon import build_option
from harness.processes import eventually
from harness.program import Program, ProgramChecks, has
from harness.rpc import free_port

START, END, BYTES, PACKETS, APP, PROTOCOL, REASON, NAME, HOST, DESCRIPTION = 152, 153, 1, 2, 95, 4, 136, 96, 460, 94
REVERSE, SNI = 29305 << 16, 35632 << 16 | 188
NDPI, IDLE, ENDED = 22, 1, 3


class Receiver:
    """The collector's end of a session: `records` are of flows, `names` of applications."""

    def __init__(self):
        self.records, self.names, self.messages, self.templates, self.counted = [], {}, [], {}, 0

    def take(self, message):
        version, size, _, sequence, domain = struct.unpack_from(">HHIII", message)
        assert (version, size, sequence, domain) == (10, len(message), self.counted, 0), "not the next message"
        self.messages.append(message)
        sets = io.BytesIO(message[16:])
        while head := sets.read(4):
            kind, size = struct.unpack(">HH", head)
            content = io.BytesIO(sets.read(size - 4))
            while content.tell() < size - 4:
                if kind < 256:
                    self.take_template(kind, content)
                else:
                    self.take_record(self.templates[kind], content)

    def take_template(self, kind, content):
        number, count = struct.unpack(">HH", content.read(4))
        content.read(2 * (kind == 3))
        self.templates[number] = []
        for _ in range(count):
            element, size = struct.unpack(">HH", content.read(4))
            enterprise = int.from_bytes(content.read(4)) if element & 0x8000 else 0
            self.templates[number].append((enterprise << 16 | element & 0x7fff, size))

    def take_record(self, template, content):
        record = {element: content.read(size if size < 65535 else content.read(1)[0]) for element, size in template}
        self.counted += 1
        if DESCRIPTION in record:
            self.names[record[APP]] = tuple(record[e].rstrip(b"\0").decode() for e in (NAME, DESCRIPTION))
        else:
            self.records.append({e: v if e in (APP, NAME, HOST, SNI) else int.from_bytes(v) for e, v in record.items()})


@unittest.skipUnless(build_option("BRUMECPD_IPFIX") and build_option("FIXBUF_FOUND"), "built without libfixbuf")
class Ipfix(ProgramChecks, DaemonTest):
    def setUp(self):
        super().setUp()
        self.it, self.port, self.pushed = self.daemon("-a", engine=OURS), free_port(), 0

    def exporter(self, *words):
        return Program("flows", "--ipfix", f"127.0.0.1:{self.port}", "-d", "0.1", *words, socket=self.it.path)

    def come_and_go(self):
        """Makes flows that are new to the exporter, and ends them after a look."""
        self.pushed += 1
        self.it.result("push_pcap", {"type": "filename", "filename": str(self.captures / "sample.pcap"), "reset": False,
                                     "ns_id": self.pushed})
        eventually(lambda: False, 0.25)
        self.it.result("coffee", {"func": "dp.ft.sui_ft_kill_all_flows"})

    def listener(self):
        server = socket.socket()
        server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        server.bind(("127.0.0.1", self.port))
        server.listen()
        server.settimeout(20)
        return server

    def check(self, receiver):
        self.assertGreaterEqual(len(receiver.records), 16)
        http = next(r for r in receiver.records if r[NAME] == b"HTTP" and 8 in r)
        self.assertEqual([http[e] for e in (BYTES, PACKETS, REVERSE | BYTES, REVERSE | PACKETS, PROTOCOL, REASON, HOST, 7, 11,
                                            8)],
                         [439, 6, 312, 4, 6, ENDED, b"www.example.net", 40002, 80, 0x0a010002])
        self.assertLessEqual(http[START], http[END])
        self.assertEqual((http[APP][0], receiver.names[http[APP]]), (NDPI, ("HTTP", "Web")))
        quic = next(r for r in receiver.records if r[NAME] == b"QUIC")
        self.assertEqual((quic[SNI], quic[REASON], quic[REVERSE | PACKETS]), (b"quic.example.net", IDLE, 0))
        self.assertIn(0xfd000001 << 96 | 2, [r.get(27) for r in receiver.records], "no IPv6")
        if not shutil.which("tshark"):
            return
        path = frames.write_pcap(self.folder / "messages", [frames.udp(m, dport=4739) for m in receiver.messages])
        said = subprocess.run(["tshark", "-r", path, "-V", "-d", "udp.port==4739,cflow"], capture_output=True, text=True,
                              check=True).stdout
        self.assertIn("ntop nDPI (22)", said)
        for complaint in ("Malformed", "Expert Info", "No template"):
            self.assertNotIn(complaint, said)

    def test_over_udp_each_record_comes_with_what_explains_it(self):
        receiver = Receiver()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as collector, self.exporter() as exporter:
            collector.bind(("127.0.0.1", self.port))
            collector.settimeout(0.2)

            def received():
                self.come_and_go()
                with contextlib.suppress(TimeoutError):
                    while True:
                        receiver.take(collector.recv(65536))
                return receiver.records
            self.assertTrue(eventually(received, 30), exporter.err())
            self.assertLessEqual(max(map(len, receiver.messages)), 1400)
            self.assertEqual(exporter.end(signal.SIGTERM), 128 + signal.SIGTERM)
        self.check(receiver)

    def test_over_tcp_records_wait_for_a_collector_that_is_away_and_explain_themselves_anew(self):
        with self.exporter("--over", "tcp") as exporter:
            def waits():
                self.come_and_go()
                return exporter.err().count("; waiting\n") == session_number
            for session_number in (1, 2):
                self.assertTrue(eventually(waits, 30), exporter.err())
                receiver, content = Receiver(), b""
                with self.listener() as server, server.accept()[0] as session:
                    session.settimeout(20)
                    while len(receiver.records) < 16:
                        content += session.recv(65536)
                        while len(content) >= 4 and len(content) >= (size := int.from_bytes(content[2:4])):
                            receiver.take(content[:size])
                            content = content[size:]
                self.check(receiver)
            self.assertTrue(exporter.wait_for_err("the collector is there again"))
            self.assertEqual(exporter.end(signal.SIGINT), 128 + signal.SIGINT)

    def test_a_collector_that_cannot_be_named_is_refused(self):
        for words, complaint in ((["x"], "be HOST:PORT"), (["x:0"], "be HOST:PORT"), (["::1:5"], "be HOST:PORT"),
                                 (["x:5", "--csv"], "lists nothing"), (["x:5", "-f"], "lists nothing")):
            self.expect(["flows", "--ipfix", *words], 2, "", has(complaint), socket=self.it.path)
        with Program("flows", "--ipfix", "x:5", socket="/none") as exporter:
            self.assertTrue(exporter.wait_for_err("no daemon at /none"))
            self.assertEqual(exporter.end(signal.SIGINT), 128 + signal.SIGINT)
