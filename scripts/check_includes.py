#!/usr/bin/env python3
"""Checks which folder includes which. Prints each breach of the rules and exits with 1 if there is one.

docs/architecture.md draws it: utils <- infra <- watchdog, rpc <- server <- rpc/core. The engine sees only the boundary.
In the client words see all, and nobody sees words.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

SHARED_WITH_THE_CLIENT = ["infra/json/corvo_json.h", "utils/"]
ENDINGS = ["failure.h", "interrupt.h"]
FEATURE = ["text/", "wire/", "context.h", *ENDINGS]

# folder or file -> prefixes of our own includes that it may use, "./" for those of its own folder. The longest entry
# that matches a file counts.
LAW = {
    "src/utils": ["utils/", "brumecpd/exception.h"],
    "src/infra": ["infra/", "utils/", "brumecpd/engine_notify.h", "brumecpd/engine_rpc.h"],
    "src/infra/exports": ["infra/exports/", "utils/"],
    "src/infra/json": ["infra/json/", "infra/corvo_logger.h", "infra/corvo_rpc_command.h", "infra/corvo_zip.h", "utils/"],
    "src/server/rpc": ["server/rpc/corvo_rpc_", "infra/", "utils/"],
    "src/server/watchdog": ["server/watchdog/", "infra/", "utils/"],
    "src/server": [
        "server/corvo_", "server/rpc/corvo_rpc_server.h", "server/rpc/core/corvo_rpc_core.h",
        "server/watchdog/corvo_server_wd.h", "server/watchdog/corvo_wd_conf.h",
        "server/watchdog/corvo_wd_server.h", "server/watchdog/corvo_server_sig.h",
        "server/watchdog/corvo_info.h", "infra/", "utils/", "brumecpd/engine_api.h",
    ],
    "src/server/rpc/core": [
        "server/rpc/core/", "server/corvo_server.h", "server/corvo_server_defaults.h",
        "server/corvo_server_loader.h", "server/watchdog/corvo_signal_report.h", "infra/", "utils/",
        "brumecpd/engine_api.h",
    ],
    # This is all that the server sees of the methods, so it must not lead back to the server.
    "src/server/rpc/core/corvo_rpc_core.h": ["infra/corvo_rpc_command.h"],
    "src/main.cpp": ["server/corvo_server_main.h", "infra/"],
    "include/brumecpd": ["brumecpd/"],
    "engine": ["./", "brumecpd/"],
    "examples": ["./", "brumecpd/"],
    "tools/captures": ["tools/captures/", "utils/"],
    "tools/engine-check": [
        "tools/engine-check/", "tools/captures/sample_flows.h", "server/rpc/core/corvo_rpc_core.h",
        "server/corvo_server_inject.h", "server/corvo_server_loader_api.h", "infra/corvo_rpc_command.h", "utils/",
        "brumecpd/",
    ],
    # At the top is what every folder of the client shares, and `program`, the only one that sees the words.
    **{f"client/{room}": [f"client/{other}" for other in [f"{room}/", *others]] + SHARED_WITH_THE_CLIENT
       for room, others in {
           "text": ENDINGS,
           "wire": ["text/", *ENDINGS],
           "check": FEATURE,
           "classify": FEATURE,
           "evidence": FEATURE,
           "flows": FEATURE,
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
# Other headers in angle brackets aren't ours.
INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<(brumecpd/[^>]+)>)', re.M)


def room_of(path):
    rooms = [r for r in LAW if path == r or path.startswith(r + "/")]
    return max(rooms, key=len) if rooms else None


def breaches():
    folders = sorted({room.split("/")[0] for room in LAW})
    files = subprocess.run(["git", "ls-files", *folders], cwd=ROOT, capture_output=True, text=True,
                           check=True).stdout.split()
    for path in files:
        room = room_of(path)
        if room is None or not path.endswith((".h", ".cpp", ".c")):
            continue
        source = ROOT / path
        for quoted, angled in INCLUDE.findall(source.read_text()):
            header = quoted or angled
            local = ".." not in header and (source.parent / header).exists()
            names = [header, f"./{header}"] if local else [header]
            if not any(name.startswith(beginning) for name in names for beginning in LAW[room]):
                yield f"{path}: {room} may not include {header}"


found = list(breaches())
print("\n".join(found) if found else "includes: every file keeps to its folder's law")
sys.exit(1 if found else 0)
