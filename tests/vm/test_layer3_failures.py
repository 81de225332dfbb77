"""Programs and tun0 fail at either end of a station's path to its home: its traffic goes on or comes back."""

import json
from collections.abc import Iterator
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.managed_site import ManagedAccessPoint
from nodes.pool import Pool
from nodes.roaming_site import FOREIGN, HOME, MIXED, RoamingSite, lend
from nodes.station_node import INTERFACE, StationNode
from nodes.traffic import EchoServer, Traffic
from nodes.wire import address_in

from lab.site.controller import Controller
from lab.site.waiting import wait_until

pytestmark = pytest.mark.long
ENDS = pytest.mark.parametrize("end", [HOME, FOREIGN], ids=["home", "foreign"])
DAEMONS = ("client_mgr", "apd", "radiod")


@pytest.fixture
def away(pool: Pool, programs: Path) -> Iterator[tuple[RoamingSite, StationNode]]:
    """The station is away from home."""
    with lend(pool, programs, 1) as (roaming, (traveller,)):
        roaming.start(network_kinds.PSK)
        roaming.connect(traveller, network_kinds.PSK, HOME)
        roaming.roam(traveller, FOREIGN)
        yield roaming, traveller


def tunnel_index(ap: ManagedAccessPoint) -> int:
    """Of the interface tun0; 0 when there is none."""
    links = json.loads(ap.node.namespace.run("ip", "-j", "link"))
    return next((each["ifindex"] for each in links if each["ifname"] == "tun0"), 0)


def count_tunnels(controller: Controller) -> int:
    """That have come up so far."""
    return sum(each.get("event") == "tunnel_up" for each in controller.objects())


def replace(roaming: RoamingSite, at: int, daemon: str) -> None:
    """Returns when the new one has begun its work."""
    controller = roaming.site.controller
    ap = roaming.site.access_points[at]
    former = tunnel_index(ap)
    connections = count_tunnels(controller)
    ap.replace(daemon)
    if daemon == "client_mgr":
        wait_until(lambda: tunnel_index(ap) not in (0, former), f"{ap.name} has a new tun0")
    if daemon != "radiod":
        wait_until(lambda: count_tunnels(controller) > connections, f"the controller has {ap.name} again")


def go_on(roaming: RoamingSite, traveller: StationNode, traffic: Traffic) -> None:
    """To another access point, home, and away again."""
    for at, index in ((MIXED, 0), (HOME, 0), (FOREIGN, 0), (MIXED, 1)):
        roaming.roam(traveller, at, index)
        traffic.wait_for_more(10)


def leave(roaming: RoamingSite, traveller: StationNode) -> None:
    """Nothing is left of it."""
    traveller.leave()
    roaming.site.wait_until_gone(traveller)
    wait_until(lambda: roaming.kernels() == roaming.without_clients, "the kernels have nothing of it any more")


@ENDS
def test_daemons_are_killed_in_turn(end: int, away: tuple[RoamingSite, StationNode], echo: EchoServer) -> None:
    roaming, traveller = away
    home = roaming.access_points[HOME].bssid()
    with Traffic(traveller.namespace, address_in(10), echo.port) as traffic:
        traffic.wait_for_more(10)
        for daemon in DAEMONS:
            replace(roaming, end, daemon)
            traffic.wait_for_more(40)
            assert roaming.site.client(traveller)["home_bssid"] == home, daemon
        go_on(roaming, traveller, traffic)
    assert traffic.is_complete
    leave(roaming, traveller)


def test_hostapd_is_killed_at_home(away: tuple[RoamingSite, StationNode], echo: EchoServer) -> None:
    """Nobody is on it: the traveller notices nothing."""
    roaming, traveller = away
    with Traffic(traveller.namespace, address_in(10), echo.port) as traffic:
        roaming.restart_hostapd(HOME)
        traffic.wait_for_more(40)
        go_on(roaming, traveller, traffic)
    assert traffic.is_complete
    leave(roaming, traveller)


def test_hostapd_is_killed_where_the_station_is(away: tuple[RoamingSite, StationNode]) -> None:
    """Its connection ends. It connects anew, to its home or not, and the old path is gone."""
    roaming, traveller = away
    roaming.restart_hostapd(FOREIGN)
    wait_until(traveller.is_connected, "the station is connected", 60)
    roaming.site.wait_until_at(traveller, traveller.bssid())
    traveller.namespace.ip(f"addr flush dev {INTERFACE}")
    traveller.get_address()
    assert traveller.reaches(address_in(int(traveller.address.split(".")[2])))
    leave(roaming, traveller)


def test_controller_is_killed(away: tuple[RoamingSite, StationNode], echo: EchoServer) -> None:
    """Paths stay as they are meanwhile."""
    roaming, traveller = away
    with Traffic(traveller.namespace, address_in(10), echo.port) as traffic:
        roaming.site.controller.kill()
        traffic.wait_for_more(40)
        roaming.site.start_controller()
        roaming.site.wait_until_at(traveller, roaming.access_points[FOREIGN].bssid())
        traffic.wait_for_more(40)
        go_on(roaming, traveller, traffic)
    assert traffic.is_complete
    leave(roaming, traveller)
