"""Fast BSS transition on VAPs with a MAC ACL: the verdict is there before the station comes."""

from nodes import network_kinds
from nodes.access_point_node import Vap
from nodes.managed_site import ManagedSite

from lab.site.waiting import wait_until

SSID = "office"


def test_first_visit_asks_no_question(site: ManagedSite, access_points, stations) -> None:
    first, second = access_points
    station = stations[0]
    site.start(access_points, Vap(network_kinds.FT_PSK, SSID, settings=("macaddr_acl=2",),
                                  daemon_settings=("mac_acl_index = 1",)))
    site.controller.ask("acl-set", 1, station.mac, "allow")
    station.connect(SSID, network_kinds.FT_PSK, first)
    site.wait_until_at(station, first.bssid())
    log = site.access_points[1].running["radiod"].err
    station.supplicant.command("SCAN")
    wait_until(lambda: station.mac in second.hostapd["wlan0"].request("ACCEPT_ACL SHOW"),
               "the second access point expects the station", log=log)
    station.roam(second)
    site.wait_until_at(station, second.bssid())
    assert f"{station.mac} asks to be let in" not in log.read_text()
