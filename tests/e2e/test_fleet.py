"""The fleet's access points send the controller what real ones send, and stay in step with it through storms."""

import json
import signal
import subprocess
from collections import defaultdict
from collections.abc import Iterator
from contextlib import contextmanager
from typing import Any

from lab.site.access_point import is_probe
from lab.site.json_lines import JsonLines
from lab.site.laboratory import Laboratory
from lab.site.scenario import Scenario
from lab.site.settling import settle
from lab.site.waiting import wait_until
from steps import REPORTS, events

KEY, OTHER_KEY = "a1" * 32, "b2" * 32
ACL = """\
[[list]]
mac_acl_index = 1
default = "deny"
allow = ["02:ac:00:00:00:01"]
"""


def ap(number: int, vlan: int) -> str:
    def vap(interface: int, ssid: str, on: int, more: str = "") -> str:
        return (f'  {{ifname = "wlan{interface}", ssid = "{ssid}", vlan = {on}, '
                f'bssid = "02:a0:00:00:{number:02x}:{interface + 1:02x}"{more}}},\n')

    return (f'[[ap]]\nname = "ap{number}"\nmac = "02:a0:00:00:{number:02x}:00"\nvaps = [\n' + vap(0, "office", vlan) +
            vap(1, "guest", 30, ', guest = true, captive = "sign in"') +
            vap(2, "restricted", 40, ', mac_acl_index = 1, radius_index = 2, radius_acl_type = 3') + "]\n")


def station(mac: str, *actions: tuple[float, str]) -> str:
    return f'[[station]]\nmac = "{mac}"\nevents = [\n' + "".join(f"  {{at = {at}, {action}}},\n"
                                                                 for at, action in actions) + "]\n"


WITHIN_VLAN, ACROSS, GUEST, ALLOWED, DENIED, SILENT, TWICE, REMOVED = (
    "02:57:00:00:00:01", "02:57:00:00:00:02", "02:57:00:00:00:03", "02:ac:00:00:00:01", "02:ac:00:00:00:02",
    "02:57:00:00:00:06", "02:57:00:00:00:07", "02:57:00:00:00:08")
# Events of one station are so far apart that everything about one has arrived before the next. After a roam that the
# controller corrects this takes a second.
SCENARIO = "come_back_ms = 200\n" + ap(1, 10) + ap(2, 10) + ap(3, 20) + "".join([
    station(WITHIN_VLAN, (0, 'associate = "ap1/wlan0"'), (.1, f'pmk = "{KEY}"'), (.2, 'address = "10.0.10.1"'),
            (.8, 'reassociate = "ap2/wlan0"'), (1.1, "fetch_pmk = true"), (2.0, "leave = 8")),
    station(ACROSS, (0, 'associate = "ap1/wlan0"'), (.1, f'pmk = "{OTHER_KEY}"'), (.2, 'address = "10.0.10.2"'),
            (.8, 'reassociate = "ap3/wlan0"'), (1.1, "fetch_pmk = true"), (1.7, 'reassociate = "ap1/wlan0"'),
            (3.1, "dropped = 4")),
    station(GUEST, (0, 'associate = "ap1/wlan1"'), (.2, 'address = "10.0.30.3"'), (1.0, 'reassociate = "ap2/wlan1"'),
            (1.5, 'address = "10.0.30.3"')),
    station(ALLOWED, (0, 'associate = "ap1/wlan2"'), (.3, 'address = "10.0.40.4"'), (1.0, 'reassociate = "ap3/wlan2"'),
            (1.9, 'leave = 8'), (2.4, 'associate = "ap3/wlan2"')),
    station(DENIED, (0, 'associate = "ap2/wlan2"'), (.3, 'address = "10.0.40.5"'), (1.0, 'associate = "ap2/wlan2"')),
    station(SILENT, (0, 'associate = "ap2/wlan0"'), (.1, f'pmk = "{KEY}"'), (.2, 'address = "10.0.10.6"'),
            (.8, 'associate = "ap3/wlan0"'), (1.1, "fetch_pmk = true"), (1.4, 'address = "10.0.20.6"'),
            (2.0, 'reassociate = "ap2/wlan0"')),
    station(TWICE, (0, 'associate = "ap3/wlan0"'), (.2, 'address = "10.0.20.7"'), (.8, 'associate = "ap3/wlan0"'),
            (1.4, f'pmk = "{KEY}"'), (2.0, "fetch_pmk = true"), (2.6, "leave = 3")),
    station(REMOVED, (0, 'associate = "ap1/wlan0"')),
])


