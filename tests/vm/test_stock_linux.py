"""docs/stock-linux.md from top to bottom: its commands and files make a controller and an access point.

Two fresh machines, each with systemd, run every command of the page in its order. Stations and the RADIUS server are
those of the other cases.
"""

import re
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor
from contextlib import ExitStack
from dataclasses import dataclass, field
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.access_point_node import AccessPointNode
from nodes.machine import Machine
from nodes.network_kinds import NetworkKind
from nodes.pool import Pool
from nodes.radius_server import SECRET, start_hostapd_server
from nodes.station_node import StationNode
from nodes.roaming_networks import BRIDGE
from nodes.wire import VLANS

from lab.site.waiting import wait_until

REPOSITORY = Path(__file__).parents[2]
PAGE = (REPOSITORY / "docs/stock-linux.md").read_text()
PAGE_MAC = "02:00:00:00:00:00"
CONTROLLER, ACCESS_POINT = "the controller's machine", "the access point"
# Of each section, and the access point of all others.
MACHINES = {"1. Packages and programs": (CONTROLLER, ACCESS_POINT), "2. The controller": (CONTROLLER,)}
ROAMING = "Roaming between VLANs"
OFFICES = {"office, 802.1X": network_kinds.EAP, "office, passphrase": network_kinds.PSK,
           "office, fast transition": network_kinds.FT_PSK}
NO_FAULT = "no fault was found"
CHECK = "sudo radiod --check --config /etc/kx/ap.toml"


@dataclass(frozen=True)
class Block:
    section: str
    kind: str  # "" of a file without a syntax
    text: str


def read_blocks() -> list[Block]:
    found = []
    for part in re.split(r"^## ", PAGE, flags=re.MULTILINE)[1:]:
        section = part.partition("\n")[0]
        found += [Block(section, kind, text)
                  for kind, text in re.findall(r"^```(\w*)\n(.*?)^```", part, re.MULTILINE | re.DOTALL)]
    return found


BLOCKS = read_blocks()


def block(kind: str, start: str = "", section: str | None = None) -> str:
    return next(each.text for each in BLOCKS
                if each.kind == kind and each.text.startswith(start) and section in (None, each.section))


@dataclass
class StockSite:
    """What the page makes, as far as its commands have run."""

    programs: Path
    node: AccessPointNode  # its network and radio
    machines: dict[str, Machine]
    done: list[Block] = field(default_factory=list)

    def run_section(self, section: str) -> str:
        """Its commands. Returns what they print."""
        return "".join(self.run(each) for each in BLOCKS if each.section == section and each.kind == "sh")

    def run(self, commands: Block) -> str:
        self.done.append(commands)
        machines = MACHINES.get(commands.section, (ACCESS_POINT,))
        with ThreadPoolExecutor() as threads:
            return "".join(threads.map(lambda machine: self.run_on(machine, commands.text), machines))

    def run_on(self, machine: str, script: str) -> str:
        """With substitutes for what needs the Internet, a compiler's time or a person."""
        for words, substitute in (
                ("cmake --preset release && cmake --build --preset release", "true"),  # the programs are there
                # The machines' disk is memory; symbols take most of it.
                ("cmake --install build/release", f"cmake --install {self.programs.parent} --strip"),
                # scripts/prepare-vm and scripts/install-packages have got these packages.
                ("apt-get install hostapd iw iproute2 net-tools", "type hostapd iw ip arp route ifconfig"),
                ("sitectl operator-add ola admin", "sitectl operator-add ola admin <<<'a long password'"),
                (PAGE_MAC, self.node.bssid())):
            script = script.replace(words, substitute)
        return self.machines[machine].shell(f"cd {REPOSITORY}\nsudo() {{ \"$@\"; }}\n{script}")

    def write(self, file: str, text: str) -> None:
        """On the access point."""
        self.machines[ACCESS_POINT].write(Path(file), text.encode())

    def write_hostapd_conf(self, office: str, change: Callable[[str, int], str] = lambda text, vap: text) -> None:
        """`change`: of each BSS's part."""
        secret = self.machines[ACCESS_POINT].read(Path("/etc/kx/hostapd.secret")).decode().strip()
        common = block("ini", "# every BSS\n").replace("SECRET", secret)
        self.write("/etc/hostapd/hostapd.conf", "".join(
            change(block("ini", f"# {name}\n"), vap) + common for vap, name in enumerate((office, "guests"))))

    def write_ap_toml(self, more: str = "") -> None:
        text = block("toml")
        assert PAGE_MAC in text
        self.write("/etc/kx/ap.toml", text.replace(PAGE_MAC, self.node.bssid()) + more)

    def check_stations(self, kind: NetworkKind, stations: list[StationNode]) -> None:
        """One of each network comes, gets an address of its VLAN, and is in the kernel and at the controller."""
        for station, ssid, its_kind in zip(stations, ("office", "guest"), (kind, network_kinds.OPEN)):
            station.start(ssid, its_kind)
        for vap, station in enumerate(stations):
            station.wait_until_connected(self.node.bssid(vap))
            assert station.get_address().startswith(f"10.0.{VLANS[vap]}.")
            assert (station.mac, vap) in self.node.authorized(2)
            wait_until(lambda: self.is_listed(station), f"the controller has {station.name}")

    def is_listed(self, station: StationNode) -> bool:
        clients = self.run_on(CONTROLLER, "sudo sitectl clients")
        return any(station.mac in line and station.address in line for line in clients.splitlines())


