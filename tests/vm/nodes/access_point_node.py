"""One access point: a namespace with a radio, a cable, a bridge for each VLAN, and hostapd."""

import re
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from nodes.air import RadioHardware
from nodes.control_socket import ControlSocket, try_to_attach
from nodes.namespace import Namespace
from nodes.network_kinds import NetworkKind
from nodes.radius_server import PORT, SECRET
from nodes.wire import ADDRESS, VLANS, Wire

from lab.site.processes import Process, Processes
from lab.site.waiting import wait_until

CHANNELS = (1, 6)
FREQUENCIES = "2412 2437"
MAC = re.compile("(?:[0-9a-f]{2}:){5}[0-9a-f]{2}\n")
MAC_LENGTH = 17


@dataclass(frozen=True)
class Vap:
    """One BSS of an access point's radio."""

    kind: NetworkKind
    ssid: str
    vlan: int = 10
    settings: tuple[str, ...] = ()  # further lines of hostapd.conf
    daemon_settings: tuple[str, ...] = ()  # and of the VAP's table in ap.toml

    @property
    def gives_own_interfaces(self) -> bool:
        """To stations whose home is on another VLAN."""
        return "dynamic_vlan=1" in self.settings


class AccessPointNode:
    """Number 1 and so on, at the wired address 10.0.0.10 and so on, with the radio `number` - 1."""

    def __init__(self, number: int, wire: Wire, directory: Path) -> None:
        self.name = f"ap{number}"
        self.directory = directory / self.name
        self.directory.mkdir(parents=True)
        self.address = f"10.0.0.{9 + number}"
        self.channel = CHANNELS[(number - 1) % len(CHANNELS)]
        self.namespace = Namespace(self.name)
        self.radio = RadioHardware(number - 1, self.namespace)
        wire.plug_in(self.namespace, 9 + number)
        self.make_bridges()
        self.processes = Processes(Path("/usr/sbin"), self.namespace.launcher)
        self.hostapd_process: Process | None = None
        self.hostapd: dict[str, ControlSocket] = {}  # of each interface

    def make_bridges(self) -> None:
        for bridge, uplink, vlan in ((f"br{vlan}", f"eth0.{vlan}", vlan) for vlan in VLANS):
            self.namespace.ip(f"link add link eth0 name {uplink} type vlan id {vlan}", f"link add {bridge} type bridge",
                              f"link set {uplink} master {bridge} up", f"link set {bridge} up")

    def remove_bridges(self) -> None:
        """And the uplinks' VLANs, whoever made them."""
        self.namespace.ip(*(f"link del {each}" for each in self.namespace.interfaces()
                            if each.startswith(("br", "eth0."))))

    @staticmethod
    def interface(index: int) -> str:
        return f"wlan0_{index}" if index else "wlan0"

    def bssid(self, index: int = 0) -> str:
        return self.radio.mac[:-2] + f"{index:02x}"

    def start_hostapd(self, *vaps: Vap, radius: str = ADDRESS) -> None:
        configuration = self.directory / "hostapd.conf"
        configuration.write_text("".join(f"{line}\n" for line in self._configuration(vaps, radius)))
        self.hostapd_process = self.processes.start("hostapd", ["-t", configuration], self.directory)
        self.attach_to_hostapd(len(vaps))

    def attach_to_hostapd(self, vaps: int) -> None:
        """Returns when it answers and its BSSs are up."""
        self.hostapd = {name: self._attach(name) for name in map(self.interface, range(vaps))}
        wait_until(lambda: self.hostapd["wlan0"].status()["state"] == "ENABLED", f"{self.name}: hostapd is up",
                   log=self.hostapd_process.out, check=self.hostapd_process.check_runs)

    def _attach(self, interface: str) -> ControlSocket:
        return wait_until(lambda: try_to_attach(self.directory / "hostapd" / interface),
                          f"{self.name}: hostapd serves {interface}", log=self.hostapd_process.out,
                          check=self.hostapd_process.check_runs)

    def end_hostapd(self, number: int) -> None:
        """By this signal."""
        self._detach()
        self.processes.forget(self.hostapd_process)
        self.hostapd_process.signal(number)
        self.hostapd_process.wait()

    def _detach(self) -> None:
        for each in self.hostapd.values():
            each.close()
        self.hostapd.clear()

    def _configuration(self, vaps: Sequence[Vap], radius: str) -> list[str]:
        lines = ["driver=nl80211", "hw_mode=g", f"channel={self.channel}", "ieee80211n=1", "logger_syslog=0"]
        for index, vap in enumerate(vaps):
            lines += [f"{'bss' if index else 'interface'}={self.interface(index)}", f"bssid={self.bssid(index)}",
                      f"ssid={vap.ssid}", f"bridge=br{vap.vlan}", f"ctrl_interface={self.directory / 'hostapd'}",
                      "notify_mgmt_frames=1", f"nas_identifier={self.name}-{index}",
                      f"own_ip_addr={self.address}", f"r1_key_holder={self.bssid(index).replace(':', '')}",
                      f"auth_server_addr={radius}", f"auth_server_port={PORT}", f"auth_server_shared_secret={SECRET}",
                      *vap.kind.access_point, *vap.settings]
        return lines

    def authorized(self, vaps: int = 1) -> list[tuple[str, int]]:
        """The stations that the kernel lets send, each with the index of its VAP, of the first so many VAPs."""
        names = {self.interface(index): index for index in range(vaps)}
        # Interfaces for single stations too.
        dumped = [each for each in self.namespace.interfaces() if each.partition(".")[0] in names]
        dump = self.namespace.ask("sh", "-c", "".join(f"iw dev {name} station dump;" for name in dumped))
        entries = re.findall(r"^Station (\S+) \(on (\S+)\)\n((?:\t.*\n?)*)", dump, re.MULTILINE)
        return [(mac, names[name.partition(".")[0]]) for mac, name, fields in entries if re.search(r"authorized:\s*yes", fields)]

    def served(self, vaps: int) -> list[tuple[str, int]]:
        """The stations that hostapd has as authorized, likewise."""
        found = []
        for index in range(vaps):
            hostapd = self.hostapd[self.interface(index)]
            entry = hostapd.request("STA-FIRST")
            while MAC.match(entry):
                if "[AUTHORIZED]" in entry:
                    found.append((entry[:MAC_LENGTH], index))
                entry = hostapd.request(f"STA-NEXT {entry[:MAC_LENGTH]}")
        return found

    def has_station(self, mac: str, index: int = 0) -> bool:
        """Whether hostapd's VAP `index` has it as authorized."""
        hostapd = self.hostapd.get(self.interface(index))
        try:
            return hostapd is not None and "[AUTHORIZED]" in hostapd.request(f"STA {mac}")
        except OSError:  # it has just ended
            return False

    def stop(self) -> None:
        self._detach()
        self.processes.end()
        forget_output(self.directory)


def forget_output(directory: Path) -> None:
    """What the programs of one case printed is not shown with the next one's failure."""
    for file in [*directory.glob("*.out"), *directory.glob("*.err")]:
        file.unlink()
