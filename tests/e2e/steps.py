"""Steps that many tests share."""

import json
import os
import struct
import tomllib
from pathlib import Path
from typing import Any

import pytest

from lab.site.access_point import AccessPoint, is_probe, mac_bytes
from lab.site.controller import Controller
from lab.site.laboratory import Laboratory
from lab.site.local_ipc import DAEMON, LocalSocket
from lab.site.messages import Local
from lab.site.waiting import wait_until

CLIENT_MANAGER = 106  # destination of a tunnel's frame
ASSOC = "CLIENT_MGR_CLIENT_ASSOC"
DISASSOC = "CLIENT_MGR_CLIENT_DISASSOC"
FOREIGN_ASSOC = "CLIENT_MGR_FOREIGN_CLIENT_ASSOC"
REPORTS = ("CLIENT_MGR_BULK_INFO", "CLIENT_MGR_BULK_VAP_CONFIG")  # what the controller asks for by itself

AP_MAC = "02:00:00:00:10:00"
OFFICE = "02:00:00:00:10:01"
GUEST = "02:00:00:00:10:02"
VAPS = f"""\
[[vap]]
ifname = "wlan0"
ssid = "office"
vlan = 10
bssid = "{OFFICE}"

[[vap]]
ifname = "wlan1"
ssid = "guest"
vlan = 20
guest = true
captive = "sign in"
bssid = "{GUEST}"
"""


def client_mac(number: int) -> str:
    return "02:aa:" + ":".join(f"{byte:02x}" for byte in struct.pack(">I", number))


def add_access_point(lab: Laboratory, number: int = 1) -> AccessPoint:
    """An access point with an office and a guest network, whose radio plays no events of its own."""
    def place(text: str) -> str:
        return text.replace("02:00:00:00:1", f"02:00:00:00:{number}")

    return lab.add_access_point(place(AP_MAC), place(VAPS))


def bssid_of(access_point: AccessPoint, index: int = 0) -> str:
    return access_point.vaps[index]["bssid"]


def wait_until_ready(access_point: AccessPoint) -> None:
    """Returns when client_mgr has a controller and loads its VAPs."""
    wait_until(lambda: access_point.radio_state() == "played", f"{access_point.name}: client_mgr loads its VAPs",
               log=access_point.log)


def tell(access_point: AccessPoint, message: int, payload: bytes) -> None:
    with LocalSocket(access_point.root) as ipc:
        ipc.notify(DAEMON, message, payload)


def associate(access_point: AccessPoint, *clients: str, bssid: str | None = None) -> None:
    with LocalSocket(access_point.root) as ipc:
        for client in clients:
            ipc.notify(DAEMON, Local.CLIENT_ASSOCIATION,
                       bytes(16) + mac_bytes(client) + mac_bytes(bssid or bssid_of(access_point)) + bytes(4))


def read_log_configuration(access_point: AccessPoint) -> list[int]:
    with LocalSocket(access_point.root) as ipc:
        answer = ipc.request(DAEMON, Local.LOG_CFG_GET)
    assert len(answer) == 2060
    assert not any(answer[24:])
    return list(struct.unpack(">IIiIII", answer[:24]))


def set_log_level(access_point: AccessPoint, level: int) -> None:
    configuration = read_log_configuration(access_point)
    configuration[2] = level
    tell(access_point, Local.LOG_CFG_SET, struct.pack(">IIiIII", *configuration))


def status(access_point: AccessPoint, program: str) -> dict[str, Any]:
    """The state of a daemon, which is not asked."""
    file = access_point.root / f"kx/{program}.status"
    return tomllib.loads(file.read_text()) if file.exists() else {"lost": {}}


def lost(access_point: AccessPoint, program: str) -> dict[str, int]:
    return {reason: number for reason, number in status(access_point, program)["lost"].items() if number}


def updates(controller: Controller) -> list[dict[str, Any]]:
    """The records about clients."""
    return [each for each in controller.records() if each.get("name") not in REPORTS and not is_probe(each)]


def associations(controller: Controller) -> list[tuple[str, str]]:
    """The (client, BSSID) of each association that was reported to the controller, in order."""
    return [(each["client"], each["bssid"]) for each in updates(controller)
            if each.get("name") in (ASSOC, FOREIGN_ASSOC)]


def wait_for_association(lab: Laboratory, client: str) -> None:
    wait_until(lambda: client in dict(associations(lab.controller)), f"the controller hears of {client}",
               log=lab.controller.output.file, check=lab.processes.check)


def introduce(lab: Laboratory, access_point: AccessPoint) -> None:
    """Sends a record: before the first one the controller does not know the access point at the other end."""
    associate(access_point, client_mac(9))
    wait_until(lambda: access_point.mac in lab.controller.connected(), "the controller knows the access point")


def start_for_inspection(lab: Laboratory) -> AccessPoint:
    """An access point whose memory may be read. The controller has identified it and sends only what the test sends."""
    if os.geteuid() != 0:
        pytest.skip("only root may look into a process that handles keys")
    lab.controller.start("--passive")
    access_point = add_access_point(lab)
    access_point.start_all()
    wait_until_ready(access_point)
    introduce(lab, access_point)
    return access_point


def events(controller: Controller, name: str) -> list[dict[str, Any]]:
    return [each for each in controller.objects() if each.get("event") == name]


def wait_for_event(controller: Controller, name: str, number: int = 1) -> None:
    wait_until(lambda: len(events(controller, name)) >= number, f"the controller's event {name}",
               log=controller.output.file)


def wait_for_line(file: Path, text: str, number: int = 1, seconds: float = 20) -> None:
    wait_until(lambda: file.exists() and file.read_text(errors="replace").count(text) >= number,
               f"\"{text}\", {number} times", seconds, file)


def write_scenario(lab: Laboratory, access_points: dict[str, AccessPoint], stations: dict[str, list[str]]) -> Path:
    """A scenario file with the events of each station."""
    def inline(table: dict[str, Any]) -> str:
        return "{" + ", ".join(f"{key} = {json.dumps(value)}" for key, value in table.items()) + "}"

    lines = []
    for name, access_point in access_points.items():
        lines += ["[[ap]]", f'name = "{name}"', f'mac = "{access_point.mac}"',
                  "vaps = [" + ", ".join(map(inline, access_point.vaps)) + "]"]
    for station, its_events in stations.items():
        lines += ["[[station]]", f'mac = "{station}"', "events = [" + ", ".join(its_events) + "]"]
    file = lab.directory / "scenario.toml"
    file.write_text("\n".join(lines) + "\n")
    return file


def wait_for_radio(access_point: AccessPoint, event: str) -> dict[str, Any]:
    return wait_until(lambda: next((each for each in access_point.radio_output.read() if each["event"] == event), None),
                      f"the radio's event {event}", log=access_point.radio_output.file)
