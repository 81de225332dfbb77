"""Stations of each kind of network, on two access points that have all of them: they come, roam and leave."""

from collections.abc import Iterator
from contextlib import ExitStack
from dataclasses import dataclass
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.access_point_node import AccessPointNode, Vap
from nodes.managed_site import ManagedSite
from nodes.network_kinds import NetworkKind
from nodes.pool import Pool
from nodes.radius_server import start_hostapd_server
from nodes.station_node import StationNode
from nodes.traffic import EchoServer, Traffic
from nodes.wire import address_in

from lab.site.authority import Authority
from lab.site.processes import Processes
from lab.site.waiting import try_for, wait_until

KINDS = network_kinds.ALL
# Sixteen VAPs' beacons every 100 ms would keep the emulated processor busy.
VAPS = tuple(Vap(kind, str(kind), settings=("beacon_int=300", "ap_max_inactivity=3")) for kind in KINDS)


@dataclass
class Networks:
    """Each kind's VAP has the same index at both access points, and its station in the list."""

    site: ManagedSite
    access_points: list[AccessPointNode]
    stations: list[StationNode]

    def connect(self) -> None:
        for index, (station, vap) in enumerate(zip(self.stations, VAPS)):
            station.connect(vap.ssid, vap.kind, self.access_points[0], index)

    def wait_until_all_are_here(self) -> None:
        self.site.wait_until_all_agree(connected=self.stations)

    def wait_until_all_are_gone(self) -> None:
        for station in self.stations:
            self.site.wait_until_gone(station)
        self.site.wait_until_all_agree()


def order_back(station: StationNode) -> None:
    """Returns when it is connected. By itself wpa_supplicant waits longer and longer between its attempts.

    Eight stations that come at once keep the emulated processor busy for longer than they wait.
    """
    def comes() -> bool:
        station.supplicant.command("BSSID_IGNORE clear")
        station.supplicant.command("SELECT_NETWORK 0")
        return try_for(station.is_connected, 8)

    wait_until(comes, f"{station.name} comes back", 40)


@pytest.fixture(scope="module")
def networks(programs: Path, pool: Pool, authority: Authority, tmp_path_factory) -> Iterator[Networks]:
    """All stations are connected, also at the end of each case."""
    servers = Processes(Path("/usr/sbin"))
    with ExitStack() as stack:
        stack.callback(servers.end)
        access_points = stack.enter_context(pool.access_points(2))
        stations = stack.enter_context(pool.stations(len(KINDS)))
        start_hostapd_server(servers, tmp_path_factory.mktemp("radius"), authority)
        made = Networks(stack.enter_context(ManagedSite(programs, stations)), access_points, stations)
        made.site.start(access_points, *VAPS)
        made.connect()
        made.wait_until_all_are_here()
        yield made


@pytest.mark.parametrize("kind", KINDS, ids=str)
def test_address_and_roams(kind: NetworkKind, networks: Networks, echo: EchoServer) -> None:
    site, index = networks.site, KINDS.index(kind)
    first, second = networks.access_points
    station = networks.stations[index]
    station.get_address()
    wait_until(lambda: site.client(station)["ip"] == station.address, "the controller has the address")
    with Traffic(station.namespace, address_in(10), echo.port) as traffic:
        for target in (second, first):
            station.roam(target, index)
            site.wait_until_at(station, target.bssid(index))
            traffic.wait_for_more()
    assert traffic.is_complete
    networks.wait_until_all_are_here()


def test_access_point_sends_stations_away(networks: Networks) -> None:
    for index, station in enumerate(networks.stations):
        station.supplicant.command("STA_AUTOCONNECT 0")
        mark = station.supplicant.mark()
        serving = next(each for each in networks.access_points if each.bssid(index) == station.bssid())
        serving.hostapd[serving.interface(index)].command(f"DEAUTHENTICATE {station.mac}")
        station.supplicant.wait_for("CTRL-EVENT-DISCONNECTED", mark)
    networks.wait_until_all_are_gone()
    for station in networks.stations:
        station.supplicant.command("STA_AUTOCONNECT 1")
        order_back(station)
    networks.wait_until_all_are_here()


def test_silent_departure_and_return(networks: Networks) -> None:
    for station in networks.stations:
        station.radio.go_out_of_range()
    networks.wait_until_all_are_gone()
    for station in networks.stations:
        station.radio.come_into_range()
        order_back(station)
    networks.wait_until_all_are_here()


def test_stations_leave_and_come_back(networks: Networks) -> None:
    for station in networks.stations:
        station.leave()
    networks.wait_until_all_are_gone()
    for station in networks.stations:
        order_back(station)
    networks.wait_until_all_are_here()
