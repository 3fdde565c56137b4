"""The soak in small; scripts/soak runs it for as long as one likes."""
import json
import random
import time

import methods
from harness.daemon import SCRIPTED
from harness.processes import descriptors, kib
from harness.rpc import request
from trial import case, hold

# What ends the daemon, or lets it write where the texts say, is left out.
LEFT_OUT = {"shutdown"}


def soak_request(rng, number):
    method = rng.choice([m for m in methods.METHODS if m not in LEFT_OUT])
    params = methods.half_valid(rng, method)
    if method == "load" and rng.random() < 0.7:
        params = {"path": str(SCRIPTED)}
    if method == "log" and params.get("type") == "log":
        params["maxlines"] = 10
    return request(method, params, id=number)


def ask_many(daemon, rng, until):
    """Requests until the time is over; each is answered once. Gives their number."""
    number = 0
    while time.monotonic() < until:
        number += 1
        reply = daemon.ask(soak_request(rng, number), 60)
        hold(reply, f"request {number} isn't answered")
        hold(json.loads(reply)["id"] == number, f"another's reply: {reply[:100]!r}")
    return number


def slope(samples):
    """KiB a minute, by least squares, of (seconds, KiB)."""
    mean_x = sum(x for x, _ in samples) / len(samples)
    mean_y = sum(y for _, y in samples) / len(samples)
    spread = sum((x - mean_x) ** 2 for x, _ in samples)
    return 60 * sum((x - mean_x) * (y - mean_y) for x, y in samples) / spread if spread else 0


def soak(trial, seconds, sanitized=False, tcp=0):
    """Half-valid requests of all methods. Gives a line of what was seen; raises when anything grows."""
    rng = random.Random(5)
    # A busy machine is a stall, too, and the first reports of stalls take 15 MiB for the symbols of their stacks.
    daemon = trial.daemon("-v", "error", "--wd_no_hog", tcp=tcp)
    ask_many(daemon, rng, time.monotonic() + seconds / 5)  # until all that stays is there
    child, fds, started = daemon.child(), descriptors(daemon.child()), time.monotonic()
    number, samples = 0, []
    for i in range(1, 41):
        number += ask_many(daemon, rng, started + i * seconds * 0.8 / 40)
        daemon.call("unload")
        samples.append((time.monotonic() - started, kib(child, "Anonymous", "smaps_rollup")))
    hold(daemon.child() == child, "the child was replaced")
    hold(descriptors(child) <= fds + 2, f"{descriptors(child)} descriptors instead of {fds}")
    grows = slope(samples)
    if not sanitized:
        hold(grows * seconds / 60 < 1024, f"memory grows by {grows:.0f} KiB/min")
    hold(daemon.end() == 0, "no clean end")
    said = daemon.said() + daemon.log.read_bytes()
    for word in (b"Sanitizer", b"runtime error:"):
        hold(word not in said, f"the sanitizer reports: {said[max(0, said.find(word) - 200):][:600]!r}")
    told = "a sanitizer's memory, which keeps what was freed" if sanitized else f"{grows:+.1f} KiB/min"
    return f"{number} requests, {told}, {fds} descriptors"


@case("a short soak with half-valid requests of all methods")
def short_soak(trial):
    return soak(trial, 8 if trial.short else 60)
