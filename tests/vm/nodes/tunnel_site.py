"""Access points whose port alone runs, with cables for radios: hosts and clients on VLANs 10 and 20.

All access points and hosts are on one switch. Management is VLAN 1, 10.1.0.0/24; VLAN v is 10.2.v.0/24.
"""

import json
import os
import socket
import struct
import subprocess
import threading
import time
from pathlib import Path

from nodes.kernel_paths import snapshot
from nodes.namespace import Namespace, run

from lab.site.processes import die_with_parent, environment_for
from lab.site.waiting import wait_until

STATEMENT = 2001  # wire/client_tunnels.h
HOME, FOREIGN, LOCAL, GONE, PEERS_BEGIN, PEERS_END, INTERFACE, NO_INTERFACE = range(1, 9)
TEST_FRAME = 0x88B5  # IEEE 802-2014, 9.2.3: for experiments
EVERYBODY = "ff:ff:ff:ff:ff:ff"
VLANS = (10, 20)


def packed(mac: str) -> bytes:
    return bytes.fromhex(mac.replace(":", ""))


def batch(program: str, namespace: Namespace, *commands: str) -> None:
    done = subprocess.run([program, "-n", namespace.name, "-batch", "-"], input="\n".join(commands),
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0, f"{namespace.name}: {done.stderr}"


class Host:
    """A namespace with one interface in use."""

    def __init__(self, name: str, interface: str) -> None:
        self.namespace = Namespace(name)
        self.interface = interface
        self.mac = ""
        self.address = ""

    def give_address(self, address: str, mac: str) -> None:
        self.address, self.mac = address, mac
        self.namespace.ip(f"link set {self.interface} address {mac} up",
                          f"addr add {address}/24 dev {self.interface} broadcast +")

    def pings(self, address: str, *options: object, count: int = 1) -> bool:
        done = subprocess.run(["ip", "netns", "exec", self.namespace.name, "busybox", "ping", "-c", str(count), "-W",
                               "3", *(str(option) for option in options), address], capture_output=True, text=True,
                              check=False)
        return f"{count} packets received" in done.stdout

    def forget_neighbours(self) -> None:
        self.namespace.ip("neigh flush all")

    def open(self) -> socket.socket:
        """A socket for whole frames."""
        made = self.namespace.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(TEST_FRAME))
        made.bind((self.interface, TEST_FRAME))
        return made

    def send(self, tag: str, to: str = EVERYBODY, source: str | None = None, vlan: int | None = None) -> None:
        tagged = struct.pack(">HH", 0x8100, vlan) if vlan else b""
        with self.open() as sender:
            sender.send(packed(to) + packed(source or self.mac) + tagged + struct.pack(">H", TEST_FRAME) +
                        tag.encode().ljust(50, b"\0"))


class Ear:
    """Inside the context it notes the tags of test frames that arrive at a host."""

    def __init__(self, host: Host) -> None:
        self._socket = host.open()
        self.heard: list[str] = []
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._listen)

    def __enter__(self) -> "Ear":
        self._socket.settimeout(0.05)
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._ended.set()
        self._thread.join()
        self._socket.close()

    def _listen(self) -> None:
        while not self._ended.is_set():
            try:
                frame, (_, _, kind, *_) = self._socket.recvfrom(2048)
            except TimeoutError:
                continue
            if kind != socket.PACKET_OUTGOING:
                self.heard.append(frame[14:].rstrip(b"\0").decode())

    def wait_for(self, tag: str) -> None:
        wait_until(lambda: tag in self.heard, f"{tag} is heard", 10)


class Switch:
    def __init__(self) -> None:
        self.namespace = Namespace("core")
        self.namespace.ip("link add sw type bridge vlan_filtering 1 vlan_default_pvid 0 mcast_snooping 0",
                          "link set sw up")

    def plug_in(self, namespace: Namespace, *vlans: str) -> None:
        port = f"to-{namespace.name}"
        run("ip", "-n", "core", "link", "add", port, "type", "veth", "peer", "name", "eth0", "netns", namespace.name)
        self.namespace.ip(f"link set {port} master sw up")
        namespace.ip("link set eth0 up")
        batch("bridge", self.namespace, *(f"vlan add dev {port} vid {vlan}" for vlan in vlans))

    def host(self, vlan: int) -> Host:
        made = Host(f"host{vlan}", "eth0")
        self.plug_in(made.namespace, f"{vlan} pvid untagged")
        made.give_address(f"10.2.{vlan}.1", f"02:00:00:01:{vlan:02x}:00")
        return made


