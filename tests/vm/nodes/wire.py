"""The wired network: one switch, the hosts behind it, and a DHCP server in each VLAN.

Management is untagged in 10.0.0.0/24; VLAN v is 10.0.v.0/24, and the wired host has the address .1 in each.
"""

from pathlib import Path

from nodes.namespace import Namespace, run

from lab.site.processes import Processes

SWITCH = "switch"
VLANS = (10, 20)
ADDRESS = "10.0.0.1"
ADDRESS_PROBE_MS = 50  # before the server offers an address that may be in use


def address_in(vlan: int, host: int = 1) -> str:
    return f"10.0.{vlan}.{host}"


class Wire:
    """In the root namespace. Servers run as long as `processes`."""

    def __init__(self, processes: Processes, directory: Path) -> None:
        self._processes = processes
        self._directory = directory
        directory.mkdir(parents=True)
        run("ip", "link", "add", SWITCH, "type", "bridge")
        self._join(SWITCH, ADDRESS)
        for vlan in VLANS:
            run("ip", "link", "add", "link", SWITCH, "name", f"vlan{vlan}", "type", "vlan", "id", vlan)
            self._join(f"vlan{vlan}", address_in(vlan))

    @staticmethod
    def _join(interface: str, address: str) -> None:
        run("ip", "addr", "add", f"{address}/24", "dev", interface)
        run("ip", "link", "set", interface, "up")

    def plug_in(self, namespace: Namespace, host: int) -> None:
        """The namespace gets a cable, its interface eth0, with the management address 10.0.0.`host`."""
        self.connect(namespace, "eth0")
        namespace.ip(f"addr add 10.0.0.{host}/24 dev eth0")

    @staticmethod
    def connect(namespace: Namespace, interface: str) -> None:
        """The switch's ports are members of all VLANs. A cable is removed with its interface."""
        socket = f"{namespace.name}-{interface}"
        run("ip", "link", "add", socket, "type", "veth", "peer", "name", interface, "netns", namespace.name)
        run("ip", "link", "set", socket, "master", SWITCH, "up")
        namespace.ip(f"link set {interface} up")

    def start_dhcp(self) -> None:
        for vlan in VLANS:
            folder = self._directory / f"dhcp{vlan}"
            folder.mkdir()
            leases, configuration = folder / "leases", folder / "udhcpd.conf"
            leases.touch()
            configuration.write_text(f"start {address_in(vlan, 100)}\nend {address_in(vlan, 200)}\n"
                                     f"interface vlan{vlan}\nlease_file {leases}\npidfile {folder}/pid\n"
                                     f"option subnet 255.255.255.0\noption router {address_in(vlan)}\n"
                                     "option lease 3600\n")
            self._processes.start("/usr/bin/busybox", ["udhcpd", "-f", "-a", ADDRESS_PROBE_MS, configuration], folder)
