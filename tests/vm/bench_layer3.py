"""How long a roam interrupts a station's traffic: in one VLAN and to another one. No test: it prints a table.

    tests/vm/run --bin DIRECTORY bench_layer3.py -s
"""

import socket
import statistics
import threading
import time
from pathlib import Path

from nodes import network_kinds
from nodes.namespace import Namespace
from nodes.pool import Pool
from nodes.roaming_site import FOREIGN, HOME, MIXED, lend
from nodes.wire import Wire, address_in

from lab.site.waiting import wait_until

ROUNDS = 8
INTERVAL_SECONDS = 0.01
# Each round: in VLAN 10 to another access point and back, then to VLAN 20, on to another one of VLAN 20, and home.
ROUND = (("same VLAN", MIXED, 1), ("same VLAN", HOME, 0), ("to another VLAN", FOREIGN, 0), ("onward", MIXED, 0),
         ("home again", HOME, 0))


class Probe:
    """Inside the context a station sends a datagram every 10 ms, which a wired host returns."""

    def __init__(self, namespace: Namespace, address: str) -> None:
        self._server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._server.bind((address, 0))
        self._station = namespace.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._station.connect(self._server.getsockname())
        self._station.settimeout(0.2)
        self._ended = threading.Event()
        self._threads = [threading.Thread(target=work) for work in (self._return, self._send, self._receive)]
        self.returned = [time.monotonic()]

    def __enter__(self) -> "Probe":
        self._server.settimeout(0.2)
        for thread in self._threads:
            thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._ended.set()
        for thread in self._threads:
            thread.join()

    def wait_for_more(self) -> None:
        before = len(self.returned)
        wait_until(lambda: len(self.returned) > before + 30, "traffic flows")

    def longest_gap(self, since: int) -> float:
        times = self.returned[since:]
        return max(later - earlier for earlier, later in zip(times, times[1:]))

    def _return(self) -> None:
        while not self._ended.is_set():
            try:
                self._server.sendto(*self._server.recvfrom(100))
            except OSError:
                pass

    def _send(self) -> None:
        while not self._ended.wait(INTERVAL_SECONDS):
            try:
                self._station.send(b"probe")
            except OSError:  # the station is not connected
                pass

    def _receive(self) -> None:
        while not self._ended.is_set():
            try:
                self._station.recv(100)
                self.returned.append(time.monotonic())
            except OSError:
                pass


def test_gaps(pool: Pool, programs: Path, wire: Wire) -> None:
    gaps: dict[str, list[float]] = {name: [] for name, *_ in ROUND}
    with lend(pool, programs, 1) as (site, (station,)):
        site.start(network_kinds.PSK)
        site.connect(station, network_kinds.PSK, HOME)
        with Probe(station.namespace, address_in(10)) as probe:
            for _ in range(ROUNDS):
                for name, at, index in ROUND:
                    probe.wait_for_more()
                    since = len(probe.returned) - 1
                    site.roam(station, at, index)
                    probe.wait_for_more()
                    gaps[name].append(probe.longest_gap(since))
    base = statistics.median(gaps["same VLAN"])
    print()
    for name, each in gaps.items():
        low, middle, high = statistics.quantiles(each, n=4)
        print(f"{name:16} median {middle * 1000:4.0f} ms, quartiles {low * 1000:4.0f} and {high * 1000:4.0f}, "
              f"{middle / base:.2f} times that in one VLAN, of {len(each)}")
