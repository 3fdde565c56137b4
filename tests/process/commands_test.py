"""Every method of the running daemon, with an engine that the tests script and whose calls they read."""
import json
import os

from harness import frames
from harness.case import BARE_METAL, SANITIZED, SLAVE, DaemonTest, load_params
from harness.processes import kib
from harness.rpc import request, unix_client

BAD_PARAMS, FAILED = -32602, -32000
NO_HEX = "'addr' is not a valid HEX value"

# In addition to the refusals that methods_test derives from docs/openrpc.json.
REFUSALS = (
    ("echo", {"message": 5}, BAD_PARAMS, "'message' is 'int', expecting 'string'"),
    ("events", None, FAILED, "field 'type' is missing"),
    ("events", 5, FAILED, "internal parsing error"),
    ("load", {"cpaddr": True}, BAD_PARAMS, "'cpaddr' is 'boolean', expecting 'string'"),
    ("load", {"path": "/no%sdir"}, FAILED, "path '/no%sdir' is not a valid directory or does not exists"),
    *(("load", {"shm": {"type": "devmem", "size": 1, "addr": addr}}, FAILED, NO_HEX)
      for addr in ("1fg", "", "1\0", "10000000000000000")),
    ("activate", {"resources": {"max_flows": -1.5}}, FAILED, "'max_flows' is 'double'"),
    ("coffee", {"func": "f", "args": [1, -1]}, FAILED, "'array element: 2 ' is 'int', expecting 'uint32'"),
    ("collect", {"cmd": ""}, FAILED,
     "can only be one of ['enable' ,'disable' ,'set_interval' ,'ls' ,'set_exporter' ,'show']"),
    ("log", {"type": "log", "maxlines": 1e10}, FAILED, "'maxlines' "),
    ("log", {"type": "verbosity", "verbosity": {"cmd": "set", "level": "WARN"}}, FAILED, "Bad verbosity level"),
    ("mt", {"depth": 300}, FAILED, "Mem tracing is not built into this image"),
)

LOADS = (
    (None, "shm_type=1 shm_dev= shm_addr=0 shm_size=0 cp_addr=corvo-cp cmds=1"),
    ({"cpaddr": "x", "shm": {"type": "auto", "size": "none"}}, "shm_type=1 shm_dev= shm_addr=0 shm_size=0 cp_addr=x cmds=1"),
    ({"shm": {"type": "devmem", "size": 4096.0, "addr": "0x1f000000"}},
     "shm_type=2 shm_dev=/dev/mem shm_addr=520093696 shm_size=4096 cp_addr=corvo-cp cmds=1"),
    ({"shm": {"type": "devmem", "dev": "d", "size": 1, "addr": " 100000001"}},
     "shm_type=2 shm_dev=d shm_addr=1 shm_size=1 cp_addr=corvo-cp cmds=1"),
)

# method, parameters, what the engine is called with, what the client gets
PASSED_ON = (
    ("collect", {"cmd": "enable", "component": "c"}, "collector_enable c", {}),
    ("collect", {"cmd": "disable", "component": "c"}, "collector_disable c", {}),
    ("collect", {"cmd": "set_interval", "component": "c"}, "collector_set_interval c 60000", {}),
    ("collect", {"cmd": "set_interval", "component": "c", "interval": 4294967301}, "collector_set_interval c 5", {}),
    ("collect", {"cmd": "show", "component": "c"}, "collector_get_sample c", {"flows": 3}),
    ("collect", {"cmd": "ls"}, "get_collectors",
     {"collect": {"collectables": ["flows", "memory"], "exporter": {"type": "none"}}}),
    ("collect", {"cmd": "set_exporter", "socket": {"type": "https", "server": "s", "port": 443, "path": "/p"}},
     "collect_set_exporter type=2 server=s port=443 path=/p", {}),
    ("collect", {"cmd": "set_exporter", "socket": {"type": "file", "port": 70000, "path": "f"}},
     "collect_set_exporter type=4 server= port=0 path=f", {}),
    ("collect", {"cmd": "set_exporter", "socket": {"type": "none"}}, "collect_set_exporter type=5 server= port=0 path=", {}),
    ("health", {"cmd": "show", "verbose": True}, "health_get verbose=1", {"healthy": True}),
    ("health", {"cmd": "configure", "json": {"a": 1}}, 'health_conf_set {"a":1}', None),
    ("health", {"cmd": "get_config"}, "health_conf_get", {"period": 10}),
    ("coffee", {"func": "f", "dpaddr": "dp0", "args": [1, 2, 3, 4, 5, 6, 7, 4294967295]},
     "coffee dpaddr=dp0 func=f args=1,2,3,4,5,6,7,4294967295", "done f"),
    ("coffee", {"func": "f"}, "coffee dpaddr= func=f args=", "done f"),
)


