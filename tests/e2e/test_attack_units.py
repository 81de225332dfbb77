"""The services come back, however long a disturbance lasts and however often they fail."""

import os
import shutil
import signal
import subprocess
import time
from pathlib import Path

import pytest

from lab.site.waiting import wait_until
from small_systemd import SmallSystemd, is_possible
from steps import AP_MAC

REPOSITORY = Path(__file__).parents[2]
DAEMONS = ("client_mgr", "apd")


@pytest.fixture
def machine(programs, tmp_path):
    tmp_path.chmod(0o755)
    subprocess.run(["cmake", "--install", programs.parent, "--prefix", tmp_path / "usr"], stdout=subprocess.DEVNULL,
                   check=True)
    return tmp_path


@pytest.mark.parametrize("daemon", [*DAEMONS, "apctl_metrics", "radiod", "site_controller"])
def test_unit_is_what_systemd_understands(machine, daemon):
    if not shutil.which("systemd-analyze"):
        pytest.skip("systemd-analyze is not here")
    units = machine / "usr/lib/systemd/system"
    done = subprocess.run(["systemd-analyze", "verify", "--man=no", units / f"{daemon}.service"],
                          env=os.environ | {"SYSTEMD_UNIT_PATH": f"{units}:"}, capture_output=True, text=True,
                          check=False)
    assert done.returncode == 0, done.stderr
    assert f"{daemon}.service" not in done.stderr, done.stderr


@pytest.mark.parametrize("daemon", [*DAEMONS, "radiod", "site_controller"])
def test_unit_never_gives_up(machine, daemon):
    unit = (machine / f"usr/lib/systemd/system/{daemon}.service").read_text().splitlines()
    assert {"StartLimitIntervalSec=0", "Type=notify", "Restart=always"} <= {*unit}
    assert any(line.startswith("WatchdogSec=") for line in unit)


@pytest.fixture
def service(machine):
    """client_mgr under a systemd of its own, as root of the test's directory instead of as a user of the machine."""
    if not is_possible():
        pytest.skip("no systemd can be started here")
    units = machine / "units"
    units.mkdir()
    (machine / "root").mkdir(mode=0o700)
    shutil.copy(machine / "usr/lib/systemd/system/client_mgr.service", units)
    (units / "test.target").write_text("[Unit]\nWants=client_mgr.service\n")
    settings = units / "client_mgr.service.d"
    settings.mkdir()
    (settings / "test.conf").write_text(f"""\
[Unit]
DefaultDependencies=no
[Service]
User=root
Group=root
Environment=KX_ROOT={machine}/root KX_CONFIG={machine}/root/ap.toml
ReadWritePaths=
ReadWritePaths=/tmp
IPAddressDeny=
""")
    with SmallSystemd(units) as systemd:
        yield systemd


def restarts(systemd, unit="client_mgr"):
    return int(systemd.show(unit, "NRestarts") or 0)


def main_pid(systemd):
    """The daemon's number outside of the namespaces, 0 when it does not run."""
    if systemd.show("client_mgr", "ActiveState") != "active":
        return 0
    return next((int(each.name) for each in Path("/proc").glob("[0-9]*") if is_daemon(each)), 0)


def is_daemon(process):
    try:
        words = (process / "cmdline").read_bytes().split(b"\0")
        return words[0].endswith(b"/usr/sbin/client_mgr") and b"pytest" in words[0]
    except OSError:
        return False


def write_configuration(machine):
    (machine / "root/ap.toml").write_text(
        f'[ap]\nmac = "{AP_MAC}"\n[controller]\naddress = "127.0.0.1"\nport = 9\nca = "/none"\ncertificate = "/none"\n'
        'key = "/none"\n')


def test_configuration_that_was_missing_for_12_seconds(machine, service):
    missing_since = time.monotonic()
    wait_until(lambda: restarts(service) >= 3, "it is started again and again", seconds=20)
    # Without growing delays there would be one start a second.
    wait_until(lambda: time.monotonic() - missing_since > 12, "12 s have passed", seconds=20)
    assert restarts(service) <= 5
    assert service.show("client_mgr", "ActiveState") != "failed"
    write_configuration(machine)
    wait_until(lambda: main_pid(service), "the service is up", seconds=20)


def test_crashes(machine, service):
    write_configuration(machine)
    # What systemd's own limit, 5 starts in 10 s, ends: six crashes, each as soon as the service is back.
    for _ in range(6):
        wait_until(lambda: main_pid(service), "the service is up", seconds=40)
        (machine / "root/restart.client_mgr").write_text("0\n")
        os.kill(main_pid(service), signal.SIGSEGV)
        wait_until(lambda: not main_pid(service), "the service is down")
    wait_until(lambda: main_pid(service), "the service is up", seconds=40)


def test_radiod_is_started_again_within_200_ms(programs, tmp_path):
    """While it is away nobody can associate to a VAP with a MAC ACL. radiod itself needs a radio."""
    if not is_possible():
        pytest.skip("no systemd can be started here")
    units = tmp_path / "units"
    (units / "radiod.service.d").mkdir(parents=True)
    shutil.copy(programs.parent / "packaging/systemd/radiod.service", units)
    (units / "test.target").write_text("[Unit]\nWants=radiod.service\n")
    (units / "radiod.service.d/test.conf").write_text(
        "[Unit]\nDefaultDependencies=no\n[Service]\nType=simple\nWatchdogSec=0\nUser=root\nGroup=root\n"
        "ReadWritePaths=\nExecStart=\nExecStart=/bin/sleep infinity\n")
    away_us = []
    with SmallSystemd(units) as systemd:
        for kills in range(1, 6):
            wait_until(lambda: systemd.show("radiod", "ActiveState") == "active", "the service is up")
            systemd.systemctl("kill", "--signal=KILL", "radiod")
            wait_until(lambda kills=kills: restarts(systemd, "radiod") == kills
                       and systemd.show("radiod", "ActiveState") == "active", "the service is up again")
            # InactiveEnter comes only after RestartSec.
            ended, started = (int(systemd.show("radiod", f"{each}TimestampMonotonic"))
                              for each in ("ActiveExit", "ExecMainStart"))
            away_us.append(started - ended)
    # Other programs on the machine delay some of them.
    assert min(away_us) < 200_000, away_us


@pytest.mark.parametrize(("environment", "shortest"), [({"NOTIFY_SOCKET": "/none"}, 1), ({}, 0)],
                         ids=["service", "by hand"])
def test_radiod_that_cannot_start_is_not_started_again_at_once(programs, environment, shortest):
    started = time.monotonic()
    done = subprocess.run([programs / "radiod", "--config", "/none"], env=os.environ | environment, capture_output=True,
                          text=True, check=False)
    assert done.returncode == os.EX_CONFIG, done.stderr
    assert time.monotonic() - started >= shortest
