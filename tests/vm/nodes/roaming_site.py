"""Three access points whose VAPs of one network are on different VLANs, and stations that roam between them."""

import json
import signal
from collections.abc import Iterator, Sequence
from contextlib import ExitStack, contextmanager
from pathlib import Path

from nodes import network_kinds, roaming_networks
from nodes.access_point_node import AccessPointNode, Vap
from nodes.kernel_paths import snapshot
from nodes.managed_site import ManagedSite, restart_hostapd
from nodes.network_kinds import NetworkKind
from nodes.pool import Pool
from nodes.roaming_networks import join_vlan, make_vap
from nodes.station_node import StationNode

from lab.site.waiting import wait_until

SSID = "office"
HOME, FOREIGN, MIXED = range(3)  # access points: VLAN 10; VLAN 20; VLAN 20 and, on its second VAP, VLAN 10
VLANS = {HOME: (10,), FOREIGN: (20,), MIXED: (20, 10)}


def apart(kind: NetworkKind) -> tuple[str, ...]:
    """Without group keys, only unicast copies keep the VAP's group frames from a station on an interface of its own."""
    return ("multicast_to_unicast=1",) if kind is network_kinds.OPEN else ()


class RoamingSite:
    """Three access points of one network, of which each has the VLANs of its VAPs alone."""

    def __init__(self, site: ManagedSite, access_points: list[AccessPointNode]) -> None:
        self.site = site
        self.access_points = access_points
        self.without_clients: list[dict[str, list[str]]] = []  # what kernels() then was
        self._vaps: list[list[Vap]] = []  # of each

    def start(self, kind: NetworkKind, interfaces: int = 3, daemon_settings: tuple[str, ...] = ()) -> None:
        for node, vlans in zip(self.access_points, VLANS.values()):
            vaps = [make_vap(kind, SSID, vlan, index, *apart(kind), interfaces=interfaces,
                             daemon_settings=daemon_settings)
                    for index, vlan in enumerate(vlans)]
            self._vaps.append(vaps)
            self.site.add(node, *vaps)
            join_vlans(node, vlans)
        self.site.start()
        self.without_clients = self.kernels()

    def restart_hostapd(self, at: int) -> None:
        node = self.access_points[at]
        restart_hostapd(node, tuple(self._vaps[at]), signal.SIGKILL)
        join_vlans(node, VLANS[at])

    def kernels(self) -> list[dict[str, list[str]]]:
        """What the access points have for paths."""
        return [snapshot(node.namespace, radio_interfaces(node)) for node in self.access_points]

    def connect(self, station: StationNode, kind: NetworkKind, at: int, index: int = 0) -> None:
        node = self.access_points[at]
        station.connect(SSID, kind, node, index, "proactive_key_caching=1")
        self.site.wait_until_at(station, node.bssid(index))
        station.get_address()
        wait_until(lambda: self.site.client(station)["ip"] == station.address, "the controller has the address")

    def roam(self, station: StationNode, to: int, index: int = 0) -> None:
        node = self.access_points[to]
        station.roam(node, index)
        self.site.wait_until_at(station, node.bssid(index))


def join_vlans(node: AccessPointNode, vlans: Sequence[int]) -> None:
    for index, vlan in enumerate(vlans):
        join_vlan(node, index, vlan)


def radio_interfaces(node: AccessPointNode) -> list[str]:
    """Of its VAPs and of single stations."""
    links = json.loads(node.namespace.run("ip", "-j", "link"))
    return sorted(each["ifname"] for each in links if each["ifname"].startswith("wlan"))


@contextmanager
def lend(pool: Pool, programs: Path, count: int) -> Iterator[tuple]:
    """The site and so many stations."""
    with ExitStack() as stack:
        access_points = stack.enter_context(pool.access_points(len(VLANS)))
        stations = stack.enter_context(pool.stations(count))
        for node, vlans in zip(access_points, VLANS.values()):
            roaming_networks.make_bridge(node, *vlans)
            stack.callback(roaming_networks.remove_bridge, node, *vlans)
        site = stack.enter_context(ManagedSite(programs, stations, keeps_state=True))
        yield RoamingSite(site, access_points), stations
