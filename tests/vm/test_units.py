"""The daemons as systemd starts them from their units: each as its own user, in its sandbox."""

import re
import shutil
import subprocess
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.access_point_node import Vap
from nodes.machine import mount_cgroups
from nodes.managed_site import LOCAL_RADIUS, ManagedSite, describe
from nodes.radius_server import SECRET, start_hostapd_server
from nodes.worker import SITE

from lab.site.failure import LabFailure
from lab.site.waiting import wait_until
from tests.e2e.small_systemd import SmallSystemd, is_possible

REPOSITORY = Path(__file__).parents[2]
PACKAGING = REPOSITORY / "packaging/systemd"
DAEMONS = ("radiod", "client_mgr", "apd")
USERS = {"radiod": "kx-radio", "client_mgr": "kx", "apd": "kx"}
CONFIGURATION = Path("/etc/kx")
OFFICE = Vap(network_kinds.EAP, "office", 10, ("macaddr_acl=2", "ctrl_interface_group=netdev"), ("mac_acl_index = 1",))
CAP_NET_RAW = 13  # linux/capability.h


def run(*words: object) -> str:
    return subprocess.run([str(word) for word in words], stdout=subprocess.PIPE, text=True, check=True).stdout


def install(file: Path, places: list[str]) -> None:
    for each in map(Path, places):
        each.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(file, each)


@pytest.fixture
def units(programs: Path, tmp_path: Path) -> Path:
    """Users, directories, programs and units where an installation has them: the daemons see no others."""
    Path("/run").chmod(0o755)  # as on a machine that has booted with systemd
    run("systemd-sysusers", PACKAGING / "client_mgr.sysusers")
    run("systemd-tmpfiles", "--create", PACKAGING / "client_mgr.tmpfiles")
    place = tmp_path / "units"
    place.mkdir()
    for daemon in DAEMONS:
        unit = programs.parent / f"packaging/systemd/{daemon}.service"
        shutil.copy(unit, place)
        install(programs / daemon, re.findall(r"^ExecStart=(\S+)$", unit.read_text(), re.MULTILINE))
        install(PACKAGING / "restart-delay",
                re.findall(r"^ExecStartPre=-(\S+) ", unit.read_text(), re.MULTILINE))
        settings = place / f"{daemon}.service.d"
        settings.mkdir()
        (settings / "test.conf").write_text(f"""\
[Unit]
DefaultDependencies=no
[Service]
StandardError=append:{SITE}/{daemon}.err
""")
    (place / "test.target").write_text("[Unit]\nWants=" + " ".join(f"{each}.service" for each in DAEMONS) + "\n")
    return place


def write_configuration(site: ManagedSite, node) -> None:
    """As docs/stock-linux.md has it: each secret is readable for the users that need it."""
    identity = site.authority.issue("stock", mac=node.bssid())
    CONFIGURATION.mkdir(exist_ok=True)
    files = {"ca.pem": site.authority.certificate, "ap.pem": identity.certificate, "ap.key": identity.key}
    for name, source in files.items():
        (CONFIGURATION / name).write_bytes(Path(source).read_bytes())
    (CONFIGURATION / "ap.key").chmod(0o640)
    shutil.chown(CONFIGURATION / "ap.key", "root", "kx")
    for name in ("hostapd.secret", "server.secret"):
        (CONFIGURATION / name).write_text(SECRET)
        (CONFIGURATION / name).chmod(0o640)
        shutil.chown(CONFIGURATION / name, "root", "kx-radio")
    (CONFIGURATION / "ap.toml").write_text(f"""\
[ap]
mac = "{node.bssid()}"

[controller]
address = "{site.controller.address}"
port = {site.controller.port}
ca = "ca.pem"
certificate = "ap.pem"
key = "ap.key"

{describe(node, (OFFICE,))}""")


def wait_until_up(systemd: SmallSystemd, daemon: str) -> None:
    try:
        wait_until(lambda: systemd.show(daemon, "ActiveState") == "active", f"{daemon} is up", 60)
    except LabFailure:
        print(systemd.systemctl("status", daemon))
        raise


