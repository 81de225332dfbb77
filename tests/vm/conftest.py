"""The machine's wired network, access points and stations, shared by all cases. Their programs are each case's own."""

import sys
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parents[2]))

from nodes.access_point_node import AccessPointNode  # noqa: E402
from nodes.authority import worker_authority  # noqa: E402
from nodes.managed_site import ManagedSite  # noqa: E402
from nodes.pool import Pool  # noqa: E402
from nodes.station_node import StationNode  # noqa: E402
from nodes.traffic import EchoServer  # noqa: E402
from nodes.wire import Wire  # noqa: E402
from nodes.worker import SITE, enter_own_networks  # noqa: E402

from lab.site import waiting  # noqa: E402
from lab.site.authority import Authority  # noqa: E402
from lab.site.processes import Process, Processes  # noqa: E402

ACCESS_POINTS = 2  # of most cases
STATIONS = 2
waiting.POLL_SECONDS = 0.1  # the emulated processor has other work
LOG_LINES = 60  # of each program, when a case fails
PASSED = pytest.StashKey[bool]()
# Files of cases that take long start first, so that no worker is left with one at the end. The second waits most of its
# time, and the crowd's start keeps a processor busy.
LONG_FILES = ("test_crowd.py", "test_verdicts.py", "test_kinds.py", "test_managed_networks.py", "test_stock_linux.py")


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--bin", type=Path, required=True, help="directory of the programs")
    parser.addoption("--screen", type=int, default=0, help="draw a live screen of so many columns")
    parser.addoption("--long", action="store_true", help="run the cases marked as long too")


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "long: takes so long that it runs with --long only")
    enter_own_networks()


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    items.sort(key=lambda item: LONG_FILES.index(item.path.name) if item.path.name in LONG_FILES else len(LONG_FILES))
    if not config.getoption("--long"):
        for item in items:
            if item.get_closest_marker("long"):
                item.add_marker(pytest.mark.skip(reason="it runs with --long only"))


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item: pytest.Item) -> Iterator[None]:
    outcome = yield
    report = outcome.get_result()
    if report.when == "call":
        item.stash[PASSED] = report.passed
    if report.failed:
        for file in sorted(SITE.rglob("*.err")) + sorted(SITE.rglob("*.log")) + sorted(SITE.rglob("*.out")):
            lines = file.read_text(errors="replace").splitlines()[-LOG_LINES:]
            if lines:
                report.sections.append((str(file.relative_to(SITE)), "\n".join(lines)))


@pytest.fixture(scope="session")
def programs(request: pytest.FixtureRequest) -> Path:
    return request.config.getoption("--bin")


@pytest.fixture(scope="session")
def authority() -> Authority:
    return worker_authority()


@pytest.fixture(scope="session")
def wire() -> Iterator[Wire]:
    servers = Processes(Path("/usr/bin"))
    made = Wire(servers, SITE / "wire")
    made.start_dhcp()
    yield made
    servers.end()


@pytest.fixture(scope="session")
def echo() -> EchoServer:
    return EchoServer()


@pytest.fixture(scope="session")
def pool(wire: Wire) -> Pool:
    return Pool(wire, SITE)


@pytest.fixture
def access_points(pool: Pool) -> Iterator[list[AccessPointNode]]:
    """Their hostapds are not running yet."""
    with pool.access_points(ACCESS_POINTS) as nodes:
        yield nodes


@pytest.fixture
def stations(pool: Pool) -> Iterator[list[StationNode]]:
    """Their programs are not running yet."""
    with pool.stations(STATIONS) as nodes:
        yield nodes


@pytest.fixture
def radius(authority: Authority, tmp_path: Path) -> Iterator[Callable[..., Process]]:
    """Starts a RADIUS server on the wired host."""
    processes = Processes(Path("/usr/sbin"))
    yield lambda start: start(processes, tmp_path, authority)
    processes.end()


@pytest.fixture
def site(request: pytest.FixtureRequest, programs: Path, access_points: list[AccessPointNode],
         stations: list[StationNode], radius: Callable[..., Process]) -> Iterator[ManagedSite]:
    """Its controller runs, the access points' daemons do not yet. All agree at the end of a case that has passed."""
    with ManagedSite(programs, stations) as made:
        yield made
        if request.node.stash.get(PASSED, False) and made.access_points:
            made.wait_until_all_agree()
