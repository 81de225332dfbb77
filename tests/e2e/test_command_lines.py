"""The programs' command lines, and whether their man pages list the same options."""

import re
import subprocess
from pathlib import Path

import pytest

from lab.site.processes import environment_for

MAN = Path(__file__).parents[2] / "man"
USAGE = 64
PAGES = {"apd": "apd.8", "captive_app": "captive_app.1", "client_mgr": "client_mgr.8", "hostapd_app": "hostapd_app.1",
         "kx-fleet": "kx-fleet.1", "kx-scenario": "kx-scenario.1", "radio": "radio.1", "radiod": "radiod.8",
         "site_controller": "site_controller.1",
         "sitectl": "sitectl.1"}


@pytest.fixture
def run(programs, tmp_path):
    """Runs a program to its end."""
    return lambda *command: subprocess.run([programs / command[0], *command[1:]], env=environment_for(tmp_path),
                                           stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=20,
                                           check=False)


def options_in(text: str) -> set[str]:
    return set(re.findall(r"(?<![\w-])--[a-z][a-z-]*", text))


@pytest.mark.parametrize("name", PAGES)
def test_version(run, name):
    done = run(name, "--version")
    assert (done.returncode, done.stderr) == (0, "")
    assert re.fullmatch(rf"{name} \d+\.\d+\.\d+\n", done.stdout)


@pytest.mark.parametrize("name", PAGES)
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
    (["sitectl", "--control", "a"], "A subcommand is required"),
    (["sitectl", "--control", "a", "ap"], "A subcommand is required"),
    (["sitectl", "--control", "a", "ap", "add", "hall"], "--mac is required"),
    (["sitectl", "init", "d"], "--address is required"),
    (["sitectl", "--control", "a", "aps", "--limit", "0"], "--limit: Value 0 not in range"),
    (["kx-scenario", "--aps", "0"], "--aps: Value 0 not in range"),
    (["kx-fleet", "--controller", "127.0.0.1", "--ca", "a", "--ca-key", "b"], "--controller: expected ADDRESS:PORT"),
    (["kx-fleet", "--controller", "127.0.0.1:1", "--ca", "a", "--ca-key", "b", "--aps", "0"],
     "--aps: Value 0 not in range"),
    (["kx-fleet", "--controller", "127.0.0.1:1", "--ca", "a", "--ca-key", "b", "--speed", "2"],
     "--speed requires --scenario"),
])
def test_wrong_values(run, command, complaint):
    refused = run(*command)
    assert (refused.returncode, refused.stdout) == (USAGE, "")
    assert refused.stderr.startswith(complaint)


@pytest.mark.parametrize("name", PAGES)
def test_man_page(run, name):
    text = (MAN / PAGES[name]).read_text().replace("\\-", "-")
    assert options_in(text) == options_in(run(name, "--help").stdout)
    version = run(name, "--version").stdout.split()[1]
    assert f'"client_mgr {version}"' in text.splitlines()[0]
