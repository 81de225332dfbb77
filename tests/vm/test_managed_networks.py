"""Stations of each kind of network, seen by radiod, client_mgr, apd and the controller."""

import re
import signal
from collections.abc import Callable
from functools import partial

import pytest
from nodes import network_kinds
from nodes.access_point_node import AccessPointNode, Vap
from nodes.managed_site import LOCAL_RADIUS, ManagedSite
from nodes.network_kinds import NetworkKind
from nodes.radius_server import start_freeradius, start_hostapd_server
from nodes.station_node import StationNode

from lab.site.client_table import TUNNEL
from lab.site.processes import Process
from lab.site.waiting import wait_until

SSID = "office"
LIMIT_SECONDS = 3600  # less than a key's usual lifetime


def test_station_on_an_interface_of_the_vlan_file(site: ManagedSite, access_points, stations) -> None:
    """hostapd gives it one by its accept list. A new radiod finds it there."""
    access_point, station = access_points[0], stations[0]
    vlans, accepted = access_point.directory / "vlans", access_point.directory / "accepted"
    vlans.write_text("1001 wlan0.1001 br10\n")
    accepted.write_text(f"{station.mac} 1001\n")
    site.start(access_points[:1], Vap(network_kinds.PSK, SSID, settings=(
        "dynamic_vlan=2", f"vlan_file={vlans}", f"accept_mac_file={accepted}")))
    station.connect(SSID, network_kinds.PSK, access_point)
    site.wait_until_at(station, access_point.bssid())
    assert station.mac in access_point.namespace.run("iw", "dev", "wlan0.1001", "station", "dump")
    log = site.access_points[0].running["radiod"].err
    site.access_points[0].kill("radiod")
    mark = len(log.read_text())
    site.access_points[0].start_daemon("radiod")
    wait_until(lambda: "local message" in log.read_text()[mark:], "radiod has announced something")
    assert "local message 63" in log.read_text()[mark:]
    assert "local message 65" not in log.read_text()[mark:]
    site.wait_until_at(station, access_point.bssid())


def test_operator_removes_a_station(site: ManagedSite, access_points, stations) -> None:
    station = stations[0]
    site.start(access_points[:1], Vap(network_kinds.PSK, SSID))
    station.connect(SSID, network_kinds.PSK, access_points[0])
    site.wait_until_at(station, access_points[0].bssid())
    mark = station.supplicant.mark()
    site.controller.ask("remove", station.mac)
    station.supplicant.wait_for("CTRL-EVENT-DISCONNECTED", mark)
    station.supplicant.wait_for("CTRL-EVENT-CONNECTED", mark)
    site.wait_until_at(station, access_points[0].bssid())


@pytest.mark.parametrize(("kind", "start_server"), [
    pytest.param(network_kinds.EAP, start_hostapd_server, id="eap"),
    pytest.param(network_kinds.EAP, start_freeradius, id="eap-freeradius"),
    pytest.param(network_kinds.EAP_SHA256, start_hostapd_server, id="eap-sha256")])
def test_roam_needs_no_eap_with_a_fetched_key(kind: NetworkKind, start_server: Callable[..., Process],
                                              site: ManagedSite, access_points, stations, radius) -> None:
    radius(start_server)
    first, second = access_points
    site.start(access_points, Vap(kind, SSID, settings=("macaddr_acl=2",)))
    station = stations[0]
    connect_with_eap(site, station, kind, first)
    station.roam(second)
    assert station.count_eap() == 1
    assert count_eap(second) == 0
    site.wait_until_at(station, second.bssid())
    site.wait_until_all_agree(connected=[station])


@pytest.mark.parametrize("start_server", [start_hostapd_server, start_freeradius], ids=["hostapd", "freeradius"])
def test_roam_runs_eap_where_the_key_is_unknown(start_server: Callable[..., Process], site: ManagedSite, access_points,
                                                stations, radius) -> None:
    radius(start_server)
    first, second = access_points
    site.add(first, Vap(network_kinds.EAP, SSID, settings=("macaddr_acl=2",)))
    site.add(second, Vap(network_kinds.EAP, SSID, settings=("macaddr_acl=2",), daemon_settings=("fetch_pmk = false",)))
    site.start()
    station = stations[0]
    connect_with_eap(site, station, network_kinds.EAP, first)
    station.roam(second)
    assert station.count_eap() == 2
    assert count_eap(second) == 1
    site.wait_until_at(station, second.bssid())
    site.wait_until_all_agree(connected=[station])


