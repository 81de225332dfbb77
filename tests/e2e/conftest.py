"""Gives every end-to-end test a lab of real processes in a network of its own, and checks how they end."""

import signal
import sys
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parents[2]))

from lab.site.browser import Browser  # noqa: E402
from lab.site.laboratory import Laboratory  # noqa: E402
from lab.site.network import enter_own_network  # noqa: E402

# The status of a process that was asked to end. The daemon does not handle SIGTERM; the radio exits with 128 +
# SIGTERM.
GOOD_ENDS = {"client_mgr": (-signal.SIGTERM,), "radio": (0, 128 + signal.SIGTERM)}
SANITIZER_MARKS = ("Sanitizer", "runtime error:")
ALL_SKIPPED = 77  # the exit status that ctest counts as skipped


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--bin", type=Path, required=True, help="directory of the programs")
    parser.addoption("--thorough", action="store_true", help="run every test inside the sandbox, not a selection")


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item: pytest.Item) -> Iterator[None]:
    outcome = yield
    item.stash.setdefault(FAILED, False)
    item.stash[FAILED] |= outcome.get_result().failed


FAILED = pytest.StashKey[bool]()


def pytest_sessionfinish(session: pytest.Session, exitstatus: int) -> None:
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    if exitstatus == pytest.ExitCode.OK and reporter.stats.get("skipped") and not reporter.stats.get("passed"):
        session.exitstatus = ALL_SKIPPED


@pytest.fixture(scope="session", autouse=True)
def own_network() -> bool:
    """Whether the test runs in a network namespace of its own."""
    return enter_own_network()


@pytest.fixture(scope="session")
def programs(request: pytest.FixtureRequest) -> Path:
    return request.config.getoption("--bin").resolve()


@contextmanager
def checked_lab(programs: Path, has_failed: Callable[[], bool]) -> Iterator[Laboratory]:
    """A lab whose processes must end well. Its files are kept when they do not, and when a test `has_failed`."""
    with Laboratory(programs) as made:
        yield made
        processes = list(made.processes.all)
    ends = {process.name: process.status for process in processes}
    good = all(status in GOOD_ENDS.get(Path(name).name, (0,)) for name, status in ends.items())
    reports = [f"{file}:\n{file.read_text(errors='replace')}" for file in made.directory.rglob("*.err")
               if any(mark in file.read_text(errors="replace") for mark in SANITIZER_MARKS)]
    if has_failed():
        print(f"the lab's files: {made.directory}")
        return
    assert not reports, "\n".join(reports)
    assert good, f"processes did not end well: {ends}; see {made.directory}"
    made.discard()


@pytest.fixture
def lab(programs: Path, request: pytest.FixtureRequest) -> Iterator[Laboratory]:
    """A lab in which the test starts the controller and the access points."""
    with checked_lab(programs, lambda: request.node.stash.get(FAILED, False)) as made:
        yield made


@pytest.fixture(scope="module")
def browser(own_network: bool, tmp_path_factory: pytest.TempPathFactory) -> Iterator[Browser]:
    made = Browser(tmp_path_factory.mktemp("profile"))
    yield made
    made.close()
