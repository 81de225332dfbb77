"""Twenty stations on four access points, of several kinds of networks: they walk, and programs are killed meanwhile."""

import itertools
import random
import signal
import time
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor
from contextlib import ExitStack
from dataclasses import dataclass
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.access_point_node import AccessPointNode, Vap
from nodes.managed_site import DAEMONS, ManagedSite, restart_hostapd
from nodes.pool import Pool
from nodes.radius_server import start_hostapd_server
from nodes.station_node import StationNode
from nodes.traffic import EchoServer, Traffic
from nodes.wire import address_in

from lab.site.authority import Authority
from lab.site.processes import Processes
from lab.site.waiting import wait_until

ACCESS_POINTS, STATIONS, ROAMING = 4, 20, 10
KINDS = (network_kinds.EAP, network_kinds.PSK, network_kinds.SAE, network_kinds.FT_PSK, network_kinds.OPEN)
# Twenty VAPs' beacons every 100 ms would keep the emulated processor busy.
VAPS = tuple(Vap(kind, str(kind), settings=("beacon_int=300", *(["macaddr_acl=2"] if kind.has_8021x else [])))
             for kind in KINDS)
AGREE_SECONDS = 10
WALK_SECONDS = 60
PAUSE_SECONDS = (1, 5)  # between two roams of a station


@dataclass
class Crowd:
    """Each station's VAP has the same index at every access point."""

    site: ManagedSite
    access_points: list[AccessPointNode]
    stations: list[StationNode]

    def vap_of(self, station: StationNode) -> int:
        return self.stations.index(station) % len(VAPS)

    def connect(self) -> None:
        first = dict(zip(self.stations, itertools.cycle(self.access_points)))
        for station, access_point in first.items():
            vap = self.vap_of(station)
            station.launch(VAPS[vap].ssid, KINDS[vap], access_point.bssid(vap), "proactive_key_caching=1")
        for station in self.stations:
            station.attach()
        for station, access_point in first.items():
            station.settle(access_point, self.vap_of(station))

    def roam(self, station: StationNode, access_point: AccessPointNode) -> None:
        station.roam(access_point, self.vap_of(station))


@pytest.fixture(scope="module")
def crowd(programs: Path, pool: Pool, authority: Authority, tmp_path_factory) -> Iterator[Crowd]:
    """All are connected. They stay so from case to case."""
    servers = Processes(Path("/usr/sbin"))
    with ExitStack() as stack:
        stack.callback(servers.end)
        access_points = stack.enter_context(pool.access_points(ACCESS_POINTS))
        stations = stack.enter_context(pool.stations(STATIONS))
        start_hostapd_server(servers, tmp_path_factory.mktemp("radius"), authority)
        made = Crowd(stack.enter_context(ManagedSite(programs, stations)), access_points, stations)
        made.site.start(access_points, *VAPS)
        made.connect()
        made.site.wait_until_all_agree(connected=stations)
        yield made


def kill_daemon(name: str) -> Callable[[Crowd], None]:
    return lambda crowd: crowd.site.access_points[0].replace(name)


def kill_hostapd(crowd: Crowd) -> None:
    restart_hostapd(crowd.access_points[0], VAPS, signal.SIGKILL)


@pytest.mark.parametrize("kill", [*(pytest.param(kill_daemon(name), id=name) for name in DAEMONS),
                                  pytest.param(kill_hostapd, id="hostapd")])
def test_program_is_killed_while_stations_roam(kill: Callable[[Crowd], None], crowd: Crowd) -> None:
    """Each of them comes to the access point of that program and goes away from it."""
    roams: list[str] = []

    def roam(station: StationNode, other: AccessPointNode) -> None:
        for target in (crowd.access_points[0], other):
            crowd.roam(station, target)
            roams.append(station.mac)

    with ThreadPoolExecutor(ROAMING) as threads:
        others = itertools.cycle(crowd.access_points[1:])
        moving = [threads.submit(roam, *each) for each in zip(crowd.stations[:ROAMING], others)]
        wait_until(lambda: roams, "a station has roamed")
        kill(crowd)
        for each in moving:
            each.result()
    # A station with protected frames does not believe a restarted hostapd that sends it away, until it has sent
    # something.
    for station in crowd.stations:
        station.send_frame()
    crowd.site.wait_until_all_agree(AGREE_SECONDS, crowd.stations)


def test_stations_walk_for_a_minute(crowd: Crowd, echo: EchoServer) -> None:
    before = {station: station.count_eap() for station in crowd.stations}
    roams: list[StationNode] = []
    end = time.monotonic() + WALK_SECONDS

    def walk(station: StationNode) -> None:
        choice = random.Random(station.mac)
        while time.monotonic() < end:
            others = [each for each in crowd.access_points if each.bssid(crowd.vap_of(station)) != station.bssid()]
            crowd.roam(station, choice.choice(others))
            roams.append(station)
            time.sleep(choice.uniform(*PAUSE_SECONDS))

    talkers = crowd.stations[:len(VAPS)]  # one of each kind
    for station in talkers:
        station.get_address()
    with ExitStack() as stack:
        traffic = [stack.enter_context(Traffic(each.namespace, address_in(10), echo.port)) for each in talkers]
        with ThreadPoolExecutor(STATIONS) as threads:
            for each in [threads.submit(walk, station) for station in crowd.stations]:
                each.result()
        for each in traffic:
            each.wait_for_more()
    assert [each.is_complete for each in traffic] == [True] * len(talkers)
    crowd.site.wait_until_all_agree(AGREE_SECONDS, crowd.stations)
    with_eap = sum(station.count_eap() - before[station] for station in crowd.stations)
    enterprise = [station for station in roams if KINDS[crowd.vap_of(station)].has_8021x]
    print(f"{len(roams)} roams; of the {len(enterprise)} with 802.1X {with_eap} ran EAP")
    assert set(roams) == set(crowd.stations)
    assert with_eap < len(enterprise) / 2
