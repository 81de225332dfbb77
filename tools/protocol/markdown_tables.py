"""The tables of docs/protocol.md, each between "<!-- table: NAME -->" and "<!-- end of table -->"."""

import re
from typing import Any

KINDS = {"number": "number", "host_number": "number, host's order", "count": "number of entries", "mac": "MAC address",
         "mac_or_none": "MAC address or zero", "ipv4": "IPv4 address", "text": "text", "pmk": "PMK or zero",
         "data": "data", "zero": "zero", "unused": "unused"}
TAILS = {"": "", "interface_name": "name of the interface, NUL", "vap_name": "name of the VAP, NUL", "data": "data",
         "log_configuration": "log configuration", "message_part": "bytes of the message"}
TABLE = re.compile(r"(<!-- table: ([^>]*?) -->\n).*?(<!-- end of table -->\n)", re.S)
Rows = list[list[object]]


def table(head: list[str], rows: Rows) -> str:
    lines = [head, ["---"] * len(head), *rows]
    return "".join("| " + " | ".join(str(cell) for cell in line) + " |\n" for line in lines)


def code(name: str | None) -> str:
    return f"`{name}`" if name else ""


def fields(of: list[dict[str, Any]]) -> str:
    rows = [[each["offset"], each["width"], "" if each["kind"] in ("zero", "unused") else code(each["key"]),
             KINDS[each["kind"]]] for each in of]
    return "\n" + table(["Offset", "Width", "Field", "Kind"], rows) + "\n"


def size(of: list[dict[str, Any]]) -> int:
    return of[-1]["offset"] + of[-1]["width"] if of else 0


def records(protocol: dict[str, Any], _: str) -> str:
    rows = [[each["type"], code(each["name"]), "access point" if each["to_controller"] else "controller",
             size(each["body"]), f"{each['list']}, {size(each['entry'])}" if each["list"] else "",
             "yes" if each["open_ended"] else ""] for each in protocol["records"]]
    return "\n" + table(["Type", "Record", "From", "Body", "List, entry", "Open"], rows) + "\n"


def layout(protocol: dict[str, Any], types: str) -> str:
    """Of records that have the same one."""
    wanted = [int(each) for each in types.split()]
    found = [each for each in protocol["records"] if each["type"] in wanted]
    if not found or any((each["body"], each["entry"]) != (found[0]["body"], found[0]["entry"]) for each in found):
        raise ValueError(f"the records {types} have no layout in common")
    entry = f"Each of the `{found[0]['list']}`:\n{fields(found[0]['entry'])}" if found[0]["list"] else ""
    return fields(found[0]["body"]) + entry


def structure(protocol: dict[str, Any], name: str) -> str:
    return fields(protocol["structures"][name]["fields"])


def own_frame(protocol: dict[str, Any], name: str) -> str:
    """The message of a frame: its type, and its structure."""
    return fields([{"key": "frame_type", "kind": "number", "offset": 0, "width": 1}] +
                  [each | {"offset": each["offset"] + 1} for each in protocol["structures"][name]["fields"]])


def own_frames(protocol: dict[str, Any], _: str) -> str:
    ways = {(True, True): "both", (True, False): "access point", (False, True): "controller"}
    rows = [[each["type"], code(each["name"]), ways[each["to_controller"], each["to_access_point"]],
             code(each["structure"])] for each in protocol["own_frames"]]
    return "\n" + table(["Type", "Frame", "From", "Structure"], rows) + "\n"


def local_messages(protocol: dict[str, Any], _: str) -> str:
    rows = [[each["id"], code(each["name"]), code(each["endpoint"]), "request" if each["request"] else "",
             code(each["structure"]) + (f", kind {each['kind_word']}" if each["kind_word"] else ""),
             TAILS[each["tail"]]] for each in protocol["local_messages"]]
    return "\n" + table(["Id", "Message", "To", "", "Payload", "Followed by"], rows) + "\n"


def driver_calls(protocol: dict[str, Any], _: str) -> str:
    rows = [[f"0x{each['request']:04x}", code(each["name"]), code(each["sent"]), code(each["answered"])]
            for each in protocol["driver_calls"]]
    return "\n" + table(["Request", "Name", "Data", "Data of the reply"], rows) + "\n"


def values(protocol: dict[str, Any], key: str) -> str:
    rows = [[f"0x{each['value']:x}" if each["bit"] or each["value"] > 9999 else each["value"], code(each["name"])]
            for each in protocol["value_names"] if each["key"] == key]
    if not rows:
        raise ValueError(f"no value of {key} has a name")
    return "\n" + table([code(key), "Meaning"], rows) + "\n"


MAKERS = {"records": records, "layout": layout, "structure": structure,
          "own_frame": own_frame, "own_frames": own_frames, "local_messages": local_messages,
          "driver_calls": driver_calls, "values": values}


def with_tables(page: str, protocol: dict[str, Any]) -> str:
    def made(found: re.Match[str]) -> str:
        maker, _, what = found[2].partition(" ")
        return found[1] + MAKERS[maker](protocol, what) + found[3]

    return TABLE.sub(made, page)
