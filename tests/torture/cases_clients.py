"""Clients that do everything wrong, many at once."""
import contextlib
import json
import random
import socket
import struct
import subprocess
import time

import methods
from harness.daemon import BUILD, OURS, SCRIPTED
from harness.processes import descriptors, kib
from harness.rpc import free_port, request, unix_client
from trial import LINE, case, hold, meanwhile

RESET = struct.pack("ii", 1, 0)
PING = request("ping") + b"\n"


def connect(daemon):
    return socket.create_connection(("127.0.0.1", daemon.tcp), timeout=30)


@case("1000 TCP connections that are reset at once")
def reset(trial):
    daemon = trial.daemon(tcp=free_port())
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
    daemon = trial.daemon(tcp=free_port())
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
    hold(max(kept) < 100 or "asan" in str(BUILD), f"{kept} MiB stay")
    return f"others are served; read at last, it is whole; descriptors back, at most {max(kept)} MiB kept for the next"


@case("a Unix client whose 5 MB reply can't be sent, and one that never reads")
def unread_unix(trial):
    daemon = trial.daemon()
    for _ in range(700):
        daemon.call("echo", {"message": "y" * 8000})
    reply = daemon.ask(request("log", {"type": "log", "maxlines": 700}), seconds=3)
    hold(reply is None or len(reply) > 5_000_000, "a part of a reply")
    got = 0
    with unix_client(daemon.path) as s:
        for _ in range(1000):
            s.send(PING)
        hold(daemon.alive(), "no answer")
        s.setblocking(False)
        with contextlib.suppress(BlockingIOError):
            while s.recv(1 << 20):
                got += 1
    lost = daemon.log.read_bytes().count(b"Sendto failed")
    hold(got + lost == 1000 + (reply is None), f"{got} replies, {lost} lines of lost ones")
    return f"{lost} lost, each with a line in the log; others are answered"


# --- many requests of all kinds ------------------------------------------------------------------------------
MIXED = ["ping", "status", "cmds", "events", "notifications", "collect", "health", "coffee", "log", "push_pcap", "attach"]
NO_EXPORTER = ("collect", {"cmd": "set_exporter", "socket": {"type": "none"}})  # an exporter holds sockets


def mixed_request(rng, number):
    method = rng.choice(MIXED)
    params = methods.half_valid(rng, method)
    if method == "log":
        params = {"type": "log", "maxlines": 3}
    return request(method, params, id=number)


def mutated(rng, text):
    text = bytearray(text)
    for _ in range(rng.randint(1, 4)):  # a byte more, a byte changed, or some less
        at = rng.randrange(len(text))
        text[at:at + rng.choice((0, 1, 9))] = rng.randbytes(rng.randrange(2))
    return bytes(text)


def check_reply(reply, number, changed):
    hold(reply and reply.endswith(b"\n") and reply.count(b"\n") == 1, f"{number}: no reply of one line: {reply[:100]!r}")
    value = json.loads(reply)
    if not changed:
        hold(value and value["id"] == number, f"{number}: another's reply {reply[:100]!r}")
        hold(("result" in value) != ("error" in value), f"{number}: {reply[:100]!r}")


def flood_of(daemon, count, seed):
    """Sends `count` requests, a hundredth of them mutated, and checks each one's reply."""
    rng = random.Random(seed)
    with contextlib.nullcontext() if daemon.tcp else unix_client(daemon.path, 60) as s:
        for number in range(1, count + 1):
            text, changed = mixed_request(rng, number), rng.random() < 0.01
            if changed:
                text = mutated(rng, text)
            if daemon.tcp:
                reply = daemon.raw(text.replace(b"\n", b" "), 60)
            else:
                s.send(text)
                reply = s.recv(1 << 20)
            check_reply(reply, number, changed)


@case("mixed requests, one of a hundred mutated, while a capture is pushed")
def mixed(trial):
    count = 1500 if trial.short else 50000
    subprocess.run([BUILD / "tools/make_sample_captures", trial.folder], check=True, stdout=subprocess.DEVNULL)
    capture = {"type": "filename", "filename": str(trial.folder / "sample.pcap"), "reset": False}
    pushed = 0
    for tcp in (0, free_port()):
        daemon = trial.daemon("-a", tcp=tcp, engine=OURS)
        flood_of(daemon, 200, 1)
        daemon.call(*NO_EXPORTER)
        before = descriptors(daemon.child()), kib(daemon.child(), "Anonymous", "smaps_rollup")
        with meanwhile(lambda daemon=daemon: "result" in (daemon.call("push_pcap", capture, 60) or {})) as pushes:
            flood_of(daemon, count, 2)
        hold(any(pushes), "no capture was pushed")
        pushed += sum(pushes)
        daemon.call(*NO_EXPORTER)
        daemon.hold_descriptors(before[0])
        grown = kib(daemon.child(), "Anonymous", "smaps_rollup") - before[1]
        hold(grown < 8192 or "asan" in str(BUILD), f"{grown} KiB more")
    return f"{2 * count} requests, each one's reply, {pushed} captures meanwhile"


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
        yield trial.daemon("-a", engine=OURS, tcp=free_port())


def requests_with(text):
    ping = {"jsonrpc": "2.0", "id": 1, "method": "ping"}
    for method, place, params in methods.text_places():
        yield f"{method}.{place}", {**ping, "method": method, "params": params(text)}
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