@pytest.fixture(scope="module")
def stock(programs: Path, pool: Pool, tmp_path_factory) -> Iterator[StockSite]:
    """All is done as far as section 8."""
    with ExitStack() as stack:
        node, = stack.enter_context(pool.access_points(1))
        node.remove_bridges()
        stack.callback(node.make_bridges)
        stack.callback(node.remove_bridges)
        machines = {name: stack.enter_context(Machine(tmp_path_factory.mktemp("machine"), launcher))
                    for name, launcher in ((CONTROLLER, ()), (ACCESS_POINT, node.namespace.launcher))}
        made = StockSite(programs, node, machines)
        follow(made)
        yield made


def follow(stock: StockSite) -> None:
    stock.run_section("1. Packages and programs")
    stock.run_section("2. The controller")
    stock.run_section("3. An access point's packages and bridges")
    bundle = REPOSITORY / "hall.tar"
    stock.machines[ACCESS_POINT].write(bundle, stock.machines[CONTROLLER].read(bundle))
    stock.write(str(REPOSITORY / "radius-server.secret"), SECRET)
    stock.run_section("4. Secrets")
    stock.write_hostapd_conf("office, 802.1X")
    stock.write_ap_toml()
    assert last_line(stock.run_section("7. Check")) == NO_FAULT
    assert "hostapd serves 2 of 2 VAPs" in stock.run_section("8. Start")
    wait_until(lambda: stock.node.bssid() in stock.run_on(CONTROLLER, "sudo sitectl aps --state up"),
               "the controller has the access point")


def last_line(text: str) -> str:
    return text.splitlines()[-1]


@pytest.mark.parametrize(("office", "kind"), OFFICES.items(), ids=OFFICES)
def test_networks_of_the_page(office: str, kind: NetworkKind, stock: StockSite, stations, radius) -> None:
    if kind.has_8021x:
        radius(start_hostapd_server)
    stock.write_hostapd_conf(office)
    stock.run_on(ACCESS_POINT, "sudo systemctl restart hostapd")
    assert stock.run_on(ACCESS_POINT, CHECK) == NO_FAULT + "\n"
    stock.check_stations(kind, stations)


def test_roaming_between_vlans(stock: StockSite, stations) -> None:
    bridge, start = (each for each in BLOCKS if each.section == ROAMING and each.kind == "sh")
    stock.run(bridge)
    files = block("", section=ROAMING)
    for vap in range(2):
        interface = stock.node.interface(vap)
        stock.write(f"/etc/hostapd/{interface}.vlan", files.replace("wlan0.", f"{interface}."))
    lines = block("ini", section=ROAMING)
    stock.write_hostapd_conf("office, passphrase", lambda text, vap: re.sub(
        "bridge=.*\n", lines.replace("wlan0.", f"{stock.node.interface(vap)}."), text))
    stock.write_ap_toml(block("toml", section=ROAMING))
    assert last_line(stock.run(start)) == NO_FAULT
    stock.check_stations(network_kinds.PSK, stations)
    assert stock.done == [each for each in BLOCKS if each.kind == "sh"], "a command of the page was left out"


def test_all_parts_of_hostapd_conf_are_in_use() -> None:
    starts = [each.text.partition("\n")[0] for each in BLOCKS if each.kind == "ini"]
    assert starts == ["# every BSS", *(f"# {name}" for name in (*OFFICES, "guests")), f"bridge={BRIDGE}"]
