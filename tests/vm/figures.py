"""Figures of roaming between two access points with stock hostapd. It is no test.

    tests/vm/run --bin build/release/bin -s -qq --no-header --no-summary figures.py
"""

import itertools
import re
import statistics
import threading
import time
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass, field
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.access_point_node import AccessPointNode, Vap
from nodes.air_capture import ASSOC_RESPONSE, AUTHENTICATION, HEADER_SIZES, REASSOC_RESPONSE, AirCapture
from nodes.managed_site import ManagedSite
from nodes.network_kinds import NetworkKind
from nodes.radius_server import start_hostapd_server
from nodes.station_node import StationNode

from lab.site.processes import Process

SSID = "office"
ROAMS = 16
IDLE_SECONDS = 5
KINDS = (network_kinds.OPEN, network_kinds.PSK, network_kinds.FT_PSK, network_kinds.SAE, network_kinds.EAP)
BRIDGE_ENTRY = re.compile(r"^Timestamp: (.*) (\d+) usec\n(\S+) dev wlan0 .*static", re.MULTILINE)


class RecordClock:
    """Notes when the controller prints an association, to about a millisecond."""

    def __init__(self, output: Path) -> None:
        self.times: list[tuple[float, str]] = []
        self._output = output
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._watch)

    def __enter__(self) -> "RecordClock":
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._ended.set()
        self._thread.join()

    def _watch(self) -> None:
        with open(self._output) as lines:
            lines.seek(0, 2)
            while not self._ended.wait(0.001):
                now = time.time()
                self.times += [(now, line) for line in lines if "_ASSOC" in line and not line.startswith('{"event"')]


@dataclass
class Figures:
    """Seconds of each roam."""

    # From the station's first Authentication frame to its last frame of the handshake, or the response without one.
    own: list[float] = field(default_factory=list)
    to_record: list[float] = field(default_factory=list)  # from the (re)association response
    to_bridge: list[float] = field(default_factory=list)  # likewise


def cpu_seconds(processes: list[Process]) -> float:
    """On a processor so far."""
    return sum(int(Path(f"/proc/{each.pid}/schedstat").read_text().split()[0]) for each in processes) / 1e9


def processes_of(site: ManagedSite, access_points: list[AccessPointNode]) -> dict[str, list[Process]]:
    daemons = {name: [each.running[name] for each in site.access_points] for name in ("radiod", "client_mgr", "apd")}
    return {"hostapd": [each.hostapd_process for each in access_points], **daemons}


@contextmanager
def bridge_clock(access_points: list[AccessPointNode]) -> Iterator[list[tuple[float, str]]]:
    """The times of the stations' static bridge entries; on leaving the context they are there."""
    monitors = [each.processes.start("bridge", ["-timestamp", "monitor", "fdb"], each.directory)
                for each in access_points]
    time.sleep(1)  # it says nothing when it listens
    times: list[tuple[float, str]] = []
    yield times
    for node, monitor in zip(access_points, monitors):
        node.processes.forget(monitor)
        monitor.kill()
        times += [(time.mktime(time.strptime(when)) + int(microseconds) / 1e6, station)
                  for when, microseconds, station in BRIDGE_ENTRY.findall(monitor.out.read_text())]


def measure(station: StationNode, starts: list[tuple[float, str]], air: AirCapture, records: RecordClock,
            entries: list[tuple[float, str]]) -> Figures:
    """`starts`: when the station was ordered to which BSSID. A roam in more than one attempt is left out."""
    found = Figures()
    ends = [start for start, _ in starts[1:]] + [float("inf")]
    for (start, bssid), end in zip(starts, ends):
        frames = [each for each in air.frames if start <= each.time < end
                  and {each.sender, each.receiver} == {station.mac, bssid}]
        begins = [each.time for each in frames if each.kind == AUTHENTICATION and each.sender == station.mac]
        responses = [each.time for each in frames if each.kind in (ASSOC_RESPONSE, REASSOC_RESPONSE)]
        handshake = [each.time for each in frames if each.kind in HEADER_SIZES and each.sender == station.mac]
        printed = [when for when, line in records.times if start <= when < end and station.mac in line
                   and bssid in line]
        entered = [when for when, mac in entries if start <= when < end and mac == station.mac]
        if len(responses) == 1 and begins and printed and entered:
            found.own.append(max(handshake + responses) - begins[0])
            found.to_record.append(printed[0] - responses[0])
            found.to_bridge.append(entered[0] - responses[0])
    assert len(found.own) >= len(starts) / 2
    return found


def describe(values: list[float]) -> str:
    low, middle, high = statistics.quantiles(values, n=4)
    return f"{middle:.2f} ({low:.2f} to {high:.2f})"


@pytest.mark.parametrize("kind", KINDS, ids=str)
def test_figures(kind: NetworkKind, programs: Path, access_points, stations, radius) -> None:
    if kind.has_8021x:
        radius(start_hostapd_server)
    station = stations[0]
    with ManagedSite(programs, stations, details=False) as site:
        site.start(access_points, Vap(kind, SSID, settings=("macaddr_acl=2",) if kind.has_8021x else ()))
        # With SAE a station would ask for its old key first, and be refused.
        station.connect(SSID, kind, access_points[0], 0, *(["proactive_key_caching=1"] if kind.has_8021x else []))
        site.wait_until_at(station, access_points[0].bssid())
        processes = processes_of(site, access_points)
        idle = {name: cpu_seconds(each) for name, each in processes.items()}
        time.sleep(IDLE_SECONDS)
        idle = {name: (cpu_seconds(each) - idle[name]) / IDLE_SECONDS for name, each in processes.items()}
        starts: list[tuple[float, str]] = []
        with (bridge_clock(access_points) as entries, AirCapture() as air,
              RecordClock(site.controller.output.file) as records):
            began, before = time.monotonic(), {name: cpu_seconds(each) for name, each in processes.items()}
            with_eap = station.count_eap()
            for target in itertools.islice(itertools.cycle(reversed(access_points)), ROAMS):
                starts.append((time.time(), target.bssid()))
                station.roam(target)
                site.wait_until_at(station, target.bssid())
            with_eap = station.count_eap() - with_eap
            seconds = time.monotonic() - began
            used = {name: cpu_seconds(each) - before[name] - idle[name] * seconds for name, each in processes.items()}
        site.wait_until_all_agree(connected=[station])
    found = measure(station, starts, air, records, entries)
    own = found.own
    print(f"\n{kind}: {len(own)} of {ROAMS} roams in one attempt; {with_eap} with EAP\n"
          f"  own time, ms: {statistics.median(own) * 1000:.0f}\n"
          f"  response to record, of own time: {describe([a / b for a, b in zip(found.to_record, own)])}\n"
          f"  response to bridge entry, of own time: {describe([a / b for a, b in zip(found.to_bridge, own)])}\n"
          "  CPU of a roam, ms, both access points: "
          + ", ".join(f"{name} {value / ROAMS * 1000:.2f}" for name, value in used.items())
          + f"; radiod of hostapd {used['radiod'] / used['hostapd']:.2f}", flush=True)
