"""A bridge with VLAN filtering, which many a container's kernel lacks: real stations, and the tests that need one."""

import json
import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from collections.abc import Iterator
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.access_point_node import AccessPointNode, Vap
from nodes.managed_site import ManagedSite
from nodes.station_node import StationNode
from nodes.traffic import EchoServer, Traffic
from nodes.wire import VLANS, Wire, address_in

from lab.site.waiting import wait_until

END_TO_END = Path(__file__).parents[1] / "e2e"


def test_port_enters_the_clients_vlan(programs: Path, tmp_path: Path) -> None:
    report = tmp_path / "report.xml"
    done = subprocess.run([programs / "port_test", "--gtest_filter=kxbr_api_vlan.*", f"--gtest_output=xml:{report}"],
                          check=False)
    assert done.returncode == 0
    check_that_cases_ran(report)


def test_daemon_enters_the_clients_vlan(programs: Path, tmp_path: Path) -> None:
    report = tmp_path / "report.xml"
    done = subprocess.run([sys.executable, "-B", "-m", "pytest", "-q", "-p", "no:cacheprovider", "-k", "vlan",
                           f"--bin={programs}", f"--junitxml={report}", END_TO_END / "test_kernel.py"], check=False)
    assert done.returncode == 0
    check_that_cases_ran(report)


def check_that_cases_ran(report: Path) -> None:
    cases = list(ElementTree.parse(report).getroot().iter("testcase"))
    assert cases
    assert not [case.get("name") for case in cases if case.find("skipped") is not None]


@pytest.fixture
def trunks(wire: Wire, access_points: list[AccessPointNode]) -> Iterator[None]:
    """Each access point has a second cable, with tagged VLANs, in a bridge br0 that filters them."""
    for node in access_points:
        wire.connect(node.namespace, "eth1")
        node.namespace.ip("link add br0 type bridge vlan_filtering 1 vlan_default_pvid 0", "link set br0 up",
                          "link set eth1 master br0")
        for vlan in VLANS:
            node.namespace.run("bridge", "vlan", "add", "dev", "eth1", "vid", vlan)
    yield
    for node in access_points:
        node.namespace.ip("link del br0", "link del eth1")


def bridge_entries(node: AccessPointNode, station: StationNode) -> list[tuple[str, int, str]]:
    """The station's entries in br0: interface, VLAN and state."""
    entries = json.loads(node.namespace.run("bridge", "-j", "fdb", "show", "br", "br0"))
    return [(each["ifname"], each.get("vlan"), each["state"]) for each in entries if each["mac"] == station.mac]


def test_stations_are_in_their_vlan(trunks: None, site: ManagedSite, access_points, stations, echo: EchoServer) -> None:
    first, second = access_points
    office, lobby = stations
    vaps = (Vap(network_kinds.PSK, "office", 10, ("bridge=br0",)),
            Vap(network_kinds.OPEN, "lobby", 20, ("bridge=br0",)))
    site.start(access_points, *vaps)
    for node in access_points:
        for index, vap in enumerate(vaps):
            node.namespace.run("bridge", "vlan", "add", "dev", node.interface(index), "vid", vap.vlan, "pvid",
                               "untagged")
    for index, station in enumerate(stations):
        station.connect(vaps[index].ssid, vaps[index].kind, first, index)
        assert station.get_address().startswith(f"10.0.{vaps[index].vlan}.")
        wait_until(lambda: site.client(station)["ip"] == station.address, "the controller has the address")
    assert bridge_entries(first, office) == [("wlan0", 10, "static")]
    assert bridge_entries(first, lobby) == [("wlan0_1", 20, "static")]
    with Traffic(office.namespace, address_in(10), echo.port) as traffic:
        office.roam(second)
        site.wait_until_at(office, second.bssid())
        traffic.wait_for_more()
    assert traffic.is_complete
    assert bridge_entries(second, office) == [("wlan0", 10, "static")]
    assert ("wlan0", 10, "static") not in bridge_entries(first, office)
    assert lobby.reaches(address_in(20))
    site.wait_until_all_agree(connected=stations)
