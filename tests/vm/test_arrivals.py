"""Stations that come in a way of which hostapd says less than usual."""

from dataclasses import replace

from nodes import network_kinds
from nodes.access_point_node import Vap
from nodes.managed_site import ManagedSite
from nodes.network_kinds import PASSWORD

from lab.site.waiting import wait_until

SSID = "office"
ARRIVED, ROAMED_IN, DEPARTED = (f"local message {number}" for number in (63, 64, 65))


def test_roam_whose_request_is_refused_at_first(site: ManagedSite, access_points, stations) -> None:
    """The station offers the former access point's PMKSA. Refused, it comes by SAE without naming that access point."""
    first, second = access_points
    station = stations[0]
    site.start(access_points, Vap(network_kinds.SAE, SSID))
    station.connect(SSID, network_kinds.SAE, first, 0, "proactive_key_caching=1")
    site.wait_until_at(station, first.bssid())
    mark = station.supplicant.mark()
    station.roam(second)
    site.wait_until_at(station, second.bssid())
    assert station.supplicant.count("status_code=53", mark) == 1
    told = site.access_points[1].running["radiod"].err.read_text()
    assert ROAMED_IN in told
    assert ARRIVED not in told


def test_return_that_hostapd_does_not_report(site: ManagedSite, access_points, stations) -> None:
    """It still lists the station, which has protected frames, and reports neither a departure nor an arrival."""
    access_point, station = access_points[0], stations[0]
    site.start(access_points[:1], Vap(network_kinds.SAE, SSID))
    station.connect(SSID, network_kinds.SAE, access_point)
    site.wait_until_at(station, access_point.bssid())
    station.get_address()
    wait_until(lambda: site.client(station)["ip"] == station.address, "the controller has the address")
    hostapd = access_point.hostapd["wlan0"]
    log = site.access_points[0].running["radiod"].err
    mark, before = hostapd.mark(), len(log.read_text())
    station.radio.go_out_of_range()
    station.leave()
    station.radio.come_into_range()
    station.come_back()
    station.wait_until_connected(access_point.bssid())
    hostapd.wait_for(f"EAPOL-4WAY-HS-COMPLETED {station.mac}", mark)
    assert hostapd.count("AP-STA-CONNECTED", mark) == hostapd.count("AP-STA-DISCONNECTED", mark) == 0
    wait_until(lambda: ARRIVED in log.read_text()[before:], "radiod has announced the station", log=log)
    assert DEPARTED not in log.read_text()[before:]
    site.wait_until_all_agree(connected=[station])
    assert site.client(station)["ip"] == station.address


def test_station_that_gives_up_has_not_come(site: ManagedSite, access_points, stations) -> None:
    """The kernel lists it from its first frame on, until it fails for its wrong passphrase."""
    access_point, station = access_points[0], stations[0]
    site.start(access_points[:1], Vap(network_kinds.PSK, SSID))
    wrong = replace(network_kinds.PSK, station=("key_mgmt=WPA-PSK", 'psk="wrong horse"'))
    station.start(SSID, wrong)
    access_point.hostapd["wlan0"].wait_for(f"AP-STA-POSSIBLE-PSK-MISMATCH {station.mac}")
    assert station.mac in access_point.namespace.run("iw", "dev", "wlan0", "station", "dump")
    station.supplicant.wait_for("WRONG_KEY")
    assert site.client(station) is None
    assert site.access_points[0].client(station.mac) is None

    station.supplicant.command(f'SET_NETWORK 0 psk "{PASSWORD}"')
    station.supplicant.command("SELECT_NETWORK 0")
    station.wait_until_connected(access_point.bssid())
    site.wait_until_at(station, access_point.bssid())
    told = site.access_points[0].running["radiod"].err.read_text()
    assert told.count(ARRIVED) == 1
    assert DEPARTED not in told
