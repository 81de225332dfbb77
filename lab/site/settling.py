"""Waits until no message is in transit between the radios, the daemons and the controller.

A probe is a MAC ACL question for a MAC address that no station has. The daemon handles local messages in order, and the
channel to the controller keeps the order. A probe therefore arrives after all records that the daemon sent before it,
and its answer after all messages that the controller sent before it.

Records that are in transit when a round of probes ends arrive before the next round's probes. Messages that the
controller has sent by then are handled before the next round's answers. When two consecutive rounds bring nothing but
probes and answers, no message is left that could cause another.
"""

import time
from typing import Any

from lab.site.access_point import AccessPoint
from lab.site.laboratory import Laboratory
from lab.site.waiting import wait_until

SETTLE_SECONDS = 60
QUIET_ROUNDS = 2


def settle(lab: Laboratory, seconds: float = SETTLE_SECONDS) -> None:
    """Returns when the radios have played everything and the lab is at rest."""
    deadline = time.monotonic() + seconds
    before = wait_until_settled(lab, deadline)
    quiet = 0
    while quiet < QUIET_ROUNDS:
        probe_all(lab)
        after = wait_until_settled(lab, deadline)
        quiet = quiet + 1 if brought_only_probes(before, after, len(lab.access_points)) else 0
        before = after


def wait_until_settled(lab: Laboratory, deadline: float) -> dict[str, Any]:
    """Waits until all radios have played and the controller awaits no report. Returns the controller's counters."""
    def counters() -> dict[str, Any] | None:
        played = all([radio_has_played(access_point) for access_point in lab.access_points])
        counted = lab.controller.stats()
        return counted if played and counted["unsettled"] == 0 else None

    return wait_until(counters, "the lab comes to rest", deadline - time.monotonic(), lab.controller.output.file,
                      lab.processes.check)


def radio_has_played(access_point: AccessPoint) -> bool:
    return access_point.radio_state() == "played"


def brought_only_probes(before: dict[str, Any], after: dict[str, Any], probes: int) -> bool:
    return (after["records"] - before["records"] == probes and
            after["messages_sent"] - before["messages_sent"] == probes)


def probe_all(lab: Laboratory) -> None:
    """Probes every daemon. Returns when each has its answer."""
    for access_point, probe in [(each, each.probe()) for each in lab.access_points]:
        wait_until(lambda: access_point.has_answer_to(probe),
                   f"{access_point.name}: client_mgr gets the controller's answer", log=access_point.log,
                   check=lab.processes.check)