class Commands(DaemonTest):
    def setUp(self):
        super().setUp()
        self.it = self.scripted()
        self.result, self.failure = self.it.result, self.it.failure

    def activate(self, **resources):
        self.result("activate", {"resources": resources or {"max_flows": 10}})

    def last_call(self):
        return self.it.engine_calls()[-1]

    def test_a_wrong_request_is_refused_with_the_text_of_its_fault(self):
        for method, params, code, text in REFUSALS:
            with self.subTest(method=method, params=params):
                error = self.it.call(method, params)["error"]
                self.assertEqual(error["code"], code)
                self.assertIn(text, error["specific_err"])
        self.assertTrue(self.it.wait_for_log("Bad verbosity level"))
        self.assertEqual(self.it.engine_calls(), [])

    def test_echo_without_members_stops_the_server_in_order(self):
        with unix_client(self.it.path) as client:
            client.send(request("echo", []))
            self.assertEqual(self.it.wait_exit(), 0)
        self.assertIn("cause: unknown error", self.it.log_text())

    def test_load_hands_the_engine_its_configuration(self):
        for params, call in LOADS:
            with self.subTest(params):
                if BARE_METAL and call.startswith("shm_type=1"):
                    self.assertEqual(self.failure("load", params),
                                     "Auto SHM configuration is not supported on bare metal mode")
                    continue
                self.assertEqual(self.result("load", params), {})
                self.assertIn(f"init {call}", self.it.engine_calls())
                self.assertEqual(self.result("unload"), {})
                self.assertEqual(self.last_call(), "deinit")
        self.assertEqual(self.result("unload"), {})

    def test_activate_starts_the_data_path_unless_a_host_owns_its_parameters(self):
        self.result("load", load_params())
        for resources, call in (
                ({"max_flows": 7, "writable_shm": True}, "activate max_flows=7 dp_workers=1 writable_shm=1"),
                ({"max_flows": 1, "dp_workers": None}, "activate max_flows=1 dp_workers=1 writable_shm=0"),
                ({"max_flows": 1, "dp_workers": 128}, "activate max_flows=1 dp_workers=128 writable_shm=0")):
            if SLAVE and "dp_workers" in resources:
                self.assertEqual(self.failure("activate", {"resources": resources}),
                                 "'dp_workers' is controlled via DP API in slave mode")
                continue
            self.activate(**resources)
            self.assertEqual(self.last_call(), call)
            self.result("deactivate")
            self.assertEqual(self.last_call(), "deactivate")
        self.it.script("fail activate 100%s of nothing\n")
        self.assertEqual(self.failure("activate", {"resources": {"max_flows": 7}}), "100%s of nothing")

    def test_a_parameter_reaches_the_engine_and_its_answer_the_client(self):
        self.result("load", load_params())
        for method, params, call, answer in PASSED_ON:
            with self.subTest(method=method, params=params):
                self.assertEqual(self.result(method, params), answer)
                self.assertEqual(self.last_call(), call)
        self.assertEqual(self.failure("coffee", {"func": "g", "args": list(range(1, 10))}),
                         "COFFEE maximum argument count is 8")
        self.assertEqual(self.last_call(), "coffee dpaddr= func=f args=")
        self.it.script('return get_collectors {"collectables":[]}')
        self.assertEqual(self.result("collect", {"cmd": "ls"}), {"collect": {"exporter": None}})
        self.it.script("return get_collectors 5")
        self.failure("collect", {"cmd": "ls"})

    def test_status_asks_the_engine_only_while_it_is_active(self):
        status = self.result("status")
        known = {"state": "not loaded", "mode": "userspace", "logfile": str(self.it.log), "kernel": os.uname().release}
        self.assertEqual(status, {**status, **known})
        self.assertTrue(status["pid"] == self.it.pid)
        for size in (status["mem"]["process"][which] for which in ("virt_mem", "phy_mem")):
            self.assertGreater(size["current"], 0)
            self.assertEqual(size["max"], size["current"])

        self.result("load", load_params())
        before = self.it.engine_calls()
        status = self.result("status")
        self.assertEqual((status["state"], status["attached"], status["dps"]), ("deactivated", [], []))
        self.assertNotIn("version", status)
        self.assertEqual(self.it.engine_calls(), before)

        self.activate()
        status = self.result("status")
        self.assertEqual((status["state"], status["attached"], status["dps"], status["version"]),
                         ("activated", [], ["dp0"], {"version": "scripted"}))
        self.it.script("fail get_version no version\n")
        self.assertEqual(self.failure("status"), "no version")

    def test_a_capture_is_answered_by_counts_or_by_packets(self):
        self.result("load", load_params())
        self.activate()
        self.it.script("class push_pkts 1 a 1 a 2 b 0 -\n")
        text = b"hello"
        capture = frames.write_pcap(self.folder / "capture.pcap", [
            frames.tcp(text, frames.SYN), frames.udp(text), frames.arp(), frames.icmp(text), frames.tcp(text)])
        params = {"type": "filename", "reset": False, "ns_id": 9, "dpaddr": "dp0", "filename": str(capture)}
        self.assertEqual(self.result("push_pcap", params), {"a": 2, "b": 1, "total": 3})
        self.assertRegex(self.last_call(), "^push_pkts dpaddr=dp0 pkts=4 .* ns_id=9 extended=0$")

        extended = {**params, "extended": True}
        pkts = self.result("push_pcap", extended)["pkts"]
        self.assertEqual(pkts[0], {
            "aging_sec": 30, "attr": ["syn", "scripted"], "cat": [{"cat_id": 1, "cat_val": 2}, {"cat_id": 3, "cat_val": 4}],
            "cls": 1, "dst": "10.0.0.2:80", "error": "non_ffrag", "len": 59, "protocol": "a", "src": "10.0.0.1:1000",
            "tph": ["eth", "a"], "transport": "tcp", "visibility": 2})
        self.assertEqual([pkt["transport"] for pkt in pkts], ["tcp", "udp", "ip"])
        # Though written piece by piece, the text has the order and the escapes of any other reply.
        self.it.script('class push_pkts 1 "\\ü/\n')
        text = self.it.raw(request("push_pcap", extended)).decode()
        self.assertEqual(text, json.dumps(json.loads(text), sort_keys=True, separators=(",", ":")) + "\n")

        self.it.script("class push_pkts 7 total\n")
        self.assertEqual(self.result("push_pcap", params), {"total": 4})
        self.it.script("fail push_pkts out of flows\n")
        self.assertEqual(self.failure("push_pcap", params), "out of flows")

        before = self.it.engine_calls()
        frames.write_pcap(capture, [frames.arp()])
        self.assertEqual(self.result("push_pcap", params), {"total": 0})
        self.assertEqual(self.result("push_pcap", extended), {"pkts": []})
        self.assertEqual(self.it.engine_calls(), before)

    def test_a_datagram_of_more_than_60000_bytes_is_refused(self):
        self.assertIn(b'"result":{"ts":', self.it.raw(request("ping").rjust(60000)))
        self.assertEqual(self.it.raw(request("ping").rjust(60001)),
                         b'{"error":{"code":-32603,"message":"request size exceeds the maximum allowed size: 60000 [B]"},'
                         b'"id":null,"jsonrpc":"2.0"}\n')

    def test_the_end_of_a_big_log_takes_no_memory_for_its_beginning(self):
        def last_lines():
            return self.result("log", {"type": "log", "maxlines": 2})["log"]
        last_lines()
        before_kib = kib(self.it.pid, "VmHWM")
        with open(self.it.log, "a", encoding="ascii") as log:
            log.write(("x" * 127 + "\n") * 500_000 + "last but one\nlast\n")
        self.assertEqual(last_lines(), ["last but one", "last"])
        if not SANITIZED:  # a sanitizer keeps what was freed
            self.assertLess(kib(self.it.pid, "VmHWM"), before_kib + 4096)
