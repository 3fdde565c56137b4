"""The daemon left alone: if this fails, the harness is at fault."""
from harness.daemon import OURS
from trial import case, hold


@case("nothing at all")
def nothing(trial):
    daemon = trial.daemon("-a", engine=OURS)
    hold(daemon.call("status")["result"]["state"] == "activated", "not activated")
    hold(daemon.end() == 0, "no clean end")
    return "answers, ends with 0"
