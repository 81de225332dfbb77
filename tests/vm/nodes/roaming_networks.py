"""What VAPs need whose stations may have their home on another VLAN: one bridge that filters VLANs, and interfaces for
single stations.
"""

from pathlib import Path

from nodes.access_point_node import AccessPointNode, Vap
from nodes.network_kinds import NetworkKind
from nodes.worker import SITE

BRIDGE = "br0"
FIRST_NUMBER = 1001  # of the interfaces for single stations, on each VAP


def make_vap(kind: NetworkKind, ssid: str, vlan: int, index: int = 0, *settings: str, interfaces: int = 3,
             daemon_settings: tuple[str, ...] = ()) -> Vap:
    """The VAP `index` of an access point, with so many interfaces for single stations."""
    return Vap(kind, ssid, vlan, (f"bridge={BRIDGE}", "macaddr_acl=2", "dynamic_vlan=1",
                                  f"vlan_file={vlan_file(index, interfaces)}", *settings), daemon_settings)


def vlan_file(index: int, interfaces: int) -> Path:
    interface = AccessPointNode.interface(index)
    file = SITE / f"{interface}.vlan"
    file.write_text("".join(f"{number} {interface}.{number} {BRIDGE}\n"
                            for number in range(FIRST_NUMBER, FIRST_NUMBER + interfaces)))
    return file


def make_bridge(node: AccessPointNode, *vlans: int) -> None:
    """Its uplink has these VLANs alone, as one behind a router."""
    node.namespace.ip(f"link add {BRIDGE} type bridge vlan_filtering 1 vlan_default_pvid 0 mcast_snooping 0",
                      f"link set {BRIDGE} up",
                      *(f"link set eth0.{vlan} nomaster" for vlan in vlans),
                      *(f"link set eth0.{vlan} master {BRIDGE}" for vlan in vlans))
    for vlan in vlans:
        node.namespace.run("bridge", "vlan", "add", "dev", f"eth0.{vlan}", "vid", vlan, "pvid", "untagged")


def remove_bridge(node: AccessPointNode, *vlans: int) -> None:
    node.namespace.ip(*(f"link set eth0.{vlan} master br{vlan}" for vlan in vlans), f"link del {BRIDGE}")


def join_vlan(node: AccessPointNode, index: int, vlan: int) -> None:
    """The VAP's own interface; hostapd has made it a port."""
    node.namespace.run("bridge", "vlan", "add", "dev", node.interface(index), "vid", vlan, "pvid", "untagged")
