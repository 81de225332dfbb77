"""A scenario file, and playing it on the access points of a lab."""

import json
import subprocess
import time
import tomllib
from collections.abc import Callable
from pathlib import Path
from typing import Any

from lab.site.failure import LabFailure
from lab.site.laboratory import Laboratory
from lab.site.processes import die_with_parent, environment_for
from lab.site.waiting import wait_until


class Scenario:
    """`lead_seconds` is the time that the radios get to read the file before lab time starts; `speed` is in lab seconds
    per second."""

    def __init__(self, lab: Laboratory, speed: float, lead_seconds: float) -> None:
        self.file = lab.directory / "scenario.toml"
        self.speed = speed
        self.started = 0.0  # monotonic clock
        self._lab = lab
        self._lead_seconds = lead_seconds

    def make(self, *options: object) -> int:
        """Writes the file with kx-scenario and its options. Returns the seed."""
        command = [self._lab.processes.programs / "kx-scenario", *options, "-o", self.file]
        done = subprocess.run([str(word) for word in command], env=environment_for(None), capture_output=True,
                              text=True, check=False, preexec_fn=die_with_parent)
        if done.returncode != 0:
            raise LabFailure(f"kx-scenario failed: {done.stderr.strip()}")
        return int(done.stderr.split("seed ")[1])

    def add_access_points(self) -> None:
        """Adds the scenario's access points to the lab. They come first in the file; the stations are not parsed."""
        for access_point in tomllib.loads(self.file.read_text().partition("[[station]]")[0])["ap"]:
            self._lab.add_access_point(access_point["mac"], "".join(map(to_toml, access_point["vaps"])))

    def start(self) -> None:
        """Starts the radios, which all begin at the same moment."""
        start = time.time() + self._lead_seconds
        self.started = time.monotonic() + self._lead_seconds
        for access_point in self._lab.access_points:
            access_point.play("--scenario", self.file, "--ap", access_point.name, "--speed", self.speed,
                              "--start-at", int(start * 1000))
        if time.monotonic() > self.started:
            raise LabFailure(f"the radios took more than {self._lead_seconds:g} s to read {self.file}")

    def wait_until_played(self, lab_seconds: float, tick_seconds: float, tick: Callable[[], None]) -> None:
        """Waits until all radios have played their part of `lab_seconds`. Calls `tick` every `tick_seconds`."""
        next_tick = 0.0

        def is_played() -> bool:
            nonlocal next_tick
            if time.monotonic() < next_tick:
                return False
            next_tick = time.monotonic() + tick_seconds
            tick()
            return all([access_point.radio_state() == "played" for access_point in self._lab.access_points])

        wait_until(is_played, "the scenario is played", lab_seconds / self.speed + 120,
                   self._lab.controller.output.file, self._lab.processes.check)


def to_toml(vap: dict[str, Any]) -> str:
    """A [[vap]] table. Strings, numbers and booleans have the same form in JSON and TOML."""
    return "".join(["[[vap]]\n", *(f"{key} = {json.dumps(value)}\n" for key, value in vap.items()), "\n"])
