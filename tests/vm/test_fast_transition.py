"""Fast BSS transition on VAPs with a MAC ACL: the verdict is there before the station comes."""

import pytest
from nodes import network_kinds
from nodes.access_point_node import Vap
from nodes.managed_site import ManagedSite
from nodes.network_kinds import NetworkKind
from nodes.radius_server import start_hostapd_server

from lab.site.waiting import wait_until

SSID = "office"


@pytest.mark.parametrize("kind", [network_kinds.FT_PSK, network_kinds.FT_EAP], ids=str)
def test_first_visit_asks_no_question(kind: NetworkKind, site: ManagedSite, access_points, stations, radius) -> None:
    first, second = access_points
    station = stations[0]
    if kind.has_8021x:
        radius(start_hostapd_server)
    site.start(access_points, Vap(kind, SSID, settings=("macaddr_acl=2",),
                                  daemon_settings=("mac_acl_index = 1",)))
    site.controller.ask("acl-set", 1, station.mac, "allow")
    station.connect(SSID, kind, first)
    site.wait_until_at(station, first.bssid())
    log = site.access_points[1].running["radiod"].err
    station.supplicant.command("SCAN")
    wait_until(lambda: station.mac in second.hostapd["wlan0"].request("ACCEPT_ACL SHOW"),
               "the second access point expects the station", log=log)
    station.roam(second)
    site.wait_until_at(station, second.bssid())
    assert f"{station.mac} asks to be let in" not in log.read_text()
