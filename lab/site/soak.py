"""A busy site for as long as required, in rounds that begin and end without stations.

In each round stations associate, roam, sleep and leave. Meanwhile one access point's captive portal stops reading, and
the daemons' clocks are set. When the site is at rest, all processes must agree on every station. The controller is then
killed and started again while the stations are there. Finally an operator removes all stations. The tables must then be
empty, and the daemons must not hold more memory and descriptors than after the first rounds.
"""

import os
import random
import signal
import struct
import time
from collections import Counter
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from dataclasses import dataclass, field
from pathlib import Path

from lab.site.access_point import AccessPoint, mac_bytes
from lab.site.client_table import Client
from lab.site.consistency import collect_views, find_differences
from lab.site.failure import LabFailure
from lab.site.laboratory import Laboratory
from lab.site.messages import Record
from lab.site.portal import Portal
from lab.site.processes import Process
from lab.site.scenario import Scenario
from lab.site.settling import settle
from lab.site.stepped_clock import SteppedClock
from lab.site.waiting import wait_until

DAEMONS = ("client_mgr", "apd")
ENTRIES_MAX = 260             # client entries of one controller message
CLOCK_STEPS = (86_400, -86_400, 3_600, -3_600, 31, -31)  # seconds
PORTAL_TICK_SECONDS = 1
SETTLE_SECONDS = 120


@dataclass(frozen=True)
class SoakPlan:
    seconds: float = 60
    clients: int = 2048
    seed: int = 1
    access_points: int = 3
    lab_seconds: int = 20       # of a round's scenario
    speed: float = 0.5            # lab seconds per second
    lead_seconds: float = 5     # for the radios to read the scenario
    warm_up_rounds: int = 2     # until the daemons have touched all the memory that they use


@dataclass(frozen=True)
class Holdings:
    """The resources of an idle daemon."""

    pages: Counter[str]  # private ones, by mapping
    descriptors: int

    @property
    def private_pages(self) -> int:
        return self.pages.total()


@dataclass
class Tally:
    rounds: int = 0
    records: int = 0
    roams: int = 0
    clients: int = 0
    controller_restarts: int = 0
    found_again: int = 0  # stations that the restarted controllers got in reports
    portal_stops: int = 0
    clock_steps: int = 0
    differences: int = 0
    holdings: list[dict[str, Holdings]] = field(default_factory=list)  # of each round, by the process's name


