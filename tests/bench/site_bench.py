#!/usr/bin/python3
"""Measures a whole site controller: its process serves a fleet of access points through real tunnels. Prints a table.

The sizes take turns. CPU time is that of the controller's process with all its threads; memory is its private memory.
"""

import argparse
import json
import resource
import socket
import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any

sys.path.insert(0, str(Path(__file__).parents[2]))

from lab.site.authority import Authority, Identity  # noqa: E402
from lab.site.failure import LabFailure  # noqa: E402
from lab.site.processes import die_with_parent  # noqa: E402
from lab.site.waiting import wait_until  # noqa: E402

ADDRESS = "127.0.0.1"
ARRIVALS = 5000  # stations a second
MANY_ACCESS_POINTS = 100  # fewer disappear in what the process takes and gives back otherwise
STATIONS_LISTED = 150  # of one access point with three VAPs: a driver lists 105 of each at most
REST_SECONDS = 1  # between the last arrival and the first event, in the fleet


@dataclass(frozen=True)
class Size:
    access_points: int
    stations: int

    def __str__(self) -> str:
        return f"{self.access_points} x {self.stations}"


@dataclass(frozen=True)
class Plan:
    programs: Path
    rate: float  # events of stations a second
    seconds: int
    options: tuple[str, ...]  # of the controller
    with_store: bool


class Controller:
    """The controller's process. Its output goes nowhere."""

    def __init__(self, plan: Plan, directory: Path, authority: Authority, identity: Identity) -> None:
        self._control = directory / "control"
        self._port_file = directory / "port"
        self._port = 0
        self._command = [plan.programs / "site_controller", "--port-file", self._port_file, "--ca",
                         authority.certificate, "--certificate", identity.certificate, "--key", identity.key,
                         "--control", self._control, "--json", *plan.options]
        if plan.with_store:
            self._command += ["--store", directory / "site.db", "--serve-unenrolled"]
        self._process: subprocess.Popen[bytes] | None = None

    @property
    def port(self) -> int:
        return self._port

    def start(self) -> float:
        """Returns the seconds until it listens."""
        self._port_file.unlink(missing_ok=True)
        began = time.monotonic()
        command = [*self._command, "--listen", f"{ADDRESS}:{self._port}"]
        self._process = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL,
                                         stdout=subprocess.DEVNULL, preexec_fn=die_with_parent)
        wait_until(self._port_file.exists, "the controller listens", 60)
        self._port = int(self._port_file.read_text())
        return time.monotonic() - began

    def kill(self) -> None:
        assert self._process is not None
        self._process.kill()
        self._process.wait()

    def ask(self, line: str) -> str:
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(60)
            connection.connect(str(self._control))
            connection.sendall(line.encode() + b"\n")
            return b"".join(iter(lambda: connection.recv(1 << 20), b"")).decode()

    def stats(self) -> dict[str, Any]:
        return json.loads(self.ask("stats --json").partition("\n")[2])

    def pages(self) -> Iterator[list[dict[str, Any]]]:
        """The list of clients, page by page."""
        cursor = ""
        while True:
            status, _, text = self.ask(f"clients{cursor} --json").partition("\n")
            yield [json.loads(line) for line in text.splitlines()]
            if not status.startswith("more "):
                return
            cursor = f" --cursor {status[5:]}"

    def cpu_us(self) -> float:
        """CPU time of all threads so far."""
        assert self._process is not None
        tasks = Path(f"/proc/{self._process.pid}/task").iterdir()
        return sum(int((task / "schedstat").read_text().split()[0]) for task in tasks) / 1000

    def memory(self) -> int:
        """Private bytes."""
        assert self._process is not None
        lines = Path(f"/proc/{self._process.pid}/smaps_rollup").read_text().splitlines()[1:]
        return 1024 * sum(int(line.split()[1]) for line in lines if line.startswith("Private_"))


class Fleet:
    def __init__(self, plan: Plan, size: Size, directory: Path, authority: Authority, port: int) -> None:
        self.stations_file = directory / "stations.jsonl"
        command = [plan.programs / "kx-fleet", "--controller", f"{ADDRESS}:{port}", "--ca", authority.certificate,
                   "--ca-key", authority.certificate.with_suffix(".key"), "--aps", size.access_points, "--stations",
                   size.stations, "--guests", 20, "--restricted", 20, "--arrivals", ARRIVALS, "--rate", plan.rate,
                   "--seconds", plan.seconds, "--seed", 1, "--patience", 300, "--write-stations", self.stations_file,
                   "--json", "--stay"]
        self._process = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, text=True,
                                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, preexec_fn=die_with_parent)

    def wait_for(self, event: str) -> dict[str, Any]:
        assert self._process.stdout is not None
        for line in self._process.stdout:
            printed = json.loads(line)
            if printed["event"] == event:
                return printed
        raise LabFailure(f"the fleet ended before its event {event}")

    def places(self) -> dict[str, tuple[str, str, str]]:
        lines = map(json.loads, self.stations_file.read_text().splitlines())
        return {each["client"]: (each["ap"], each["bssid"], each["ip"]) for each in lines}

    def end(self) -> None:
        self._process.terminate()
        self._process.wait()


@dataclass(frozen=True)
class Mark:
    cpu_us: float
    records: int

    @staticmethod
    def of(controller: Controller) -> "Mark":
        return Mark(controller.cpu_us(), controller.stats()["records"])

    def cost_since(self, before: "Mark") -> float:
        """Microseconds of CPU time for each record."""
        return (self.cpu_us - before.cpu_us) / (self.records - before.records)