@contextmanager
def fleet(lab: Laboratory, *options: object) -> Iterator[JsonLines]:
    """A fleet on the lab's controller. Gives its output."""
    authority = lab.authority.certificate
    process = lab.processes.start(
        "kx-fleet", ["--controller", f"{lab.controller.address}:{lab.controller.port}", "--ca", authority,
                     "--ca-key", authority.with_suffix(".key"), "--json", "--stay", *options], lab.directory)
    yield JsonLines(process.out)


def wait_for_summary(lab: Laboratory, output: JsonLines, seconds: float) -> dict[str, Any]:
    """Returns when the fleet's stations have done everything and the controller awaits no report."""
    def summary() -> dict[str, Any] | None:
        return next((each for each in output.read() if each["event"] == "summary"), None)

    found = wait_until(summary, "the fleet's summary", seconds, output.file, lab.processes.check)
    wait_until_at_rest(lab)
    return found


def wait_until_at_rest(lab: Laboratory) -> None:
    """An access point of the fleet answers at once, so nothing is on its way when the counters stand still."""
    seen: list[tuple[int, int]] = []

    def is_at_rest() -> bool:
        counted = lab.controller.stats()
        seen.append((counted["records"], counted["messages_sent"]))
        return counted["unsettled"] == 0 and len(seen) > 50 and seen[-50:].count(seen[-1]) == 50

    wait_until(is_at_rest, "the controller awaits no report", log=lab.controller.output.file)


def operate(lab: Laboratory) -> None:
    lab.controller.ask("approve", GUEST)
    lab.controller.ask("move-list", "02:a0:00:00:02:00")
    lab.controller.ask("remove", REMOVED)


def is_report(printed: dict[str, Any]) -> bool:
    return printed["name"] in REPORTS or printed["name"] == "CLIENT_MGR_REQ_BULK_INFO"


def by_client(objects: list[dict[str, Any]]) -> dict[tuple[str, str], list[dict[str, Any]]]:
    """What was received and sent, by access point and client, in order. How often a report is asked for depends on
    the time, so the reports are compared apart."""
    found = defaultdict(list)
    for each in objects:
        if each.get("event", "sent") == "sent" and not is_report(each) and not concerns_probe(each):
            clients = [each["client"]] if "client" in each else [entry["client"] for entry in each["clients"]]
            for client in clients:
                found[each["ap"], client].append({key: value for key, value in each.items() if key != "clients"} |
                                                 {"entry": [entry for entry in each.get("clients", [])
                                                            if entry["client"] == client]})
    return dict(found)


def concerns_probe(printed: dict[str, Any]) -> bool:
    return is_probe(printed | {"name": "CLIENT_MGR_CLIENT_ACL_AUTH_REQ"}) if "client" in printed else False


def last_reports(objects: list[dict[str, Any]]) -> dict[tuple[str, str, str], dict[str, Any]]:
    """The last report of each kind of each VAP."""
    return {(each["ap"], each["name"], each["bssid"]): each for each in objects
            if "event" not in each and each["name"] in REPORTS}


