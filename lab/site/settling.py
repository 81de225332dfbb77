"""When nothing is under way any more between the radios, the daemons and the controller.

A probe is a MAC ACL question to a daemon that no station asked. Local messages are handled in their order and the
channel to the controller keeps it. So a probe arrives behind all that the daemon had been told before, and its answer
behind all that the controller had to say to that.

What was on its way to the controller when one round of probes ended is there before the next round's probes are, and
what the controller had sent by then has been handled by the daemons before the next round's answers. So when two
rounds on end bring nothing but probes and answers, nothing is left that could bring more.
"""

import time
from typing import Any

from lab.site.access_point import AccessPoint
from lab.site.laboratory import Laboratory
from lab.site.waiting import wait_until

SETTLE_SECONDS = 60
QUIET_ROUNDS = 2


def settle(lab: Laboratory, seconds: float = SETTLE_SECONDS) -> None:
    """Returns when the lab is at rest; its radios have played everything by then."""
    deadline = time.monotonic() + seconds
    before = wait_until_unsuspecting(lab, deadline)
    quiet = 0
    while quiet < QUIET_ROUNDS:
        probe_all(lab)
        after = wait_until_unsuspecting(lab, deadline)
        quiet = quiet + 1 if brought_only_probes(before, after, len(lab.access_points)) else 0
        before = after


def wait_until_unsuspecting(lab: Laboratory, deadline: float) -> dict[str, Any]:
    """The controller's counters when all radios have played and it awaits no report of an access point."""
    def counters() -> dict[str, Any] | None:
        played = all([radio_has_played(access_point) for access_point in lab.access_points])
        counted = lab.controller.ask_json("stats")
        return counted if played and counted["unsettled"] == 0 else None

    return wait_until(counters, "the lab comes to rest", deadline - time.monotonic(), lab.controller.output.file,
                      lab.processes.check)


def radio_has_played(access_point: AccessPoint) -> bool:
    return access_point.radio_state() == "played"


def brought_only_probes(before: dict[str, Any], after: dict[str, Any], probes: int) -> bool:
    return (after["records"] - before["records"] == probes and
            after["messages_sent"] - before["messages_sent"] == probes)


def probe_all(lab: Laboratory) -> None:
    """Returns when every daemon has its answer."""
    for access_point, probe in [(each, each.probe()) for each in lab.access_points]:
        wait_until(lambda: access_point.has_answer_to(probe),
                   f"{access_point.name}: client_mgr hears from the controller", log=access_point.log,
                   check=lab.processes.check)
