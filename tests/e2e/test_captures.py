"""Recorded real traffic: exactly the granted associations are reported to the controller."""

from pathlib import Path

import pytest

from lab.site.capture_run import open_capture
from lab.site.settling import settle
from steps import AP_MAC, associations

CAPTURES = Path(__file__).parents[3] / "shared/captures"

# From the frames: the responses of status 0.
GRANTED = {
    "wpa-Induction.pcap": [("00:0d:93:82:36:3a", "00:0c:41:82:b2:55")],
    "wpa2-ft-psk.pcapng": [("02:00:00:00:02:00", "02:00:00:00:00:00"), ("02:00:00:00:02:00", "02:00:00:00:01:00")],
    "wpa2-psk-linksys.cap": [("00:13:ce:55:98:ef", "00:0b:86:c2:a4:85")] * 3,
}


@pytest.mark.parametrize("name", GRANTED)
def test_granted_associations_in_order(lab, programs, name):
    if not (CAPTURES / name).exists():
        pytest.skip(f"{CAPTURES / name} is not here")
    capture = open_capture(CAPTURES / name, programs)
    lab.controller.start()
    access_point = lab.add_access_point(AP_MAC, capture.vaps)
    lab.start()
    access_point.play(capture.file)
    settle(lab)
    assert associations(lab.controller) == GRANTED[name]


def test_a_damaged_capture_is_played_as_far_as_it_goes(lab, programs, tmp_path):
    whole = programs.parent / "lab/captures/builtin.pcap"
    cut = tmp_path / "cut.pcap"
    cut.write_bytes(whole.read_bytes()[:-20])
    lab.controller.start()
    access_point = lab.add_access_point(AP_MAC, open_capture(cut, programs).vaps)
    lab.start()
    access_point.play(cut)
    settle(lab)
    assert len(associations(lab.controller)) == 4
    radio = access_point.running["radio"]
    access_point.end("radio")
    assert str(cut) in radio.err.read_text()
