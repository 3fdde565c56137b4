"""The words as people type them, against the real daemon."""
import fcntl
import json
import os
import re
import shutil
import signal
import subprocess
import termios

from harness.case import OURS, SCRIPTED, SLAVE, DaemonTest
from harness.daemon import ENGINES
from harness.processes import eventually
from harness.program import ANY, BRUMECTL, Lacks, Program, ProgramChecks, brumectl, has, starts, stdout_to_nobody

WRONG = (
    ([], "a command is missing"),
    (["statsu"], "unknown command 'statsu' (did you mean 'status'?)"),
    (["status", "--jsn"], "unknown option '--jsn' (did you mean '--json'?)"),
    (["status", "now"], "unexpected argument 'now'"),
    (["activate", "--max_flow", "5"], "(did you mean '--max_flows'?)"),
    (["activate", "--max_flows", "many"], "'resources.max_flows' must be from 1 to 4294967295, not 'many'"),
    (["collect", "shw"], "(did you mean 'show'?)"),
    (["coffee", "f", "1", "[2,3]"], "'args' must be from 0 to 4294967295, not '[2,3]'"),
    (["classify", "--ns", "-1", "x"], "'--ns' must be from 0 to 4294967295, not '-1'"),
    (["top", "-b", "-n", "0"], "'--count' must be from 1 to 4294967295, not '0'"),
    (["log", "-n", "0"], "'--lines' must be at least 1 without --follow"),
    (["log", "-n"], "'--lines' needs a value"),
    (["log", "-n", "1", "-n", "2"], "'--lines' is given more than once"),
    (["log", "--level"], "'--level' needs one of quiet, error"),
    (["log", "--follow=5"], "'--follow' takes no value but true or false"),
    (["collect", "set_interval", "x", "--interval", "0"], "'interval' must be from 1 to 4294967295"),
    (["events", "--sev", "bad"], "'--sev' must be one of info, warn, error, not 'bad'"),
    (["echo"], "'message' is missing"),
    (["push_pcap"], "'type' is missing: filename, buffer"),
    (["load", "--type", "devmem", "--size", "1"], "'shm.addr' is missing"),
    (["notifications", "socket", "add"], "'socket' is missing"),
    (["mt", "--depth", "256"], "'depth' must be from 0 to 255, not '256'"),
    (["mt", "--depth", "-1"], "'depth' must be from 0 to 255, not '-1'"),
    (["mt", "--depth", "5x"], "'depth' must be from 0 to 255, not '5x'"),
    (["collect", "set_exporter", "--type", "files"], "none, not 'files' (did you mean 'file'?)"),
    (["health", "configure", "[1]"], "'json' must be a JSON object, not '[1]'"),
    (["health", "configure", "{} 5"], "'json' must be a JSON object, not '{} 5'"),
    (["evidence"], "'evidence' needs a command: ls, show, prune"),
    (["evidence", "prune", "--keep", "-1"], "'--keep' must be from 0"),
    (["help", "statsu"], "unknown command 'statsu' (did you mean 'status'?)"),
    (["quit"], "unknown command 'quit'"),
    (["log", "--level", "wran"], "(did you mean 'warn'?)"),
    (["log", "--comp", "rpc"], "--comp needs the --level"),
    (["schema", "pnig"], "no method 'pnig' (did you mean 'ping'?)"),
    (["call", "log", "tipe=log"], "'log' has no parameter 'tipe' (did you mean 'type'?)"),
    (["call", "ping", "[1]"], "the parameters must be a JSON object"),
    (["call", "ping", "{}", '[{"a":1}]'], "neither NAME=VALUE nor"),
    (["call", "ping", '{"a"'], "no JSON"),
    (["call", "ping", "{} {}"], "no JSON: something stands behind its end"),
    (["--timeout", "0", "ping"], "'--timeout' must be from 0.001 to 86400 seconds, not '0'"),
    (["--timeout", "nan", "ping"], "not 'nan'"),
    (["top", "-b", "-d", "nan"], "not 'nan'"),
    (["--socket", "127.0.0.1:99999", "ping"], "has no port from 1 to 65535"),
    (["completion", "csh"], "must be one of bash, zsh, fish"),
    (["wait", "--for", "activate"], "attached, gone, not 'activate' (did you mean 'activated'?)"),
    (["reload", "--max_flows", "no"], "'resources.max_flows' must be from 0 to"),
    (["--socket=", "ping"], "'--socket' must not be empty"),
)


def stdout_to(path):
    return lambda: os.dup2(os.open(path, os.O_WRONLY), 1)


