"""The access points with all their daemons, and the controller on the wired host."""

import resource
import signal
from collections.abc import Sequence
from pathlib import Path

from nodes.access_point_node import AccessPointNode, Vap
from nodes.authority import worker_authority
from nodes.radius_server import SECRET
from nodes.station_node import StationNode
from nodes.wire import ADDRESS

from lab.site.access_point import AccessPoint
from lab.site.client_table import Client
from lab.site.consistency import UNKNOWN_IP, collect_views, find_differences
from lab.site.failure import LabFailure
from lab.site.laboratory import Laboratory
from lab.site.processes import Process, Processes
from lab.site.waiting import wait_until

LOCAL_RADIUS = "127.0.0.1"
DAEMONS = ("radiod", "client_mgr", "apd")
AGREE_SECONDS = 40  # for an emulated machine; on a real one it is a few


class ManagedAccessPoint(AccessPoint):
    """`node`'s daemons. hostapd is the node's."""

    def __init__(self, node: AccessPointNode, vaps: tuple[Vap, ...], lab: "ManagedSite") -> None:
        self.node = node
        self._lab = lab
        super().__init__(Processes(lab.processes.programs, node.namespace.launcher), lab.directory / node.name,
                         node.bssid(), describe(node, vaps, lab.radio_settings), lab.authority.issue(node.name, mac=node.bssid()))
        for name in ("hostapd.secret", "server.secret"):
            (self.root / name).touch(mode=0o600)
            (self.root / name).write_text(SECRET)
        self.number_of_vaps = len(vaps)

    def start_all(self) -> None:
        self.start("captive_app", "--json")
        for daemon in DAEMONS:
            self.start_daemon(daemon)

    def start_daemon(self, daemon: str) -> None:
        self.start(daemon, *(["--verbose"] if daemon == "radiod" and self._lab.details else []))

    def crash(self, daemon: str) -> None:
        process = self.running.pop(daemon)
        self._processes.forget(process)
        crash(process)

    def replace(self, daemon: str) -> None:
        """Kills it and starts another."""
        self.kill(daemon)
        self.start_daemon(daemon)

    def stations(self) -> list[dict[str, object]]:
        """The kernel's, as the lab's radio lists its own."""
        return [{"client": mac, "bssid": self.node.bssid(index), "ip": self._lab.address_of(mac), "here": True}
                for mac, index in self.node.authorized(self.number_of_vaps)]

    def served_by_hostapd(self) -> set[tuple[str, str]]:
        """Its stations, each with its BSSID."""
        return {(mac, self.node.bssid(index)) for mac, index in self.node.served(self.number_of_vaps)}

    def client(self, mac: str) -> Client | None:
        return next((each for each in self.clients() if each.mac == mac), None)

    def end_all(self) -> None:
        self._processes.end()


def describe(node: AccessPointNode, vaps: tuple[Vap, ...], radio_settings: str = "") -> str:
    carries = any(vap.gives_own_interfaces for vap in vaps)
    text = "[tunnel]\nenabled = true\n" if carries else ""
    # The emulated processor may be slower than stations on a real one, which wait for 340 ms.
    hold = "hold_ms = 300" if carries else ""
    text += f"""\
[radio]
{hold}
{radio_settings}
hostapd_directory = "{node.directory / 'hostapd'}"
radius_secret_file = "hostapd.secret"

[[radio.radius_server]]
address = "{ADDRESS}"
secret_file = "server.secret"
"""
    for index, vap in enumerate(vaps):
        text += f"""
[[vap]]
ifname = "{node.interface(index)}"
ssid = "{vap.ssid}"
vlan = {vap.vlan}
"""
        text += "".join(f"{line}\n" for line in vap.daemon_settings)
    return text


