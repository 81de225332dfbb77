"""The packages, and a Debian to install them in."""

import os
import re
import shutil
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).parents[2]
sys.path.insert(0, str(REPOSITORY))

from tests.e2e.small_systemd import is_possible  # noqa: E402
from tests.packages.machine import Machine  # noqa: E402

ROOT = REPOSITORY / "build/packages/debian"
OLDER = "1.0.0-1"
INSTALLED = ("client-mgr", "site-controller", "client-mgr-lab")


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--packages", type=Path, required=True, help="directory of the packages")


def run(*words: object, **options: object) -> str:
    return subprocess.run([str(word) for word in words], stdout=subprocess.PIPE, text=True, check=True, **options).stdout


def field(package: Path, name: str) -> str:
    return run("dpkg-deb", "--field", package, name).strip()


@pytest.fixture(scope="session")
def packages(pytestconfig: pytest.Config) -> dict[str, Path]:
    found = sorted(pytestconfig.getoption("--packages").resolve().glob("*.deb"))
    return {field(each, "Package"): each for each in found}


def foreign_dependencies(packages: dict[str, Path]) -> str:
    """What apt must install for the packages, without themselves."""
    wanted = ", ".join(field(packages[name], "Depends") for name in INSTALLED)
    return ", ".join(each for each in wanted.split(", ") if not re.match(rf"({'|'.join(INSTALLED)})\b", each))


@pytest.fixture(scope="session")
def debian(packages: dict[str, Path]) -> Path:
    """Debian's minimal system with systemd and what the packages depend on, and nothing else."""
    if os.geteuid() != 0 or not is_possible() or not shutil.which("debootstrap"):
        pytest.skip("needs root, systemd, control groups and debootstrap")
    wanted = foreign_dependencies(packages)
    mark = ROOT / "var/lib/client-mgr-test"
    if mark.exists() and mark.read_text() == wanted:
        return ROOT
    shutil.rmtree(ROOT, ignore_errors=True)
    run("debootstrap", "--variant=minbase", "--include=systemd,iproute2", "bookworm", ROOT)
    shutil.copy("/etc/resolv.conf", ROOT / "etc/resolv.conf")
    environment = os.environ | {"DEBIAN_FRONTEND": "noninteractive"}
    run("chroot", ROOT, "apt-get", "satisfy", "-y", "-q", "--no-install-recommends", wanted, env=environment)
    run("chroot", ROOT, "apt-get", "clean")
    mark.write_text(wanted)
    return ROOT


def as_older(package: Path, directory: Path) -> None:
    """Puts the same package as version 1.0.0-1 into `directory`."""
    tree = directory / "tree"
    run("dpkg-deb", "--raw-extract", package, tree)
    control = tree / "DEBIAN/control"
    control.write_text(control.read_text().replace(field(package, "Version"), OLDER))
    run("dpkg-deb", "--build", "--root-owner-group", tree, directory)
    shutil.rmtree(tree)


@pytest.fixture
def machine(debian: Path, packages: dict[str, Path], tmp_path: Path) -> Iterator[Machine]:
    """It has the packages in /srv/new, and in /srv/old the same ones with an older version."""
    shared = tmp_path / "shared"
    for name in ("new", "old"):
        (shared / name).mkdir(parents=True)
    for name in INSTALLED:
        shutil.copy(packages[name], shared / "new")
        as_older(packages[name], shared / "old")
    with Machine(debian, tmp_path, shared) as booted:
        yield booted
