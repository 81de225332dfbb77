"""Compares the stations of the controller, the daemons' tables and the radios."""

from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any

from lab.site.client_table import FOREIGN, GUEST, LOCAL, TUNNEL, Client
from lab.site.laboratory import Laboratory

UNKNOWN_IP = "0.0.0.0"


@dataclass(frozen=True)
class Views:
    """The stations of each of them when the lab is at rest."""

    controller: dict[str, dict[str, Any]]          # its clients, by MAC address
    tables: dict[str, dict[str, Client]]           # of each access point, by its MAC address
    stations: dict[str, list[tuple[str, dict[str, Any]]]]  # (access point, its radio's entry)


def collect_views(lab: Laboratory) -> Views:
    stations: dict[str, list[tuple[str, dict[str, Any]]]] = {}
    for access_point in lab.access_points:
        for station in access_point.stations():
            if station["here"]:  # else it has roamed away; its home keeps an entry
                stations.setdefault(station["client"], []).append((access_point.mac, station))
    return Views(controller={each["client"]: each for each in lab.controller.ask_json("clients")},
                 tables={each.mac: {client.mac: client for client in each.clients()} for each in lab.access_points},
                 stations=stations)


def find_differences(views: Views) -> list[str]:
    in_tables = {mac for table in views.tables.values() for mac in table}
    clients = views.controller.keys() | views.stations.keys() | in_tables
    return [f"{client}: {difference}" for client in sorted(clients) for difference in differences_of(client, views)]


def differences_of(client: str, views: Views) -> Iterator[str]:
    here = views.stations.get(client, [])
    known = views.controller.get(client)
    if len(here) > 1:
        yield f"the radios of {', '.join(ap for ap, _ in here)} have it"
        return
    if not here:
        if known:
            yield f"no radio has it; the controller has it on {known['bssid']} of {known['ap']}"
        for ap, table in views.tables.items():
            if client in table:
                yield f"no radio has it; the table of {ap} has it on {table[client].bssid}"
        return
    (serving, station), = here
    if known is None:
        yield f"the radio of {serving} has it; the controller does not have it"
        return
    yield from compare("the controller", known, serving, station)
    for ap, table in views.tables.items():
        yield from differences_in_table(ap, table.get(client), known, serving, station)


def compare(who: str, known: dict[str, Any], serving: str, station: dict[str, Any]) -> Iterator[str]:
    if (known["ap"], known["bssid"]) != (serving, station["bssid"]):
        yield f"the radio of {serving} has it on {station['bssid']}; {who} has it on {known['bssid']} of {known['ap']}"
    if station["ip"] not in (UNKNOWN_IP, known["ip"]):
        yield f"its address is {station['ip']}; {who} has {known['ip']}"


def differences_in_table(ap: str, entry: Client | None, known: dict[str, Any], serving: str,
                         station: dict[str, Any]) -> Iterator[str]:
    is_home = known["home_ap"] == ap
    if ap != serving and not is_home:
        if entry:
            yield f"it is on {serving}, its home is {known['home_ap']}; the table of {ap} has it on {entry.bssid}"
        return
    if entry is None:
        yield f"the table of {ap}, {'its home' if is_home else 'which serves it'}, does not have it"
        return
    if entry.bssid != station["bssid"]:
        yield f"it is on {station['bssid']}; the table of {ap} has it on {entry.bssid}"
    if entry.home_bssid != known["home_bssid"]:
        yield (f"the controller has its home on {known['home_bssid']}; "
               f"the table of {ap} has its home on {entry.home_bssid}")
    if ap == serving and station["ip"] not in (UNKNOWN_IP, entry.ip):
        yield f"its address is {station['ip']}; the table of {ap} has {entry.ip}"
    if entry.flags & (LOCAL | FOREIGN | TUNNEL) != expected_flags(is_home, serving == ap):
        yield f"the table of {ap} has it as: {entry.describe_flags()}"
    if ap == serving and bool(entry.flags & GUEST) != (known["guest"] == "waiting"):
        yield (f"its guest state at the controller is {known['guest']}; "
               f"the table of {ap} has it as: {entry.describe_flags()}")


def expected_flags(is_home: bool, is_serving: bool) -> int:
    if is_home and is_serving:
        return LOCAL
    return LOCAL | TUNNEL if is_home else FOREIGN | TUNNEL