class TunnelAccessPoint:
    """Its VAPs are wlan0, wlan1 ..., each on a VLAN, with one resident station each."""

    def __init__(self, number: int, switch: Switch, directory: Path, vaps: tuple[int, ...]) -> None:
        self.number = number
        self.namespace = Namespace(f"port{number}")
        self.address = f"10.1.0.{number}"
        self.vaps = vaps
        self.root = directory / self.namespace.name
        self.root.mkdir(mode=0o700, parents=True)
        self._process: subprocess.Popen | None = None
        self.client_interfaces: list[str] = []
        switch.plug_in(self.namespace, "1 pvid untagged", *(str(vlan) for vlan in vaps))
        self.namespace.ip("link add br0 type bridge vlan_filtering 1 vlan_default_pvid 0", "link set eth0 master br0",
                          f"addr add {self.address}/24 dev br0", "link set br0 up")
        batch("bridge", self.namespace, "vlan add dev br0 vid 1 pvid untagged self",
              "vlan add dev eth0 vid 1 pvid untagged", *(f"vlan add dev eth0 vid {vlan}" for vlan in vaps))
        self.residents = [self._add_vap(index, vlan) for index, vlan in enumerate(vaps)]
        self._write_configuration()

    def _add_vap(self, index: int, vlan: int) -> Host:
        resident = Host(f"port{self.number}sta{index}", "air0")
        self._add_radio(f"wlan{index}", resident.namespace, "air0")
        batch("bridge", self.namespace, f"vlan add dev wlan{index} vid {vlan} pvid untagged")
        resident.give_address(f"10.2.{vlan}.{10 * self.number + index}", f"02:00:00:02:{self.number:02x}:{index:02x}")
        return resident

    def _add_radio(self, name: str, namespace: Namespace, peer: str) -> None:
        run("ip", "-n", self.namespace.name, "link", "add", name, "type", "veth", "peer", "name", peer, "netns",
            namespace.name)
        self.namespace.ip(f"link set {name} master br0 up")

    def _write_configuration(self) -> None:
        vaps = "".join(f'[[vap]]\nifname = "wlan{index}"\nssid = "office"\nvlan = {vlan}\n'
                       for index, vlan in enumerate(self.vaps))
        file = self.root / "ap.toml"
        file.write_text(f'[ap]\nmac = "02:00:00:00:00:{self.number:02x}"\n[controller]\naddress = "10.1.0.100"\n'
                        'port = 7443\nca = "ca.pem"\ncertificate = "ap.pem"\nkey = "ap.key"\n[tunnel]\n'
                        f"enabled = true\n{vaps}")
        file.chmod(0o600)

    def add_client_interface(self, client: "Client") -> None:
        """The client's own interface, and its other end in the client's namespace."""
        self.client_interfaces.append(self.interface_of(client))
        self._add_radio(self.interface_of(client), client.namespace, f"at{self.number}")

    @staticmethod
    def interface_of(client: "Client") -> str:
        return f"own{client.number}"

    def start(self, programs: Path, *launcher: str) -> None:
        words = ["ip", "netns", "exec", self.namespace.name, *launcher, programs / "client_port"]
        self._process = subprocess.Popen([str(word) for word in words], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         stderr=open(self.root / "client_port.err", "ab"), text=True, bufsize=1,
                                         env=environment_for(self.root), preexec_fn=die_with_parent)
        assert self._process.stdout.readline() == "ready\n"

    def signal(self, number: int) -> None:
        """Ends the port with the signal."""
        os.kill(self._process.pid, number)
        self._process.wait()
        self._process = None

    @property
    def runs(self) -> bool:
        return self._process is not None

    def tell(self, *words: object) -> tuple[int, int]:
        """One call of the daemon. Returns its result and its duration in microseconds."""
        self._process.stdin.write(" ".join(str(word) for word in words) + "\n")
        result, duration = self._process.stdout.readline().split()
        return int(result), int(duration)

    def state(self, kind: int, client: "Client | None" = None, vlan: int = 0,
              peer: "TunnelAccessPoint | None" = None, ifindex: int = 0) -> None:
        """A statement of apd or radiod. Returns when it has been handled."""
        if kind == INTERFACE and not ifindex:
            ifindex = json.loads(self.namespace.run("cat", f"/sys/class/net/{self.interface_of(client)}/ifindex"))
        body = struct.pack(">I6sHII", kind, packed(client.mac) if client else bytes(6), vlan,
                           int.from_bytes(socket.inet_aton(peer.address), "big") if peer else 0, ifindex)
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.sendto(struct.pack(">III", STATEMENT, len(body), 1) + body, str(self.root / "kx/ipc/client_mgr"))
        self.tell("passed")

    def kernel(self) -> dict[str, list[str]]:
        """What paths change in the kernel; without tun0 itself and what drops all that comes in by it."""
        # Names do not change while the port runs.
        return snapshot(self.namespace,
                        [f"wlan{index}" for index in range(len(self.vaps))] + self.client_interfaces)