def test_key_that_the_server_limits_stays_where_it_was_made(site: ManagedSite, access_points, stations,
                                                            radius) -> None:
    radius(partial(start_freeradius, session_seconds=LIMIT_SECONDS))
    first, second = access_points
    site.start(access_points, Vap(network_kinds.EAP, SSID, settings=("macaddr_acl=2",)))
    station = stations[0]
    station.connect(SSID, network_kinds.EAP, first, 0, "proactive_key_caching=1")
    site.wait_until_at(station, first.bssid())
    for target, eap in ((second, 2), (first, 2)):
        station.roam(target)
        site.wait_until_at(station, target.bssid())
        assert station.count_eap() == eap
        listed = target.hostapd["wlan0"].request("PMKSA")
        left = [int(each) for each in re.findall(rf"{station.mac} [0-9a-f]+ (\d+) ", listed)]
        assert len(left) == 1 and 0 < left[0] <= LIMIT_SECONDS
    assert not site.client(station)["pmk"]


def connect_with_eap(site: ManagedSite, station: StationNode, kind: NetworkKind, access_point: AccessPointNode) -> None:
    """Returns when the controller has the key. The station offers it at each access point."""
    station.connect(SSID, kind, access_point, 0, "proactive_key_caching=1")
    wait_until(lambda: (site.client(station) or {}).get("pmk"), "the controller has the key")
    assert station.count_eap() == 1


def count_eap(access_point: AccessPointNode) -> int:
    """How often hostapd was told by the authentication server to let a station in."""
    return access_point.hostapd["wlan0"].count("CTRL-EVENT-EAP-SUCCESS2")


@pytest.mark.parametrize("kind", [network_kinds.PSK, network_kinds.EAP], ids=str)
def test_roam_to_another_vlan_is_tunnelled(kind: NetworkKind, site: ManagedSite, access_points, stations,
                                           radius) -> None:
    if kind.has_8021x:
        radius(start_hostapd_server)
    first, second = access_points
    site.add(first, Vap(kind, SSID, 10, ("macaddr_acl=2",)))
    site.add(second, Vap(kind, SSID, 20, ("macaddr_acl=2",), ("fetch_pmk = false",)))
    site.start()
    station = stations[0]
    station.connect(SSID, kind, first)
    site.wait_until_at(station, first.bssid())
    station.roam(second)
    site.wait_until_at(station, second.bssid())

    def is_tunnelled() -> bool:
        client = site.access_points[1].client(station.mac)
        return client is not None and client.home_vlan == 10 and bool(client.flags & TUNNEL)

    wait_until(is_tunnelled, "the daemon tunnels the station to its home VLAN", log=site.access_points[1].log)
    station.roam(first)
    site.wait_until_at(station, first.bssid())


def test_roam_between_two_vaps_of_one_hostapd(site: ManagedSite, access_points, stations) -> None:
    access_point, station = access_points[0], stations[0]
    vap = Vap(network_kinds.PSK, SSID)
    site.start([access_point], vap, vap)
    station.connect(SSID, vap.kind, access_point)
    site.wait_until_at(station, access_point.bssid())
    station.get_address()
    wait_until(lambda: site.client(station)["ip"] == station.address, "the controller has the address")
    station.roam(access_point, 1)
    site.wait_until_at(station, access_point.bssid(1))
    site.wait_until_all_agree()
    assert site.client(station)["ip"] == station.address
    assert not any(each["name"] == "disassociation" for each in site.access_points[0].captive_output.read())


def test_hostapd_that_starts_late(site: ManagedSite, access_points, stations) -> None:
    access_point, station = access_points[0], stations[0]
    vaps = (Vap(network_kinds.PSK, SSID), Vap(network_kinds.OPEN, "guest", 20))
    site.add(access_point, *vaps)
    access_point.end_hostapd(signal.SIGTERM)
    site.start()
    access_point.start_hostapd(*vaps, radius=LOCAL_RADIUS)
    for index, (each, vap) in enumerate(zip(stations, vaps)):
        each.connect(vap.ssid, vap.kind, access_point, index)
        site.wait_until_at(each, access_point.bssid(index))
    site.wait_until_all_agree()
    assert station.is_connected()