class Words(ProgramChecks, DaemonTest):
    def test_a_session_from_load_to_shutdown(self):
        daemon = self.daemon(engine=OURS)
        capture = self.captures / "sample.pcap"
        ok = (0, "ok\n")
        cut = self.folder / "cut.pcap"
        cut.write_bytes(capture.read_bytes()[:4000])
        for words, status, out, *more in (
                (["ping"], 0, re.compile(r"\Aanswer from /.* in [0-9]+\.[0-9][0-9] ms\n\Z")),
                (["status"], 0, has("state:          not loaded")),
                (["load"], *ok),
                (["activate"], *ok),
                (["collect", "show", "flows"], 0, re.compile("max: +16384")),
                (["status"], 0, has("engine ndpi:")),
                (["cmds"], 0, has("push_pcap       Classifies")),
                (["push_pcap", capture, "--reset"], 0, has("protocol")),
                (["push_pcap", capture, "--extended"], 0, has("destination")),
                (["collect", "ls"], 0, has("protocols")),
                (["collect", "show", "flows"], 0, re.compile("time: +20[0-9]+-[0-9]+-[0-9]+ [0-9]+:")),
                (["collect", "set_exporter", "--type", "none"], *ok),
                (["health", "show", "--verbose"], 0, has("state:")),
                (["health", "configure", "{}"], *ok),
                (["echo", "[status %s]"], *ok),
                (["--", "echo", "--not an option"], *ok),
                (["echo", "help"], *ok),
                (["coffee", "help"], 0, has("dp.ft.dump")),
                (["log", "?"], 0, has("\nUsage: brumectl log ")),
                (["help", "evidence", "ls"], 0, has("\nUsage: brumectl evidence ls ")),
                (["evidence", "help", "ls"], 0, has("\nUsage: brumectl evidence ls ")),
                (["version"], 0, starts("brumectl ")),
                (["call", "echo", "-"], *ok, "", '{"message":\n"from stdin"}\n'),
                (["call", "echo", "-"], 2, "", has("\nUsage: "), "[]"),
                (["log", "-n", "09"], 0, tuple(map(has, ("- [status %s]", "- --not an option", "- help", "from stdin")))),
                (["log", "--level", "debug", "--comp", "new%s"], *ok),
                (["log", "--level", "warn", "--comp", "default"], *ok),
                (["echo", "unheard"], *ok),
                (["log", "--levels"], 0, (has("default:  WARN"), has("new%s:    DEBUG"), has("server"))),
                (["log", "--level", "info", "--reset"], *ok),
                (["log", "-n", "9"], 0, (has("'new%s' verbosity was changed to level debug"), Lacks("unheard"), has(
                    "'default' verbosity was changed to level info, other components' verbosity removed"))),
                (["log", "--levels"], 0, (has("default:  INFO"), Lacks("DEBUG"))),
                (["notifications", "log"], 0, has("core.server.up")),
                (["notifications", "alerts", "--sev", "error"], 0, "no alerts\n"),
                (["notifications", "socket", "add", "/tmp/x", "--json"], 0, has('"result":{}')),
                (["notifications", "socket", "ls"], 0, has("/tmp/x")),
                (["notifications", "socket", "delete", "/tmp/x"], *ok),
                (["hogs"], 0, "no stalls\n"),
                (["call", "log", "type=log", "maxlines=1"], 0, has("] - 2")),
                (["call", "collect", "cmd=set_exporter", "socket.type=none"], *ok),
                (["call", "coffee", '{"func":"dp.ft.count"}'], 0, ANY),
                (["call", "pong"], 1, "", "brumectl: Method 'pong' not registered (did you mean 'ping'?)\n"),
                (["mt", "--json"], 1, has(":-32000,"), "brumectl: Mem tracing is not built into this image\n"),
                (["--result", "echo", "x"], 0, "{}\n"),
                (["mt", "--result"], 1, "", "brumectl: Mem tracing is not built into this image\n"),
                (["schema", "ping"], 0, has('"name":"ping"')),
                (["schema", "attach"], 0, (Lacks("x-build"), has("This daemon refuses it" if SLAVE else '"description":""'))),
                (["deactivate"], *ok),
                (["activate", "--max_flows", "1"], *ok),
                (["push_pcap", cut], 0, has("total "), re.compile(
                    "brumectl: /.*: damaged after [0-9]+ packets: .*\nbrumectl: [0-9]+ packets found no room for their flows\n")),
                (["deactivate"], *ok),
                (["unload"], *ok),
                (["shutdown"], *ok)):
            err, text = (*more, "", "")[:2] if more else ("", "")
            self.expect(words, status, out, err, socket=daemon.path, input=text)
        self.assertEqual(daemon.wait_exit(), 0)

    def test_what_cant_be_meant_is_answered_with_the_nearest_thing_that_can(self):
        for words, complaint in WRONG:
            self.expect(words, 2, "", (starts("brumectl: "), has(complaint), has("\nUsage: brumectl"),
                                       has("\nTry: brumectl help")), socket="/nonexistent")

    def test_an_engine_here_is_loaded_though_the_daemon_is_elsewhere(self):
        self.expect(["load", "--path", "lib"], 0, "ok\n", socket=self.daemon().path, setup=lambda: os.chdir(OURS.parent))

    def test_what_cant_be_written_is_told_and_fails_but_not_that_the_reader_has_seen_enough(self):
        daemon = self.daemon()
        told = "brumectl: the output can't be written: "
        for setup, status, complaint in ((stdout_to("/dev/full"), 1, told + "No space left on device\n"),
                                         (stdout_to_nobody, 128 + signal.SIGPIPE, ""),
                                         (lambda: os.close(1), 1, told + "Bad file descriptor\n")):
            for words in (["--help"], ["schema"], ["status"], ["status", "--json"], ["metrics"]):
                self.expect(words, status, ANY, complaint, socket=daemon.path, setup=setup)

    def test_a_reader_who_leaves_later_is_noticed_without_a_complaint(self):
        daemon = self.daemon("-a", engine=OURS)
        for words in (["events", "-f"], ["log", "-f"], ["top", "-b"], ["flows", "-f"]):
            reader, writer = os.pipe()
            with self.subTest(words), Program(*words, socket=daemon.path, stdout=writer) as program:
                os.close(writer)
                self.assertEqual(len(os.read(reader, 1)), 1)
                os.close(reader)
                self.assertEqual(program.wait(), 128 + signal.SIGPIPE)
                self.assertEqual(program.err(), "")

    def test_json_is_indented_at_a_terminal_only(self):
        daemon = self.daemon("-a", engine=OURS)
        for words in (["ping", "--json"], ["schema"], ["schema", "ping"], ["events", "--json"],
                      ["top", "-n", "1", "--json"], ["classify", "--json", self.captures / "sample.pcap", "--packets"],
                      ["check", "--json", "/dev/null"]):
            with self.subTest(words):
                compact = brumectl(*words, socket=daemon.path)[1]
                self.assertEqual(compact.count("\n"), 1)
                shown = brumectl(*words, socket=daemon.path, terminal=True)[1].rpartition("\x1b[K")[2]
                indented = shown[re.search(r"[\[{]", shown).start():]  # remarks go to the same terminal
                self.assertIn('" : ', indented)
                self.assertEqual(len(json.JSONDecoder().raw_decode(indented)[0]), len(json.loads(compact)))

    def test_a_complaint_is_made_though_nobody_reads_the_output(self):
        status, _, err = brumectl("metrics", socket="/nonexistent", setup=stdout_to_nobody)
        self.assertLess(status, 128)
        self.assertIn("/nonexistent", err)

    def test_a_reader_who_reads_nothing_cant_keep_ctrl_c_from_ending_the_program(self):
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        self.addCleanup(os.close, writer)
        room = fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
        with Program("schema", stdout=writer) as program:
            self.assertTrue(eventually(
                lambda: int.from_bytes(fcntl.ioctl(reader, termios.FIONREAD, bytes(4)), "little") == room))
            self.assertEqual(program.end(signal.SIGINT), 128 + signal.SIGINT)

    def test_a_method_that_an_engine_brings_along_is_called_like_any_other(self):
        daemon = self.daemon("-a", engine=ENGINES / "closed")
        self.expect(["call", "closed.all", f"dir={daemon.folder}"], 0, has("yes"), socket=daemon.path)
        self.expect(["cmds"], 0, has("closed.all     (the engine's own)"), socket=daemon.path)

    def test_the_log_is_followed_until_ctrl_c(self):
        daemon = self.daemon()
        with Program("log", "-f", "-n", "1", socket=daemon.path) as follower:
            self.assertTrue(follower.wait_for_out("Waiting for messages"))
            # The reply of `log` stops short of a line as long as the second.
            for text in ("first of them", "x" * 9000, "last of them"):
                daemon.result("echo", {"message": text})
                self.assertTrue(follower.wait_for_out(text))
            self.assertEqual(follower.out().count("first of them"), 1)
            self.expect(["log", "-n", "1"], 0, has("last of them"), socket=daemon.path)
            self.assertEqual(follower.end(signal.SIGINT), 128 + signal.SIGINT)


