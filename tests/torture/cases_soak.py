"""A short soak; scripts/soak runs it for as long as one likes."""
import json
import random
import statistics
import time

import methods
from harness.daemon import SCRIPTED
from harness.processes import descriptors, kib
from harness.rpc import request
from trial import case, hold


def soak_request(rng, number):
    method = rng.choice([m for m in methods.METHODS if m != "shutdown"])
    params = methods.half_valid(rng, method)
    if method == "load" and rng.random() < 0.7:
        params = {"path": str(SCRIPTED)}
    if method == "log" and params.get("type") == "log":
        params["maxlines"] = 10
    return request(method, params, id=number)


def ask_many(daemon, rng, until):
    """Requests until the time is over; each is answered once. Returns their number."""
    number = 0
    while time.monotonic() < until:
        number += 1
        reply = daemon.ask(soak_request(rng, number), 60)
        hold(reply, f"request {number} isn't answered")
        hold(json.loads(reply)["id"] == number, f"another's reply: {reply[:100]!r}")
    return number


def soak(trial, seconds, sanitized=False, tcp=0):
    """Half-valid requests of all methods. Returns a line of what was seen; raises when anything grows."""
    rng = random.Random(5)
    # A busy machine is a stall, too, and the first reports of stalls take 15 MiB for the symbols of their stacks.
    daemon = trial.daemon("-v", "error", "--wd_no_hog", tcp=tcp)
    ask_many(daemon, rng, time.monotonic() + seconds / 5)  # until everything that stays is allocated
    child, fds, started = daemon.child(), descriptors(daemon.child()), time.monotonic()
    number, samples = 0, []
    for i in range(1, 41):
        number += ask_many(daemon, rng, started + i * seconds * 0.8 / 40)
        daemon.call("unload")
        samples.append((time.monotonic() - started, kib(child, "Anonymous", "smaps_rollup")))
    hold(daemon.child() == child, "the child was replaced")
    hold(descriptors(child) <= fds + 2, f"{descriptors(child)} descriptors instead of {fds}")
    grows = 60 * statistics.linear_regression(*zip(*samples)).slope  # KiB a minute
    if not sanitized:
        hold(grows * seconds / 60 < 1024, f"memory grows by {grows:.0f} KiB/min")
    daemon.hold_clean_end()
    for word in (b"Sanitizer", b"runtime error:"):
        _, found, text = daemon.told().partition(word)
        hold(not found, f"the sanitizer reports: {text[:600]!r}")
    told = "a sanitizer's memory, which keeps what was freed" if sanitized else f"{grows:+.1f} KiB/min"
    return f"{number} requests, {told}, {fds} descriptors"


@case("a short soak with half-valid requests of all methods")
def short_soak(trial):
    return soak(trial, 8 if trial.short else 60)
