"""What tshark finds in a capture with the project's dissector, in the form in which the controller prints records."""

import hashlib
import json
import os
import subprocess
from collections.abc import Iterator
from pathlib import Path
from typing import Any

DISSECTOR = Path(__file__).parents[2] / "tools/dissector/kx.lua"
NOT_PRINTED = {"record_header_length", "record_length", "zero", "has_pmk", "trailing"}
Pairs = list[tuple[str, Any]]


def tshark(capture: Path, *options: str) -> str:
    """Its output. It has no errors of Lua."""
    done = subprocess.run(["tshark", "-X", f"lua_script:{DISSECTOR}", "-r", capture, *options], check=True,
                          capture_output=True, text=True, env=os.environ | {"HOME": str(capture.parent)})
    assert "Lua" not in done.stderr, done.stderr
    assert "_ws.lua.error" not in done.stdout, done.stdout
    return done.stdout


def dissect(capture: Path, *options: str) -> list[Pairs]:
    """The tree of the protocol kx in each packet, of all its frames. A node has the same name as often as there are such
    fields."""
    packets = json.loads(tshark(capture, "-T", "json", *options), object_pairs_hook=lambda pairs: pairs)
    layers = [dict(dict(packet)["_source"])["layers"] for packet in packets]
    return [[field for name, fields in each if name == "kx" for field in fields] for each in layers]


def malformations(tree: Pairs) -> Iterator[str]:
    for key, value in tree:
        if key == "_ws.expert.message":
            yield value
        elif isinstance(value, list):
            yield from malformations(value)


def fingerprint(pmk: str) -> str:
    return "sha256:" + hashlib.sha256(bytes.fromhex(pmk.replace(":", ""))).hexdigest()[:8]


def as_printed(fields: Pairs, kinds: dict[str, str], list_key: str | None) -> dict[str, Any]:
    """A record, or an entry of its list, as the controller prints it."""
    result: dict[str, Any] = {list_key: []} if list_key else {}
    for name, value in fields:
        key = name.removeprefix("kx.")
        if key == "entry":
            result[list_key].append(as_printed(value, kinds, None))
        elif key in NOT_PRINTED or not name.startswith("kx.") or key.endswith("_tree") or kinds.get(key) == "count":
            continue
        elif key == "data" and key not in kinds:  # of an answer, which the controller does not print
            continue
        elif key == "pmk_hash":
            result["pmk"] = value
        elif kinds.get(key) == "pmk":
            result[key] = fingerprint(value)
        elif kinds.get(key) == "data":
            result[key] = value.replace(":", "")
        else:
            result[key] = int(value, 0) if kinds.get(key, "number") == "number" else value
    if "data" in kinds:
        result.setdefault("data", "")
    return result


def records(tree: Pairs, protocol: dict[str, Any]) -> list[dict[str, Any]]:
    """The records of a controller message as the controller prints them."""
    ap = dict(tree)["kx.ap"]
    result = []
    for fields in (value for name, value in tree if name == "kx.record"):
        layout = next(each for each in protocol["records"] if each["type"] == int(dict(fields)["kx.type"]))
        kinds = {each["key"]: each["kind"] for each in layout["body"] + layout["entry"]}
        result.append({"ap": ap, "name": layout["name"]} | as_printed(fields, kinds, layout["list"]))
    return result
