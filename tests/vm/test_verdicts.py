"""Verdicts of the MAC ACL that change at the controller: client_mgr and hostapd remember the old ones for a while."""

from collections.abc import Callable, Iterator
from concurrent.futures import Future, ThreadPoolExecutor, wait
from contextlib import ExitStack
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.access_point_node import AccessPointNode, Vap
from nodes.managed_site import ManagedSite
from nodes.pool import Pool
from nodes.station_node import StationNode

from lab.site.waiting import try_for, wait_until

SSID = "office"
LIST = 1
LISTED = Vap(network_kinds.SAE, SSID, settings=("macaddr_acl=2",), daemon_settings=(f"mac_acl_index = {LIST}",))
VERDICT_SECONDS = 30  # for which client_mgr and hostapd keep a verdict


def is_here(access_point: AccessPointNode, station: StationNode) -> bool:
    """By the kernel's list."""
    return station.mac in [mac for mac, _ in access_point.authorized()]


def denied_station_is_refused_until_it_is_allowed(site: ManagedSite, access_point: AccessPointNode,
                                                  station: StationNode) -> None:
    site.controller.ask("acl-set", LIST, station.mac, "deny")
    station.start(SSID, network_kinds.SAE, access_point.bssid())
    station.supplicant.wait_for("CTRL-EVENT-AUTH-REJECT")
    assert not is_here(access_point, station)
    assert site.client(station) is None
    site.controller.ask("acl-set", LIST, station.mac, "allow")

    def ask_again() -> bool:
        """At once: wpa_supplicant by itself waits longer and longer between its attempts."""
        station.supplicant.command("BSSID_IGNORE clear")
        station.supplicant.command("SELECT_NETWORK 0")
        return try_for(station.is_connected, 4)

    wait_until(ask_again, "the daemon has forgotten its verdict", VERDICT_SECONDS + 15)
    site.wait_until_at(station, access_point.bssid())


def station_that_is_denied_later_is_refused_when_it_comes_back(site: ManagedSite, access_point: AccessPointNode,
                                                               station: StationNode) -> None:
    station.start(SSID, network_kinds.SAE, access_point.bssid())
    station.associate(access_point)
    site.wait_until_at(station, access_point.bssid())
    site.controller.ask("acl-set", LIST, station.mac, "deny")
    mark = station.supplicant.mark()

    def is_refused() -> bool:
        site.controller.ask("remove", station.mac)
        return try_for(lambda: station.supplicant.count("CTRL-EVENT-AUTH-REJECT", mark) > 0, 5)

    wait_until(is_refused, "the daemon has forgotten its verdict", VERDICT_SECONDS + 15)
    site.wait_until_gone(station)
    assert not is_here(access_point, station)


def verdict_changes_while_hostapd_remembers_the_old_one(site: ManagedSite, access_point: AccessPointNode,
                                                        station: StationNode) -> None:
    """A new client_mgr does not remember it. hostapd lets the station in, and gets it into its deny list."""
    station.start(SSID, network_kinds.SAE, access_point.bssid())
    station.associate(access_point)
    site.wait_until_at(station, access_point.bssid())
    station.leave()
    site.wait_until_gone(station)
    site.controller.ask("acl-set", LIST, station.mac, "deny")
    next(each for each in site.access_points if each.node is access_point).replace("client_mgr")

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
    wait_until(lambda: not is_here(access_point, station), "the station was sent away")
    station.leave()
    site.wait_until_gone(station)


# Each with the index of its access point. The first two wait for most of VERDICT_SECONDS.
CHANGES = {denied_station_is_refused_until_it_is_allowed: 0,
           station_that_is_denied_later_is_refused_when_it_comes_back: 0,
           verdict_changes_while_hostapd_remembers_the_old_one: 1}


@pytest.fixture(scope="module")
def changes(programs: Path, pool: Pool) -> Iterator[tuple[ManagedSite, dict[Callable, Future]]]:
    """All have ended. They run side by side, each with a station of its own."""
    with ExitStack() as stack:
        threads = stack.enter_context(ThreadPoolExecutor())  # a program ends with the thread that started it
        access_points = stack.enter_context(pool.access_points(2))
        stations = stack.enter_context(pool.stations(len(CHANGES)))
        site = stack.enter_context(ManagedSite(programs, stations))
        site.start(access_points, LISTED)
        running = {change: threads.submit(change, site, access_points[index], station)
                   for (change, index), station in zip(CHANGES.items(), stations)}
        wait(running.values())
        yield site, running


@pytest.mark.parametrize("change", CHANGES, ids=lambda change: change.__name__)
def test_verdict_changes(change: Callable, changes: tuple[ManagedSite, dict[Callable, Future]]) -> None:
    site, results = changes
    results[change].result()
    site.wait_until_all_agree()
