"""The controller's store: what was answered outlives the process, and copies are made while it runs."""

import json
import os

import pytest

from lab.site.failure import LabFailure
from lab.site.waiting import wait_until
from steps import DISASSOC, add_access_point, updates


@pytest.fixture
def store_options(lab):
    key = lab.directory / "store.key"
    with open(os.open(key, os.O_WRONLY | os.O_CREAT, 0o600), "w") as file:
        file.write("ab" * 32 + "\n")
    return ("--store", lab.directory / "site.db", "--store-key", key)


def play_capture(lab, programs):
    """Two stations stay at an access point. Returns it."""
    access_point = add_access_point(lab)
    access_point.start_radio(programs.parent / "lab/captures/builtin.pcap")
    access_point.start("client_mgr")
    access_point.start("apd")
    wait_until(lambda: any(each["name"] == DISASSOC for each in updates(lab.controller)), "the capture's last event",
               log=lab.controller.output.file, check=lab.processes.check)
    assert len(clients(lab)) == 2
    return access_point


def clients(lab):
    return {each["client"]: each for each in lab.controller.ask_json("clients")}


def test_what_was_answered_is_there_after_a_kill(lab, programs, store_options):
    lab.controller.start(*store_options)
    access_point = play_capture(lab, programs)
    before = clients(lab)
    named = min(before)
    lab.controller.ask("acl-set", 1, named, "deny")
    lab.controller.ask("name", named, "printer")
    lab.controller.kill()
    lab.controller.start(*store_options)
    loaded = clients(lab)
    assert loaded.keys() == before.keys()
    for key in ("ap", "bssid", "home_ap", "home_bssid", "home_vlan", "ip", "guest", "pmk"):
        assert loaded[named][key] == before[named][key]
    assert loaded[named]["name"] == "printer"
    assert named in lab.controller.ask("acl")
    wait_until(lambda: access_point.mac in lab.controller.connected() and lab.controller.stats()["unsettled"] == 0,
               "the access point has reported", log=lab.controller.output.file)
    assert clients(lab).keys() == before.keys()
    assert lab.controller.stats()["store_fault"] == ""


def test_copies_are_made_while_it_runs(lab, programs, store_options):
    lab.controller.start(*store_options)
    access_point = play_capture(lab, programs)
    present = clients(lab)
    named = min(present)
    lab.controller.ask("name", named, "printer")
    backup, lines = lab.directory / "backup.db", lab.directory / "lines.json"
    lab.controller.ask("backup", backup)
    with pytest.raises(LabFailure, match="exists"):
        lab.controller.ask("backup", backup)
    with pytest.raises(LabFailure, match="absolute path"):
        lab.controller.ask("backup", "backup.db")
    lab.controller.ask("export", lines)
    exported = [json.loads(line) for line in lines.read_text().splitlines()]
    assert {each["client"] for each in exported if each["type"] == "client"} == present.keys()
    assert any(each["type"] == "history" and each["event"] == "associated" for each in exported)
    assert {each["action"] for each in exported if each["type"] == "audit"} >= {"name", "backup"}
    lab.controller.ask("name", named, "scanner")
    lab.controller.ask("restore", backup)
    assert clients(lab)[named]["name"] == "printer"
    wait_until(lambda: lab.controller.stats()["unsettled"] == 0, "the access point has reported again",
               log=lab.controller.output.file)
    assert clients(lab).keys() == present.keys()
    assert access_point.mac in lab.controller.connected()


def test_damaged_store_is_refused_or_set_aside(lab, store_options):
    store = lab.directory / "site.db"
    store.write_text("no store, but a text that is longer than the magic of one\n")
    store.chmod(0o600)
    with pytest.raises(LabFailure):
        lab.controller.start(*store_options)
    lab.controller.start(*store_options, "--store-set-aside")
    assert lab.controller.ask("clients") == ""
    assert (lab.directory / "site.db.unusable-1").exists()
