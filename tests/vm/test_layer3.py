"""Stations keep their home on VLAN 10 while they roam to access points whose VAPs are on VLAN 20."""

import subprocess
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor
from contextlib import ExitStack
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.marked_frames import ARP, EXPERIMENTAL, Listener, Sender
from nodes.namespace import run
from nodes.network_kinds import NetworkKind
from nodes.pool import Pool
from nodes.radius_server import start_hostapd_server
from nodes.roaming_site import FOREIGN, HOME, MIXED, lend
from nodes.station_node import INTERFACE, StationNode
from nodes.traffic import EchoServer, Traffic
from nodes.wire import address_in

from lab.site.processes import Process
from lab.site.waiting import wait_until

CROWD, AT_ONCE = 10, 3  # stations; more at once keep the emulated processor busy for longer than they wait
KINDS = [network_kinds.PSK, *(pytest.param(kind, marks=pytest.mark.long) for kind in (
    network_kinds.OPEN, network_kinds.SAE, network_kinds.EAP, network_kinds.FT_PSK))]


@pytest.fixture
def roaming(pool: Pool, programs: Path, radius: Callable[..., Process]) -> Iterator[tuple]:
    with lend(pool, programs, 2) as lent:
        yield lent


@pytest.fixture
def crowded(pool: Pool, programs: Path) -> Iterator[tuple]:
    with lend(pool, programs, CROWD) as lent:
        yield lent


def find_anew(station: StationNode) -> None:
    """A host on VLAN 10 finds it by ARP and by neighbour discovery."""
    link_local = station.namespace.run("ip", "-6", "-o", "addr", "show", "dev", INTERFACE, "scope", "link").split()[3]
    for address in (station.address, f"{link_local.partition('/')[0]}%vlan10"):
        run("ip", "neigh", "flush", "dev", "vlan10")
        wait_until(lambda: answers(address), f"{address} answers")


def answers(address: str) -> bool:
    return subprocess.run(["busybox", "ping", "-c", "1", "-W", "3", address], capture_output=True,
                          check=False).returncode == 0


@pytest.mark.parametrize("kind", KINDS, ids=str)
def test_station_keeps_its_home(kind: NetworkKind, roaming, radius, wire, echo: EchoServer) -> None:
    site, (traveller, resident) = roaming
    if kind.has_8021x:
        radius(start_hostapd_server)
    site.start(kind)
    site.connect(resident, kind, FOREIGN)
    site.connect(traveller, kind, HOME)
    assert traveller.address.startswith("10.0.10.") and resident.address.startswith("10.0.20.")
    with ExitStack() as stack:
        # Those that the kernel copies: ARP, IPv4 and IPv6.
        ethertype = ARP if kind is network_kinds.OPEN else EXPERIMENTAL
        hears = {each: stack.enter_context(Listener(INTERFACE, each.namespace, ethertype))
                 for each in (traveller, resident)}
        for vlan in (10, 20):
            hears[vlan] = stack.enter_context(Listener(f"vlan{vlan}", ethertype=ethertype))
            stack.enter_context(Sender(f"vlan{vlan}", f"vlan{vlan}", f"02:00:00:00:ff:{vlan}", ethertype))
        stack.enter_context(Sender("traveller", INTERFACE, traveller.mac, ethertype, traveller.namespace))
        traffic = stack.enter_context(Traffic(traveller.namespace, address_in(10), echo.port))
        for at, index in ((FOREIGN, 0), (MIXED, 0), (HOME, 0), (FOREIGN, 0), (MIXED, 1)):
            site.roam(traveller, at, index)
            traffic.wait_for_more(10)
            before = hears[traveller].count("vlan10")
            wait_until(lambda: hears[traveller].count("vlan10") > before + 3, "group frames of VLAN 10 arrive")
            find_anew(traveller)
        traffic.wait_for_more(10)
        assert hears[traveller].count("vlan20") == 0, "the traveller hears VLAN 20"
        assert hears[resident].count("vlan10") == 0, "the resident hears VLAN 10"
        assert hears[resident].count("vlan20") > 0
        assert hears[10].count("traveller") > 0
        assert hears[20].count("traveller") == 0, "VLAN 20 hears the traveller"
        assert hears[resident].count("traveller") == 0, "the resident hears the traveller"
        assert hears[traveller].count("traveller") == 0, "the traveller hears itself"
        assert [each.repeated for each in hears.values()] == len(hears) * [{}]
    assert traffic.is_complete
    print(f"longest gap {traffic.longest_gap * 1000:.0f} ms")


@pytest.mark.long
def test_guest_keeps_its_home(roaming, echo: EchoServer) -> None:
    """Once it is approved. One that waits is where it is: it gets an address there."""
    site, (approved, waiting) = roaming
    site.start(network_kinds.PSK, daemon_settings=("guest = true",))
    for guest in (approved, waiting):
        site.connect(guest, network_kinds.PSK, HOME)
    site.site.controller.ask("approve", approved.mac)
    with Traffic(approved.namespace, address_in(10), echo.port) as traffic:
        for at in (FOREIGN, HOME, FOREIGN):
            site.roam(approved, at)
            traffic.wait_for_more(10)
    assert traffic.is_complete
    site.roam(waiting, FOREIGN)
    waiting.namespace.ip(f"addr flush dev {INTERFACE}")
    assert waiting.get_address().startswith("10.0.20.")
    assert [site.site.client(each)["home_vlan"] for each in (approved, waiting)] == [10, 20]


@pytest.mark.long
def test_ten_stations_keep_their_homes(crowded, echo: EchoServer) -> None:
    """Five have their home where the other five go to, all on VLAN 10: that access point is home and foreign at once."""
    site, stations = crowded
    site.start(network_kinds.PSK, interfaces=CROWD // 2)
    groups = {(HOME, 0): ((MIXED, 0), stations[:CROWD // 2]), (MIXED, 1): ((FOREIGN, 0), stations[CROWD // 2:])}
    for home, (_, group) in groups.items():
        for station in group:
            site.connect(station, network_kinds.PSK, *home)

    def roam_all(targets: list[tuple[StationNode, tuple[int, int]]]) -> None:
        with ThreadPoolExecutor(AT_ONCE) as threads:
            for each in [threads.submit(site.roam, station, *target) for station, target in targets]:
                each.result()

    with ExitStack() as stack:
        hears = [stack.enter_context(Listener(INTERFACE, each.namespace)) for each in stations]
        for vlan in (10, 20):
            stack.enter_context(Sender(f"vlan{vlan}", f"vlan{vlan}", f"02:00:00:00:ff:{vlan}"))
        traffic = [stack.enter_context(Traffic(each.namespace, address_in(10), echo.port)) for each in stations]
        roam_all([(station, away) for away, group in groups.values() for station in group])
        for each in traffic:
            each.wait_for_more(10)
        for one, other in zip(*(group for _, group in groups.values())):
            wait_until(lambda: one.reaches(other.address), f"{one.name} reaches {other.name}")
        heard = [each.count("vlan10") for each in hears]
        wait_until(lambda: all(each.count("vlan10") > before + 3 for each, before in zip(hears, heard)),
                   "group frames of VLAN 10 arrive at all")
        roam_all([(station, home) for home, (_, group) in groups.items() for station in group])
        for each in traffic:
            each.wait_for_more(10)
        assert [each.count("vlan20") for each in hears] == CROWD * [0]
        assert [each.repeated for each in hears] == CROWD * [{}]
    assert [each.is_complete for each in traffic] == CROWD * [True]
