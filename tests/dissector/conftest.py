import shutil
import sys
from pathlib import Path
from typing import Any

import pytest
from protocol_tables import load

sys.path.insert(0, str(Path(__file__).parents[2]))

ALL_SKIPPED = 77  # the exit status that ctest counts as skipped


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--bin", type=Path, required=True, help="directory of the programs")


@pytest.fixture(scope="session")
def programs(request: pytest.FixtureRequest) -> Path:
    return request.config.getoption("--bin").resolve()


@pytest.fixture(scope="session")
def protocol(programs: Path) -> dict[str, Any]:
    return load(programs)


@pytest.fixture(scope="session", autouse=True)
def with_tshark() -> None:
    if shutil.which("tshark") is None:
        pytest.skip("there is no tshark")


def pytest_sessionfinish(session: pytest.Session, exitstatus: int) -> None:
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    if exitstatus == pytest.ExitCode.OK and reporter.stats.get("skipped") and not reporter.stats.get("passed"):
        session.exitstatus = ALL_SKIPPED
