"""Whether the controller, the daemons' tables and the radios agree on who is where."""

from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any

from lab.site.client_table import FOREIGN, GUEST, LOCAL, TUNNEL, Client
from lab.site.laboratory import Laboratory

UNKNOWN_IP = "0.0.0.0"


@dataclass(frozen=True)
class Views:
    """What each of them knows when the lab is at rest."""

    believed: dict[str, dict[str, Any]]            # the controller's clients
    tables: dict[str, dict[str, Client]]           # of each access point, by its address
    stations: dict[str, list[tuple[str, dict[str, Any]]]]  # (access point, its radio's station) of each station


def take_views(lab: Laboratory) -> Views:
    stations: dict[str, list[tuple[str, dict[str, Any]]]] = {}
    for access_point in lab.access_points:
        for station in access_point.stations():
            if station["here"]:  # else it has moved on, and its former access point keeps its home
                stations.setdefault(station["client"], []).append((access_point.mac, station))
    return Views(believed={each["client"]: each for each in lab.controller.ask_json("clients")},
                 tables={each.mac: {client.mac: client for client in each.clients()} for each in lab.access_points},
                 stations=stations)


def find_differences(views: Views) -> list[str]:
    clients = views.believed.keys() | views.stations.keys() | {mac for table in views.tables.values() for mac in table}
    return [f"{client}: {difference}" for client in sorted(clients) for difference in differences_of(client, views)]


def differences_of(client: str, views: Views) -> Iterator[str]:
    here = views.stations.get(client, [])
    known = views.believed.get(client)
    if len(here) > 1:
        yield f"the radios of {', '.join(ap for ap, _ in here)} have it"
        return
    if not here:
        if known:
            yield f"no radio has it; the controller believes it is on {known['bssid']} of {known['ap']}"
        for ap, table in views.tables.items():
            if client in table:
                yield f"no radio has it; the table of {ap} has it on {table[client].bssid}"
        return
    (serving, station), = here
    if known is None:
        yield f"the radio of {serving} has it; the controller does not know it"
        return
    yield from compare("the controller", known, serving, station)
    for ap, table in views.tables.items():
        yield from differences_in_table(ap, table.get(client), known, serving, station)


def compare(who: str, known: dict[str, Any], serving: str, station: dict[str, Any]) -> Iterator[str]:
    if (known["ap"], known["bssid"]) != (serving, station["bssid"]):
        yield f"the radio of {serving} has it on {station['bssid']}; {who} believes {known['bssid']} of {known['ap']}"
    if station["ip"] not in (UNKNOWN_IP, known["ip"]):
        yield f"its address is {station['ip']}; {who} believes {known['ip']}"


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
        yield f"the controller believes its home is {known['home_bssid']}; the table of {ap} has {entry.home_bssid}"
    if ap == serving and station["ip"] not in (UNKNOWN_IP, entry.ip):
        yield f"its address is {station['ip']}; the table of {ap} has {entry.ip}"
    if entry.flags & (LOCAL | FOREIGN | TUNNEL) != expected_flags(is_home, serving == ap):
        yield f"the table of {ap} has it as: {entry.describe_flags()}"
    if ap == serving and bool(entry.flags & GUEST) != (known["guest"] == "waiting"):
        yield f"as a guest, {known['guest']} to the controller; the table of {ap} has it as: {entry.describe_flags()}"


def expected_flags(is_home: bool, is_serving: bool) -> int:
    if is_home and is_serving:
        return LOCAL
    return LOCAL | TUNNEL if is_home else FOREIGN | TUNNEL