class ShellCompletion(ProgramChecks, DaemonTest):
    def complete(self, line, out, daemon):
        self.expect(["complete", f"--line=brumectl {line}"], 0, out, socket=daemon.path)

    def test_names_that_only_the_running_system_knows_are_completed(self):
        daemon = self.daemon("-a", "--attach", "if0", engine=SCRIPTED, files={
            "script": 'return get_collectors {"collectables":[{"name":"flows","enabled":true},"memory","$(x)y","-x"]}'})
        (daemon.folder / "cvevents/2026_11_24_13_05_59").mkdir(parents=True)
        own_interfaces = "default\tthe one that leads to the Internet\n"
        for line, found in (
                ("collect show ", "flows\tenabled\nmemory\t\n"),
                ("collect --interval 5 set_interval m", "memory\t\n"),
                ("-s /nonexistent collect show ", ""),
                ("attach ", (starts(own_interfaces), has("\nlo\t"))),
                ("-s 192.0.2.1:4040 attach ", own_interfaces),
                ("detach ", "if0\tattached\n"),
                ("coffee dp.ft.c", "dp.ft.count\tnumber of flows\n"),
                ("push_pcap --dpaddr=", "--dpaddr=dp0\t\n"),
                ("log --comp ser", "server\t\n"),
                ("log --comp de", "default\tINFO\n"),
                ("evidence show ", "2026_11_24_13_05_59\tkilled\n"),
                ("evidence show --dir /nonexistent ", ""),
                ("ping --j", "--json\tPrint replies as the daemon sent them\n")):
            self.complete(line, found, daemon)
        self.expect(["complete", "--line=brumectl check "], 1, "", ANY, socket=daemon.path)
        without_engine = self.daemon()
        self.complete("collect show ", "", without_engine)
        self.assertNotIn("ERROR", daemon.log_text() + without_engine.log_text(), "Tab asks nothing wrong")

    def test_what_can_stand_next_is_known_wherever_it_stands(self):
        for line, found in (
                ("sta", "status"),
                ("man", ""),
                ("--timeout 5 ech", "echo"),
                ("--timeout=5 ech", "echo"),
                ("--timeout ", ""),
                ("log --level w", "warn"),
                ("log --level=w", "--level=warn"),
                ("log -- --level=w", ""),
                ("collect s", "set_exporter set_interval show"),
                ("collect ls x ", ""),
                ("activate --max", "--max_flows"),
                ("activate --max_flows ", ""),
                ("call push", "push_pcap"),
                ("events --sev ", "error info warn"),
                ("evidence ", "ls prune show"),
                ("coffee dp.veld", "dp.veld.sui_lut_remove_all_links"),
                ("coffee -s /nonexistent f", ""),
                ("classify a.pcap ", "FILES"),
                ("load --path=", "FILES"),
                ("load --nothing=", ""),
                ("collect show ", "")):
            status, out, _ = brumectl("complete", f"--line=brumectl {line}", socket="/nonexistent")
            names = " ".join(candidate.partition("\t")[0] for candidate in out.splitlines())
            self.assertEqual("FILES" if status == 1 else names, found, line)

    def test_completed_functions_are_those_of_our_engine(self):
        daemon = self.daemon("-a", engine=OURS)

        def names(words, end):
            return {line.partition(end)[0] for line in brumectl(*words, socket=daemon.path)[1].splitlines()}
        self.assertEqual(names(["complete", "--line=brumectl coffee "], "\t"), names(["coffee", "help"], ":"))

    def script_is_read_by(self, shell, test, out):
        if not shutil.which(shell):
            self.skipTest(f"{shell} isn't installed")
        (self.folder / "script").write_text(brumectl("completion", shell)[1])
        (self.folder / "test").write_text(test)
        (self.folder / "brumectl").symlink_to(BRUMECTL)
        run = subprocess.run([shell, "test"], cwd=self.folder, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                             env={**os.environ, "HOME": ".", "PATH": f".:{os.environ['PATH']}"}, check=True)
        self.assertEqual(run.stdout, out)

    def test_its_script_is_read_by_bash(self):
        self.script_is_read_by("bash", r"""source ./script
        try() { COMP_LINE=$1 COMP_POINT=${#1}; shift; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _brumectl
                echo ${COMPREPLY[@]}; }
        try 'brumectl collect d' brumectl collect d
        try 'brumectl log --level=w' brumectl log --level = w
        try 'brumectl -s 1.2.3.4:5 ping --js' brumectl -s 1.2.3.4 : 5 ping --js
        compopt() { echo $*; }
        try 'brumectl check ' brumectl check ''""", "disable\nwarn\n--json\n-o default\n\n")

    def test_its_script_is_read_by_zsh(self):
        self.script_is_read_by("zsh", r"""_files() { echo files; }
        _describe() { print -l -- "${(@P)${@[-1]}}"; }
        words=(brumectl -s a:b evidence s) CURRENT=5 PREFIX=s; source ./script
        words=(brumectl check '') CURRENT=3 PREFIX=; _brumectl""", "show:Show a report with its stack\nfiles\n")

    def test_its_script_is_read_by_fish(self):
        self.script_is_read_by("fish", "source ./script; complete -C 'brumectl evidence s'; complete -C 'brumectl check scr'",
                               "show\tShow a report with its stack\nscript\n")
