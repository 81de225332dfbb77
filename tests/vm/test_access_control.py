"""MAC access control and guests, decided at the controller and obeyed by hostapd and the kernel."""

import json
from collections.abc import Callable, Sequence

import pytest
from nodes import network_kinds
from nodes.access_point_node import AccessPointNode, Vap
from nodes.managed_site import ManagedSite
from nodes.station_node import StationNode
from nodes.wire import address_in

from lab.site.client_table import GUEST
from lab.site.failure import LabFailure
from lab.site.waiting import wait_until

SSID = "office"
LIST = 1
VERDICT_SECONDS = 30  # for which client_mgr and hostapd keep a verdict
GUEST_VAP = 1


def try_for(effect: Callable[[], bool], seconds: float) -> bool:
    try:
        return wait_until(effect, "the effect", seconds)
    except LabFailure:
        return False


def start_with_list(site: ManagedSite, access_points: list[AccessPointNode]) -> None:
    site.start(access_points, Vap(network_kinds.SAE, SSID, settings=("macaddr_acl=2",),
                                  daemon_settings=(f"mac_acl_index = {LIST}",)))


def test_denied_station_is_refused_until_it_is_allowed(site: ManagedSite, access_points, stations) -> None:
    access_point, station = access_points[0], stations[0]
    start_with_list(site, access_points[:1])
    site.controller.ask("acl-set", LIST, station.mac, "deny")
    station.start(SSID, network_kinds.SAE)
    station.supplicant.wait_for("CTRL-EVENT-AUTH-REJECT")
    assert not access_point.authorized()
    assert site.client(station) is None
    site.controller.ask("acl-set", LIST, station.mac, "allow")

    def ask_again() -> bool:
        """At once: wpa_supplicant by itself waits longer and longer between its attempts."""
        station.supplicant.command("BSSID_IGNORE clear")
        station.supplicant.command("SELECT_NETWORK 0")
        return try_for(station.is_connected, 4)

    wait_until(ask_again, "the daemon has forgotten its verdict", VERDICT_SECONDS + 15)
    site.wait_until_at(station, access_point.bssid())
    site.wait_until_all_agree()


def test_station_that_is_denied_later_is_refused_when_it_comes_back(site: ManagedSite, access_points, stations) -> None:
    access_point, station = access_points[0], stations[0]
    start_with_list(site, access_points[:1])
    station.connect(SSID, network_kinds.SAE, access_point)
    site.wait_until_at(station, access_point.bssid())
    site.controller.ask("acl-set", LIST, station.mac, "deny")
    mark = station.supplicant.mark()

    def is_refused() -> bool:
        site.controller.ask("remove", station.mac)
        return try_for(lambda: station.supplicant.count("CTRL-EVENT-AUTH-REJECT", mark) > 0, 5)

    wait_until(is_refused, "the daemon has forgotten its verdict", VERDICT_SECONDS + 15)
    site.wait_until_gone(station)
    site.wait_until_all_agree()


def test_verdict_that_changes_while_hostapd_remembers_the_old_one(site: ManagedSite, access_points, stations) -> None:
    """A new client_mgr does not remember it. hostapd lets the station in, and gets it into its deny list."""
    access_point, station = access_points[0], stations[0]
    start_with_list(site, access_points[:1])
    station.connect(SSID, network_kinds.SAE, access_point)
    site.wait_until_at(station, access_point.bssid())
    station.leave()
    site.wait_until_gone(station)
    site.controller.ask("acl-set", LIST, station.mac, "deny")
    site.access_points[0].replace("client_mgr")

    def is_in_the_deny_list() -> bool:
        return station.mac in access_point.hostapd["wlan0"].request("DENY_ACL SHOW")

    def comes_and_is_denied() -> bool:
        """A station that comes within 10 s of the question counts as asked about."""
        station.come_back()
        if try_for(is_in_the_deny_list, 3):
            return True
        station.leave()
        return False

    wait_until(comes_and_is_denied, "the station is in the deny list", VERDICT_SECONDS)
    wait_until(lambda: not access_point.authorized(), "the station was sent away")
    station.leave()
    site.wait_until_gone(station)
    site.wait_until_all_agree()


