"""Clients that do everything wrong that a client can, many at once."""
import json
import random
import socket
import struct
import subprocess
import threading
import time

import methods
from harness.daemon import BUILD, OURS, SCRIPTED
from harness.processes import descriptors, eventually, kib
from harness.rpc import free_port, request
from trial import case, hold, LINE

LOAD = {"path": str(SCRIPTED)}
RESET = struct.pack("ii", 1, 0)
PING = request("ping") + b"\n"


def connect(daemon):
    return socket.create_connection(("127.0.0.1", daemon.tcp), timeout=30)


def connect_many(daemon, count):
    """Ten wait in the backlog; who comes while it is full waits a second for his SYN to be repeated."""
    for i in range(count):
        if i % 8 == 7:
            time.sleep(0.003)
        yield connect(daemon)


def received(s):
    return b"".join(iter(lambda: s.recv(1 << 20), b""))


def back_to(daemon, before, what="descriptors"):
    hold(eventually(lambda: descriptors(daemon.child()) <= before, 20), f"{what} stayed: {descriptors(daemon.child())}")


def tcp_daemon(trial, *args, **more):
    return trial.daemon(*args, tcp=free_port(), **more)


# --- TCP connections -----------------------------------------------------------------------------------------
@case("1000 TCP connections that are reset at once")
def reset(trial):
    daemon = tcp_daemon(trial)
    before = descriptors(daemon.child())
    for i, s in enumerate(connect_many(daemon, 1000)):
        with s:
            s.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET)
            s.sendall((b"", PING[:-5], PING)[i % 3])
    hold(daemon.alive(), "no answer")
    back_to(daemon, before)
    return "nothing, half a line, a whole line before it: all descriptors back"


# --- readers that don't read ---------------------------------------------------------------------------------
@case("TCP clients that never read their 5 MB replies")
def unread_tcp(trial):
    daemon = tcp_daemon(trial)
    before = descriptors(daemon.child())
    big = "x" * 5_000_000
    kept = []
    for _ in range(2 if trial.short else 10):
        unread = [connect(daemon) for _ in range(4)]
        for s in unread:
            s.sendall(request("ping", id=big) + b"\n")
            hold(daemon.call("ping", seconds=30), "nobody else is served")
        hold(json.loads(received(unread.pop()))["id"] == big, "the reply is broken")
        for s in unread:
            s.close()
        back_to(daemon, before)
        kept.append(kib(daemon.child(), "Anonymous", "smaps_rollup") >> 10)
    # The heap keeps what it was given once, and uses it again.
    hold(max(kept) < 100 or "asan" in str(BUILD), f"{kept} MiB stay")
    return f"others are served; read at last, it is whole; descriptors back, at most {max(kept)} MiB kept for the next"


def taken(s):
    try:
        return s.recv(1 << 20)
    except BlockingIOError:
        return None


@case("a Unix client whose 5 MB reply can't be sent, and one that never reads")
def unread_unix(trial):
    daemon = trial.daemon()
    for _ in range(700):
        daemon.call("echo", {"message": "y" * 8000})
    reply = daemon.ask(request("log", {"type": "log", "maxlines": 700}), seconds=3)
    hold(reply is None or len(reply) > 5_000_000, "a part of a reply")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as s:
        s.bind("")
        s.settimeout(10)
        s.connect(daemon.path)
        for _ in range(1000):
            s.send(PING)
        hold(daemon.alive(), "no answer")
        s.setblocking(False)
        got = len(list(iter(lambda: taken(s), None)))
    lost = daemon.log.read_bytes().count(b"Sendto failed")
    hold(got + lost == 1000 + (reply is None), f"{got} replies, {lost} lines of lost ones")
    return f"{lost} lost, each with a line in the log; others are answered"


# --- many requests of all kinds ------------------------------------------------------------------------------
MIXED = ["ping", "status", "cmds", "events", "notifications", "collect", "health", "coffee", "log", "push_pcap", "attach"]

NO_EXPORTER = ("collect", {"cmd": "set_exporter", "socket": {"type": "none"}})  # one holds sockets of its own


def mixed_request(rng, number):
    method = rng.choice(MIXED)
    params = methods.half_valid(rng, method)
    if method == "log":
        params = {"type": "log", "maxlines": 3}
    return request(method, params, id=number)


def mutated(rng, text):
    text = bytearray(text)
    for _ in range(rng.randint(1, 4)):
        at = rng.randrange(len(text))
        rng.choice([lambda: text.__setitem__(at, rng.randrange(256)), lambda: text.__delitem__(slice(at, at + rng.randint(1, 9))),
                    lambda: text.insert(at, rng.randrange(256))])()
        if not text:
            return b"{"
    return bytes(text)


def check_reply(reply, number, changed):
    hold(reply and reply.endswith(b"\n") and reply.count(b"\n") == 1, f"{number}: no reply of one line: {reply[:100]!r}")
    value = json.loads(reply)
    if not changed:
        hold(value and value["id"] == number, f"{number}: another's reply {reply[:100]!r}")
        hold(("result" in value) != ("error" in value), f"{number}: {reply[:100]!r}")


def talk_tcp(daemon, text):
    with connect(daemon) as s:
        s.sendall(text.replace(b"\n", b" ") + b"\n")
        return received(s)


