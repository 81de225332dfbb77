"""Random messages made from the protocol's tables, whole and damaged."""

import random
from typing import Any


def field(of: dict[str, Any], dice: random.Random) -> bytes:
    width = of["width"]
    if of["kind"] in ("zero", "unused"):
        return bytes(width)
    if of["kind"] == "mac_or_none" and dice.random() < .3 or of["kind"] == "pmk" and dice.random() < .3:
        return bytes(width)
    if of["kind"] == "text":
        text = "".join(dice.choices("abcXYZ 0189-_", k=dice.randint(1, width)))
        return text.encode().ljust(width, b"\0")
    if of["key"] == "data_length":
        return dice.randint(0, 128).to_bytes(width, "big")
    return dice.randbytes(width)


def fields(of: list[dict[str, Any]], dice: random.Random) -> bytes:
    """Data are no longer than their length says."""
    made = {each["key"]: field(each, dice) for each in of}
    if "data" in made and "data_length" in made:
        used = int.from_bytes(made["data_length"], "big")
        made["data"] = made["data"][:used].ljust(len(made["data"]), b"\0")
    return b"".join(made[each["key"]] if each["kind"] != "zero" else bytes(each["width"]) for each in of)


def record(layout: dict[str, Any], dice: random.Random, entries: int) -> bytes:
    body = fields(layout["body"], dice)
    for each in layout["body"]:
        if each["kind"] == "count":
            at, width = each["offset"], each["width"]
            body = body[:at] + entries.to_bytes(width, "big") + body[at + width:]
    for _ in range(entries if layout["list"] else 0):
        body += fields(layout["entry"], dice)
    if layout["open_ended"]:
        length = [int.from_bytes(body[each["offset"]:each["offset"] + 4], "big") for each in layout["body"]
                  if each["key"] == "data_length"]
        body += dice.randbytes(length[0] if length else dice.choice((0, 0, 4)))
    return bytes([layout["type"], 4]) + (len(body) + 4).to_bytes(2, "big") + body


def message(records: list[bytes], dice: random.Random) -> bytes:
    body = b"".join(records)
    return (bytes([1, 14, 0]) + len(records).to_bytes(2, "big") + bytes(1) + (14 + len(body)).to_bytes(2, "big") +
            dice.randbytes(6) + body)


def whole_message(protocol: dict[str, Any], dice: random.Random, up: bool) -> bytes:
    layouts = [each for each in protocol["records"] if each["to_controller"] == up or dice.random() < .02]
    chosen = dice.choices(layouts, k=dice.randint(0, 4))
    return message([record(each, dice, dice.randint(0, 4)) for each in chosen], dice)


def damaged(content: bytes, dice: random.Random) -> bytes:
    """Cut, longer, with other bytes, or with a total length that hides where it was cut."""
    changed = bytearray(content)
    for _ in range(dice.randint(1, 3)):
        way = dice.randrange(5)
        if way == 0:
            del changed[dice.randint(0, len(changed)):]
        elif way == 1:
            changed += dice.randbytes(dice.randint(1, 40))
        elif way == 2 and changed:
            changed[dice.randrange(len(changed))] = dice.choice((0, 1, 4, 14, 0xff, dice.randrange(256)))
        elif way == 3 and len(changed) > 14:
            at = dice.randrange(14, len(changed))
            del changed[at:at + dice.randint(1, 20)]
        elif len(changed) >= 8:
            changed[6:8] = len(changed).to_bytes(2, "big")
    return bytes(changed)


def structure_message(protocol: dict[str, Any], name: str | None, dice: random.Random) -> bytes:
    return fields(protocol["structures"][name]["fields"], dice) if name else b""


def local_message(protocol: dict[str, Any], dice: random.Random) -> bytes:
    one = dice.choice(protocol["local_messages"])
    payload = structure_message(protocol, one["structure"], dice)
    if one["structure"] == "captive_message":
        payload = payload[12:]
    if one["kind_word"]:
        payload = one["kind_word"].to_bytes(4, "big") + payload[4:]
    if one["tail"]:
        payload += dice.randbytes(dice.randint(0, 40))
    return one["id"].to_bytes(4, "big") + len(payload).to_bytes(4, "big") + (1).to_bytes(4, "big") + payload


def own_frame(protocol: dict[str, Any], dice: random.Random) -> bytes:
    one = dice.choice(protocol["own_frames"])
    reason = b"the end" if one["name"] == "tunnel_end" else b""
    return bytes([one["type"]]) + reason + structure_message(protocol, one["structure"], dice)


def frames(protocol: dict[str, Any], dice: random.Random) -> bytes:
    """A piece of the tunnel's byte stream."""
    made = b""
    for _ in range(dice.randint(1, 3)):
        own = dice.random() < .5
        content = own_frame(protocol, dice) if own else whole_message(protocol, dice, dice.random() < .5)
        made += (0 if own else dice.choice((106, 106, 7))).to_bytes(4, "big") + len(content).to_bytes(4, "big") + content
    return made


def driver_request(protocol: dict[str, Any], dice: random.Random) -> bytes:
    one = dice.choice(protocol["driver_calls"])
    data = structure_message(protocol, one["sent"], dice)
    return one["request"].to_bytes(4, "little") + len(data).to_bytes(4, "little") + b"wlan0".ljust(16, b"\0") + data


def driver_reply(protocol: dict[str, Any], dice: random.Random) -> bytes:
    stations = b"".join((156).to_bytes(2, "little") + dice.randbytes(154) for _ in range(dice.randint(0, 3)))
    return bytes(4) + len(stations).to_bytes(4, "little") + stations
