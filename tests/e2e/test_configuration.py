"""The access point's configuration file and the daemon's log configuration change while everything runs."""

import struct

from lab.site.messages import Local
from lab.site.settling import settle
from lab.site.waiting import wait_until
from steps import (add_access_point, associate, bssid_of, client_mac, read_log_configuration, set_log_level, tell,
                   wait_for_association, wait_for_line)

VAP_CONFIG = "CLIENT_MGR_BULK_VAP_CONFIG"


def vap_configurations(controller):
    return [(each["bssid"], each["ssid"], each["vlan"]) for each in controller.records() if each["name"] == VAP_CONFIG]


def test_changed_vap_is_reported_and_used(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    before = len(vap_configurations(lab.controller))
    access_point.vaps_text = access_point.vaps_text.replace('"office"', '"lounge"').replace("vlan = 10", "vlan = 30")
    access_point.configure(lab.controller, lab.authority)
    wait_until(lambda: len(vap_configurations(lab.controller)) > before, "the VAP's update",
               log=lab.controller.output.file)
    settle(lab)
    assert vap_configurations(lab.controller)[before:] == [(bssid_of(access_point), "lounge", 30)]
    associate(access_point, client_mac(1))
    wait_for_association(lab, client_mac(1))
    assert [client.vlan for client in access_point.clients()] == [30]


def test_broken_file_changes_nothing(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    (access_point.root / "ap.toml").write_text("[ap]\nmac = 7\n")
    wait_for_line(access_point.running["apd"].err, "ap.toml:2: ap.mac: expected a MAC address")
    associate(access_point, client_mac(1))
    wait_for_association(lab, client_mac(1))


def test_log_level_is_read_and_set(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    assert read_log_configuration(access_point)[2:4] == [3, 0]
    assert not access_point.log_has("Received Msg ID : 63")
    set_log_level(access_point, 4)
    assert read_log_configuration(access_point)[2] == 4
    associate(access_point, client_mac(1))
    wait_for_line(access_point.log, "Received Msg ID : 63")


def test_impossible_log_configuration_is_refused(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    before = read_log_configuration(access_point)
    tell(access_point, Local.LOG_CFG_SET, struct.pack(">IIiIII", 0, 0, 3, 0, 0, 0))
    tell(access_point, Local.LOG_CFG_SET, b"\xff" * 24)
    tell(access_point, Local.LOG_CFG_SET, b"")
    assert read_log_configuration(access_point) == before


def test_console_echo(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    console = access_point.running["client_mgr"].out
    assert console.read_text() == ""
    configuration = read_log_configuration(access_point)
    configuration[3] = 1
    tell(access_point, Local.LOG_CFG_SET, struct.pack(">IIiIII", *configuration))
    associate(access_point, client_mac(1))
    wait_for_association(lab, client_mac(1))
    wait_for_line(access_point.log, "Received association msg")
    assert read_log_configuration(access_point)[3] == 1
    access_point.end("client_mgr")
