"""The built-in capture goes through the radio, the daemon and the tunnel to the controller."""

from lab.site.capture_run import Capture, builtin_capture
from lab.site.client_table import GUEST as GUEST_FLAG
from lab.site.client_table import LOCAL, Client
from lab.site.settling import settle
from lab.site.waiting import wait_until
from steps import AP_MAC, GUEST, OFFICE, updates

ANNA, BEN, CARL = "02:00:00:00:0a:01", "02:00:00:00:0b:02", "02:00:00:00:0c:03"


def play(lab, programs):
    lab.controller.start()
    capture: Capture = builtin_capture(programs.parent)
    access_point = lab.add_access_point(AP_MAC, capture.vaps)
    lab.start()
    access_point.play(capture.file)
    settle(lab)
    return access_point


def test_every_change_is_reported_in_order(lab, programs):
    play(lab, programs)
    reported = [(each["name"].removeprefix("CLIENT_MGR_CLIENT_"), each["client"], each["bssid"], each["ip"])
                for each in updates(lab.controller)]
    assert reported == [
        ("ASSOC", ANNA, OFFICE, "0.0.0.0"),
        ("IP", ANNA, OFFICE, "10.0.10.21"),
        ("ASSOC", BEN, GUEST, "0.0.0.0"),
        ("GUEST_ASSOC", BEN, GUEST, "0.0.0.0"),
        ("ASSOC", CARL, OFFICE, "0.0.0.0"),
        ("IP", CARL, OFFICE, "10.0.10.23"),
        ("ASSOC", ANNA, OFFICE, "10.0.10.21"),
        ("DISASSOC", CARL, OFFICE, "0.0.0.0"),
    ]
    assert {each["ap"] for each in lab.controller.records()} == {AP_MAC}


def test_table_holds_who_is_there(lab, programs):
    access_point = play(lab, programs)
    assert sorted(access_point.clients(), key=lambda client: client.mac) == [
        Client(ANNA, OFFICE, OFFICE, 10, 10, "10.0.10.21", 0, LOCAL),
        Client(BEN, GUEST, GUEST, 20, 20, "0.0.0.0", 1, LOCAL | GUEST_FLAG),
    ]


def test_captive_portal_is_told(lab, programs):
    access_point = play(lab, programs)
    told = access_point.captive_output
    wait_until(lambda: len(told.read()) >= 5, "the captive portal hears of five changes", log=told.file)
    assert [(each["name"], each["client"], each["captive"], each["portal"]) for each in told.read()] == [
        ("association", ANNA, "", 1),
        ("association", BEN, "Welcome. Please sign in.", 0),
        ("association", CARL, "", 1),
        ("association", ANNA, "", 1),
        ("disassociation", CARL, "", 1),
    ]


def test_controller_agrees_with_the_table(lab, programs):
    access_point = play(lab, programs)
    believed = {(each["client"], each["bssid"], each["ip"]) for each in lab.controller.ask_json("clients")}
    assert believed == {(client.mac, client.bssid, client.ip) for client in access_point.clients()}
