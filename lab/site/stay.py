"""A site that stays until it is ended: real processes, or a fleet when it is large, and the controller's page."""

import secrets
import socket
import time
from contextlib import nullcontext
from dataclasses import dataclass
from pathlib import Path
from typing import Any, NoReturn

from rich.console import Console, ConsoleDimensions, Group
from rich.live import Live
from rich.table import Table
from rich.text import Text

from lab.site.enrolment import sitectl
from lab.site.http_api import HttpApi
from lab.site.laboratory import Laboratory
from lab.site.network import enter_own_network
from lab.site.plain_text import plain
from lab.site.portal import Portal
from lab.site.scenario import Scenario
from lab.site.site_screen import describe_counters
from lab.site.tcp_forwarder import LOOPBACK, TcpForwarder

REAL_ACCESS_POINTS_MAX = 8
REAL_STATIONS_MAX = 400
SCENARIO_SECONDS = 900  # stations arrive in the first third
LEAD_SECONDS = 8
FLEET_SECONDS = 10_000_000
UPDATE_SECONDS = 1
LINE_SECONDS = 10  # without a terminal
NAME_WIDTH = 50  # of the other columns
OPERATOR = "lab"


@dataclass(frozen=True)
class StayPlan:
    access_points: int = 3
    stations: int = 40
    seed: int | None = None
    speed: float = 1  # lab seconds per second

    @property
    def is_real(self) -> bool:
        return self.access_points <= REAL_ACCESS_POINTS_MAX and self.stations <= REAL_STATIONS_MAX


def stay(plan: StayPlan, programs: Path, console: Console) -> NoReturn:
    """Returns by a signal's exception. The page's address is in the network that this process has at the start."""
    listener = socket.create_server((LOOPBACK, 0))
    enter_own_network()
    with Laboratory(programs) as lab:
        api = HttpApi(lab.directory, lab.authority)
        # The fleet makes its own certificates.
        lab.controller.start(*api.options, "--store", lab.directory / "site.db",
                             *(() if plan.is_real else ("--serve-unenrolled",)), keeps_records=False)
        way = TcpForwarder(api.port, listener)
        introduce(plan, lab, way.port, console)
        radios = Radios(plan, lab) if plan.is_real else None
        if radios is None:
            start_fleet(plan, lab)
        watch(lab, radios, console)


def introduce(plan: StayPlan, lab: Laboratory, port: int, console: Console) -> None:
    password = secrets.token_urlsafe(12)
    at_controller = ("--control", lab.controller.control)
    programs = lab.processes.programs
    sitectl(programs, *at_controller, "operator-add", OPERATOR, "admin", text=password + "\n")
    token = sitectl(programs, *at_controller, "token-add", OPERATOR, "admin").strip()
    kind = "each with its own processes" if plan.is_real else "played by kx-fleet"
    for line in (f"{plan.access_points} access points, {kind}, and {plan.stations} stations; Ctrl-C ends them.", "",
                 f"  page       https://{LOOPBACK}:{port}/", f"  name       {OPERATOR}", f"  password   {password}",
                 f"  token      {token}", f"  authority  {lab.authority.certificate}",
                 f"  sitectl    {programs / 'sitectl'} --control {lab.controller.control} aps", ""):
        console.print(line, markup=False, soft_wrap=True)


class Radios:
    """Play a scenario, again and again."""

    def __init__(self, plan: StayPlan, lab: Laboratory) -> None:
        self._lab = lab
        self._scenario = Scenario(lab, plan.speed, LEAD_SECONDS)
        seed = ("--seed", plan.seed) if plan.seed is not None else ()
        self._scenario.make("--aps", plan.access_points, "--stations", plan.stations, "--seconds", SCENARIO_SECONDS,
                            *seed)
        self._scenario.add_access_points()
        lab.start()
        self._start()

    def _start(self) -> None:
        self._scenario.start()
        self._portal = Portal(self._lab)

    def tick(self) -> None:
        self._portal.admit_guests()
        if all(each.radio_state() == "played" for each in self._lab.access_points):
            for each in self._lab.access_points:
                each.forget_output()
            self._start()


def start_fleet(plan: StayPlan, lab: Laboratory) -> None:
    seed = ("--seed", plan.seed) if plan.seed is not None else ()
    lab.processes.start(
        "kx-fleet", ["--controller", f"{lab.controller.address}:{lab.controller.port}", "--ca",
                     lab.authority.certificate, "--ca-key", lab.authority.key, "--aps", plan.access_points, "--stations",
                     plan.stations, "--arrivals", max(10, plan.stations / 60), "--rate", max(1, plan.stations / 100),
                     "--seconds", FLEET_SECONDS, *seed], lab.directory)


def watch(lab: Laboratory, radios: Radios | None, console: Console) -> NoReturn:
    """Draws the site for as long as its processes run: on a terminal always anew, otherwise a line now and then."""
    with Live(console=console, auto_refresh=False) if console.is_terminal else nullcontext() as live:
        next_line = 0.0
        while True:
            lab.processes.check()
            if radios:
                radios.tick()
            counters = lab.controller.stats()
            if live:
                live.update(draw(lab.controller.ask_json("aps"), counters, console.size), refresh=True)
            elif time.monotonic() >= next_line:
                next_line = time.monotonic() + LINE_SECONDS
                console.print(f"  {describe_counters(counters)}", soft_wrap=True)
            time.sleep(UPDATE_SECONDS)


def draw(access_points: list[dict[str, Any]], counters: dict[str, Any], size: ConsoleDimensions) -> Group:
    """As many access points as there are lines for, with a mark for each station or for several."""
    most = max((each["stations"] for each in access_points), default=0)
    per_mark = max(1, -(-most // max(1, size.width - NAME_WIDTH)))
    shown = access_points[:max(1, size.height - 5)]
    table = Table(box=None, pad_edge=False)
    for heading in ("access point", "tunnel", "stations", ""):
        table.add_column(heading, no_wrap=True)
    for each in shown:
        table.add_row(plain(f"{each['name'] or ''} {each['ap']}"), each["state"], f"{each['stations']:8}",
                      Text("#" * -(-each["stations"] // per_mark), style="green"))
    more = len(access_points) - len(shown)
    return Group(Text(describe_counters(counters)), Text(f"one # for {per_mark} stations" if per_mark > 1 else ""), table,
                 Text(f"and {more} access points" if more else ""))
