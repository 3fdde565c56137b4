"""`brumectl classify`: captures of every kind against the real daemon with our engine."""
import contextlib
import gzip
import json
import os
import signal
import struct
import time

from harness import frames
from harness.case import OURS, DaemonTest
from harness.daemon import ENGINES
from harness.processes import eventually
from harness.program import ANY, Lacks, Program, ProgramChecks, brumectl, has

SIXTY = ("--timeout", "60")
NANOSECONDS = 0xa1b23c4d
NULL, LOOP, PPP, PPP_SERIAL, HDLC, PPP_WITH_DIR, COOKED, COOKED2, RAW, WIFI = 0, 108, 9, 50, 104, 204, 113, 276, 101, 105
# What comes before the IP header, by link type, and how much of a frame has to be there.
LINKED = ((RAW, "", 1), (NULL, "00000002", 5), (LOOP, "00000002", 5), (COOKED, "00000000000000000000000000000800", 16),
          (COOKED2, "0800000000000000000000000000000000000000", 20), (PPP, "0021", 2), (PPP, "ff0321", 4),
          (PPP_SERIAL, "ff030021", 4), (PPP_WITH_DIR, "00ff030021", 5), (HDLC, "0f000800", 4))
TAGS = ("810000070800", "81000007810000080800", "88a80007810000080800", "910000070800", "88641100000100000021",
        "884700001140", "88470000104000002140", "0040aaaa030000000800")


def open_files(pid):
    """The files that it has open, and their sizes."""
    found = {}
    for fd in os.listdir(f"/proc/{pid}/fd"):
        path = f"/proc/{pid}/fd/{fd}"
        with contextlib.suppress(OSError):
            found[os.readlink(path)] = os.stat(path).st_size
    return found