def test_same_scenario_gives_the_same_records(lab, programs, tmp_path):
    acl = tmp_path / "acl.toml"
    acl.write_text(ACL)
    with Laboratory(programs) as other:
        lab.controller.start("--acl", acl)
        other.controller.start("--acl", acl)
        scenario = Scenario(lab, speed=1, lead_seconds=1)
        scenario.file.write_text(SCENARIO)
        scenario.add_access_points()
        lab.start()
        scenario.start()
        with fleet(other, "--scenario", scenario.file) as output:
            scenario.wait_until_played(4, .1, lambda: None)
            settle(lab)
            wait_for_summary(other, output, 20)
            for each in (lab, other):
                operate(each)
            settle(lab)
            wait_until_at_rest(other)
            real, simulated = lab.controller.objects(), other.controller.objects()
        assert by_client(simulated) == by_client(real)
        assert last_reports(simulated) == last_reports(real)
        assert {each["name"] for each in real if "name" in each} >= {
            "CLIENT_MGR_CLIENT_ASSOC", "CLIENT_MGR_CLIENT_DISASSOC", "CLIENT_MGR_CLIENT_IP",
            "CLIENT_MGR_FOREIGN_CLIENT_ASSOC", "CLIENT_MGR_PMK_ADD", "CLIENT_MGR_PMK_FETCH",
            "CLIENT_MGR_PMK_FETCH_SUCCESS", "CLIENT_MGR_FOREIGN_CLIENT_DISASSOC", "CLIENT_MGR_REMOVE_CLIENT_BULK_INFO",
            "CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC", "CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS",
            "CLIENT_MGR_CLIENT_INFO_FETCH", "CLIENT_MGR_CLIENT_GUEST_ASSOC", "CLIENT_MGR_CLIENT_ACL_AUTH_REQ",
            "CLIENT_MGR_CLIENT_MOVE_NOTIFY", "CLIENT_MGR_CLIENT_GUEST_AUTH", "ROAMING_MGR_CLIENT_BULK_INFO"}
    other.discard()


def places(lab: Laboratory) -> dict[str, tuple[str, str, str]]:
    """Access point, BSSID and address of each client that the controller knows."""
    return {each["client"]: (each["ap"], each["bssid"], each["ip"]) for each in lab.controller.ask_json("clients")}


def wait_until_back(lab: Laboratory, number: int) -> None:
    wait_until(lambda: len(events(lab.controller, "tunnel_up")) == number and
               lab.controller.stats()["unsettled"] == 0, f"{number} tunnels have come up", 30,
               lab.controller.output.file)
    wait_until_at_rest(lab)


def test_workload_stays_consistent_through_storms_and_restarts(lab):
    lab.controller.start()
    file = lab.directory / "stations.jsonl"
    with fleet(lab, "--aps", 20, "--stations", 400, "--arrivals", 1000, "--rate", 300, "--seconds", 2, "--seed", 7,
               "--write-stations", file) as output:
        summary = wait_for_summary(lab, output, 60)
        stations = [json.loads(line) for line in file.read_text().splitlines()]
        written = {each["client"]: (each["ap"], each["bssid"], each["ip"]) for each in stations}
        assert len(written) > 250
        assert places(lab) == written
        assert (summary["unknown_stations"], summary["messages_lost"]) == (0, 0)
        assert summary["move_notice_us"]["count"] > 100
        for number, what in enumerate((signal.SIGUSR1, signal.SIGUSR2), 2):
            lab.processes.all[-1].signal(what)
            wait_until_back(lab, 20 * number)
            assert places(lab) == written


def test_access_points_that_connect_at_once_from_one_address_all_come_up(lab):
    lab.controller.start()
    with fleet(lab, "--aps", 100, "--stations", 0, "--rate", 1, "--seconds", 0) as output:
        summary = wait_for_summary(lab, output, 60)
        assert (summary["tunnels"], summary["tunnel_failures"]) == (100, 0)
        assert lab.controller.stats()["connections_displaced"] == 0


def test_without_a_controller_it_gives_up(lab):
    lab.controller.start()
    authority = lab.authority.certificate
    done = subprocess.run([lab.processes.programs / "kx-fleet", "--controller", "127.0.0.1:9", "--ca", authority,
                           "--ca-key", authority.with_suffix(".key"), "--aps", "3", "--patience", "1"],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 1
    assert "only 0 of 3 access points have a tunnel; the last tunnel failed: 127.0.0.1 port 9: " in done.stderr
