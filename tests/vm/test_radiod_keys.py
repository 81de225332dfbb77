"""A station's PMK is in the memory of radiod where the station is, in no other radiod's, and in no file."""

import re
from collections.abc import Iterator
from pathlib import Path

import pytest
from nodes import network_kinds
from nodes.access_point_node import Vap
from nodes.managed_site import ManagedAccessPoint, ManagedSite, crash
from nodes.radius_server import start_hostapd_server
from nodes.station_node import StationNode

from lab.site.client_table import take_dump
from lab.site.waiting import wait_until
from tests.e2e.key_search import Key, places_of

OFFICE = Vap(network_kinds.EAP, "office", settings=("macaddr_acl=2",))


def key_of(station: StationNode, access_point: ManagedAccessPoint) -> Key:
    """From the dump of the daemon's table."""
    entry = re.split(r"^Entry ", take_dump(access_point.root), flags=re.MULTILINE)[1]
    assert station.mac in entry
    return Key(bytes.fromhex(re.search(r"^PMK *: ((?:[0-9A-F]{2}\s+){32})", entry, re.MULTILINE)[1]))


@pytest.fixture
def cores(tmp_path: Path) -> Iterator[Path]:
    """Where programs that crash leave their memory."""
    pattern = Path("/proc/sys/kernel/core_pattern")
    before = pattern.read_text()
    directory = tmp_path / "cores"
    directory.mkdir()
    pattern.write_text(f"{directory}/core.%e")
    yield directory
    pattern.write_text(before)


def files_of_radiod(access_point: ManagedAccessPoint) -> list[Path]:
    return [*access_point.root.glob("radiod.*"), *(access_point.root / "kx/radio").glob("*.stations")]


def test_key_is_only_where_its_station_is(site: ManagedSite, access_points, stations, radius, cores: Path) -> None:
    radius(start_hostapd_server)
    station = stations[0]
    site.start(access_points, OFFICE)
    first, second = site.access_points
    station.connect(OFFICE.ssid, OFFICE.kind, access_points[0], 0, "proactive_key_caching=1")
    wait_until(lambda: (site.client(station) or {}).get("pmk"), "the controller has the key")
    key = key_of(station, first)

    def has_key(access_point: ManagedAccessPoint) -> bool:
        return bool(places_of(key, access_point.running["radiod"]))

    def roam(to: ManagedAccessPoint, away_from: ManagedAccessPoint) -> None:
        station.roam(to.node)
        site.wait_until_at(station, to.mac)
        assert station.count_eap() == 1, "the key was fetched"
        wait_until(lambda: not has_key(away_from), "the access point that the station has left has forgotten the key")

    assert has_key(first)
    assert not has_key(second)
    roam(second, first)
    assert has_key(second)

    sleeper = access_points[1].processes.start("/usr/bin/sleep", ["60"], access_points[1].directory)
    access_points[1].processes.forget(sleeper)
    wait_until(lambda: Path(f"/proc/{sleeper.pid}/comm").read_text() == "sleep\n", "the launcher has become the program")
    crash(sleeper)
    assert [each.name for each in cores.iterdir()] == ["core.sleep"]
    second.crash("radiod")
    assert [each.name for each in cores.iterdir()] == ["core.sleep"]
    log = second.root / "radiod.err"
    mark = len(log.read_text())
    second.start_daemon("radiod")
    wait_until(lambda: "local message 64" in log.read_text()[mark:], "the new radiod announces the station", log=log)
    assert not has_key(second)

    roam(first, second)
    station.leave()
    site.wait_until_gone(station)
    wait_until(lambda: not has_key(first) and not has_key(second), "all have forgotten the key")
    for each in site.access_points:
        assert len(files_of_radiod(each)) == 3
        assert [file for file in files_of_radiod(each) if key.is_in(file.read_bytes())] == []
