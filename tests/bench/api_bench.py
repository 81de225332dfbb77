#!/usr/bin/python3
"""Measures what operators cost a site controller that has many stored clients. Prints a table.

The event loop is the process's first thread, so the CPU time of that thread during a request is the longest that the
request can have held the loop. Passwords are hashed in another thread.
"""

import argparse
import json
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

REPOSITORY = Path(__file__).parents[2]
sys.path += [str(REPOSITORY), str(REPOSITORY / "tests/e2e")]

import stored_clients  # noqa: E402

from lab.site.authority import Authority  # noqa: E402
from lab.site.enrolment import sitectl  # noqa: E402
from lab.site.failure import LabFailure  # noqa: E402
from lab.site.http_api import HttpApi  # noqa: E402
from lab.site.processes import die_with_parent  # noqa: E402
from lab.site.waiting import wait_until  # noqa: E402

ADDRESS = "127.0.0.1"
PASSWORD = "correct horse battery"
REQUESTS = {
    "clients, first page": "clients?limit=200",
    "clients, last page": "clients?limit=200&order=descending",
    "clients of a name": "clients?limit=200&name=printer%2050",
    "clients of an SSID that none has": "clients?limit=200&ssid=none",
    "clients of one access point": "clients?limit=200&ap=02:a0:00:00:32:00",
    "waiting guests, of none": "guests?limit=200",
    "access points": "access-points?limit=200",
    "a client's history": "clients/{client}/history?limit=200",
    "statistics": "stats",
}


class Controller:
    def __init__(self, programs: Path, directory: Path) -> None:
        self._programs = programs
        authority = Authority(directory)
        own = authority.issue("controller", ADDRESS)
        self._control = directory / "control"
        self.store = directory / "site.db"
        self.api = HttpApi(directory, authority)
        self._port_file = directory / "port"
        self._command = [programs / "site_controller", "--listen", f"{ADDRESS}:0", "--port-file", self._port_file, "--ca",
                         authority.certificate, "--certificate", own.certificate, "--key", own.key, "--control",
                         self._control, "--store", self.store, *self.api.options]
        self._process: subprocess.Popen[bytes] | None = None

    def start(self) -> float:
        """Returns the seconds until it listens."""
        self._port_file.unlink(missing_ok=True)
        began = time.monotonic()
        self._process = subprocess.Popen([str(word) for word in self._command], stdin=subprocess.DEVNULL,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                         preexec_fn=die_with_parent)
        while not self._port_file.exists():
            time.sleep(0.001)
            if self._process.poll() is not None:
                raise LabFailure("the controller does not start")
        return time.monotonic() - began

    def end(self) -> None:
        assert self._process is not None
        self._process.terminate()
        self._process.wait()

    def run(self, *words: str, text: str = "") -> str:
        return sitectl(self._programs, "--control", self._control, *words, text=text).strip()

    def loop_ms(self) -> float:
        """CPU time of the event loop's thread so far."""
        assert self._process is not None
        return int(Path(f"/proc/{self._process.pid}/task/{self._process.pid}/schedstat").read_text().split()[0]) / 1e6


def measure(controller: Controller, ask: Callable[[], None], times: int) -> tuple[float, float, float]:
    """Of the times: the loop's median and longest hold, and the median until the answer, in milliseconds."""
    holds, answers = [], []
    for _ in range(times):
        before, began = controller.loop_ms(), time.perf_counter()
        ask()
        answers.append((time.perf_counter() - began) * 1000)
        time.sleep(0.01)  # the connection's end is the loop's work too
        holds.append(controller.loop_ms() - before)
    return sorted(holds)[times // 2], max(holds), sorted(answers)[times // 2]


def run(programs: Path, clients: int, times: int) -> dict[str, tuple[float, float, float]]:
    with tempfile.TemporaryDirectory() as name:
        controller = Controller(programs, Path(name))
        controller.start()
        controller.end()
        macs = stored_clients.fill(controller.store, clients)
        starts = []
        for _ in range(times):
            starts.append(controller.start() * 1000)
            controller.end()
        controller.start()
        controller.run("operator-add", "ada", "admin", text=PASSWORD + "\n")
        token = controller.run("token-add", "ada", "admin")
        api = controller.api
        wait_until(lambda: api.ask("GET", "/readyz").status == 200, "the API answers")
        found = {"start": (sorted(starts)[times // 2], max(starts), 0.0),
                 "nothing (GET /healthz)": measure(controller, lambda: check(api.ask("GET", "/healthz").status, 200), times)}
        for what, path in REQUESTS.items():
            target = "/api/v1/" + path.format(client=macs[clients // 2])
            found[what] = measure(controller, lambda at=target: check(api.ask("GET", at, token).status, 200), times)
        found["sign in"] = measure(controller, lambda: check(
            api.ask("POST", "/api/v1/session", body={"name": "ada", "password": PASSWORD}).status, 201), min(times, 10))
        controller.end()
        return found


def check(status: int, wanted: int) -> None:
    if status != wanted:
        raise LabFailure(f"status {status} instead of {wanted}")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("programs", type=Path, help="directory of the programs")
    parser.add_argument("--clients", type=int, default=100_000, help="default 100000")
    parser.add_argument("--times", type=int, default=20, help="of each request; default 20")
    parser.add_argument("--json", type=Path, help="where to write the figures")
    given = parser.parse_args()
    try:
        found = run(given.programs, given.clients, given.times)
    except LabFailure as failure:
        print(f"api_bench: {failure}", file=sys.stderr)
        return 1
    start = found.pop("start")
    print(f"start with {given.clients} clients: median {start[0]:.0f} ms, longest {start[1]:.0f} ms")
    print(f"{'ms':<40}{'loop, median':>14}{'loop, longest':>14}{'answer, median':>16}")
    for what, figures in found.items():
        print(f"{what:<40}{figures[0]:>14.2f}{figures[1]:>14.2f}{figures[2]:>16.2f}")
    if given.json:
        given.json.write_text(json.dumps({"start": start, **found}, indent=2))
    return 0


if __name__ == "__main__":
    sys.exit(main())
