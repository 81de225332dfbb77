"""hostapd, a daemon or the controller fails among real stations: soon all agree again."""

import signal
from collections.abc import Iterator
from contextlib import ExitStack
from dataclasses import dataclass
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.access_point_node import AccessPointNode, Vap
from nodes.managed_site import ManagedSite, restart_hostapd
from nodes.pool import Pool
from nodes.station_node import StationNode

SSID = "office"
VAP = Vap(network_kinds.PSK, SSID)


@dataclass
class Office:
    """Two access points, each with a station."""

    site: ManagedSite
    access_points: list[AccessPointNode]
    stations: list[StationNode]

    def roam(self, target: int) -> None:
        """The first station, to the access point with this index."""
        access_point = self.access_points[target]
        self.stations[0].roam(access_point)
        self.site.wait_until_at(self.stations[0], access_point.bssid())

    def wait_until_all_agree(self) -> None:
        self.site.wait_until_all_agree(connected=self.stations)


@pytest.fixture(scope="module")
def shared_office(programs: Path, pool: Pool) -> Iterator[Office]:
    with ExitStack() as stack:
        access_points, stations = stack.enter_context(pool.access_points(2)), stack.enter_context(pool.stations(2))
        site = stack.enter_context(ManagedSite(programs, stations))
        site.start(access_points, VAP)
        for station, access_point in zip(stations, access_points):
            station.connect(SSID, VAP.kind, access_point)
        yield Office(site, access_points, stations)


@pytest.fixture
def office(shared_office: Office) -> Iterator[Office]:
    """The first station is at the first access point. At the end all are connected, and all agree."""
    if not shared_office.stations[0].is_connected(shared_office.access_points[0].bssid()):
        shared_office.roam(0)
    shared_office.wait_until_all_agree()
    yield shared_office
    shared_office.wait_until_all_agree()


def test_hostapd_reloads(office: Office) -> None:
    mark = office.stations[0].supplicant.mark()
    office.access_points[0].hostapd_process.signal(signal.SIGHUP)
    office.stations[0].supplicant.wait_for("CTRL-EVENT-CONNECTED", mark)
    office.wait_until_all_agree()
    office.roam(1)
    office.roam(0)


def test_hostapd_is_disabled_and_enabled(office: Office) -> None:
    first, second = office.access_points
    first.hostapd["wlan0"].command("DISABLE")
    office.site.wait_until_at(office.stations[0], second.bssid())
    office.wait_until_all_agree()
    first.hostapd["wlan0"].command("ENABLE")
    office.roam(0)


def test_link_of_a_vap_goes_down_and_up(office: Office) -> None:
    first, second = office.access_points
    first.namespace.ip("link set wlan0 down")
    office.site.wait_until_at(office.stations[0], second.bssid())
    office.wait_until_all_agree()
    first.namespace.ip("link set wlan0 up")
    office.roam(0)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL], ids=["TERM", "KILL"])
def test_hostapd_ends_and_comes_back(number: int, office: Office) -> None:
    restart_hostapd(office.access_points[0], (VAP,), number)
    office.wait_until_all_agree()
    office.roam(0)


def test_controller_is_killed_and_comes_back(office: Office) -> None:
    office.site.controller.kill()
    office.stations[0].roam(office.access_points[1])
    office.site.controller.start()