class Client(Host):
    """A client with the same address wherever it is. Its interfaces are cables to access points."""

    def __init__(self, number: int, vlan: int, access_points: list[TunnelAccessPoint]) -> None:
        super().__init__(f"client{number}", "")
        self.number = number
        self.vlan = vlan
        self.mac = f"02:00:00:03:00:{number:02x}"
        self.address = f"10.2.{vlan}.{100 + number}"
        for each in access_points:
            each.add_client_interface(self)

    def go_to(self, access_point: TunnelAccessPoint) -> None:
        new = f"at{access_point.number}"
        commands = [f"addr flush dev {self.interface}", f"link set {self.interface} down"] if self.interface else []
        self.namespace.ip(*commands, f"link set {new} address {self.mac} up",
                          f"addr add {self.address}/24 dev {new} broadcast +")
        self.interface = new

    def leave(self) -> None:
        self.namespace.ip(f"addr flush dev {self.interface}", f"link set {self.interface} down")
        self.interface = ""


class Roaming:
    """What daemons, apd and radiod say of a client that moves."""

    def __init__(self, client: Client, home: TunnelAccessPoint, vap: int) -> None:
        self.client, self.home = client, home
        client.go_to(home)
        home.state(INTERFACE, client)
        assert home.tell("add", client.mac, f"wlan{vap}", client.vlan, 0)[0] == 0
        self._now: TunnelAccessPoint = home

    def to(self, foreign: TunnelAccessPoint, vap: int) -> None:
        client = self.client
        client.go_to(foreign)
        foreign.state(INTERFACE, client)
        assert foreign.tell("add", client.mac, f"wlan{vap}", client.vlan, 1)[0] == 0
        foreign.state(FOREIGN, client, client.vlan, self.home)
        assert self.home.tell("add", client.mac, "tun0", client.vlan, 0)[0] == 0
        self.home.state(HOME, client, client.vlan, foreign)
        self._leave(foreign)

    def back(self, vap: int) -> None:
        client = self.client
        client.go_to(self.home)
        self.home.state(INTERFACE, client)
        assert self.home.tell("add", client.mac, f"wlan{vap}", client.vlan, 0)[0] == 0
        self.home.state(GONE, client)
        self._leave(self.home)

    def away(self) -> None:
        self.client.leave()
        self._forget(self._now)
        self._forget(self.home)

    def _leave(self, new: TunnelAccessPoint) -> None:
        if self._now is self.home:
            self.home.state(NO_INTERFACE, self.client)
        elif self._now is not new:
            self._forget(self._now)
        self._now = new

    def _forget(self, access_point: TunnelAccessPoint) -> None:
        assert access_point.tell("del", self.client.mac)[0] == 0
        access_point.state(GONE, self.client)
        access_point.state(NO_INTERFACE, self.client)


def settle(seconds: float = 0.5) -> None:
    """Gives frames that must not come the time to come."""
    time.sleep(seconds)