@pytest.mark.parametrize("choice", ["deny", "allow"])
def test_verdict_without_a_controller(choice: str, site: ManagedSite, access_points, stations) -> None:
    access_point, station = access_points[0], stations[0]
    site.radio_settings = f'acl_fallback = "{choice}"\n'
    start_with_list(site, access_points[:1])
    site.controller.kill()
    station.start(SSID, network_kinds.SAE)
    if choice == "deny":
        station.supplicant.wait_for("CTRL-EVENT-AUTH-REJECT")
        assert not access_point.has_station(station.mac)
    else:
        station.wait_until_connected(access_point.bssid())


def kernel(access_point: AccessPointNode, *words: str) -> list[dict]:
    return json.loads(access_point.namespace.run("ip", "-j", *words) or "[]")


def host_routes(access_point: AccessPointNode) -> list[str]:
    interface = access_point.interface(GUEST_VAP)
    return [each["dst"] for each in kernel(access_point, "route", "show", "dev", interface) if "/" not in each["dst"]]


def permanent_neighbours(access_point: AccessPointNode) -> list[tuple[str, str]]:
    entries = kernel(access_point, "neigh", "show", "dev", access_point.interface(GUEST_VAP), "nud", "permanent")
    return [(each["dst"], each["lladdr"]) for each in entries]


def guest_network(site: ManagedSite, access_points: Sequence[AccessPointNode]) -> None:
    site.start(list(access_points), Vap(network_kinds.PSK, SSID),
               Vap(network_kinds.OPEN, "guest", 20, daemon_settings=("guest = true", 'captive = "sign in"')))


def test_guest_waits_is_approved_and_stays_approved(site: ManagedSite, access_points, stations) -> None:
    first, second = access_points
    guest: StationNode = stations[0]
    guest_network(site, access_points)
    guest.connect("guest", network_kinds.OPEN, first, GUEST_VAP)
    site.wait_until_at(guest, first.bssid(GUEST_VAP))
    assert guest.get_address().startswith("10.0.20.")
    wait_until(lambda: host_routes(first) == [guest.address], "the kernel has a route to the guest")
    assert permanent_neighbours(first) == [(guest.address, guest.mac)]
    assert site.client(guest)["guest"] == "waiting"
    assert site.access_points[0].client(guest.mac).flags & GUEST

    site.controller.ask("approve", guest.mac)
    wait_until(lambda: not host_routes(first) and not permanent_neighbours(first), "the kernel has forgotten the guest")
    for target in (second, first):
        guest.roam(target, GUEST_VAP)
        site.wait_until_at(guest, target.bssid(GUEST_VAP))
    assert site.client(guest)["guest"] == "approved"
    site.wait_until_all_agree()
    assert not host_routes(first) and not host_routes(second)
    assert guest.reaches(address_in(20))


def test_guest_that_roams_while_it_waits(site: ManagedSite, access_points, stations) -> None:
    """client_mgr makes entries for an address that is new to it, and a move notice removes none."""
    first, second = access_points
    guest: StationNode = stations[0]
    guest_network(site, access_points)
    guest.connect("guest", network_kinds.OPEN, first, GUEST_VAP)
    site.wait_until_at(guest, first.bssid(GUEST_VAP))
    guest.get_address()
    wait_until(lambda: host_routes(first) == [guest.address], "the kernel has a route to the guest")
    guest.roam(second, GUEST_VAP)
    site.wait_until_at(guest, second.bssid(GUEST_VAP))
    site.wait_until_all_agree(connected=[guest])
    assert site.client(guest)["guest"] == "waiting"
    assert site.access_points[1].client(guest.mac).flags & GUEST

    site.controller.ask("approve", guest.mac)
    wait_until(lambda: not site.access_points[1].client(guest.mac).flags & GUEST, "the daemon has the approval")
    guest.roam(first, GUEST_VAP)
    site.wait_until_at(guest, first.bssid(GUEST_VAP))
    site.wait_until_all_agree(connected=[guest])
    assert site.client(guest)["guest"] == "approved"
    assert not site.access_points[0].client(guest.mac).flags & GUEST
    assert host_routes(first) == [guest.address]
    assert permanent_neighbours(first) == [(guest.address, guest.mac)]
    assert not host_routes(second) and not permanent_neighbours(second)
    assert guest.reaches(address_in(20))
