"""What `./run --stock` shows: two access points with hostapd, and two stations that roam between them by 802.11."""

import itertools
import sys
import time

import pytest
from nodes import network_kinds
from nodes.access_point_node import Vap
from nodes.managed_site import ManagedSite
from nodes.radius_server import start_hostapd_server
from nodes.station_node import StationNode
from nodes.traffic import EchoServer, Traffic
from nodes.wire import address_in

from lab.site.stock_screen import StockScreen, StockState

ROAMS = 6
SSID = "office"
PICTURES = 4  # of a live screen between two roams
PICTURE_SECONDS = 0.5


class Demonstration:
    """Two stations at two access points."""

    def __init__(self, site: ManagedSite, stations: list[StationNode], columns: int) -> None:
        self._site = site
        self._stations = stations
        self._columns = columns
        self._roams = 0
        self.screen = StockScreen(site, columns, lambda text: print(text, end="", file=sys.stdout, flush=True))

    def state(self) -> StockState:
        names = {each.node.bssid(): each.name for each in self._site.access_points}
        places = [f"{each.name} {each.mac} is " + (f"at {names[bssid]}" if (bssid := each.bssid()) else "away")
                  + (f", {each.address}" if each.address else "") for each in self._stations]
        return StockState(self._roams, ROAMS, self._site.controller.stats(),
                          {each["ap"]: each for each in self._site.controller.ask_json("aps")}, places)

    def say(self, event: str) -> None:
        self.screen.say(event)
        for _ in range(PICTURES if self._columns else 0):
            self.screen.show(self.state())
            time.sleep(PICTURE_SECONDS)

    def connect(self, station: StationNode, access_point) -> None:
        station.connect(SSID, network_kinds.EAP, access_point, 0, "proactive_key_caching=1")
        self._site.wait_until_at(station, access_point.bssid())
        self.say(f"{station.name} {station.mac} is at {access_point.name}, with the address {station.get_address()}")

    def roam(self, station: StationNode, access_point) -> None:
        before, start = station.count_eap(), time.monotonic()
        station.roam(access_point)
        seconds = time.monotonic() - start
        self._site.wait_until_at(station, access_point.bssid())
        self._roams += 1
        how = "with EAP" if station.count_eap() > before else "without EAP"
        self.say(f"{station.name} {station.mac} roams to {access_point.name} in {seconds:.2f} s, {how}")


def test_show(request: pytest.FixtureRequest, site: ManagedSite, access_points, stations, radius,
              echo: EchoServer) -> None:
    print("\nTwo access points with Debian's kernel and hostapd, WPA2-Enterprise:\n", flush=True)
    radius(start_hostapd_server)
    site.start(access_points, Vap(network_kinds.EAP, SSID, settings=("macaddr_acl=2",)))
    shown = Demonstration(site, stations, request.config.getoption("--screen"))
    for station, access_point in zip(stations, access_points):
        shown.connect(station, access_point)
    turns = itertools.cycle([(stations[0], access_points[1]), (stations[1], access_points[0]),
                             (stations[0], access_points[0]), (stations[1], access_points[1])])
    with Traffic(stations[0].namespace, address_in(10), echo.port) as traffic:
        for station, access_point in itertools.islice(turns, ROAMS):
            shown.roam(station, access_point)
        traffic.wait_for_more()
    assert traffic.is_complete
    shown.screen.end(shown.state())
    site.wait_until_all_agree()
    print("\nThe kernels' stations, the tables of client_mgr and the controller agree on every station.\n"
          f"{stations[0].name} had a TCP connection all the time; nothing of it was lost.", flush=True)
