"""The manual pages, compared with what they tell of."""
import json
import os
import re
import subprocess
import sys

from harness.case import DaemonTest
from harness.daemon import BUILD, ROOT
from harness.program import brumectl

sys.path.insert(0, str(ROOT / "scripts"))
import man_page  # noqa: E402

PAGES = ROOT / "packaging/man"


def text_of(page):
    return (PAGES / f"{page}.scd").read_text()


def options_of(lines):
    """The names of each option at the start of a line, in one text."""
    return [" ".join(re.findall(r"(?<![\w-])--?[a-z][a-z_]*", line)) for line in lines]


class ManPages(DaemonTest):
    def assertSame(self, told, real):
        self.assertEqual(set(told), set(real))
        self.assertTrue(told)

    def test_the_daemons_options_and_defaults_are_those_of_its_help(self):
        page = text_of("brumecpd.8")
        shown = subprocess.run([BUILD / "bin/brumecpd", "--help"], env={**os.environ, "COLUMNS": "200"}, text=True, check=True,
                               stdout=subprocess.PIPE).stdout
        self.assertSame(options_of(line for line in page.splitlines() if line.startswith("*-")),
                        options_of(line[:36] for line in shown.splitlines() if line.startswith("  -")))
        for default in re.findall(r"\(default: (\d+)", shown):
            self.assertIn(default, page)

    def test_an_engines_functions_are_those_of_the_header(self):
        function = r"corvo_api_cp_\w+"
        self.assertSame(re.findall(function, text_of("brumecpd-engine.3")), re.findall(
            rf"BRUMECPD_ENGINE_API \w+ ({function})", (ROOT / "include/brumecpd/engine_api.h").read_text()))

    def test_the_clients_environment_and_words_are_its_own(self):
        # Libraries read the first four.
        client = "".join(file.read_text() for file in (ROOT / "client").rglob("*.cpp"))
        environment = text_of("brumectl.1").split("# ENVIRONMENT")[1].split("\n# ")[0]
        self.assertSame(re.findall(r"\*(\w+)\*", "\n".join(re.findall(r"^\*.*", environment, re.M))),
                        {"LC_ALL", "LC_CTYPE", "LANG", "TZ"} | set(re.findall(r'(?:getenv|variable)\("(\w+)"', client)))
        words = re.sub(r"\\(.)", r"\1", brumectl("man-tables")[1])
        for told in (
                "# OPTIONS\n", "\n# COMMANDS\n", "\n## evidence show\n",
                "\n*brumectl classify* [_OPTION_...] _files_...\n",
                "\n*-s*, *--socket* _ADDRESS_\n",
                "One of *enable*, *disable*, *set_interval*, *ls*, *set_exporter* or *show*. Required.\n",
                "May be repeated. Required.\n",
                "\n*brumectl evidence ls*\n"):
            self.assertIn(told, words)

    def test_examples_are_there_and_true(self):
        for page in PAGES.iterdir():
            self.assertIn("\n# EXAMPLE", page.read_text(), page.name)
        self.assertIn((ROOT / "packaging/examples/startup.json").read_text(), text_of("brumecpd-config.5"))
        daemon = self.daemon()
        program = re.search(r"```\n(import json.*?)```", text_of("brumecpd-rpc.7"), re.S)[1]
        program = program.replace("/run/brumecpd/brumecpd.sock", daemon.path)
        self.assertEqual(subprocess.run([sys.executable, "-c", program], stdout=subprocess.PIPE).stdout, b"not loaded\n")
        for method in json.loads((BUILD / "openrpc.json").read_text())["methods"]:
            example = man_page.telling_example(method)
            if ("not loaded" not in example.get("x-states", ["not loaded"]) or example.get("x-varies")
                    or method["name"] in ("load", "notifications", "shutdown")):
                continue
            request, reply = man_page.messages(method, example)
            self.assertEqual({**json.loads(daemon.raw(json.dumps(request))), "ms": 0}, {**reply, "ms": 0})
