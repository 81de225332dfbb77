"""The effects of an operator, of MAC access lists and of keys on other access points."""

import json
import subprocess

import pytest

from lab.site.client_table import FOREIGN
from lab.site.json_lines import JsonLines
from lab.site.waiting import wait_until
from steps import (add_access_point, associate, bssid_of, client_mac, wait_for_association, wait_for_radio,
                   wait_until_ready, write_scenario)

STATION = client_mac(1)
KEY = "ab" * 32

RESTRICTED = """\
[[vap]]
ifname = "wlan0"
ssid = "restricted"
vlan = 40
mac_acl_index = 1
bssid = "02:00:00:00:10:01"
"""


def test_denied_station_is_refused(lab):
    lab.controller.start()
    lab.controller.ask("acl-set", 1, STATION, "deny")
    access_point = lab.add_access_point("02:00:00:00:10:00", RESTRICTED)
    lab.start()
    scenario = write_scenario(lab, {"ap1": access_point}, {STATION: ['{at = 0, associate = "ap1/wlan0"}']})
    access_point.play("--scenario", scenario, "--ap", "ap1")
    assert not wait_for_radio(access_point, "acl_verdict")["allowed"]
    assert access_point.stations() == []
    assert access_point.clients() == []


def test_key_of_one_access_point_is_installed_at_another(lab):
    lab.controller.start()
    first, second = add_access_point(lab, 1), add_access_point(lab, 2)
    lab.start()
    scenario = write_scenario(lab, {"ap1": first, "ap2": second},
                              {STATION: ['{at = 0, associate = "ap1/wlan0"}', f'{{at = 0.1, pmk = "{KEY}"}}',
                                         '{at = 1, reassociate = "ap2/wlan0"}', "{at = 1.1, fetch_pmk = true}"]})
    first.play("--scenario", scenario, "--ap", "ap1")
    wait_until(lambda: any(each.get("name") == "CLIENT_MGR_PMK_ADD" for each in lab.controller.records()),
               "the controller has the key", log=lab.controller.output.file)
    second.play("--scenario", scenario, "--ap", "ap2")
    wait_for_radio(second, "pmk_installed")
    installed = JsonLines(second.root / "hostapd_app.out")
    wait_until(lambda: [each["outcome"] for each in installed.read()] == ["installed"], "hostapd has the key",
               log=installed.file)


def test_list_makes_a_client_known_elsewhere(lab):
    lab.controller.start()
    first, second = add_access_point(lab, 1), add_access_point(lab, 2)
    lab.start()
    associate(first, STATION)
    wait_for_association(lab, STATION)
    lab.controller.ask("move-list", second.mac)
    wait_until(lambda: [client.mac for client in second.clients()] == [STATION], "the other table holds the client",
               log=second.log)
    known = second.clients()[0]
    assert (known.home_bssid, known.bssid, known.flags & FOREIGN) == (bssid_of(first), "00:00:00:00:00:00", FOREIGN)


def test_removed_client_is_gone_everywhere(lab):
    lab.controller.start()
    access_point = add_access_point(lab)
    lab.start()
    wait_until_ready(access_point)
    associate(access_point, STATION)
    wait_for_association(lab, STATION)
    lab.controller.ask("remove", STATION)
    wait_until(lambda: access_point.clients() == [], "the table is empty", log=access_point.log)
    assert lab.controller.ask_json("clients") == []


@pytest.fixture
def sitectl(lab, programs):
    """Runs a command of sitectl to its end."""
    return lambda *words: subprocess.run([programs / "sitectl", "--control", lab.directory / "controller.sock", *words],
                                         capture_output=True, text=True, timeout=20, check=False)


def test_sitectl_walks_pages_and_filters(lab, sitectl):
    lab.controller.start()
    for number in range(450):
        lab.controller.ask("acl-set", 1 + number % 2, client_mac(number), "deny")
    whole = sitectl("acl", "--json")
    assert (whole.returncode, whole.stderr) == (0, "")
    assert len(json.loads(whole.stdout)) == 453
    assert len(sitectl("acl", "--index", "2").stdout.splitlines()) == 226
    assert len(json.loads(sitectl("--json", "acl", "--limit", "301").stdout)) == 301
    assert json.loads(sitectl("acl", "--json", "--index", "9").stdout) == []


def test_sitectl_passes_words_with_spaces(lab, sitectl):
    lab.controller.start()
    access_point = lab.add_access_point("02:00:00:00:10:00", RESTRICTED.replace('"restricted"', '"back yard"'))
    lab.start()
    wait_until_ready(access_point)
    associate(access_point, STATION)
    wait_for_association(lab, STATION)
    assert sitectl("name", STATION, "till 2 100%").returncode == 0
    client, = json.loads(sitectl("clients", "--ssid", "back yard", "--name", "TILL 2 100%", "--json").stdout)
    assert (client["client"], client["name"], client["ssid"], client["ap_name"]) == (STATION, "till 2 100%",
                                                                                  "back yard", "ap1")


def test_sitectl_says_why_it_fails(lab, sitectl):
    lab.controller.start()
    refused = sitectl("clients", "--ap", "nowhere")
    assert (refused.returncode, refused.stdout) == (1, "")
    assert refused.stderr == 'sitectl: clients: "nowhere" is no access point of the site\n'
    lab.controller.kill()
    absent = sitectl("stats")
    assert absent.returncode == 2
    assert "controller.sock: " in absent.stderr


def test_sitectl_watches(lab, programs):
    lab.controller.start()
    command = [programs / "sitectl", "--control", lab.directory / "controller.sock", "--watch", "0.1", "stats"]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as watching:
        seen = [next(line for line in watching.stdout if line.startswith("tunnels ")) for _ in range(3)]
        watching.terminate()
    assert seen == ["tunnels 0\n"] * 3
