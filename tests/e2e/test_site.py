"""Whole sites of roaming stations end with everybody agreeing on who is where, and disagreement is noticed."""

import dataclasses

import pytest

from lab.site.access_point import mac_bytes
from lab.site.client_table import FOREIGN, GUEST, LOCAL, PMK, TUNNEL, Client
from lab.site.consistency import Views, find_differences
from lab.site.messages import Local
from lab.site.settling import settle
from lab.site.site_run import Plan, Site
from steps import tell

STATION, HOME, AWAY = "02:57:00:00:00:01", "02:a0:00:00:01:00", "02:a0:00:00:02:00"
HOME_BSSID, AWAY_BSSID = "02:a0:00:00:01:01", "02:a0:00:00:02:01"


@pytest.mark.parametrize("seed", [1, 2, 3])
def test_large_site_ends_consistent(lab, seed):
    site = Site(lab, Plan(access_points=10, stations=500, seconds=30, speed=2, seed=seed, lead_seconds=8))
    site.play(lambda: None)
    counters, access_points = site.state()
    assert (counters["tunnels"], counters["malformed"]) == (10, 0)
    assert counters["roams"] > 100
    assert counters["clients"] > 300
    assert all(each["stations"] > 0 for each in access_points.values())
    assert site.portal.approved > 10
    assert site.find_differences() == []


def test_disagreement_is_noticed(lab):
    site = Site(lab, Plan(seconds=20, seed=4, lead_seconds=4))
    site.play(lambda: None)
    assert site.find_differences() == []
    access_point, lost = next((each, client) for each in lab.access_points for client in each.clients()
                              if client.flags in (LOCAL, LOCAL | PMK))
    tell(access_point, Local.CLIENT_DISASSOCIATION, bytes(16) + mac_bytes(lost.mac) + mac_bytes(lost.bssid) + bytes(4))
    settle(lab)
    assert site.find_differences() == [
        f"{lost.mac}: the radio of {access_point.mac} has it; the controller does not have it"]


ENTRY = Client(STATION, HOME_BSSID, HOME_BSSID, 10, 10, "10.0.0.1", 0, LOCAL)
KNOWN = {"client": STATION, "ap": HOME, "bssid": HOME_BSSID, "home_ap": HOME, "home_bssid": HOME_BSSID,
         "ip": "10.0.0.1", "guest": "none"}
HERE = {"client": STATION, "bssid": HOME_BSSID, "ip": "10.0.0.1"}


def differences(known=KNOWN, home_entry=ENTRY, away_entry=None, stations=((HOME, HERE),)):
    tables = {HOME: {STATION: home_entry} if home_entry else {}, AWAY: {STATION: away_entry} if away_entry else {}}
    return find_differences(Views(controller={STATION: known} if known else {}, tables=tables,
                                  stations={STATION: list(stations)} if stations else {}))


def test_agreement():
    assert differences() == []
    assert differences(known=None, home_entry=None, stations=()) == []


def test_agreement_about_a_client_in_another_vlan():
    away = {"bssid": AWAY_BSSID, "ip": "0.0.0.0"}
    roamed = dataclasses.replace(ENTRY, bssid=AWAY_BSSID, flags=LOCAL | TUNNEL)
    served = dataclasses.replace(roamed, flags=FOREIGN | TUNNEL | PMK)
    assert differences(known=KNOWN | {"ap": AWAY, "bssid": AWAY_BSSID}, home_entry=roamed, away_entry=served,
                       stations=((AWAY, away),)) == []


@pytest.mark.parametrize(("change", "complaint"), [
    ({"known": None}, "the controller does not have it"),
    ({"known": KNOWN | {"bssid": AWAY_BSSID}}, f"the controller has it on {AWAY_BSSID}"),
    ({"known": KNOWN | {"ip": "10.0.0.2"}}, "its address is 10.0.0.1; the controller has 10.0.0.2"),
    ({"known": KNOWN | {"guest": "waiting"}}, "its guest state at the controller is waiting"),
    ({"home_entry": None}, f"the table of {HOME}, its home, does not have it"),
    ({"home_entry": dataclasses.replace(ENTRY, bssid=AWAY_BSSID)}, f"the table of {HOME} has it on {AWAY_BSSID}"),
    ({"home_entry": dataclasses.replace(ENTRY, home_bssid=AWAY_BSSID)}, f"the table of {HOME} has its home on {AWAY_BSSID}"),
    ({"home_entry": dataclasses.replace(ENTRY, ip="10.0.0.2")}, f"the table of {HOME} has 10.0.0.2"),
    ({"home_entry": dataclasses.replace(ENTRY, flags=LOCAL | GUEST)}, "guest, not approved yet"),
    ({"home_entry": dataclasses.replace(ENTRY, flags=FOREIGN)}, "from the controller"),
    ({"away_entry": ENTRY}, f"the table of {AWAY} has it on {HOME_BSSID}"),
    ({"stations": ((HOME, HERE), (AWAY, HERE))}, f"the radios of {HOME}, {AWAY} have it"),
])
def test_each_difference_is_listed(change, complaint):
    found, = differences(**change)
    assert found.startswith(f"{STATION}: ")
    assert complaint in found


def test_station_that_nobody_hears_is_listed_everywhere():
    assert differences(stations=()) == [
        f"{STATION}: no radio has it; the controller has it on {HOME_BSSID} of {HOME}",
        f"{STATION}: no radio has it; the table of {HOME} has it on {HOME_BSSID}"]