class Classify(ProgramChecks, DaemonTest):
    """A daemon with an active engine, and brumectl with a folder of its own for temporary files."""

    def setUp(self):
        super().setUp()
        self.it = self.daemon("-a", engine=OURS)
        self.temp = self.folder / "tmp"
        self.temp.mkdir(0o700)
        self.more = {"socket": self.it.path, "env": {"TMPDIR": str(self.temp)}}

    def tearDown(self):
        self.assertEqual(os.listdir(self.temp), [], "temporary files stay behind")

    def says(self, words, *outcome, **more):
        self.expect([*SIXTY, "classify", *words], *outcome, **{**self.more, **more})

    def document(self, *words):
        """What is told of these files."""
        return json.loads(brumectl(*SIXTY, "--json", "classify", *words, **self.more)[1])

    def file(self, name, content=None):
        path = self.folder / name
        if content is not None:
            path.write_bytes(content)
        return path

    def flow(self, name):
        return frames.read_pcap(self.captures / f"{name}.pcap")

    def long_flow(self, size):
        """So many packets of HTTP; the last of them close it."""
        flow = self.flow("http")
        return (flow + flow[3:-3] * (size // len(flow[3:-3]) + 1))[:size]

    def test_every_kind_of_capture_gives_what_the_classic_one_gives(self):
        http = self.flow("http")
        classic = self.file("classic", frames.pcap(http, order="<"))
        expected = self.document(classic)
        self.assertEqual(expected["protocols"]["HTTP"]["packets"], len(http), "the handshake, too")
        self.assertEqual(expected["total"]["flows"], 1)

        def linked(link, head):
            return frames.pcap(http, link=link, head=bytes.fromhex(head), cut=14)
        cut = frames.pcap(http, keep=100)
        packed = gzip.compress(classic.read_bytes())
        for content in (frames.pcap(http), frames.erf(http), frames.pcap(http, NANOSECONDS), cut, frames.pcapng(http), packed,
                        *(linked(link, head) for link, head, _ in LINKED)):
            found = self.document(self.file("other", content))
            for part in ("protocols", "total"):
                self.assertEqual(found[part], expected[part], content[:48])
        self.assertEqual(self.document(self.file("cut", cut))["files"][0]["padded"], sum(len(f) > 100 for f in http))
        for content in (frames.pcapng(http), packed):
            self.says(["-"], 0, has("HTTP "), input=content)

        for around in TAGS:
            head = "000000000001000000000002" + around
            found = self.document(self.file("tagged", linked(1, head)))
            self.assertEqual(found["protocols"]["HTTP"]["packets"], len(http), head)
            self.assertEqual(found["total"]["bytes"], expected["total"]["bytes"] + len(http) * (len(head) // 2 - 14), head)

    def test_frames_that_end_within_their_headers_are_told(self):
        for link, head, needed in (*LINKED, (1, "00000000000100000000000288a800078100000888641100000100000021", 30)):
            frame = bytes.fromhex(head) + self.flow("http")[0][14:]
            cut = self.file("cut", frames.pcap([frame[:size] for size in range(len(frame))], link=link))
            self.assertEqual(self.document(cut)["not_decoded"]["reasons"]["headers cut short"], needed, head)

    def test_what_is_no_packet_is_told_by_its_reason(self):
        lldp = frames.ether(bytes(46), 0x88cc)
        path = self.file("mixed", frames.pcap([*self.flow("dns"), frames.arp(), lldp, lldp,
                                               frames.ether(bytes.fromhex("45000fff") + bytes(42))]))
        found = self.document(path)["not_decoded"]
        self.assertEqual(found["packets"], 4)
        self.assertEqual(found["reasons"], {"ARP": 1, "LLDP": 2, "IP headers that can't be": 1})
        self.says([path], 0, has("4 packets not decoded: 2 LLDP, 1 IP headers that can't be, 1 ARP"))

    def test_flows_and_hosts_are_listed_for_people_and_for_programs(self):
        capture, csv = self.captures / "sample.pcap", self.file("flows.csv")
        found = self.document("--flows", "--hosts", capture)["files"][0]
        self.assertEqual(len(found["flows"]), found["total"]["flows"])
        self.assertGreaterEqual(len(found["hosts"]), 2)
        self.says(["--flows", "--hosts", "--csv", csv, capture], 0,
                  tuple(map(has, (" -> ", "HOST ", "PROTOCOL ", "FLOWS"))))
        self.assertTrue(csv.read_text().startswith("file,client,client_port,server,"))
        self.assertEqual(csv.read_text().count("\n"), len(found["flows"]) + 1)
        self.says(["--flows", "--no-reset", capture], 2, "", has("of a path of the capture's own"))

    def test_a_large_capture_goes_in_pieces_that_share_their_flows(self):
        large = self.file("large", frames.pcap(self.long_flow(5000)))
        for how in ("--packets", "--flows"):
            found = self.document(how, large)
            self.assertGreater(found["files"][0]["pieces"], 1, how)
            self.assertEqual(found["protocols"]["HTTP"]["packets"], 5000, how)
            self.assertEqual(found["total"]["flows"], 1, how)

    def test_workers_make_no_difference(self):
        with_two = self.daemon("-a", engine=OURS, env={"BRUMECP_ENGINE_CONF": str(self.file("conf", b"workers = 2\n"))})
        pipe, content = self.file("pipe"), frames.pcap([*self.long_flow(5000), *self.flow("sample")])
        os.mkfifo(pipe, 0o600)

        def found(it, *how):
            with Program("--json", "classify", *how, pipe, **{**self.more, "socket": it.path}) as program:
                pipe.write_bytes(content)  # of unknown size, so that they share it
                self.assertEqual(program.wait(), 0, program.err())
                return json.loads(program.out())["files"][0]
        for how in ([], ["--flows", "--hosts"], ["--packets"]):
            self.assertEqual({**found(with_two, *how), "pieces": 0}, {**found(self.it, *how), "pieces": 0}, how)
        for answers, total in ((True, 2), (False, 0)):
            path = {"dpaddr": f"capture:{answers}"}
            with_two.result("flows.open", {"answers": answers, **path})
            pushed = with_two.result("push_pcap", {"type": "filename", "filename": str(self.captures / "dns.pcap"),
                                                   "reset": False, **path})
            self.assertEqual(pushed["total"], total)
            self.assertEqual(with_two.result("flows.summary", path)["protocols"]["DNS"]["packets"], 2)

    def test_runs_at_the_same_time_and_live_traffic_dont_see_each_other(self):
        long = self.long_flow(100000)  # long enough for the two to overlap
        paths = [self.file("a", frames.pcap(long)), self.file("b", frames.pcap(long + self.flow("sample")))]
        self.it.result("push_pcap", {"type": "filename", "reset": False, "filename": str(paths[1])})

        def live():  # but for what goes with its idle flows
            return {name: value for name, value in self.it.result("flows.summary").items() if name not in ("flows", "undecided")}
        before = live()
        alone = [self.document(path)["protocols"] for path in paths]
        with Program("--json", "classify", paths[0], **self.more) as a, \
                Program("--json", "classify", paths[1], **self.more) as b:
            self.assertEqual((a.wait(), b.wait()), (0, 0))
            self.assertEqual([json.loads(p.out())["protocols"] for p in (a, b)], alone)
        self.assertEqual(live(), before)

    def test_every_way_out_closes_the_path_and_another_that_took_its_place_is_noticed(self):
        content, path = frames.pcap(self.long_flow(20000)), self.file("pipe")
        os.mkfifo(path, 0o600)

        def pushing(program):
            """The file that it pushes has something in it."""
            return any(name.startswith("/memfd:brumectl") and size > 0 for name, size in open_files(program.pid).items())

        @contextlib.contextmanager
        def half_fed():
            with Program("classify", path, **self.more) as program, open(path, "wb", buffering=0) as pipe:
                pipe.write(content[:len(content) // 2])
                self.assertTrue(eventually(lambda: pushing(program)))
                yield program, pipe
        for i in range(9):  # one more than there can be at once
            signum = (signal.SIGINT, signal.SIGTERM)[i % 2]
            with half_fed() as (program, _):
                self.assertEqual(program.end(signum), 128 + signum)
                self.assertEqual(program.out() + program.err(), "")
        with half_fed() as (program, pipe):
            self.it.result("deactivate")
            self.it.result("activate", {"resources": {"max_flows": 1000}})
            with contextlib.suppress(BrokenPipeError):
                pipe.write(content[len(content) // 2:])
            pipe.close()
            self.assertEqual(program.wait(), 1)
            self.assertRegex(program.err(), "has ended on the way|active")

    def test_without_flow_methods_packets_count_under_what_was_known_when_they_came(self):
        capture = self.captures / "http.pcap"
        self.says(["--no-reset", capture], 0, (has("HTTP "), Lacks("FLOWS")))
        inert = self.daemon("-a", engine=ENGINES / "inert")
        self.says([capture], 0, has("bench"), has("tells no flows"), socket=inert.path)

    def test_methods_of_the_engine_are_words_while_it_is_loaded(self):
        for words, status, out, *err in (
                (["flows.summary"], 0, has("instance")),
                (["flows.list", "--port", "x"], 2, "", has("'x'")),
                (["flows.lst"], 2, "", has("did you mean 'flows.list'?")),
                (["flows.list", "--help"], 0, has("--cursor")),
                (["--help"], 0, has("flows.hosts")),
                (["schema"], 0, has('"flows.close"')),
                (["complete", "--line", "brumectl flows.list --so"], 0, has("--sort")),
                (["-s", "/nonexistent", "flows.list"], 2, "", has("while it can be asked")),
                (["-s", "/nonexistent", "--help"], 0, Lacks("flows."))):
            self.expect(words, status, out, *err, **self.more)

    def test_a_bad_file_does_not_end_the_run_but_is_told_in_the_end(self):
        dns = frames.pcap(self.flow("dns"))
        paths = [self.file("junk", b"no capture at all"), self.file("wifi", frames.pcap(self.flow("dns"), link=WIFI)),
                 self.file("whole", dns[:-1]), self.file("good", dns), self.file("empty", b""), self.file("none"), self.temp]
        self.says(paths, 1, has("DNS"), tuple(map(has, ("link type 105", "damaged after", "an empty file", "No such file",
                                                         "a folder", "6 of 7 files"))))
        self.says(["--filter", "no filter", paths[3]], 2, "", has("bad filter 'no filter'"))

    def test_reports_stand_alone_and_replace_their_file_only_when_they_are_whole(self):
        capture = self.file("<a>&.pcap", (self.captures / "sample.pcap").read_bytes())
        report = self.file("report.html", b"old")
        self.says(["--report", report, capture], 0, ANY, ANY)
        page = report.read_text()
        self.assertTrue(page.startswith("<!DOCTYPE html>") and page.endswith("</html>\n"))
        for text in ("<h3>Flows", "<h3>Hosts", "&lt;a&gt;&amp;.pcap"):
            self.assertIn(text, page)
        for outside in ("<script", "http://", "https://", "<a>&"):
            self.assertNotIn(outside, page)
        self.says(["--report", self.temp, capture], 1, ANY, has("/tmp is no regular file"))

    def test_an_interrupt_ends_the_reading_of_what_grows_without_end_when_unpacked(self):
        nothing = gzip.compress(struct.pack(">III", 0xbad, 12, 12) * 100000)  # blocks of no known kind, 20 GB of them
        bomb = self.file("bomb", gzip.compress(frames.pcapng([])) + nothing * 17000)
        with Program("classify", bomb, **self.more) as program:
            self.assertTrue(eventually(lambda: str(bomb) in open_files(program.pid)))
            self.assertEqual(program.end(signal.SIGINT), 128 + signal.SIGINT)

    def test_damage_is_told_and_fails_however_much_could_be_read(self):
        http = self.flow("http")
        erf, pcap = frames.erf(http), frames.pcap(http, order="<")
        second = 18 + len(http[0])
        packed = gzip.compress(pcap)
        for content, complaint in (
                (erf[:5], "no capture that can be read"),
                (erf[:20], "damaged after 0 packets: the file ends within a record"),
                (erf[:second + 7], "damaged after 1 packet: the file ends within a record"),
                (erf[:-1], "the file ends within a record"),
                (erf[:second + 8] + b"\1" + erf[second + 9:], "no capture that can be read"),
                (erf[:second + 14] + b"\x7f" + erf[second + 15:], "damaged after 1 packet: a record's length is impossible"),
                (pcap[:24 + 15], "damaged after 0 packets: "),
                (packed[:-10], "damaged after "),
                (packed[:12], "no capture that can be read")):
            status, out, err = brumectl(*SIXTY, "--json", "classify", self.file("damaged", content), **self.more)
            self.assertEqual(status, 1, complaint)
            self.assertIn("error", json.loads(out)["files"][0])
            self.assertIn(complaint, err)


def become(user, further):
    os.setgroups([further])
    os.setgid(user)
    os.setuid(user)


NOBODY, SOMEBODY = 65534, 12345


class Copies(ProgramChecks, DaemonTest):
    def test_of_what_the_daemon_cant_open_are_for_its_group_or_the_user_is_told(self):
        if os.geteuid() != 0:
            self.skipTest("takes root, to be several users")
        if not all(folder.stat().st_mode & 1 for folder in OURS.resolve().parents):
            self.skipTest("no other user can read the build")

        def as_nobody():
            for path in ("..", "."):
                os.chown(path, NOBODY, NOBODY)
            become(NOBODY, NOBODY)
        self.folder.chmod(0o711)
        daemon = self.daemon("-a", engine=OURS, tcp=True, setup=as_nobody)
        home = self.folder / "home"
        temp, capture = home / "tmp", home / "capture"
        temp.mkdir(0o711, parents=True)
        capture.write_bytes((self.captures / "dns.pcap").read_bytes())
        left = temp / "brumectl-copy-killed"
        left.write_text("x")
        os.utime(left, (time.time() - 120,) * 2)
        for path, mode in ((home, 0o711), (temp, 0o711), (capture, 0o600), (left, 0o644)):
            os.chown(path, SOMEBODY, SOMEBODY)
            path.chmod(mode)
        for user, further, err in ((SOMEBODY, NOBODY, ""), (0, 0, ""),
                                   (SOMEBODY, SOMEBODY, has(f"everybody on this machine can read the copies in {temp}"))):
            self.expect(["classify", capture], 0, has("DNS"), err, socket=f"127.0.0.1:{daemon.tcp}",
                        env={"TMPDIR": str(temp)}, setup=lambda u=user, f=further: u and become(u, f))
        self.assertNotIn("Unable to read", daemon.log_text())
        self.assertEqual(os.listdir(temp), [])
