"""hostapd, a daemon or the controller fails among real stations: soon all agree again."""

import itertools
import signal

import pytest
from nodes import network_kinds
from nodes.access_point_node import Vap
from nodes.managed_site import ManagedSite, restart_hostapd

SSID = "office"
VAP = Vap(network_kinds.PSK, SSID)


def connect_all(site: ManagedSite, access_points, stations) -> None:
    site.start(access_points, VAP)
    for station, access_point in zip(stations, itertools.cycle(access_points)):
        station.connect(SSID, VAP.kind, access_point)
    for station, access_point in zip(stations, itertools.cycle(access_points)):
        site.wait_until_at(station, access_point.bssid())


def wait_until_back(site: ManagedSite, stations) -> None:
    site.wait_until_all_agree(connected=stations)


def test_hostapd_reloads(site: ManagedSite, access_points, stations) -> None:
    connect_all(site, access_points, stations)
    mark = stations[0].supplicant.mark()
    access_points[0].hostapd_process.signal(signal.SIGHUP)
    stations[0].supplicant.wait_for("CTRL-EVENT-CONNECTED", mark)
    wait_until_back(site, stations)
    stations[0].roam(access_points[1])
    site.wait_until_at(stations[0], access_points[1].bssid())
    stations[0].roam(access_points[0])
    site.wait_until_at(stations[0], access_points[0].bssid())
    site.wait_until_all_agree()


def test_hostapd_is_disabled_and_enabled(site: ManagedSite, access_points, stations) -> None:
    connect_all(site, access_points, stations)
    access_points[0].hostapd["wlan0"].command("DISABLE")
    site.wait_until_at(stations[0], access_points[1].bssid(), 40)
    site.wait_until_all_agree()
    access_points[0].hostapd["wlan0"].command("ENABLE")
    stations[0].roam(access_points[0])
    site.wait_until_at(stations[0], access_points[0].bssid())
    site.wait_until_all_agree()


def test_link_of_a_vap_goes_down_and_up(site: ManagedSite, access_points, stations) -> None:
    connect_all(site, access_points, stations)
    access_points[0].namespace.ip("link set wlan0 down")
    site.wait_until_at(stations[0], access_points[1].bssid(), 40)
    site.wait_until_all_agree(connected=stations)
    access_points[0].namespace.ip("link set wlan0 up")
    stations[0].roam(access_points[0])
    site.wait_until_at(stations[0], access_points[0].bssid())
    site.wait_until_all_agree(connected=stations)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL], ids=["TERM", "KILL"])
def test_hostapd_ends_and_comes_back(number: int, site: ManagedSite, access_points, stations) -> None:
    connect_all(site, access_points, stations)
    restart_hostapd(access_points[0], (VAP,), number)
    wait_until_back(site, stations)
    stations[0].roam(access_points[0])
    site.wait_until_at(stations[0], access_points[0].bssid())
    site.wait_until_all_agree()


def test_controller_is_killed_and_comes_back(site: ManagedSite, access_points, stations) -> None:
    connect_all(site, access_points, stations)
    site.controller.kill()
    stations[0].roam(access_points[1])
    site.controller.start()
    wait_until_back(site, stations)
