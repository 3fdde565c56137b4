"""Clients that do everything wrong, many at once."""
import contextlib
import json
import resource
import socket

import methods
from harness.case import OURS, SANITIZED, SCRIPTED
from harness.daemon import ENGINES
from harness.processes import descriptors, kib
from harness.rpc import request, unix_client
from trial import case, hold


def connect(daemon):
    return socket.create_connection(("127.0.0.1", daemon.tcp), timeout=30)


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


@case("64 descriptors and 200 idle connections")
def idle_connections(trial):
    daemon = trial.daemon("-a", tcp=True, engine=ENGINES / "inert",
                          setup=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (64, 64)))
    before = descriptors(daemon.child())
    with contextlib.ExitStack() as idle:
        for i in range(200):
            idle.enter_context(connect(daemon))
            if i % 20 == 0:
                hold("result" in daemon.call("status", seconds=10), f"no answer beside {i} idle connections")
        hold(descriptors(daemon.child()) <= before + 32, "more are kept than half of the descriptors")
        for method, params in (("deactivate", None), ("unload", None), ("load", None), ("log", {"type": "log"})):
            daemon.result(method, params)
    hold(daemon.alive(), "no answer after they left")
    hold(daemon.log_text().count("connections are taken") == 1, "the bound is told more or less than once")
    return "new requests go before idle connections"


# --- hostile texts -------------------------------------------------------------------------------------------
WORD = "Zq7"  # marks a text, so that it is found in a reply or a line
FORGED = "[    1] - forged"
TEXTS = {
    "printf": WORD + "%s%n%x%1000000d%*c%%%" + WORD,
    "NUL": WORD + "\0after" + WORD,
    "terminal": WORD + "\x1b[2J\x1b]0;title\x07\x7f\x08\r" + WORD,
    "60 KB": WORD + "x" * 59000 + WORD,
    "quotes": WORD + "\"'\\/<>&`$(reboot)" + WORD,
    "Unicode": WORD + "\u00e9\u20ac\U0001f600\u202e\ufeff" + WORD,
    "path": WORD + "/../" * 2000 + WORD,
    "line breaks": f"{WORD}\n{FORGED}\r\n{WORD}",
}
# As raw JSON, since no writer would write them.
RAW = {
    "invalid UTF-8": b'"Zq7\xff\xfe\xc0\x80\xed\xa0\x80Zq7"',
    "lone surrogate": b'"Zq7\\ud800Zq7"',
    "deep nesting": b"[" * 20000 + b"]" * 20000,
    "raw NUL": b'"Zq7\0Zq7"',
}


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
        daemon.broken_lines = (FORGED.encode(), WORD.encode())
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
    return f"{sent} requests, {echoed} texts came back whole; whole lines in the log, unless a text breaks them"
