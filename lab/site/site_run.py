"""A whole site: stations roam between access points for a while, then everybody must agree on who is where."""

import json
import subprocess
import time
import tomllib
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

from lab.site.consistency import find_differences, take_views
from lab.site.failure import LabFailure
from lab.site.laboratory import Laboratory
from lab.site.portal import Portal
from lab.site.processes import die_with_parent, environment_for
from lab.site.settling import settle
from lab.site.waiting import wait_until

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
    """Its access points are those of a scenario that is made from the plan."""

    def __init__(self, lab: Laboratory, plan: Plan) -> None:
        self.lab = lab
        self.plan = plan
        self.portal: Portal | None = None
        self.started = 0.0  # monotonic clock
        self._scenario = lab.directory / "scenario.toml"
        self.seed = self._make_scenario()
        lab.controller.start()
        for access_point in self._read_access_points():
            lab.add_access_point(access_point["mac"], "".join(map(to_toml, access_point["vaps"])))

    def _make_scenario(self) -> int:
        seed = ("--seed", self.plan.seed) if self.plan.seed is not None else ()
        command = [self.lab.processes.programs / "kx-scenario", "--aps", self.plan.access_points,
                   "--stations", self.plan.stations, "--seconds", self.plan.seconds, *seed, "-o", self._scenario]
        done = subprocess.run([str(word) for word in command], env=environment_for(None), capture_output=True,
                              text=True, check=False, preexec_fn=die_with_parent)
        if done.returncode != 0:
            raise LabFailure(f"the scenario could not be made: {done.stderr.strip()}")
        return int(done.stderr.split("seed ")[1])

    def _read_access_points(self) -> list[dict[str, Any]]:
        """They come first in the file, and the stations, which are many, are the radios' alone."""
        return tomllib.loads(self._scenario.read_text().partition("[[station]]")[0])["ap"]

    def play(self, watch: Callable[[], None]) -> None:
        """Returns when everything was played and the site is at rest; calls `watch` now and then."""
        self.lab.start()
        start = time.time() + self.plan.lead_seconds
        self.started = time.monotonic() + self.plan.lead_seconds
        for access_point in self.lab.access_points:
            access_point.play("--scenario", self._scenario, "--ap", access_point.name, "--speed", self.plan.speed,
                              "--start-at", int(start * 1000))
        if time.monotonic() > self.started:
            raise LabFailure(f"the radios took more than {self.plan.lead_seconds:g} s to read {self._scenario}")
        self.portal = Portal(self.lab)
        self._wait_until_played(watch)
        settle(self.lab)
        while self.portal.admit_guests():
            settle(self.lab)

    def _wait_until_played(self, watch: Callable[[], None]) -> None:
        next_tick = 0.0

        def is_played() -> bool:
            nonlocal next_tick
            if time.monotonic() < next_tick:
                return False
            next_tick = time.monotonic() + TICK_SECONDS
            assert self.portal is not None
            self.portal.admit_guests()
            watch()
            return all([access_point.radio_state() == "played" for access_point in self.lab.access_points])

        wait_until(is_played, "the scenario is played", self.plan.seconds / self.plan.speed + 60,
                   self.lab.controller.output.file, self.lab.processes.check)

    def lab_time(self) -> float:
        """Seconds of the scenario so far."""
        passed = (time.monotonic() - self.started) * self.plan.speed
        return min(max(passed, 0), self.plan.seconds)

    def state(self) -> tuple[dict[str, Any], dict[str, dict[str, Any]]]:
        """The controller's counters, and its access points by their addresses."""
        return (self.lab.controller.ask_json("stats"),
                {each["ap"]: each for each in self.lab.controller.ask_json("aps") if each["ap"]})

    def find_differences(self) -> list[str]:
        return find_differences(take_views(self.lab))


def to_toml(vap: dict[str, Any]) -> str:
    """Its texts, numbers and truth values are written in JSON as in TOML."""
    return "".join(["[[vap]]\n", *(f"{key} = {json.dumps(value)}\n" for key, value in vap.items()), "\n"])
