"""`evidence` on what a daemon, or somebody else, has left in a folder."""
import json
import os

from harness.case import DaemonTest
from harness.program import ANY, ProgramChecks, brumectl, has

STAMP = "2024_01_31_12_00_00"
CRASH = ('{ "signal": "Segmentation fault", "time": 1700000000, "uptime": 5, "version": "1.0", "process": { "pid": 7 }, '
         '"logfile": "/l", "backtrace":"./brumecpd(_ZN5corvo4stopEi+0x1c)[0x55]\n/lib/li"b\\c.so(+0x2)[0x7f]\n"}')
FRAMES = (("./bin/brumecpd(_ZN5corvo4stopEi+0x1c)[0x55]", "corvo::stop(int)+0x1c  brumecpd"),
          ("? /lib/libc.so.6(+0x2724a)[0x7f]", "? (+0x2724a)  libc.so.6"),
          ("a(_Zbroken+0x1)[0x2]", "_Zbroken+0x1  a"), ("[0x7f]", "[0x7f]"), ("a)([", "a)(["))
STALL = json.dumps({"type": "hog", "backtrace": "-HOG DETECTED:\ntime: 1700000000\nbacktrace: \n"
                    + "\n".join(frame for frame, _ in FRAMES)})
ODD = r'{"signal":"\u001b[2J","logfile":"/a b","engine":{"path":"\u001b"},"backtrace":""}'


