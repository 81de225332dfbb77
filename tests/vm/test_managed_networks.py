"""Stations of each kind of network, seen by radiod, client_mgr, apd and the controller."""

import pytest
from nodes import network_kinds
from nodes.access_point_node import Vap
from nodes.managed_site import ManagedSite
from nodes.network_kinds import NetworkKind
from nodes.radius_server import start_hostapd_server
from nodes.station_node import StationNode
from nodes.traffic import EchoServer, Traffic
from nodes.wire import address_in

from lab.site.waiting import wait_until

SSID = "office"


@pytest.mark.parametrize("kind", network_kinds.ALL, ids=str)
def test_association_roams_and_departure(kind: NetworkKind, site: ManagedSite, access_points, stations, radius,
                                         echo: EchoServer) -> None:
    if kind.has_8021x:
        radius(start_hostapd_server)
    first, second = access_points
    site.start(access_points, Vap(kind, SSID))
    station = stations[0]
    station.connect(SSID, kind, first)
    site.wait_until_at(station, first.bssid())
    station.get_address()
    wait_until(lambda: site.client(station)["ip"] == station.address, "the controller has the address")
    site.wait_until_all_agree()
    with Traffic(station.namespace, address_in(10), echo.port) as traffic:
        for target in (second, first):
            station.roam(target)
            site.wait_until_at(station, target.bssid())
            traffic.wait_for_more()
    assert traffic.is_complete
    site.wait_until_all_agree()
    station.leave()
    site.wait_until_gone(station)
    site.wait_until_all_agree()


def connect_two(site: ManagedSite, access_points, stations, kind: NetworkKind = network_kinds.PSK) -> StationNode:
    site.start(access_points, Vap(kind, SSID, settings=("ap_max_inactivity=3",)))
    stations[0].connect(SSID, kind, access_points[0])
    site.wait_until_at(stations[0], access_points[0].bssid())
    return stations[0]


def test_silent_departure_and_return(site: ManagedSite, access_points, stations) -> None:
    station = connect_two(site, access_points[:1], stations)
    station.radio.go_out_of_range()
    site.wait_until_gone(station)
    site.wait_until_all_agree()
    station.radio.come_into_range()
    site.wait_until_at(station, access_points[0].bssid())
    site.wait_until_all_agree()


def test_access_point_sends_a_station_away(site: ManagedSite, access_points, stations) -> None:
    station = connect_two(site, access_points[:1], stations)
    mark = station.supplicant.mark()
    access_points[0].hostapd["wlan0"].command(f"DEAUTHENTICATE {station.mac}")
    station.supplicant.wait_for("CTRL-EVENT-DISCONNECTED", mark)
    station.supplicant.wait_for("CTRL-EVENT-CONNECTED", mark)
    site.wait_until_at(station, access_points[0].bssid())
    site.wait_until_all_agree()


def test_operator_removes_a_station(site: ManagedSite, access_points, stations) -> None:
    station = connect_two(site, access_points[:1], stations)
    mark = station.supplicant.mark()
    site.controller.ask("remove", station.mac)
    station.supplicant.wait_for("CTRL-EVENT-DISCONNECTED", mark)
    station.supplicant.wait_for("CTRL-EVENT-CONNECTED", mark)
    site.wait_until_at(station, access_points[0].bssid())
    site.wait_until_all_agree()


@pytest.mark.parametrize("kind", [network_kinds.EAP, network_kinds.EAP_SHA256], ids=str)
def test_roam_needs_no_eap_with_a_fetched_key(kind: NetworkKind, site: ManagedSite, access_points, stations,
                                              radius) -> None:
    radius(start_hostapd_server)
    first, second = access_points
    site.start(access_points, Vap(kind, SSID, settings=("macaddr_acl=2",)))
    station = stations[0]
    station.connect(SSID, kind, first, 0, "proactive_key_caching=1")
    wait_until(lambda: (site.client(station) or {}).get("pmk"), "the controller has the key")
    assert station.count_eap() == 1
    station.roam(second)
    assert station.count_eap() == 1
    site.wait_until_at(station, second.bssid())
    site.wait_until_all_agree()