def wait_until_started_again(systemd: SmallSystemd, times: int) -> None:
    """By systemd, so many times in all. A daemon that hangs is ended by its watchdog."""
    wait_until(lambda: systemd.show("radiod", "NRestarts") == str(times)
               and systemd.show("radiod", "ActiveState") == "active", "radiod runs again", 60)


def time_between(systemd: SmallSystemd, first: str, second: str) -> float:
    """Of two of systemd's times of radiod, in milliseconds."""
    first_time, second_time = (int(systemd.show("radiod", f"{name}TimestampMonotonic")) for name in (first, second))
    return (second_time - first_time) / 1000


def process_of(systemd: SmallSystemd, daemon: str) -> Path:
    """Its directory in /proc. systemd counts the processes in a namespace of its own."""
    number = systemd.show(daemon, "MainPID")
    for each in Path("/proc").glob("[0-9]*"):
        status = status_of(each)
        if status.get("Name") == daemon and status["NSpid"].split()[1:] == [number]:
            return each
    raise AssertionError(f"{daemon} does not run")


def status_of(process: Path) -> dict[str, str]:
    try:
        return dict(line.split(":\t", 1) for line in (process / "status").read_text().splitlines())
    except OSError:  # it has ended
        return {}


def test_services_run_as_users_of_their_own(units: Path, site: ManagedSite, access_points, stations, radius) -> None:
    mount_cgroups()
    assert is_possible()
    node, station = access_points[0], stations[0]
    radius(start_hostapd_server)
    node.start_hostapd(OFFICE, radius=LOCAL_RADIUS)
    write_configuration(site, node)
    with SmallSystemd(units, node.namespace.launcher, own_run=False) as systemd:
        for daemon in DAEMONS:
            wait_until_up(systemd, daemon)
        station.connect(OFFICE.ssid, OFFICE.kind, node)
        site.wait_until_at(station, node.bssid())
        station.get_address()
        wait_until(lambda: site.client(station)["ip"] == station.address, "the controller has the address")
        wait_until(lambda: site.client(station)["pmk"], "the controller has the key")

        for daemon, user in USERS.items():
            status = status_of(process_of(systemd, daemon))
            assert status["Uid"].split() == [run("id", "-u", user).strip()] * 4
        radiod = process_of(systemd, "radiod")
        assert int(status_of(radiod)["CapEff"], 16) == int(status_of(radiod)["CapBnd"], 16) == 1 << CAP_NET_RAW
        assert int(status_of(radiod)["Seccomp"]) == 2

        mark = station.supplicant.mark()
        systemd.systemctl("kill", "--signal=KILL", "radiod")
        wait_until_started_again(systemd, 1)
        print(f"radiod was started again {time_between(systemd, 'ActiveExit', 'ExecMainStart'):.0f} ms after its end, "
              f"and ready after {time_between(systemd, 'ActiveExit', 'ActiveEnter'):.0f} ms")
        stations[1].connect(OFFICE.ssid, OFFICE.kind, node)
        site.wait_until_at(stations[1], node.bssid())

        systemd.systemctl("kill", "--signal=STOP", "radiod")
        wait_until_started_again(systemd, 2)
        stations[1].leave()
        site.wait_until_gone(stations[1])
        assert site.client(station)["bssid"] == node.bssid()
        assert station.supplicant.count("CTRL-EVENT-DISCONNECTED", mark) == 0

        systemd.systemctl("kill", "--signal=HUP", "radiod")
        systemd.systemctl("stop", "radiod")
        assert systemd.show("radiod", "Result") == "success"
        assert systemd.show("radiod", "NRestarts") == "2", "SIGHUP ended it"
        journal = Path("/run/kx/kx/radio/radiod.stations").read_text()
        assert f"+ wlan0 {station.mac}" in journal
        assert f"= {station.mac} {station.address}" in journal
        assert f"- wlan0 {stations[1].mac}" in journal
