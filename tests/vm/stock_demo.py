"""What `./run --stock` shows: two access points with hostapd, and two stations that roam between them by 802.11."""

import itertools
import time

from nodes import network_kinds
from nodes.access_point_node import Vap
from nodes.managed_site import ManagedSite
from nodes.radius_server import start_hostapd_server
from nodes.station_node import StationNode
from nodes.traffic import EchoServer, Traffic
from nodes.wire import address_in
from rich.console import Console

from lab.site.site_screen import access_point_table, describe_counters

ROAMS = 6
SSID = "office"


def say(text: str) -> None:
    print(f"  {text}", flush=True)


def show_roam(station: StationNode, access_point, site: ManagedSite) -> None:
    before, start = station.count_eap(), time.monotonic()
    station.roam(access_point)
    seconds = time.monotonic() - start
    site.wait_until_at(station, access_point.bssid())
    how = "with EAP" if station.count_eap() > before else "without EAP"
    say(f"{station.name} {station.mac} roams to {access_point.name} in {seconds:.2f} s, {how}")


def show_site(site: ManagedSite) -> None:
    counters = site.controller.stats()
    access_points = {each["ap"]: each for each in site.controller.ask_json("aps")}
    print(f"\n  {describe_counters(counters)}\n", flush=True)
    Console(width=100, force_terminal=False).print(access_point_table(site, access_points))


def test_show(site: ManagedSite, access_points, stations, radius, echo: EchoServer) -> None:
    print("\nTwo access points with Debian's kernel and hostapd, WPA2-Enterprise:\n", flush=True)
    radius(start_hostapd_server)
    site.start(access_points, Vap(network_kinds.EAP, SSID, settings=("macaddr_acl=2",)))
    for station, access_point in zip(stations, access_points):
        station.connect(SSID, network_kinds.EAP, access_point, 0, "proactive_key_caching=1")
        site.wait_until_at(station, access_point.bssid())
        say(f"{station.name} {station.mac} is at {access_point.name}, with the address {station.get_address()}")
    turns = itertools.cycle([(stations[0], access_points[1]), (stations[1], access_points[0]),
                             (stations[0], access_points[0]), (stations[1], access_points[1])])
    with Traffic(stations[0].namespace, address_in(10), echo.port) as traffic:
        for station, access_point in itertools.islice(turns, ROAMS):
            show_roam(station, access_point, site)
        traffic.wait_for_more()
    assert traffic.is_complete
    show_site(site)
    site.wait_until_all_agree()
    print("\nThe kernels' stations, the tables of client_mgr and the controller agree on every station.\n"
          f"{stations[0].name} had a TCP connection all the time; nothing of it was lost.", flush=True)
