"""A station's PMK is in the memory of radiod where the station is, in no other radiod's, and in no file of radiod."""

import re

from nodes import network_kinds
from nodes.access_point_node import Vap
from nodes.managed_site import ManagedAccessPoint, ManagedSite
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


def test_key_is_only_where_its_station_is(site: ManagedSite, access_points, stations, radius) -> None:
    radius(start_hostapd_server)
    station = stations[0]
    site.start(access_points, OFFICE)
    station.connect(OFFICE.ssid, OFFICE.kind, access_points[0], 0, "proactive_key_caching=1")
    wait_until(lambda: (site.client(station) or {}).get("pmk"), "the controller has the key")
    key = key_of(station, site.access_points[0])
    first, second = (each.running["radiod"] for each in site.access_points)
    assert places_of(key, first)
    assert not places_of(key, second)

    station.roam(access_points[1])
    site.wait_until_at(station, access_points[1].bssid())
    assert station.count_eap() == 1, "the key was fetched"
    assert places_of(key, second)
    wait_until(lambda: not places_of(key, first), "the access point that the station has left has forgotten the key")

    for root in (each.root for each in site.access_points):
        files = [root / "radiod.out", root / "radiod.err", root / "kx/radio/radiod.stations"]
        assert [each for each in files if key.is_in(each.read_bytes())] == []