def places_at(controller: Controller) -> dict[str, tuple[str, str, str]]:
    return {each["client"]: (each["ap"], each["bssid"], each["ip"]) for page in controller.pages() for each in page}


def compare(controller: Controller, places: dict[str, tuple[str, str, str]]) -> None:
    """Raises LabFailure when the controller's clients are not where the radios have them."""
    known = places_at(controller)
    differences = sorted(station for station in known.keys() | places.keys()
                         if known.get(station) != places.get(station))
    if differences:
        first = differences[0]
        raise LabFailure(f"{len(differences)} stations differ; {first}: the controller has {known.get(first)}, the "
                         f"radios have {places.get(first)}")


def restart(controller: Controller, size: Size, places: dict[str, tuple[str, str, str]]) -> dict[str, float]:
    """Kills the controller and starts it again. Waits until all access points are back and everything is consistent."""
    controller.kill()
    began = time.monotonic()
    listens = controller.start()

    def is_back() -> bool:
        now = controller.stats()
        return (now["tunnels"], now["unsettled"], now["clients"]) == (size.access_points, 0, len(places))

    wait_until(is_back, "all access points are back", 120)
    back = time.monotonic() - began
    compare(controller, places)
    return {"restart, controller listens, s": listens, "restart, all back and consistent, s": back}


def measure_pages(controller: Controller) -> dict[str, float]:
    times = []
    began = time.perf_counter()
    for _ in controller.pages():
        times.append(time.perf_counter() - began)
        began = time.perf_counter()
    return {"page of clients, longest, ms": 1000 * max(times)}


def measure(plan: Plan, size: Size) -> dict[str, float]:
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        authority = Authority(directory)
        controller = Controller(plan, directory, authority, authority.issue("controller", ADDRESS))
        controller.start()
        empty = controller.memory()
        fleet = Fleet(plan, size, directory, authority, controller.port)
        found = {"all tunnels up, s": fleet.wait_for("connected")["seconds"]}
        connected, start = controller.memory(), Mark.of(controller)
        time.sleep(size.stations / ARRIVALS + REST_SECONDS / 2)
        arrived = Mark.of(controller)
        if size.access_points >= MANY_ACCESS_POINTS:
            found["memory per access point, KiB"] = (connected - empty) / size.access_points / 1024
        found["memory per client, bytes"] = (controller.memory() - connected) / size.stations
        found["record of an arrival, CPU us"] = arrived.cost_since(start)
        summary = fleet.wait_for("summary")
        found["record while stations roam, CPU us"] = Mark.of(controller).cost_since(arrived)
        found["records while stations roam, per s"] = (summary["records_sent"] - arrived.records) / plan.seconds
        found["roam to notice, p50, us"] = summary["move_notice_us"]["p50"]
        found["roam to notice, p99, us"] = summary["move_notice_us"]["p99"]
        wait_until(lambda: controller.stats()["unsettled"] == 0, "the controller awaits no report", 120)
        places = fleet.places()
        compare(controller, places)
        found |= measure_pages(controller)
        if size.stations <= size.access_points * STATIONS_LISTED:
            found |= restart(controller, size, places)
        fleet.end()
        controller.kill()
        return found


def median(values: list[float]) -> float:
    return sorted(values)[len(values) // 2]


def report(sizes: list[Size], samples: dict[Size, list[dict[str, float]]]) -> None:
    headings = [*map(str, sizes), "last to first"]
    print(f"{'median of ' + str(len(samples[sizes[0]])):<40}" + "".join(f"{each:>20}" for each in headings))
    for what in dict.fromkeys(what for size in sizes for what in samples[size][0]):
        columns = [[sample[what] for sample in samples[size] if what in sample] for size in sizes]
        medians = [median(values) if values else None for values in columns]
        ratio = medians[-1] / medians[0] if medians[-1] and medians[0] else None
        print(f"{what:<40}" + "".join(f"{'-':>20}" if each is None else f"{each:>20.4g}" for each in (*medians, ratio)))


def parse_size(text: str) -> Size:
    access_points, _, stations = text.partition("x")
    return Size(int(access_points), int(stations))


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("programs", type=Path, help="directory of the programs")
    parser.add_argument("--size", type=parse_size, action="append", metavar="APSxSTATIONS",
                        help="a size, instead of 10x10000 and 1000x100000; may be repeated")
    parser.add_argument("--rounds", type=int, default=3, help="default 3")
    parser.add_argument("--rate", type=float, default=600, help="events of stations a second; default 600")
    parser.add_argument("--seconds", type=int, default=15, help="of these events; default 15")
    parser.add_argument("--option", action="append", default=[], help="of the controller; may be repeated")
    parser.add_argument("--store", action="store_true", help="with SQLite")
    parser.add_argument("--json", type=Path, help="where to write all samples")
    given = parser.parse_args()
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    sizes = given.size or [Size(10, 10_000), Size(1_000, 100_000)]
    plan = Plan(given.programs, given.rate, given.seconds, tuple(given.option), given.store)
    samples: dict[Size, list[dict[str, float]]] = {size: [] for size in sizes}
    try:
        for _ in range(given.rounds):
            for size in sizes:
                samples[size].append(measure(plan, size))
    except LabFailure as failure:
        print(f"site_bench: {failure}", file=sys.stderr)
        return 1
    report(sizes, samples)
    if given.json:
        given.json.write_text(json.dumps({str(size): samples[size] for size in sizes}, indent=2))
    return 0


if __name__ == "__main__":
    sys.exit(main())
