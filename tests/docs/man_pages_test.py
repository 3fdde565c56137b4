#!/usr/bin/env python3
"""Compares the manual pages with what they tell about: man_pages_test.py SOURCE BUILD"""
import json
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile

source, build = (pathlib.Path(folder).resolve() for folder in sys.argv[1:])
sys.path.insert(0, str(source / "scripts"))
import man_page  # noqa: E402

pages = source / "packaging" / "man"
brumecpd = build / "bin" / "brumecpd"


def text_of(page):
    return (pages / f"{page}.scd").read_text()


def same(what, told, real):
    if set(told) != set(real) or not real:
        sys.exit(f"{what}: only in the page {sorted(set(told) - set(real))}, missing {sorted(set(real) - set(told))}")


def options_of(lines):
    """The names of each option that stands at a line's begin, in one text."""
    return [" ".join(re.findall(r"(?<![\w-])--?[a-z][a-z_]*", line)) for line in lines]


page = text_of("brumecpd.8")
shown = subprocess.run([brumecpd, "--help"], env=dict(os.environ, COLUMNS="200"), text=True, check=True,
                       stdout=subprocess.PIPE).stdout
same("options of brumecpd(8)",
     options_of(line for line in page.splitlines() if line.startswith("*-")),
     options_of(line[:36] for line in shown.splitlines() if line.startswith("  -")))
for default in re.findall(r"\(default: (\d+)", shown):
    if default not in page:
        sys.exit(f"brumecpd(8) doesn't tell the default {default}")

header = (source / "include" / "brumecpd" / "engine_api.h").read_text()
function = r"corvo_api_cp_\w+"
same("functions of brumecpd-engine(3)", re.findall(function, text_of("brumecpd-engine.3")),
     re.findall(rf"BRUMECPD_ENGINE_API \w+ ({function})", header))

if (source / "packaging" / "examples" / "startup.json").read_text() not in text_of("brumecpd-config.5"):
    sys.exit("brumecpd-config(5) doesn't show packaging/examples/startup.json")

# Those that libraries read for the client beside what it reads itself.
client = "".join(file.read_text() for file in (source / "client").rglob("*.cpp"))
environment = text_of("brumectl.1").split("# ENVIRONMENT")[1].split("\n# ")[0]
same("environment of brumectl(1)", re.findall(r"\*(\w+)\*", "\n".join(re.findall(r"^\*.*", environment, re.M))),
     {"LC_ALL", "LC_CTYPE", "LANG", "TZ"} | set(re.findall(r'(?:getenv|variable)\("(\w+)"', client)))

words = subprocess.run([build / "bin" / "brumectl", "man-tables"], text=True, check=True, stdout=subprocess.PIPE).stdout
for told in (
        "# OPTIONS\n", "\n# COMMANDS\n", "\n## evidence show\n",
        "\n*brumectl classify* [_OPTION_...] _files_...\n",
        "\n*-s*, *--socket* _ADDRESS_\n",
        "One of *enable*, *disable*, *set_interval*, *ls*, *set_exporter* or *show*. Required.\n",
        "May be repeated. Required.\n",
        "\n*brumectl evidence ls*\n"):
    if told not in re.sub(r"\\(.)", r"\1", words):
        sys.exit(f"brumectl(1) lacks {told!r}")

for page in pages.iterdir():
    if "\n# EXAMPLE" not in page.read_text():
        sys.exit(f"{page.name} has no example")


def comparable(method, reply):
    """All that doesn't differ from run to run."""
    told = [example for example in method["examples"] if example.get("x-varies")]
    return {name: type(value).__name__ if told and name in ("result", "fmt") else value
            for name, value in reply.items() if name != "ms"}


# What brumecpd-rpc(7) shows, asked of a daemon without an engine, by the page's own means.
with tempfile.TemporaryDirectory() as folder:
    path = folder + "/s"
    program = re.search(r"```\n(import json.*?)```", text_of("brumecpd-rpc.7"), re.S)[1]
    program = program.replace("/run/brumecpd/brumecpd.sock", path)
    with subprocess.Popen([brumecpd, "-m", "us", "-s", path, "-l", folder + "/log", "--wd_disable"], cwd=folder,
                          stdout=subprocess.DEVNULL) as daemon:
        try:
            while subprocess.run([build / "bin" / "brumectl", "-s", path, "ping"], stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL).returncode and daemon.poll() is None:
                pass
            answer = subprocess.run([sys.executable, "-c", program], text=True, stdout=subprocess.PIPE).stdout
            same("answer to the program of brumecpd-rpc(7)", [answer], ["not loaded\n"])
            client = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
            client.bind("")
            client.connect(path)
            document = json.loads((build / "openrpc.json").read_text())
            for method in sorted(document["methods"], key=lambda method: method["name"] == "shutdown"):
                example = man_page.telling_example(method)
                if "not loaded" not in example.get("x-states", ["not loaded"]) or method["name"] in ("load", "notifications"):
                    continue
                request, reply = man_page.messages(method, example)
                client.send(json.dumps(request).encode())
                real = json.loads(client.recv(1 << 20))
                same(f"reply of {method['name']}", [json.dumps(comparable(method, reply), sort_keys=True)],
                     [json.dumps(comparable(method, real), sort_keys=True)])
        finally:
            daemon.kill()
