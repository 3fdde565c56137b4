"""brumecp-engine-check on sound libraries, on each kind of broken one, and on the example, built as its author would
build it."""
import os
import re
import resource
import shutil
import subprocess

from harness.case import SANITIZED, DaemonTest
from harness.daemon import BUILD, ENGINES, OURS, ROOT, SCRIPTED

CHECK = BUILD / "bin/brumecp-engine-check"


class EngineTool(DaemonTest):
    def run_tool(self, *words, cwd=None, **env):
        """Its status, and all that it printed."""
        ended = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                               cwd=cwd or self.folder, env={**os.environ, "TEST_ENGINE_SCRIPT": "script", **env},
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)))
        return ended.returncode, ended.stdout

    def check(self, library, status, failures, timeout=60, script=""):
        """failures: step and note of each step that must fail. Returns what was printed."""
        (self.folder / "script").write_text(script)
        with self.subTest(library=str(library), script=script):
            ended, out = self.run_tool(CHECK, "--timeout", str(timeout), library,
                                       ASAN_OPTIONS="handle_segv=0:handle_abort=0")
            found = re.findall(r"^(\w[\w ]*?) {2,}failed +\d+ *(.*)$", out, re.MULTILINE)
            self.assertEqual((ended, found), (status, failures), out)
        return out


class EngineCheck(EngineTool):
    def test_finds_sound_engines_fit(self):
        for library in (OURS, ENGINES / "inert", SCRIPTED, ENGINES / "inert/libcvcp_u.so"):
            self.check(library, 0, [])

    def test_tells_what_is_wrong_with_each_library_of_the_shelf(self):
        for name, step, note in (
                ("not_a_library", "open", f"{ENGINES}/not_a_library/libcvcp_u.so: file too short"),
                ("nosuch", "open", f"{ENGINES}/nosuch: cannot open shared object file: No such file or directory"),
                ("without_activate", "functions", "missing: corvo_api_cp_activate"),
                ("without_coffee", "functions", "missing: corvo_api_cp_coffee"),
                ("without_get_evfd", "functions", "missing: corvo_api_cp_get_evfd"),
                ("init_fails", "init", "100% broken"),
                ("evfd_zero", "descriptor", "must be above 0, is 0"),
                ("evfd_closed", "descriptor", "1000 isn't open")):
            self.check(ENGINES / name, 1, [(step, note)])

    def test_outlives_an_engine_that_dies_or_hangs_and_names_the_step(self):
        for script, step, note in (
                ("crash activate null", "activate", "died of signal 11 (Segmentation fault)"),
                ("crash push_pkts abort", "push", "died of signal 6 (Aborted)"),
                ("crash tick hang", "tick", "not done within 5 s, killed"),
                ("crash deinit exit 0", "deinit", "ended the process with status 0"),
                ("crash init throw", "init", "an exception left the function: scripted exception"),
                ("fail coffee no \x1b[31mcolour", "forget flows", "dp.veld.sui_lut_remove_all_links: no ?[31mcolour"),
                ("nonsense push_pkts", "push", "the number of packets changed"),
                ("signal tick", "settle", "the descriptor stays readable: the daemon would call tick for ever")):
            if "null" not in script or not SANITIZED:  # a sanitizer sees the null pointer first
                self.check(SCRIPTED, 1, [(step, note)], timeout=5 if "hang" in script else 60, script=script)

    def test_tells_what_an_engine_doesnt_give_back(self):
        self.check(BUILD / "tests/tools/careless", 1, [
            ("methods", "in the place of the daemon's own: ping"),
            ("leftovers", "not given back: methods: left, the daemon's own methods: ping, threads: 2, descriptors: 2")])

    def test_passes_on_what_the_engine_prints_and_refuses_bad_options(self):
        self.assertIn("a word of warning\n", self.check(SCRIPTED, 0, [], script="stderr init a word of warning"))
        for bad in ((), ("a", "b"), ("--timeout", "0", "a"), ("--timeout", "x", "a"), ("--nosuch", "a")):
            self.assertEqual(self.run_tool(CHECK, *bad)[0], 2, bad)


class EngineExample(EngineTool):
    def test_is_built_against_the_installed_files_alone_and_is_fit(self):
        prefix, source = self.folder / "prefix", self.folder / "source"
        status, out = self.run_tool("cmake", "--install", BUILD, "--component", "dev", "--prefix", prefix)
        self.assertEqual(status, 0, out)
        # A copy, so that nothing beside it in the source tree can help.
        shutil.copytree(ROOT / "examples/engine", source)
        # All commands of its README as they stand there: with CMake, the check, and without CMake.
        status, out = self.run_tool("sh", "-exc", "eval \"$(sed -n 's/^    //p' README.md)\"", cwd=source,
                                    CMAKE_PREFIX_PATH=str(prefix), PATH=f"{prefix}/bin:{os.environ['PATH']}",
                                    PKG_CONFIG_PATH=f"{prefix}/share/pkgconfig")
        self.assertEqual(status, 0, out)
        for built in (source / "build", source):
            status, out = self.run_tool(prefix / "bin/brumecp-engine-check", "--timeout", "60", built)
            self.assertEqual(status, 0, out)
            self.assertIn("57 of 99 packets classified", out)
            self.assertIn("ports.name", out)
