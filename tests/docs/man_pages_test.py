#!/usr/bin/env python3
"""Compares the manual pages with what they tell about: man_pages_test.py SOURCE BRUMECPD"""
import os
import pathlib
import re
import subprocess
import sys

source = pathlib.Path(sys.argv[1])
pages = source / "packaging" / "man"


def same(what, told, real):
    if set(told) != set(real) or not real:
        sys.exit(f"{what}: only in the page {sorted(set(told) - set(real))}, missing {sorted(set(real) - set(told))}")


def options_of(lines):
    """The names of each option that stands at a line's begin, in one text."""
    return [" ".join(re.findall(r"(?<![\w-])--?[a-z][a-z_]*", line)) for line in lines]


page = (pages / "brumecpd.8.scd").read_text()
shown = subprocess.run([sys.argv[2], "--help"], env=dict(os.environ, COLUMNS="200"), text=True, check=True,
                       stdout=subprocess.PIPE).stdout
same("options of brumecpd(8)",
     options_of(line for line in page.splitlines() if line.startswith("*-")),
     options_of(line[:36] for line in shown.splitlines() if line.startswith("  -")))
for default in re.findall(r"\(default: (\d+)", shown):
    if default not in page:
        sys.exit(f"brumecpd(8) doesn't tell the default {default}")

header = (source / "include" / "brumecpd" / "engine_api.h").read_text()
function = r"corvo_api_cp_\w+"
same("functions of brumecpd-engine(3)", re.findall(function, (pages / "brumecpd-engine.3.scd").read_text()),
     re.findall(rf"BRUMECPD_ENGINE_API \w+ ({function})", header))

example = (source / "packaging" / "examples" / "startup.json").read_text()
if example not in (pages / "brumecpd-config.5.scd").read_text():
    sys.exit("brumecpd-config(5) doesn't show packaging/examples/startup.json")
