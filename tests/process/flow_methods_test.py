"""Our engine's own methods and internal functions, called through the real daemon."""
from harness import frames
from harness.case import OURS, DaemonTest
from harness.schema import validates


class FlowMethods(DaemonTest):
    def setUp(self):
        super().setUp()
        self.it = self.daemon("-a", engine=OURS)
        self.described = {m["name"]: m["result"]["schema"] for m in self.it.result("flows.describe")["methods"]}

    def sample(self, name="sample"):
        return frames.read_pcap(self.captures / f"{name}.pcap")

    def push(self, content, **more):
        path = frames.write_pcap(self.folder / "pushed", content)
        self.it.result("push_pcap", {"type": "filename", "filename": str(path), "reset": False, "dpaddr": "capture:a", **more})

    def ask(self, method, **params):
        result = self.it.result(method, {"dpaddr": "capture:a", **params})
        self.assertTrue(validates(self.described[method], result), result)
        self.assertLess(len(str(result)), 65536, "more than a datagram's worth")
        return result

    def all(self, method="flows.list", **params):
        """The rows of all pages."""
        member = method.removeprefix("flows.").replace("list", "flows")
        page = self.ask(method, **params)
        rows = page[member]
        while "cursor" in page:
            page = self.ask(method, **{**params, "limit": 1000, "cursor": page["cursor"]})
            rows += page[member]
        return rows

    def refused(self, method, params, text):
        self.assertIn(text, self.it.failure(method, params), (method, params))

    def test_are_there_and_described_while_the_engine_is_loaded(self):
        loaded = set(self.it.result("cmds"))
        self.it.result("deactivate")
        self.it.result("unload")
        self.assertEqual(loaded - set(self.it.result("cmds")), set(self.described))

    def test_sum_what_each_flow_ends_as(self):
        unknown = frames.udp(b"\xee" * 40, 50000, 50001)
        fragment = unknown[:21] + b"\1" + unknown[22:]
        self.push([*self.sample(), frames.tcp(b"\xee" * 40, sport=50000, dport=22), unknown, fragment])
        sums = self.ask("flows.summary")
        self.assertEqual(sums["protocols"]["unclassified"]["flows"], 2)
        self.assertGreaterEqual(sums["undecided"], 2)
        sums = self.ask("flows.summary", finish=True)
        self.assertEqual((sums["complete"], sums["undecided"], sums["errors"]["ipv4_fragment"]), (True, 0, 1))
        self.assertEqual(sums["pushed"]["packets"], 1 + sum(p["packets"] for p in sums["protocols"].values()))
        for guess, unclassified, ssh, guessed in ((True, 1, 2, 1), (False, 2, 1, 0)):
            found = self.ask("flows.summary", guess=guess)["protocols"]
            self.assertEqual((found["unclassified"]["packets"], found["SSH"]["flows"], found["SSH"]["guessed"]),
                             (unclassified, ssh, guessed))
        self.assertEqual([f["protocol"] for f in self.all(port=50000, guess=False)], ["unclassified"] * 2)

    def test_tell_of_each_flow_what_is_known(self):
        self.push(self.sample("tls"), ns_id=5)
        self.push(self.sample("dns-ipv6-hop-by-hop"))
        self.push([frames.tcp(b"", frames.SYN, dport=12345),
                   frames.tcp(b"GET / HTTP/1.1\r\nHost: a.example.net\r\n\r\n", dport=12345)] * 2)
        (tls,), (dns,), (http,) = (self.all(protocol=name) for name in ("tls", "DNS", "HTTP"))
        self.assertEqual([len(tls.pop(name)) for name in ("ja3c", "ja3s")], [32, 32])
        self.assertEqual(tls, {
            "client": "10.1.0.2", "client_port": 40003, "server": "10.2.0.80", "server_port": 443, "transport": "tcp",
            "ns_id": 5, "protocol": "TLS", "cls": 91, "category": "Web", "confidence": "DPI", "guessed": False,
            "sni": "secure.example.net", "alpn": "http/1.1", "packets": 10, "packets_to_server": 6, "bytes": 751,
            "bytes_to_server": 448})
        self.assertEqual((dns["host"], dns["client"]), ("six.example.net", "fd00:1::2"))
        self.assertEqual((http["host"], http["risks"]), ("a.example.net", ["Known Protocol on Non Standard Port"]))
        self.push(self.sample("dns"), dpaddr="")
        live, = self.all(dpaddr="")
        self.assertGreater(live["last_seen"], 1.6e9, "seconds since 1970")

    def test_list_in_order_and_in_pages_what_the_filters_let_through(self):
        content = [frames.udp(b"1" * (port % 100), port, 9, dst=(10, 0, 1, min(port % 4, 2))) for port in range(1, 601)]
        self.push(content)
        self.push(content[:1] * 2, ns_id=7)
        self.assertLessEqual(len(self.ask("flows.list")["flows"]), 100)
        for count, order, rows in ((601, "bytes", self.all()), (601, "packets", self.all(sort="packets")),
                                   (4, "bytes", self.all("flows.hosts"))):
            found = [row[order] for row in rows]
            self.assertEqual((len(found), found), (count, sorted(found, reverse=True)))
        self.assertEqual(self.all(sort="first")[599]["client_port"], 600)
        for count, wanted in (
                (1, {"ns_id": 7}), (601, {"port": 9}), (1, {"port": 5}), (300, {"address": "10.0.1.2"}),
                (0, {"address": "fd00::1"}), (600, {"protocol": "UNCLASSIFIED"}), (0, {"protocol": "nil"}),
                (1, {"port": 9, "ns_id": 7, "address": "10.0.0.1"})):
            self.assertEqual(len(self.all(**wanted)), count, wanted)
        first, *others = self.all("flows.hosts")
        self.assertEqual((first["address"], first["flows"], first["packets"]), ("10.0.0.1", 601, 602))
        self.assertEqual((len(others), sum(host["flows"] for host in others)), (3, 601))

    def test_go_on_with_a_list_while_flows_come_and_go(self):
        self.push([self.sample("tls")[0], self.sample("dns")[0]])
        page = self.ask("flows.list", sort="first", limit=1)
        while not page["flows"]:  # cut off by the time that a call may take
            page = self.ask("flows.list", limit=1, cursor=page["cursor"])
        self.assertEqual(page["total"], 2)
        cursor, ended = page["cursor"], f"the list of cursor '{page['cursor']}' has ended, begin without a cursor"
        self.push(self.sample())
        for _ in range(2):  # an answer may get lost
            self.assertEqual([flow["server_port"] for flow in self.all(cursor=cursor)], [53], "not those that came later")
        self.it.result("coffee", {"func": "dp.ft.sui_ft_kill_all_flows", "dpaddr": "capture:a"})
        self.push(frames.udp_flows(9))  # in their places
        self.assertEqual(self.all(cursor=cursor), [])
        self.refused("flows.hosts", {"dpaddr": "capture:a", "cursor": cursor}, ended)  # of another kind
        for others in (3, 1):  # four are kept, whichever were used last
            for _ in range(others):
                self.ask("flows.list")
            self.assertEqual(self.all(cursor=cursor), [])
        for _ in range(4):
            self.ask("flows.list")
        self.refused("flows.list", {"dpaddr": "capture:a", "cursor": cursor}, ended)

    def test_tell_what_is_wrong(self):
        self.push(self.sample("dns"))
        for mistake in (
                ("flows.summary", 5, "internal parsing error"),
                ("flows.summary", {"dpaddr": 5}, "'dpaddr' is 'int', expecting 'string'"),
                ("flows.summary", {"finish": 1}, "'finish' is 'int', expecting 'bool'"),
                ("flows.summary", {"finish": True}, "data path 'dp0' can't be finished, only that of a capture"),
                ("flows.summary", {"dpaddr": "capture:b"}, "there is no data path 'capture:b': it comes with"),
                ("flows.summary", {"dpaddr": "dp1"}, "no data path 'dp1', expecting 'dp0', 'capture:NAME' or nothing"),
                ("flows.list", {"sort": "size"}, "field 'sort' can only be one of ['bytes' ,'packets' ,'first']"),
                ("flows.list", {"limit": 0}, "field 'limit' is 0, expecting 1 to 1000"),
                ("flows.list", {"limit": 1001}, "field 'limit' is 1001, expecting 1 to 1000"),
                ("flows.list", {"port": 65536}, "'port' has size bigger than uint16."),
                ("flows.list", {"address": "10.0.0"}, "invalid IPv4 / IPv6 address '10.0.0'"),
                ("flows.list", {"address": "10.0.0.1\0"}, "invalid IPv4 / IPv6 address"),
                ("flows.list", {"cursor": "1"}, "the list of cursor '1' has ended, begin without a cursor"),
                ("flows.hosts", {"limit": "1"}, "'limit' is 'string', expecting 'uint32'"),
                ("flows.open", {}, "field 'dpaddr' is missing"),
                ("flows.open", {"dpaddr": ""}, "data path 'dp0' can't be opened, only that of a capture"),
                ("flows.open", {"dpaddr": "capture:a"}, "there is a data path 'capture:a' already"),
                ("flows.close", {}, "field 'dpaddr' is missing"),
                ("flows.close", {"dpaddr": "dp0"}, "data path 'dp0' can't be closed, only that of a capture"),
                ("coffee", {"func": "dp.ft.nil"}, "no function 'dp.ft.nil', try 'help'"),
                ("coffee", {"func": "dp.ft.dump", "args": [10001]},
                 "the limit of dp.ft.dump is 10001, expecting at most 10000"),
                ("coffee", {"func": "dp.ft.dump", "args": [1, 2]}, "dp.ft.dump takes at most 1 arguments, got 2"),
                ("coffee", {"func": "help", "dpaddr": "x"}, "no data path 'x', expecting 'dp0', 'capture:NAME' or nothing")):
            self.refused(*mistake)
        self.assertEqual(self.ask("flows.close"), {})
        self.refused("flows.close", {"dpaddr": "capture:a"}, "there is no data path 'capture:a'")
        self.it.result("deactivate")
        self.refused("flows.summary", {}, "the data path isn't active")

    def test_internal_functions_run_by_name(self):
        def coffee(name, *args):
            return self.it.result("coffee", {"func": name, "args": args})

        def reactivate():
            self.it.result("deactivate")
            self.assertEqual((coffee("dp.veld.sui_lut_remove_all_links"), coffee("dp.ft.sui_ft_kill_all_flows"),
                              coffee("dp.ft.dump")), ("all links removed", "0 flows removed", ""))
            self.it.result("activate", {"resources": {"max_flows": 100}})
        for _ in range(2):
            reactivate()
            self.assertEqual(coffee("dp.ft.count"), "0")
            self.push(self.sample(), dpaddr="")
            self.assertEqual((coffee("dp.ft.count"), coffee("dp.ft.dump", 2).count("\n")), ("16", 2))
        self.assertIn("dp.ft.count", coffee("help"))
        self.assertEqual(coffee("dp.ft.sui_ft_kill_all_flows"), "16 flows removed")
