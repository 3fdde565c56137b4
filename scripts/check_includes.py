#!/usr/bin/env python3
"""Holds the law of which folder may include which. Prints each breach and exits with 1 if there is one.

Dependencies point one way: utils <- infra <- server <- rpc/core. The engine sees only the boundary header. In the client
words see all, and nobody sees words.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

SHARED_WITH_THE_CLIENT = ["infra/corvo_json.h", "utils/"]
ENDINGS = ["failure.h", "interrupt.h"]
FEATURE = ["text/", "wire/", "context.h", *ENDINGS]

# folder -> prefixes of includes of our own that it may use; the longest folder that matches a file counts
LAW = {
    "src/utils": ["utils/"],
    "src/infra": ["infra/", "utils/"],
    "src/server": ["server/", "infra/", "utils/"],
    "src/server/rpc": ["server/rpc/corvo_rpc_", "infra/", "utils/"],
    "src/server/rpc/core": [
        "server/rpc/core/", "server/corvo_server.h", "server/corvo_server_defaults.h",
        "server/corvo_server_loader.h", "server/watchdog/corvo_server_sig.h", "infra/", "utils/",
    ],
    "src/server/watchdog": ["server/", "infra/", "utils/"],
    "src/main.cpp": ["server/corvo_server_main.h", "infra/"],
    "include/brumecpd": [],
    "engine": ["brumecpd/", ""],
    # On top stands what every folder of the client shares, and `program`, which alone sees the words.
    **{f"client/{room}": [f"client/{other}" for other in [f"{room}/", *others]] + SHARED_WITH_THE_CLIENT
       for room, others in {
           "text": ENDINGS,
           "wire": ["text/", *ENDINGS],
           "check": FEATURE,
           "classify": FEATURE,
           "evidence": FEATURE,
           "lifecycle": [*FEATURE, "check/"],
           "live": FEATURE,
           "shell": ["text/", *ENDINGS],
           "words": [""],
       }.items()},
    "client": ["client/context.h", "client/failure.h", "client/interrupt.h", "client/text/", "client/wire/",
               *SHARED_WITH_THE_CLIENT],
    "client/program.cpp": ["client/", *SHARED_WITH_THE_CLIENT],
    "client/main.cpp": ["client/program.h", "client/interrupt.h"],
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
