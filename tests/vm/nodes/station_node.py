"""One station: a namespace with a radio, wpa_supplicant and a DHCP client."""

import socket
from pathlib import Path

from nodes.access_point_node import FREQUENCIES, AccessPointNode, forget_output
from nodes.air import RadioHardware
from nodes.control_socket import ControlSocket, try_to_attach
from nodes.namespace import Namespace
from nodes.network_kinds import NetworkKind

from lab.site.failure import LabFailure
from lab.site.processes import Process, Processes
from lab.site.waiting import wait_until

INTERFACE = "wlan0"
EXPERIMENTAL_ETHERTYPE = "88b5"  # IEEE 802, 9.2.3
DHCP_SCRIPT = Path(__file__).with_name("udhcpc_script")


class StationNode:
    """Its radio has the number `radio`."""

    def __init__(self, number: int, radio: int, directory: Path) -> None:
        self.name = f"sta{number}"
        self.directory = directory / self.name
        self.directory.mkdir(parents=True)
        self.namespace = Namespace(self.name)
        # The kernel would drop the neighbour table at each roam and find the gateway anew for a second.
        self.namespace.run("sysctl", "-qw", "net.ipv4.conf.all.arp_evict_nocarrier=0",
                           "net.ipv4.conf.default.arp_evict_nocarrier=0")
        self.radio = RadioHardware(radio, self.namespace)
        self.mac = self.radio.mac
        self.processes = Processes(Path("/usr/sbin"), self.namespace.launcher)
        self.supplicant_process: Process | None = None
        self.supplicant: ControlSocket | None = None
        self.address: str | None = None  # by DHCP

    def start(self, ssid: str, kind: NetworkKind, bssid: str = "any", *settings: str) -> None:
        """Starts wpa_supplicant, which looks for the network, for one access point's when `bssid` is given."""
        self.launch(ssid, kind, bssid, *settings)
        self.attach()

    def launch(self, ssid: str, kind: NetworkKind, bssid: str = "any", *settings: str) -> None:
        """As `start`, without waiting for wpa_supplicant's control interface: `attach` does."""
        configuration = self.directory / "wpa_supplicant.conf"
        block = [f'ssid="{ssid}"', f"bssid={bssid}", f"scan_freq={FREQUENCIES}", *kind.station, *settings]
        configuration.write_text(f"ctrl_interface={self.directory / 'control'}\n"
                                 + "network={\n" + "".join(f"    {line}\n" for line in block) + "}\n")
        self.supplicant_process = self.processes.start(
            "wpa_supplicant", ["-t", "-D", "nl80211", "-i", INTERFACE, "-c", configuration], self.directory)

    def attach(self) -> None:
        self.supplicant = wait_until(lambda: try_to_attach(self.directory / "control" / INTERFACE),
                                     f"{self.name}: wpa_supplicant answers", log=self.supplicant_process.out,
                                     check=self.supplicant_process.check_runs)

    def bssid(self) -> str | None:
        """Of the VAP to which it is connected, with keys."""
        status = self.supplicant.status() if self.supplicant else {}
        return status.get("bssid") if status.get("wpa_state") == "COMPLETED" else None

    def is_connected(self, bssid: str | None = None) -> bool:
        current = self.bssid()
        return current is not None and bssid in (None, current)

    def wait_until_connected(self, bssid: str | None = None, seconds: float = 30) -> None:
        wait_until(lambda: self.is_connected(bssid), f"{self.name} is connected to {bssid or 'the network'}", seconds,
                   self.supplicant_process.out)

    def connect(self, ssid: str, kind: NetworkKind, access_point: AccessPointNode, index: int = 0,
                *settings: str) -> None:
        """Associates with this access point's VAP `index`. It may roam afterwards."""
        self.start(ssid, kind, access_point.bssid(index), *settings)
        self.settle(access_point, index)

    def settle(self, access_point: AccessPointNode, index: int = 0) -> None:
        """Returns when the VAP for which it was started has it. It may roam afterwards."""
        self.associate(access_point, index)
        self.supplicant.command("SET_NETWORK 0 bssid any")

    def associate(self, access_point: AccessPointNode, index: int = 0) -> None:
        """Returns when the VAP for which it was started has it. It comes to no other one later."""
        wait_until(lambda: self._try_to_connect(access_point, index), f"{self.name} is connected", 40,
                   self.supplicant_process.out)

    def _try_to_connect(self, access_point: AccessPointNode, index: int) -> bool:
        """hostapd's first key exchange takes so long here that it has the request twice, and other keys at the end."""
        try:
            self.wait_until_connected(access_point.bssid(index), 10)
        except LabFailure:
            pass
        if self.is_connected() and self._is_known(access_point, index):
            return True
        self.leave()
        self.come_back()
        return False

    def roam(self, access_point: AccessPointNode, index: int = 0) -> None:
        """A station gives up after 340 ms without an answer, and then connects anew to any access point."""
        wait_until(lambda: self._try_to_roam(access_point, index), f"{self.name} roams to {access_point.name}", 60,
                   self.supplicant_process.out)

    def _try_to_roam(self, access_point: AccessPointNode, index: int) -> bool:
        bssid = access_point.bssid(index)
        self._hear(bssid)
        mark = self.supplicant.mark()
        order = "REASSOCIATE" if self.is_connected(bssid) else f"ROAM {bssid}"
        if self.supplicant.request(order).strip() != "OK":  # it has lost its access point meanwhile
            return False
        try:
            event = self.supplicant.wait_for("CTRL-EVENT-CONNECTED", mark)
        except LabFailure:  # after a failure wpa_supplicant may pause for longer
            return False
        return bssid in event and self._is_known(access_point, index)

    def _is_known(self, access_point: AccessPointNode, index: int) -> bool:
        """Whether hostapd soon has it as authorized: see _try_to_connect."""
        try:
            wait_until(lambda: access_point.has_station(self.mac, index), f"{access_point.name} has {self.name}", 3)
        except LabFailure:
            return False
        return True

    def _hear(self, bssid: str) -> None:
        """Scans until it has the access point's frames."""
        def heard() -> bool:
            if self.supplicant.request(f"BSS {bssid}"):
                return True
            mark = self.supplicant.mark()
            if self.supplicant.request("SCAN").strip() == "OK":
                self.supplicant.wait_for("CTRL-EVENT-SCAN-RESULTS", mark)
            return False

        wait_until(heard, f"{self.name} hears {bssid}", 40, self.supplicant_process.out)

    def send_frame(self) -> None:
        """A broadcast, which an access point that does not have the station answers by sending it away."""
        with self.namespace.socket(socket.AF_PACKET, socket.SOCK_RAW) as link:
            link.bind((INTERFACE, 0))
            link.send(bytes.fromhex("ffffffffffff" + self.mac.replace(":", "") + EXPERIMENTAL_ETHERTYPE) + bytes(46))

    def leave(self) -> None:
        self.supplicant.command("DISCONNECT")

    def come_back(self) -> None:
        self.supplicant.command("RECONNECT")

    def count_eap(self) -> int:
        """How often an authentication server has accepted it."""
        return self.supplicant.count("CTRL-EVENT-EAP-SUCCESS")

    def get_address(self) -> str:
        """Asks for an address by DHCP until it has one."""
        self.namespace.ask("busybox", "udhcpc", "-i", INTERFACE, "-f", "-n", "-q", "-t", "20", "-T", "1",
                           "-s", DHCP_SCRIPT)
        words = self.namespace.ask("ip", "-4", "-o", "addr", "show", "dev", INTERFACE).split()
        self.address = words[words.index("inet") + 1].partition("/")[0]
        return self.address

    def reaches(self, address: str) -> bool:
        with_reply = self.namespace.ask("busybox", "ping", "-A", "-c", "3", "-W", "3", address)
        return ", 0% packet loss" in with_reply

    def stop(self) -> None:
        if self.supplicant:
            self.supplicant.close()
            self.supplicant = None
        self.processes.end()
        forget_output(self.directory)
        self.address = None
        self.radio.come_into_range()
        self.namespace.ask("ip", "addr", "flush", "dev", INTERFACE)
