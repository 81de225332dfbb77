"""MAC access control and guests, decided at the controller and obeyed by hostapd and the kernel."""

import json
from collections.abc import Sequence

import pytest
from nodes import network_kinds
from nodes.access_point_node import AccessPointNode, Vap
from nodes.managed_site import ManagedSite
from nodes.station_node import StationNode
from nodes.wire import address_in

from lab.site.client_table import GUEST
from lab.site.waiting import wait_until

SSID = "office"
LISTED = Vap(network_kinds.SAE, SSID, settings=("macaddr_acl=2",), daemon_settings=("mac_acl_index = 1",))
GUEST_VAP = 1


@pytest.mark.parametrize("choice", ["deny", "allow"])
def test_verdict_without_a_controller(choice: str, site: ManagedSite, access_points, stations) -> None:
    access_point, station = access_points[0], stations[0]
    site.radio_settings = f'acl_fallback = "{choice}"\n'
    site.start(access_points[:1], LISTED)
    site.controller.kill()
    station.start(SSID, network_kinds.SAE)
    if choice == "deny":
        station.supplicant.wait_for("CTRL-EVENT-AUTH-REJECT")
        assert not access_point.has_station(station.mac)
    else:
        station.wait_until_connected(access_point.bssid())
    site.controller.start()


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
