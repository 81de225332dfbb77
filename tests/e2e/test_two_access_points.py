"""Two access points, each with its own processes, on one controller."""

from pathlib import Path

import pytest

from lab.site.capture_run import open_capture
from lab.site.client_table import LOCAL, PMK
from lab.site.settling import settle
from steps import add_access_point, associate, bssid_of, client_mac, updates, wait_for_association

REASSOCIATION = Path(__file__).parents[3] / "shared/captures/wpa2-ft-psk.pcapng"
STATION = "02:00:00:00:02:00"
FIRST, SECOND = "02:00:00:00:00:00", "02:00:00:00:01:00"


def test_each_reports_its_own_clients(lab):
    lab.controller.start()
    first, second = add_access_point(lab, 1), add_access_point(lab, 2)
    lab.start()
    associate(first, client_mac(1))
    associate(second, client_mac(2))
    settle(lab)
    assert sorted((each["ap"], each["client"], each["bssid"]) for each in updates(lab.controller)) == [
        (first.mac, client_mac(1), bssid_of(first)),
        (second.mac, client_mac(2), bssid_of(second)),
    ]
    assert [client.mac for client in first.clients()] == [client_mac(1)]
    assert [client.mac for client in second.clients()] == [client_mac(2)]


def test_reassociation_moves_the_home(lab, programs):
    """Each access point's radio plays the whole capture and uses the frames of its own BSSID."""
    if not REASSOCIATION.exists():
        pytest.skip(f"{REASSOCIATION} is not here")
    found = open_capture(REASSOCIATION, programs).vaps.split("\n\n")
    vaps = {bssid: next(vap for vap in found if bssid in vap) for bssid in (FIRST, SECOND)}
    lab.controller.start()
    first = lab.add_access_point("02:00:00:00:a0:00", vaps[FIRST])
    second = lab.add_access_point("02:00:00:00:a1:00", vaps[SECOND])
    lab.start()
    first.play(REASSOCIATION)
    wait_for_association(lab, STATION)
    second.play(REASSOCIATION)
    settle(lab)

    client, = lab.controller.ask_json("clients")
    assert (client["client"], client["ap"], client["home_ap"]) == (STATION, second.mac, second.mac)
    assert (client["bssid"], client["home_bssid"]) == (SECOND, SECOND)
    assert first.clients() == []
    served, = second.clients()
    # The controller's answer counts as a key, although the controller has none.
    assert (served.mac, served.home_bssid, served.bssid, served.flags) == (STATION, SECOND, SECOND, LOCAL | PMK)
    assert first.stations() == []
    assert [(each["client"], each["bssid"]) for each in second.stations()] == [(STATION, SECOND)]