class ManagedSite(Laboratory):
    """On leaving the context its daemons end.

    With `details` radiod logs each decision. With `keeps_state` a later controller has what an earlier one had.
    """

    def __init__(self, programs: Path, stations: list[StationNode], details: bool = True,
                 keeps_state: bool = False) -> None:
        super().__init__(programs, ADDRESS, worker_authority())
        self._stations = stations
        self.details = details
        self.radio_settings = ""  # further lines of the table in ap.toml
        self._keeps_state = keeps_state
        self.start_controller()

    def start_controller(self) -> None:
        store = ["--store", self.directory / "site.store", "--serve-unenrolled"] if self._keeps_state else []
        self.controller.start(*store)

    def __exit__(self, *_: object) -> None:
        for each in self.access_points:
            each.end_all()
        super().__exit__()
        self.discard()

    def add(self, node: AccessPointNode, *vaps: Vap) -> None:
        """With its hostapd, which serves these VAPs."""
        node.start_hostapd(*vaps, radius=LOCAL_RADIUS)
        added = ManagedAccessPoint(node, vaps, self)
        added.configure(self.controller, self.authority)
        self.access_points.append(added)

    def start(self, nodes: list[AccessPointNode] = (), *vaps: Vap) -> None:
        """Each of `nodes` is added with these VAPs. Returns when the controller has the first report of each."""
        for node in nodes:
            self.add(node, *vaps)
        super().start()

    def address_of(self, mac: str) -> str:
        return next((each.address for each in self._stations if each.mac == mac and each.address), UNKNOWN_IP)

    def client(self, station: StationNode) -> dict[str, object] | None:
        """The controller's entry."""
        return next((each for each in self.controller.ask_json("clients") if each["client"] == station.mac), None)

    def wait_until_at(self, station: StationNode, bssid: str, seconds: float = 40) -> None:
        """Returns when the controller has it there."""
        wait_until(lambda: (self.client(station) or {}).get("bssid") == bssid,
                   f"the controller has {station.name} at {bssid}", seconds,
                   self.controller.output.file)

    def wait_until_gone(self, station: StationNode, seconds: float = 60) -> None:
        wait_until(lambda: self.client(station) is None, f"the controller has no {station.name}", seconds,
                   self.controller.output.file)

    def wait_until_all_agree(self, seconds: float = AGREE_SECONDS, connected: Sequence[StationNode] = ()) -> None:
        """The stations themselves, hostapd, the kernels, the daemons' tables and the controller.

        The stations `connected` must be so.
        """
        differences: list[str] = []

        def agree() -> bool:
            away = [f"{each.mac}: it is not connected" for each in connected if not each.is_connected()]
            differences[:] = away or self._find_differences()
            return not differences

        try:
            wait_until(agree, "all agree", seconds)
        except LabFailure:
            raise LabFailure(f"not all agree within {seconds} s:\n" + "\n".join(differences)) from None

    def _find_differences(self) -> list[str]:
        connected = {(each.mac, bssid) for each in self._stations if (bssid := each.bssid())}
        served = set().union(*(each.served_by_hostapd() for each in self.access_points))
        views = collect_views(self)
        in_kernels = {(mac, entry["bssid"]) for mac, entries in views.stations.items() for _, entry in entries}
        return [*(f"{mac}: it is connected to {bssid}, whose hostapd does not have it"
                  for mac, bssid in connected - served),
                *(f"{mac}: hostapd has it on {bssid}, to which it is not connected"
                  for mac, bssid in served - connected),
                *(f"{mac}: one of hostapd and the kernel does not have it on {bssid}"
                  for mac, bssid in served ^ in_kernels),
                *find_differences(views)]


def restart_hostapd(node: AccessPointNode, vaps: tuple[Vap, ...], number: int = signal.SIGTERM) -> None:
    node.end_hostapd(number)
    node.start_hostapd(*vaps, radius=LOCAL_RADIUS)


def crash(process: Process) -> None:
    """By a fault of its own, which leaves its memory in a file unless the process prevents that."""
    resource.prlimit(process.pid, resource.RLIMIT_CORE, 2 * (resource.RLIM_INFINITY,))
    process.signal(signal.SIGSEGV)
    process.wait()