class EvidenceWord(ProgramChecks, DaemonTest):
    def event(self, outer, file, content, number=0):
        path = self.folder / outer / f"2024_01_31_12_{number // 60:02}_{number % 60:02}" / file
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(content)
        return self.folder / outer

    def test_what_somebody_else_has_arranged_is_shown_without_harm(self):
        missing = has("report    missing: cvdump.json\n")
        for number, (file, content, shown, json_status) in enumerate((
                ("cvdump.json", CRASH[:30], (has("cause     unknown\n"), has("report    can't be read: cvdump.json\n")), 1),
                ("log", "", (has("cause     killed\n"), missing), 1),
                ("a b\x1b[2J", "", has("$'a b\\x1b[2J'  0 B"), 1),
                ("cvdump.json", ODD, (has("signal    \\x1b[2J\n"), has("'/a b'\n")), 0),
                ("cv_hog_dump.txt", "time: 5\n", (has("cause     stall\n"), missing), 1),
                ("cvdump.json", CRASH, (
                    has(f"/cv \\'events\\'\\x1b[2J/{STAMP}'\n"), has("cause     crash\nsignal    SIGSEGV\nversion   1.0\n"),
                    has("process   7\n"), has("\n#0   corvo::stop(int)+0x1c  brumecpd\n#1   (+0x2)  li\"b\\c.so\n")), 0),
                ("cvdump.json", STALL, (has("cause     stall\n"), has("time      2023-11-1"), has("\n\n" + "".join(
                    f"#{i}   {shown}\n" for i, (_, shown) in enumerate(FRAMES)))), 0),
                ("cvdump.json", "", has("cause     unknown\n"), 1))):
            folder = self.event(f"{number}/cv 'events'\x1b[2J", file, content)
            self.expect(["evidence", "show", STAMP, "--dir", folder], 0, shown)
            self.assertEqual(brumectl("--json", "evidence", "show", STAMP, "--dir", folder)[0], json_status, content)

    def test_a_report_that_was_cut_within_its_stack_is_read_so_far(self):
        for size in range(len(CRASH)):
            folder = self.event("cut", "cvdump.json", CRASH[:size], size)
        found = json.loads(brumectl("--json", "evidence", "ls", "--dir", folder)[1])
        stack = CRASH.index("./brumecpd")
        self.assertEqual([event["signal"] for event in found], [""] * stack + ["SIGSEGV"] * (len(CRASH) - stack))

    def test_only_what_has_an_events_shape_is_removed_and_nothing_is_read_through_a_link(self):
        for number, *files in ((0, "cvdump.json", "log", "cvconfig.json"), (1, "log"), (2, "log", "notes"),
                               (3, "log", "deeper/log"), (5, "log")):
            for file in files:
                events = self.event("events", file, CRASH, number)
        precious = self.event("events/outside", "precious", CRASH) / STAMP
        self.event("events/2024_01_31", "log", CRASH)
        (events / f"{STAMP[:-1]}4").symlink_to(precious)
        (events / f"{STAMP[:-1]}5/cvdump.json").symlink_to(precious / "precious")
        found = json.loads(brumectl("--json", "evidence", "ls", "--dir", events)[1])
        self.assertEqual([(event["name"][-1], event["cause"]) for event in found], [
            ("0", "crash"), ("1", "killed"), ("2", "killed"), ("3", "killed"), ("5", "unknown")])
        for name in (f"{STAMP[:-1]}4", "../events/outside"):
            self.expect(["evidence", "show", name, "--dir", events], 1, "", has(f"there's no '{name}'"))
        before = set(events.rglob("*"))
        self.expect(["evidence", "prune", "--keep", "0", "--dir", events], 1, has("\n2 removed from "), has("left alone"))
        gone = {path.relative_to(events).parts[0] for path in before - set(events.rglob("*"))}
        self.assertEqual(gone, {STAMP, f"{STAMP[:-1]}1"})

    def test_the_oldest_go_until_the_limits_are_kept(self):
        """Of five events of 1 KiB, the latest with 2 KiB."""
        for number, (limits, status, kept, *complaint) in enumerate((
                ("--max-size 6K", 0, "01234"),
                ("--max-size 6143", 0, "1234"),
                ("--max-size 1G --keep 2", 0, "34"),
                ("--max-size 3K --keep 4", 0, "34"),
                ("--max-size 0", 0, "4"),
                ("--keep 08", 0, "01234"),
                ("--max-size 0 --keep 0", 0, ""),
                ("", 2, "01234", has("'--keep' or '--max-size' is missing")),
                ("--max-size 2KB", 2, "01234", has("'--max-size' must be a size such as 500M or 2G, not '2KB'")),
                ("--max-size 16777216T", 2, "01234", has("not '16777216T'")),
                ("--max-size -1", 2, "01234", has("not '-1'")),
                ("--max-size K", 2, "01234", has("not 'K'")))):
            for event in range(5):
                folder = self.event(str(number), "log", "\n" * (2048 if event == 4 else 1024), event)
            self.expect(["evidence", "prune", "--dir", folder, *limits.split()], status, ANY, *complaint)
            self.assertEqual("".join(path.name[-1] for path in sorted(folder.iterdir())), kept, limits)

    def test_without_the_right_it_says_which_folder_and_that_it_takes_root(self):
        self.folder.chmod(0o755)
        folder = self.folder / "cvevents"
        for mode in (0o000, 0o444):
            folder.mkdir(exist_ok=True)
            folder.chmod(mode)
            for words in (["ls"], ["show"], ["prune", "--keep", "1"]):
                self.expect(["evidence", *words, "--dir", folder], 1, "",
                            has(f"can't open {folder}: Permission denied, that takes root\n"),
                            setup=lambda: os.geteuid() or os.setuid(65534))

    def test_a_stopped_daemons_last_report_is_found_beside_its_log(self):
        daemon = self.daemon(watchdog=True)
        daemon.result("shutdown")
        daemon.wait_exit()
        folder = daemon.log.parent / "cvevents"
        self.expect(["evidence", "show", "--dir", folder], 0, has("server received 'shutdown' request"))
        self.expect(["evidence", "prune", "--keep", "0", "--dir", folder], 0, f"0 removed from {folder}\n")
        self.expect(["evidence", "show", STAMP, "--dir", folder], 1, "", has(STAMP))
