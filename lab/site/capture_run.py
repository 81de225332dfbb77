"""Plays a capture to one access point."""

import subprocess
import sys
from collections import Counter
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from rich.console import Console
from rich.markup import escape

from lab.site.access_point import AccessPoint, is_probe
from lab.site.client_table import Client
from lab.site.ending import Ended
from lab.site.failure import LabFailure
from lab.site.laboratory import Laboratory
from lab.site.narration import RECORD_MEANINGS, JsonNarrator, Narrator
from lab.site.options import PROGRAM
from lab.site.plain_text import plain
from lab.site.processes import die_with_parent, environment_for
from lab.site.settling import settle
from lab.site.waiting import wait_until

AP_MAC = "02:00:00:00:10:00"
PATIENCE_SECONDS = 30

INTRODUCTION = """\
[bold]client_mgr[/] is the client manager of a wireless access point. It follows the clients that associate,
roam and leave, and reports them to the controller of all access points.
Here the real program runs. Only the radio is a stand-in, which plays a recording:

  recording --> [green]radio[/] --> [bold]client_mgr[/] --> platform daemon (apd) == TLS ==> [cyan]controller[/]
"""

EVENTS = {"associations": "association granted", "reassociations": "reassociation granted",
          "refused": "association refused", "disassociations": "station left or was disassociated",
          "addresses": "IP address of a station", "elsewhere": "event on another access point"}


@dataclass(frozen=True)
class Capture:
    file: Path
    vaps: str  # [[vap]] tables of the access points in the capture; empty when no station associates


def builtin_capture(build: Path) -> Capture:
    made = build / "lab/captures"
    return Capture(made / "builtin.pcap", (made / "builtin-vaps.toml").read_text())


def open_capture(file: Path, programs: Path) -> Capture:
    """Prints the radio's warnings on standard error. Raises LabFailure when `file` is not a capture."""
    found = subprocess.run([programs / "radio", "--discover", file], env=environment_for(None), capture_output=True,
                           text=True, check=False, preexec_fn=die_with_parent)
    if found.returncode != 0:
        raise LabFailure(found.stderr.strip().removeprefix("radio: "))
    for line in found.stderr.splitlines():
        print(plain(line.replace("radio: ", f"{PROGRAM}: ")), file=sys.stderr)
    return Capture(file, found.stdout.strip())


def play(lab: Laboratory, capture: Capture, speed: str, narrator: Narrator | JsonNarrator,
         access_point: AccessPoint) -> None:
    """Returns when everything was played and all resulting records have reached the controller."""
    lab.start()
    access_point.play("--speed", speed, "--patience", PATIENCE_SECONDS, capture.file)

    def is_played() -> bool:
        narrator.print_news()
        return any(event["event"] == "summary" for event in access_point.radio_output.read())

    # No limit here: the radio exits when it makes no progress.
    wait_until(is_played, "the capture is played", float("inf"), check=lab.processes.check)
    settle(lab)
    narrator.print_news()


def run_json(capture: Capture, speed: str, programs: Path) -> None:
    with Laboratory(programs) as lab:
        lab.controller.start()
        access_point = lab.add_access_point(AP_MAC, capture.vaps)
        play(lab, capture, speed, JsonNarrator(lab.controller), access_point)
    lab.discard()


def run_for_people(capture: Capture, speed: str, programs: Path, console: Console) -> None:
    console.print(INTRODUCTION, soft_wrap=True)
    with Laboratory(programs) as lab:
        lab.controller.start()
        access_point = lab.add_access_point(AP_MAC, capture.vaps)
        console.print(f"Playing {escape(plain(capture.file))}, {describe_speed(speed)}:\n", soft_wrap=True)
        try:
            play(lab, capture, speed, Narrator(console, access_point, lab.controller), access_point)
        except Ended:
            console.print(f"\nInterrupted. The output so far is in {lab.directory}", soft_wrap=True)
            raise
        clients = access_point.clients()
    show_result(console, lab, access_point, clients)


def describe_speed(speed: str) -> str:
    return "as fast as client_mgr reads" if speed == "max" else f"at {speed} times the recorded speed"


def show_result(console: Console, lab: Laboratory, access_point: AccessPoint, clients: list[Client]) -> None:
    console.print("\n[bold]What happened[/]\n")
    show_events(console, access_point)
    show_records(console, lab)
    show_clients(console, access_point, clients)
    show_logs(console, lab, access_point)


def show_events(console: Console, access_point: AccessPoint) -> None:
    summary = next(event for event in access_point.radio_output.read() if event["event"] == "summary")
    frames = summary["frames"]
    unused = [f"{number} {name}" for name, number in frames.items() if name != "total" and number]
    console.print(f"The [green]radio[/] read {frames['total']} frames" +
                  (f", not used: {', '.join(unused)}" if unused else "") + ". Events in them:\n", soft_wrap=True)
    rows = [(f"{number:5}", EVENTS.get(name, name)) for name, number in summary["events"].items() if number]
    print_table(console, ("", "event"), rows)


def show_records(console: Console, lab: Laboratory) -> None:
    records = [each for each in lab.controller.records() if not is_probe(each)]
    console.print(f"\nThe [cyan]controller[/] received {len(records)} records from client_mgr:\n")
    counted = Counter(each.get("name", "malformed") for each in records).most_common()
    print_table(console, ("", "record", "meaning"),
                [(f"{number:5}", name, RECORD_MEANINGS.get(name, "")) for name, number in counted])


def print_table(console: Console, headings: Sequence[str], rows: Sequence[Sequence[str]]) -> None:
    """Prints whole rows at any terminal width; the terminal wraps them."""
    rows = [[plain(cell) for cell in row] for row in rows]
    widths = [max(map(len, column)) for column in zip(headings, *rows)]
    for style, row in [("bold", headings), *((None, row) for row in rows)]:
        line = "  ".join(cell.ljust(width) for cell, width in zip(row, widths))
        console.print(f"  {line.rstrip()}", style=style, markup=False, soft_wrap=True)


def show_clients(console: Console, access_point: AccessPoint, clients: list[Client]) -> None:
    if not clients:
        console.print("\n[bold]client_mgr[/] has no client in its table now.")
        return
    networks = {vap["bssid"]: vap["ssid"] for vap in access_point.vaps}
    number = "1 client" if len(clients) == 1 else f"{len(clients)} clients"
    console.print(f"\n[bold]client_mgr[/] has {number} in its table now:\n")
    print_table(console, ("client", "network", "VLAN", "address", "state"), [
        (client.mac, networks.get(client.bssid, client.bssid), str(client.vlan),
         "unknown" if client.ip == "0.0.0.0" else client.ip, client.describe_flags()) for client in clients])


def show_logs(console: Console, lab: Laboratory, access_point: AccessPoint) -> None:
    console.print("\nMore in these files:\n")
    for who, file in (("client_mgr's log", access_point.log),
                      ("the radio's events", access_point.radio_output.file),
                      ("messages to the captive portal", access_point.captive_output.file),
                      ("the controller's records", lab.controller.output.file),
                      ("the platform daemon's messages", access_point.running["apd"].err)):
        console.print(f"  {who:32} {plain(file)}", markup=False, soft_wrap=True)