def flood_of(daemon, count, seed):
    """Sends `count` requests, a hundredth of them mutated, and checks each one's reply."""
    rng = random.Random(seed)
    s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    s.bind("")
    s.settimeout(60)
    if not daemon.tcp:
        s.connect(daemon.path)
    for number in range(1, count + 1):
        text, changed = mixed_request(rng, number), rng.random() < 0.01
        if changed:
            text = mutated(rng, text)
        if daemon.tcp:
            reply = talk_tcp(daemon, text)
        else:
            s.send(text)
            reply = s.recv(1 << 20)
        check_reply(reply, number, changed)
    s.close()


class Pusher(threading.Thread):
    """Pushes a capture over and over until it is told to stop."""

    def __init__(self, daemon, path):
        super().__init__(daemon=True)
        self.target, self.path, self.pushed, self.over = daemon, str(path), 0, False

    def run(self):
        while not self.over:
            reply = self.target.call("push_pcap", {"type": "filename", "filename": self.path, "reset": False}, 60)
            if reply and "result" in reply:
                self.pushed += 1


@case("mixed requests, one of a hundred mutated, while a capture is pushed")
def mixed(trial):
    count = 1500 if trial.short else 50000
    subprocess.run([BUILD / "tools/make_sample_captures", trial.folder], check=True, stdout=subprocess.DEVNULL)
    pushed = 0
    for tcp in (0, free_port()):
        daemon = trial.daemon("-a", tcp=tcp, engine=OURS)
        flood_of(daemon, 200, 1)
        daemon.call(*NO_EXPORTER)
        before = descriptors(daemon.child()), kib(daemon.child(), "Anonymous", "smaps_rollup")
        pusher = Pusher(daemon, trial.folder / "sample.pcap")
        pusher.start()
        flood_of(daemon, count, 2)
        pusher.over = True
        pusher.join()
        pushed += pusher.pushed
        hold(pusher.pushed > 0, "no capture was pushed")
        daemon.call(*NO_EXPORTER)
        back_to(daemon, before[0])
        grown = kib(daemon.child(), "Anonymous", "smaps_rollup") - before[1]
        hold(grown < 8192 or "asan" in str(BUILD), f"{grown} KiB more")
    return f"{2 * count} requests, each one's reply, {pushed} captures meanwhile"


# --- hostile texts -------------------------------------------------------------------------------------------
WORD = "Zq7"  # tells whether a reply or a line holds the text
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
    "unclosed nesting": b'{"a":' * 5000,
    "raw NUL": b'"Zq7\0Zq7"',
}
BROKEN_LINES = WORD + "\n[    1] - forged\r\n\n" + WORD


def states(trial):
    """A daemon without an engine, one with an engine that takes everything, one with ours."""
    yield trial.daemon()
    daemon = trial.daemon()
    hold("result" in daemon.call("load", LOAD), "not loaded")
    hold("result" in daemon.call("activate", {"resources": {"max_flows": 10}}), "not activated")
    yield daemon
    if not trial.short:
        yield trial.daemon("-a", engine=OURS)
        yield trial.daemon("-a", engine=OURS, tcp=free_port())


def envelopes(text):
    """Texts around the parameters."""
    yield "method", {"jsonrpc": "2.0", "id": 1, "method": text}
    yield "jsonrpc", {"jsonrpc": text, "id": 1, "method": "ping"}
    yield "accept", {"jsonrpc": "2.0", "id": 1, "method": "ping", "accept": [text]}
    yield "id", {"jsonrpc": "2.0", "id": text, "method": "ping"}
    yield "params", {"jsonrpc": "2.0", "id": 1, "method": "status", "params": text}


def requests_with(text):
    for method, place, params in methods.text_places():
        yield f"{method}.{place}", {"jsonrpc": "2.0", "id": 1, "method": method, "params": params(text)}
    yield from envelopes(text)


def cut_by_engine(whole, error):
    """Our engine repeats no more than the first 80 bytes of a word."""
    return "...'" in error and f"'{whole[:75]}" in error


def check_hostile(daemon, kind, place, message, text):
    """One reply; a text that comes back comes back whole."""
    reply = daemon.ask(message)
    hold(reply, f"{place}, {kind}: no reply")
    value = json.loads(reply)
    error = json.dumps(value.get("error", {}) if isinstance(value, dict) else {}, ensure_ascii=False)
    # Texts of exceptions are C strings: what names a thing by them ends at a NUL, as its name does.
    whole = json.dumps(text.partition("\0")[0], ensure_ascii=False)[1:-1] if text is not None else None
    hold(whole is None or WORD not in error or whole in error or cut_by_engine(whole, error),
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
    """The log writes texts as they are, so such a text shows as more lines. None but those may be there."""
    daemon = trial.daemon()
    for place, message in requests_with(BROKEN_LINES):
        check_hostile(daemon, "line breaks", place, json.dumps(message).encode(), BROKEN_LINES)
    hold(daemon.end() == 0, "no clean end")
    own = {b"", *(piece.strip() for piece in BROKEN_LINES.encode().split(b"\n"))}
    lines = daemon.log.read_bytes().split(b"\n")[:-1]
    strange = [line for line in lines if not LINE.match(line)]
    for line in strange:
        hold(line.strip() in own or line.startswith(WORD.encode()), f"a malformed line: {line[:120]!r}")
    daemon.check_log = lambda: None
    return f"back unchanged; {len(strange)} lines of the log are pieces of them"