class Soak:
    """`clock` steps the daemons' clocks; it is None for sanitized programs, which cannot preload it. For these
    `measure_memory` is False, because a sanitizer keeps freed memory."""

    def __init__(self, lab: Laboratory, plan: SoakPlan, clock: SteppedClock | None,
                 measure_memory: bool = True) -> None:
        self.lab = lab
        self.plan = plan
        self.tally = Tally()
        self._clock = clock
        self._measure_memory = measure_memory
        self._dice = random.Random(plan.seed)
        self._scenario = Scenario(lab, plan.speed, plan.lead_seconds)
        self._make_scenario()
        lab.controller.start()
        self._scenario.add_access_points()

    def run(self, watch: Callable[["Soak"], None]) -> None:
        """Plays rounds until the time is up, at least one after the warm-up, and calls `watch` after each.

        Raises LabFailure.
        """
        end = time.monotonic() + self.plan.seconds
        with self._clock.given() if self._clock else no_context():
            self.lab.start()
        while time.monotonic() < end or self.tally.rounds <= self.plan.warm_up_rounds:
            self._round()
            watch(self)
        self._check_holdings()

    def growth(self) -> dict[str, int]:
        """The growth of each daemon's private pages since the warm-up."""
        first, last = self.tally.holdings[self.plan.warm_up_rounds - 1], self.tally.holdings[-1]
        return {name: last[name].private_pages - first[name].private_pages for name in first}

    def _round(self) -> None:
        self._play()
        differences = find_differences(collect_views(self.lab))
        self.tally.differences += len(differences)
        if differences:
            raise LabFailure(f"{len(differences)} differences, the first: {differences[0]}; see {self.lab.directory}")
        self._count()
        self._restart_controller()
        self._remove_all_stations()
        self.tally.holdings.append({process.name: holdings_of(process) for process in self._daemons()})
        self.tally.rounds += 1
        self._truncate_output()

    def _make_scenario(self) -> None:
        self._scenario.make("--aps", self.plan.access_points, "--stations", self.plan.clients,
                            "--seconds", self.plan.lab_seconds, "--restricted", 10,
                            "--seed", self._dice.getrandbits(32))

    def _play(self) -> None:
        self._make_scenario()
        self._scenario.start()
        portal = Portal(self.lab)
        with self._stopped_portal():
            self._step_clock()
            self._scenario.wait_until_played(self.plan.lab_seconds, PORTAL_TICK_SECONDS, portal.admit_guests)
            self._step_clock()
        settle(self.lab, SETTLE_SECONDS)
        while portal.admit_guests():
            settle(self.lab, SETTLE_SECONDS)

    @contextmanager
    def _stopped_portal(self) -> Iterator[None]:
        portal = self._dice.choice(self.lab.access_points).running["captive_app"]
        portal.signal(signal.SIGSTOP)
        self.tally.portal_stops += 1
        yield
        portal.signal(signal.SIGCONT)

    def _step_clock(self) -> None:
        if self._clock:
            self._clock.step(self._dice.choice(CLOCK_STEPS))
            self.tally.clock_steps += 1

    def _count(self) -> None:
        """Adds the controller's counters, which begin at its start."""
        counted = self.lab.controller.stats()
        self.tally.records += counted["records"]
        self.tally.roams += counted["roams"]
        self.tally.clients += counted["clients"]

    def _restart_controller(self) -> None:
        """Restarts the controller, which gets a report of every access point. Its state is not compared: a driver lists
        at most 105 stations of a VAP, and may still list one that has roamed."""
        self.lab.controller.kill()
        self.lab.controller.start()
        self.tally.controller_restarts += 1
        wait_until(lambda: len(self.lab.controller.connected()) == len(self.lab.access_points),
                   "all access points are back", 60, check=self.lab.processes.check)
        settle(self.lab, SETTLE_SECONDS)
        self.tally.found_again += self.lab.controller.stats()["clients"]

    def _remove_all_stations(self) -> None:
        """Replaces the radios first: in a scenario a disassociated station would associate again."""
        for access_point in self.lab.access_points:
            access_point.play(access_point.root / "silence.pcap")
        for client in self.lab.controller.ask_json("clients"):
            self.lab.controller.ask("remove", client["client"])
        settle(self.lab, SETTLE_SECONDS)
        for access_point in self.lab.access_points:
            self._remove_from_table(access_point, access_point.clients())
        settle(self.lab, SETTLE_SECONDS)
        for access_point in self.lab.access_points:
            if left := access_point.clients():
                raise LabFailure(f"{access_point.name}: {len(left)} clients are left in the table, among them "
                                 f"{left[0].mac}; see {access_point.log}")
        if left := self.lab.controller.ask_json("clients"):
            raise LabFailure(f"the controller still has {len(left)} clients, among them {left[0]['client']}")

    def _remove_from_table(self, access_point: AccessPoint, clients: list[Client]) -> None:
        """Removes the clients that the restarted controller does not know to be in this table."""
        for first in range(0, len(clients), ENTRIES_MAX):
            listed = clients[first:first + ENTRIES_MAX]
            body = struct.pack(">I", len(listed)) + b"".join(mac_bytes(each.mac) + bytes(56) for each in listed)
            record = struct.pack(">BBH", Record.REMOVE_CLIENT_BULK_INFO, 4, 4 + len(body)) + body
            header = struct.pack(">3BHBH6s", 1, 14, 0, 1, 0, 14 + len(record), mac_bytes(access_point.mac))
            self.lab.controller.ask("send", access_point.mac, (header + record).hex())

    def _truncate_output(self) -> None:
        """Keeps the output of the lab's programs from filling the disk."""
        for file in self.lab.directory.rglob("*.out"):
            os.truncate(file, 0)

    def _daemons(self) -> list[Process]:
        return [access_point.running[name] for name in DAEMONS for access_point in self.lab.access_points]

    def _check_holdings(self) -> None:
        first, last = self.tally.holdings[self.plan.warm_up_rounds - 1], self.tally.holdings[-1]
        for name, before in first.items():
            if last[name].descriptors != before.descriptors:
                raise LabFailure(f"{name} holds {last[name].descriptors} descriptors, {before.descriptors} at first")
        if self._measure_memory:
            for name, pages in self.growth().items():
                if pages > 0:
                    grown = last[name].pages - first[name].pages
                    where = ", ".join(f"{more} in {part}" for part, more in grown.items())
                    raise LabFailure(f"{name} holds {pages} private pages more than after the warm-up: {where}")


@contextmanager
def no_context() -> Iterator[None]:
    yield


def holdings_of(process: Process) -> Holdings:
    """Counts the pages that only this process maps and has written to. Unwritten pages of its program are not counted,
    because they are private only while no other process runs the program."""
    directory = Path(f"/proc/{process.pid}")
    pages: Counter[str] = Counter()
    file = part = ""
    for first, *rest in map(str.split, (directory / "smaps").read_text().splitlines()):
        if not first.endswith(":"):  # addresses, rights, offset, device, inode, name
            name = rest[4] if len(rest) > 4 else ""
            file = name or file
            part = name or f"memory behind {file}"
        elif first == "Private_Dirty:":
            pages[part] += int(rest[0]) * 1024 // os.sysconf("SC_PAGESIZE")
    return Holdings(+pages, len(os.listdir(directory / "fd")))
