"""Clients that do everything wrong, many at once."""
import contextlib
import json
import socket
import struct
import time

import methods
from harness.case import OURS, SANITIZED, SCRIPTED
from harness.processes import descriptors, kib
from harness.rpc import request, unix_client
from trial import LINE, case, hold

RESET = struct.pack("ii", 1, 0)
PING = request("ping") + b"\n"


def connect(daemon):
    return socket.create_connection(("127.0.0.1", daemon.tcp), timeout=30)


@case("1000 TCP connections that are reset at once")
def reset(trial):
    daemon = trial.daemon(tcp=True)
    before = descriptors(daemon.child())
    for i in range(1000):
        if i % 8 == 7:  # the backlog takes ten; whoever finds it full waits a second until the SYN is repeated
            time.sleep(0.003)
        with connect(daemon) as s:
            s.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET)
            s.sendall((b"", PING[:-5], PING)[i % 3])
    hold(daemon.alive(), "no answer")
    daemon.hold_descriptors(before)
    return "nothing, half a line, a whole line before it: all descriptors back"


# --- readers that don't read ---------------------------------------------------------------------------------
@case("TCP clients that never read their 5 MB replies")
def unread_tcp(trial):
    daemon = trial.daemon(tcp=True)
    before = descriptors(daemon.child())
    big = "x" * 5_000_000
    kept = []
    for _ in range(2 if trial.short else 10):
        unread = [connect(daemon) for _ in range(4)]
        for s in unread:
            s.sendall(request("ping", id=big) + b"\n")
            hold(daemon.call("ping", seconds=30), "nobody else is served")
        with unread.pop().makefile("rb") as late:
            hold(json.loads(late.read())["id"] == big, "the reply is broken")
        for s in unread:
            s.close()
        daemon.hold_descriptors(before)
        kept.append(kib(daemon.child(), "Anonymous", "smaps_rollup") >> 10)
    # The heap keeps what it was given once, and uses it again.
    hold(max(kept) < 100 or SANITIZED, f"{kept} MiB stay")
    return f"others are served; read at last, it is whole; descriptors back, at most {max(kept)} MiB kept for the next"


@case("a Unix client that doesn't read its replies in time")
def unread_unix(trial):
    daemon, got = trial.daemon(), 0
    with unix_client(daemon.path, seconds=3) as s:
        for _ in range(1000):
            s.send(request("ping", id="x" * 20000))
        with contextlib.suppress(TimeoutError):
            while s.recv(1 << 20):
                got += 1
    lost = daemon.log_text().count("Sendto failed")
    hold(lost and got + lost == 1000, f"{got} replies, {lost} lines of lost ones")
    hold(daemon.alive(), "no answer")
    return f"{lost} lost, each with a line in the log; others are answered"


# --- hostile texts -------------------------------------------------------------------------------------------
WORD = "Zq7"  # marks a text, so that it is found in a reply or a line
TEXTS = {
    "printf": WORD + "%s%n%x%1000000d%*c%%%" + WORD,
    "NUL": WORD + "\0after" + WORD,
    "terminal": WORD + "\x1b[2J\x1b]0;title\x07\x7f\x08\r" + WORD,
    "60 KB": WORD + "x" * 59000 + WORD,
    "quotes": WORD + "\"'\\/<>&`$(reboot)" + WORD,
    "Unicode": WORD + "\u00e9\u20ac\U0001f600\u202e\ufeff" + WORD,
    "path": WORD + "/../" * 2000 + WORD,
}
# As raw JSON, since no writer would write them.
RAW = {
    "invalid UTF-8": b'"Zq7\xff\xfe\xc0\x80\xed\xa0\x80Zq7"',
    "lone surrogate": b'"Zq7\\ud800Zq7"',
    "deep nesting": b"[" * 20000 + b"]" * 20000,
    "raw NUL": b'"Zq7\0Zq7"',
}
BROKEN_LINES = WORD + "\n[    1] - forged\r\n\n" + WORD


def states(trial):
    """A daemon without an engine, one with an engine that takes everything, one with ours."""
    yield trial.daemon()
    daemon = trial.daemon(engine=SCRIPTED)
    daemon.result("load")
    daemon.result("activate", {"resources": {"max_flows": 10}})
    yield daemon
    if not trial.short:
        yield trial.daemon("-a", engine=OURS)
        yield trial.daemon("-a", engine=OURS, tcp=True)


def requests_with(text):
    """A request for each place where a client may give a text, with the place."""
    ping = {"jsonrpc": "2.0", "id": 1, "method": "ping"}
    for method in methods.METHODS.values():
        for example in method["examples"]:
            params = {param["name"]: param["value"] for param in example["params"]}
            for name, value in params.items():
                for spoilt in methods.with_text(value, text):
                    yield f"{method['name']}, {name}", {**ping, "method": method["name"], "params": {**params, name: spoilt}}
    for name, value in (("method", text), ("jsonrpc", text), ("id", text), ("params", text), ("accept", [text])):
        yield name, {**ping, name: value}


def check_hostile(daemon, kind, place, message, text):
    """One reply; a text that comes back comes back whole."""
    reply = daemon.ask(message)
    hold(reply, f"{place}, {kind}: no reply")
    value = json.loads(reply)
    error = json.dumps(value.get("error", {}) if isinstance(value, dict) else {}, ensure_ascii=False)
    # Texts of exceptions are C strings, which end at a NUL.
    whole = json.dumps(text.partition("\0")[0], ensure_ascii=False)[1:-1] if text is not None else None
    # Our engine repeats no more than the first 80 bytes of a word.
    hold(whole is None or WORD not in error or whole in error or ("...'" in error and f"'{whole[:75]}" in error),
         f"{place}, {kind}: not unchanged in {error[:200]}")
    return WORD in error


@case("hostile texts in every text that a client can give")
def hostile(trial):
    sent = echoed = 0
    for daemon in states(trial):
        for kind, text in TEXTS.items():
            for place, message in requests_with(text):
                encoded = json.dumps(message, ensure_ascii=False).encode()
                if not daemon.tcp and len(encoded) > 60000:
                    encoded = encoded.replace(b"x" * 30000, b"")
                    kind, text = "30 KB", None
                echoed += check_hostile(daemon, kind, place, encoded, text)
                sent += 1
        for kind, raw in RAW.items():
            for place, message in requests_with("PLACE"):
                encoded = json.dumps(message).replace('"PLACE": ', '"k": ').encode().replace(b'"PLACE"', raw)
                check_hostile(daemon, kind, place, encoded, None)
                sent += 1
        hold(daemon.alive(), "no answer")
    return f"{sent} requests, {echoed} texts came back whole; whole lines in the log"


@case("line breaks in every text that a client can give")
def line_breaks(trial):
    """The log writes texts as they are, so such a text becomes several lines. There may be no other strange ones."""
    daemon = trial.daemon()
    for place, message in requests_with(BROKEN_LINES):
        check_hostile(daemon, "line breaks", place, json.dumps(message).encode(), BROKEN_LINES)
    daemon.hold_clean_end()
    own = {b"", *(piece.strip() for piece in BROKEN_LINES.encode().split(b"\n"))}
    strange = [line for line in daemon.log.read_bytes().split(b"\n")[:-1] if not LINE.match(line)]
    for line in strange:
        hold(line.strip() in own or line.startswith(WORD.encode()), f"a malformed line: {line[:120]!r}")
    daemon.check_log = lambda: None
    return f"back unchanged; {len(strange)} lines of the log are pieces of them"
