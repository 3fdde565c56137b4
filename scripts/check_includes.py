#!/usr/bin/env python3
"""Holds the law of which folder may include which. Prints each breach and exits with 1 if there is one.

Dependencies point one way: utils <- infra <- server <- rpc/core. The engine sees only the boundary header.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# folder -> prefixes of includes of our own that it may use; the longest folder that matches a file counts
LAW = {
    "src/utils": ["utils/"],
    "src/infra": ["infra/", "utils/"],
    "src/infra/exports": ["infra/exports/", "utils/"],
    "src/infra/json": ["infra/json/", "infra/corvo_logger.h", "infra/corvo_rpc_command.h", "infra/corvo_zip.h", "utils/"],
    "src/server": ["server/", "infra/", "utils/"],
    "src/server/rpc": ["server/rpc/corvo_rpc_", "infra/", "utils/"],
    "src/server/rpc/core": [
        "server/rpc/core/", "server/corvo_server.h", "server/corvo_server_defaults.h",
        "server/corvo_server_loader.h", "server/watchdog/corvo_signal_report.h", "infra/", "utils/",
    ],
    "src/server/watchdog": ["server/", "infra/", "utils/"],
    "src/main.cpp": ["server/corvo_server_main.h", "infra/"],
    "include/brumecpd": [],
    "engine": ["brumecpd/", ""],
    "client": ["client/", "infra/json/", "utils/"],
}
ENGINE_MAY_NOT = ("utils/", "infra/", "server/")
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)


def room_of(path):
    rooms = [r for r in LAW if path == r or path.startswith(r + "/")]
    return max(rooms, key=len) if rooms else None


def breaches():
    files = subprocess.run(["git", "ls-files", "src", "include", "engine", "client"], cwd=ROOT,
                           capture_output=True, text=True, check=True).stdout.split()
    for path in files:
        room = room_of(path)
        if room is None or not path.endswith((".h", ".cpp")):
            continue
        for header in INCLUDE.findall((ROOT / path).read_text()):
            if room == "engine" and header.startswith(ENGINE_MAY_NOT):
                yield f"{path}: {room} may not include {header}"
            elif not any(header.startswith(prefix) for prefix in LAW[room]):
                yield f"{path}: {room} may not include {header}"


found = list(breaches())
print("\n".join(found) if found else "includes: every file keeps to its folder's law")
sys.exit(1 if found else 0)
