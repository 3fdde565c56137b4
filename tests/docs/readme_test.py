#!/usr/bin/env python3
"""Runs the command blocks of the README: readme_test.py SOURCE BUILD. Without BUILD it prints them.

Every ```sh block runs, all of one file in one shell that ends at the first failure, with a folder of the test's own for
`mktemp`. A block below `<!-- not run: reason -->` doesn't.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"^(?:<!-- not run: (?P<reason>.+?) -->\n\n?)?```sh\n(?P<commands>.*?)^```$", re.M | re.S)


def main():
    source, *build = (pathlib.Path(path).resolve() for path in sys.argv[1:3])
    readme = (source / "README.md").read_text()
    blocks = list(BLOCK.finditer(readme))
    commands = [block["commands"] for block in blocks if not block["reason"]]
    if not commands or readme.count("```sh\n") != len(blocks):
        sys.exit("README.md: no commands found, or a block that doesn't end")
    if re.search(r"^    (\./|scripts/|brume)", readme, re.M):
        sys.exit("README.md: commands outside of a ```sh block aren't run")
    if "/tmp/" in "".join(commands):
        sys.exit("README.md: what it makes in /tmp itself is in everybody's reach")
    if not build:
        print(*commands, sep="\n")
        return 0
    with tempfile.TemporaryDirectory() as tmp:
        checkout = pathlib.Path(tmp, "checkout")
        checkout.mkdir()
        for entry in source.iterdir():
            if not entry.name.startswith("build"):
                (checkout / entry.name).symlink_to(entry)
        (checkout / "build").symlink_to(build[0])
        script = "set -euxo pipefail\ntrap 'kill $(jobs -p) 2>/dev/null || true' EXIT\n" + "\n".join(commands)
        env = dict(os.environ, NO_COLOR="1", TMPDIR=tmp)
        return subprocess.run(["bash", "-c", script], cwd=checkout, env=env, timeout=110,
                              stdin=subprocess.DEVNULL).returncode


sys.exit(main())
