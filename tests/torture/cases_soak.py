"""Whether anything grows; scripts/soak tries it for as long as one likes."""
import contextlib
import json
import random
import statistics
import time

import methods
from harness.case import OURS, SANITIZED, SCRIPTED
from harness.frames import udp, write_pcap
from harness.processes import descriptors, kib
from harness.rpc import request
from trial import case, hold, meanwhile

NO_EXPORTER = ("collect", {"cmd": "set_exporter", "socket": {"type": "none"}})  # an exporter holds sockets
CHANGES_STATE = {"load", "unload", "activate", "deactivate"}


def soak_request(rng, number, active):
    method = rng.choice([m for m in methods.METHODS if m != "shutdown" and not (active and m in CHANGES_STATE)])
    params = methods.half_valid(rng, method)
    if method == "load" and rng.random() < 0.7:
        params = {"path": str(SCRIPTED)}
    if method == "log" and params.get("type") == "log":
        params["maxlines"] = 10
    return request(method, params, id=number)


def mutated(rng, text):
    text = bytearray(text)
    for _ in range(rng.randint(1, 4)):  # a byte more, a byte changed, or some less
        at = rng.randrange(len(text))
        text[at:at + rng.choice((0, 1, 9))] = rng.randbytes(rng.randrange(2))
    return bytes(text).replace(b"\n", b" ")


def ask_many(daemon, rng, until, active):
    """Requests until the time is over, one of a hundred mutated; each is answered once. Returns their number."""
    number = 0
    while time.monotonic() < until:
        number += 1
        text = soak_request(rng, number, active)
        changed = rng.random() < 0.01 and b'"log"' not in text  # the heap would keep the size of a long log's reply
        reply = daemon.ask(mutated(rng, text) if changed else text, 60)
        hold(reply and reply.endswith(b"\n") and reply.count(b"\n") == 1, f"no reply of one line to {number}: {reply}")
        value = json.loads(reply)
        hold(changed or (value["id"] == number and ("result" in value) != ("error" in value)), f"to {number}: {reply[:100]}")
    return number


def stays_flat(daemon, seconds, act, most_kib=1024):
    """Does `act`, which is told when to end, for so long. Returns what was seen; raises if anything grows."""
    act(time.monotonic() + seconds / 5)  # until everything that stays is allocated
    child, fds, started = daemon.child(), descriptors(daemon.child()), time.monotonic()
    samples = []
    for i in range(1, 41):
        act(started + i * seconds * 0.8 / 40)
        samples.append((time.monotonic() - started, kib(child, "Anonymous", "smaps_rollup")))
    hold(daemon.child() == child, "the child was replaced")
    hold(descriptors(child) <= fds + 2, f"{descriptors(child)} descriptors instead of {fds}")
    grows = 60 * statistics.linear_regression(*zip(*samples)).slope  # KiB a minute
    hold(SANITIZED or grows * seconds / 60 < most_kib, f"memory grows by {grows:.0f} KiB/min")
    return f"{fds} descriptors, " + ("a sanitizer's memory, which keeps what was freed" if SANITIZED else f"{grows:+.1f} KiB/min")


def soak(trial, seconds, tcp=False, active=False):
    """Half-valid requests of all methods; or, while our engine is active and gets captures, of those that leave it so."""
    # A busy machine is a stall, too, and the first reports of stalls take 15 MiB for the symbols of their stacks.
    args, engine, between = (["-a"], OURS, NO_EXPORTER) if active else ([], None, ("unload",))
    daemon = trial.daemon("-v", "error", "--wd_no_hog", *args, tcp=tcp, engine=engine)
    capture = {"type": "filename", "filename": str(trial.captures / "sample.pcap"), "reset": False}
    rng, asked = random.Random(5), []

    def ask(until):
        asked.append(ask_many(daemon, rng, until, active))
        daemon.call(*between)

    def push():
        return "result" in (daemon.call("push_pcap", capture, 60) or {})
    with meanwhile(push) if active else contextlib.nullcontext([1]) as pushes:
        seen = stays_flat(daemon, seconds, ask, 8192 if active else 1024)
    hold(pushes, "no capture was pushed")
    daemon.hold_clean_end()
    for word in ("Sanitizer", "runtime error:"):
        _, found, text = daemon.told().partition(word)
        hold(not found, f"the sanitizer reports: {text[:600]!r}")
    return f"{sum(asked)} requests, {seen}"


for text, *how in (("of all methods",), ("that leave our engine active, while captures are pushed, over Unix", False, True),
                   ("that leave our engine active, while captures are pushed, over TCP", True, True)):
    case(f"half-valid requests {text}", *how)(lambda trial, *values: soak(trial, 8 if trial.short else 60, *values))


# --- a gateway ------------------------------------------------------------------------------------------------
HASTE = """if (id == CLOCK_MONOTONIC && rc == 0) {
        t->tv_sec = t->tv_sec * 1440 + t->tv_nsec / 694445;
        t->tv_nsec = t->tv_nsec % 694445 * 1440;
    }"""


@case("48 hours of flows that come, go idle and are recorded, in two minutes of a fast clock", short=False)
def gateway(trial):
    config, capture, rng = trial.folder / "conf", trial.folder / "x.pcap", random.Random(48)
    config.write_text(f"spool = {trial.folder}/spool\nspool_bytes = 8388608\n")
    daemon = trial.daemon("-a", "-v", "error", "--wd_no_hog", engine=OURS, preload=trial.clock(HASTE),
                          env={"BRUMECP_ENGINE_CONF": str(config)})
    for params in ({"cmd": "set_exporter", "socket": {"type": "file", "path": "/dev/null"}}, {"cmd": "enable"}):
        daemon.result("collect", {**params, "component": "records"})

    def push(until):
        while time.monotonic() < until:
            write_pcap(capture, [udp(bytes(30), port, 53) for port in rng.sample(range(1024, 65536), 200)])
            for path in (capture, trial.captures / "sample.pcap"):
                daemon.result("push_pcap", {"type": "filename", "filename": str(path), "reset": False})
    seen = stays_flat(daemon, 120, push, 4096)
    hours = daemon.result("status")["uptime"] // 3600
    aged, sent = (daemon.result("collect", {"cmd": "show", "component": component})[member]
                  for component, member in (("flows", "aged"), ("records", "sent")))
    hold(hours >= 47 and aged > 50000 and sent > 50000, f"{hours} hours, {aged} flows aged, {sent} records sent")
    return f"{hours} hours, {aged} flows went idle, {sent} records were sent; {seen}"
