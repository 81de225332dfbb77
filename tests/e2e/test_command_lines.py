"""What the programs' command lines say, and whether their man pages say the same."""

import re
import subprocess
from pathlib import Path

import pytest

from lab.site.processes import environment_for

MAN = Path(__file__).parents[2] / "man"
USAGE = 64
PAGES = {"apd.8": ["apd"], "captive_app.1": ["captive_app"], "client_mgr.8": ["client_mgr"],
         "site_controller.1": ["site_controller", "sitectl"], "hostapd_app.1": ["hostapd_app"],
         "kx-scenario.1": ["kx-scenario"], "radio.1": ["radio"]}
PROGRAMS = [name for names in PAGES.values() for name in names]


@pytest.fixture
def run(programs, tmp_path):
    """Runs a program that is to end by itself."""
    return lambda *command: subprocess.run([programs / command[0], *command[1:]], env=environment_for(tmp_path),
                                           stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=20,
                                           check=False)


def options_in(text: str) -> set[str]:
    return set(re.findall(r"(?<![\w-])--[a-z][a-z-]*", text))


@pytest.mark.parametrize("name", PROGRAMS)
def test_version(run, name):
    told = run(name, "--version")
    assert (told.returncode, told.stderr) == (0, "")
    assert re.fullmatch(rf"{name} \d+\.\d+\.\d+\n", told.stdout)


@pytest.mark.parametrize("name", PROGRAMS)
def test_wrong_use(run, name):
    refused = run(name, "--nonsense")
    assert (refused.returncode, refused.stdout) == (USAGE, "")
    assert "--help" in refused.stderr


@pytest.mark.parametrize(("command", "complaint"), [
    (["radio"], "a capture or --scenario is required"),
    (["radio", "a.pcap", "--start-at", "5"], "--start-at: expected a number for --speed as well"),
    (["radio", "a.pcap", "--speed", "0"], "--speed: expected max or a number"),
    (["site_controller", "--ca", "a", "--certificate", "b", "--key", "c", "--listen", "localhost"],
     "--listen: expected ADDRESS:PORT"),
    (["site_controller", "--ca", "a"], "--certificate is required"),
    (["sitectl", "--control", "a"], "command is required"),
    (["kx-scenario", "--aps", "0"], "--aps: Value 0 not in range"),
])
def test_wrong_values(run, command, complaint):
    refused = run(*command)
    assert (refused.returncode, refused.stdout) == (USAGE, "")
    assert refused.stderr.startswith(complaint)


@pytest.mark.parametrize("page", PAGES)
def test_man_page(run, page):
    text = (MAN / page).read_text().replace("\\-", "-")
    names = PAGES[page]
    assert options_in(text) == set().union(*(options_in(run(name, "--help").stdout) for name in names))
    version = run(names[0], "--version").stdout.split()[1]
    assert f'"client_mgr {version}"' in text.splitlines()[0]
