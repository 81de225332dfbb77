"""hostapd, stations and servers by themselves: what the other cases rest on."""

from nodes import network_kinds
from nodes.access_point_node import AccessPointNode, Vap
from nodes.station_node import StationNode
from nodes.wire import address_in

from lab.site.waiting import wait_until

SSID = "office"


def test_station_out_of_range_comes_back(access_points: list[AccessPointNode], stations: list[StationNode]) -> None:
    access_point, station = access_points[0], stations[0]
    access_point.start_hostapd(Vap(network_kinds.PSK, SSID))
    station.connect(SSID, network_kinds.PSK, access_point)
    station.radio.go_out_of_range()
    wait_until(lambda: not station.is_connected(), "the station notices that it is alone")
    assert access_point.has_station(station.mac)
    station.radio.come_into_range()
    station.wait_until_connected()


def test_two_networks_on_one_radio(access_points: list[AccessPointNode], stations: list[StationNode]) -> None:
    access_point = access_points[0]
    kinds = (network_kinds.PSK, network_kinds.OPEN)
    access_point.start_hostapd(Vap(kinds[0], "office", 10), Vap(kinds[1], "guest", 20))
    for index, (ssid, vlan) in enumerate((("office", 10), ("guest", 20))):
        stations[index].connect(ssid, kinds[index], access_point, index)
        assert stations[index].get_address().startswith(f"10.0.{vlan}.")
        assert stations[index].reaches(address_in(vlan))
