"""Prints the radio's events and the controller's records while they happen."""

import json
import sys
from typing import Any

from rich.console import Console
from rich.text import Text

from lab.site.access_point import AccessPoint, is_probe
from lab.site.controller import Controller, is_record
from lab.site.plain_text import plain

# Members of a radio's event that have their own place in the line.
COMMON_FACTS = ("event", "time", "client", "bssid", "ifname")

RECORD_MEANINGS = {
    "CLIENT_MGR_BULK_INFO": "the stations of one network",
    "CLIENT_MGR_BULK_VAP_CONFIG": "a network of the access point",
    "CLIENT_MGR_CLIENT_ASSOC": "a client associated",
    "CLIENT_MGR_CLIENT_DISASSOC": "a client left",
    "CLIENT_MGR_CLIENT_IP": "a client has an address",
    "CLIENT_MGR_FOREIGN_CLIENT_ASSOC": "a client roamed in",
    "CLIENT_MGR_FOREIGN_CLIENT_DISASSOC": "a client that had roamed in left",
    "CLIENT_MGR_PMK_ADD": "a client has a new key",
    "CLIENT_MGR_PMK_FETCH": "request for a client's key",
    "CLIENT_MGR_CLIENT_INFO_FETCH": "request for the state of a client that roamed in",
    "CLIENT_MGR_CLIENT_GUEST_ASSOC": "a guest associated and waits for approval",
    "CLIENT_MGR_CLIENT_ACL_AUTH_REQ": "request for a MAC ACL verdict",
}


class Narrator:
    """Prints a line of text for each event and each record."""

    def __init__(self, console: Console, access_point: AccessPoint, controller: Controller) -> None:
        self._console = console
        self._access_point = access_point
        self._controller = controller
        self._events_printed = 0
        self._records_printed = 0

    def print_news(self) -> None:
        events = self._access_point.radio_output.read()
        for event in events[self._events_printed:]:
            if event["event"] != "summary":
                self._line("green", "radio", describe_event(event))
        self._events_printed = len(events)
        received = self._controller.objects()
        for printed in received[self._records_printed:]:
            if is_record(printed) and not is_probe(printed):
                self._line("cyan", "controller", describe_record(printed))
        self._records_printed = len(received)

    def _line(self, style: str, who: str, text: str) -> None:
        self._console.print(Text.assemble("  ", (f"{who:10}", style), "  ", plain(text)), soft_wrap=True)


class JsonNarrator:
    """Prints the controller's records as JSON objects, one per line."""

    def __init__(self, controller: Controller) -> None:
        self._controller = controller
        self._records_printed = 0

    def print_news(self) -> None:
        received = self._controller.objects()
        for printed in received[self._records_printed:]:
            if is_record(printed) and not is_probe(printed):
                sys.stdout.write(json.dumps(printed, separators=(",", ":")) + "\n")
        sys.stdout.flush()
        self._records_printed = len(received)


def describe_event(event: dict[str, Any]) -> str:
    facts = describe_facts({key: value for key, value in event.items() if key not in COMMON_FACTS})
    return f"{event['time']:8.3f} s  {event['event']:14} {event['client']} on {event['ifname']}  {facts}".rstrip()


def describe_record(record: dict[str, Any]) -> str:
    if "error" in record:
        return f"a malformed record: {record['error']}"
    facts = {key: value for key, value in record.items() if key not in ("ap", "type", "name")}
    return f"{record['name']}  {describe_facts(facts)}"


def describe_facts(facts: dict[str, Any]) -> str:
    return "  ".join(f"{key}={json.dumps(value) if isinstance(value, (list, dict)) else value}"
                     for key, value in facts.items())
