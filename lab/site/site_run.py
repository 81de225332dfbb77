"""A whole site: stations roam between access points for a while, then all processes must agree on every station."""

import time
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

from lab.site.consistency import collect_views, find_differences
from lab.site.laboratory import Laboratory
from lab.site.portal import Portal
from lab.site.scenario import Scenario
from lab.site.settling import settle

TICK_SECONDS = 0.1


@dataclass(frozen=True)
class Plan:
    access_points: int = 3
    stations: int = 40
    seconds: int = 60      # of lab time
    speed: float = 6       # lab seconds per second
    seed: int | None = None
    lead_seconds: float = 2  # for the radios to read the scenario


class Site:
    """Generates a scenario from the plan and adds its access points to the lab."""

    def __init__(self, lab: Laboratory, plan: Plan) -> None:
        self.lab = lab
        self.plan = plan
        self.portal: Portal | None = None
        self._scenario = Scenario(lab, plan.speed, plan.lead_seconds)
        seed = ("--seed", plan.seed) if plan.seed is not None else ()
        self.seed = self._scenario.make("--aps", plan.access_points, "--stations", plan.stations,
                                        "--seconds", plan.seconds, *seed)
        lab.controller.start()
        self._scenario.add_access_points()

    def play(self, watch: Callable[[], None]) -> None:
        """Returns when everything was played and the site is at rest. Calls `watch` from time to time."""
        self.lab.start()
        self._scenario.start()
        portal = self.portal = Portal(self.lab)

        def tick() -> None:
            portal.admit_guests()
            watch()

        self._scenario.wait_until_played(self.plan.seconds, TICK_SECONDS, tick)
        settle(self.lab)
        while portal.admit_guests():
            settle(self.lab)

    def lab_time(self) -> float:
        """Seconds of the scenario so far."""
        passed = (time.monotonic() - self._scenario.started) * self.plan.speed
        return min(max(passed, 0), self.plan.seconds)

    def state(self) -> tuple[dict[str, Any], dict[str, dict[str, Any]]]:
        """The controller's counters, and its access points by MAC address."""
        return self.lab.controller.stats(), {each["ap"]: each for each in self.lab.controller.ask_json("aps")}

    def find_differences(self) -> list[str]:
        return find_differences(collect_views(self.lab))
