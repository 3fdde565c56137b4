"""The daemon left alone: if this fails, the harness is at fault."""
from harness import BUILD, case, hold


@case("nothing at all")
def nothing(trial):
    daemon = trial.daemon("-a", engine=BUILD / "lib")
    hold(daemon.call("status")["result"]["state"] == "activated", "not activated")
    hold(daemon.end() == 0, "no clean end")
    return "answers, ends with 0"
