"""The dissector finds in messages what the controller finds in them, and reports the same as malformed."""

import json
import random
import subprocess
from pathlib import Path
from typing import Any

import pcapng
import random_messages as make
from dissection import dissect, malformations, records, tshark

WAYS = {True: ("kx_up", "up"), False: ("kx_down", "down")}


def decode(programs: Path, messages: list[tuple[bool, bytes]]) -> list[list[dict[str, Any]]]:
    """What the controller prints of each message."""
    lines = "".join(f"{WAYS[up][1]} {content.hex()}\n" for up, content in messages)
    done = subprocess.run([programs / "decode_messages"], input=lines, check=True, capture_output=True, text=True)
    return [json.loads(line) for line in done.stdout.splitlines()]


def capture(directory: Path, messages: list[tuple[bool, bytes]]) -> Path:
    file = directory / "messages.pcapng"
    pcapng.write(file, [(WAYS[up][0], content) for up, content in messages])
    return file


def test_every_record_is_dissected_as_the_controller_decodes_it(programs, protocol, tmp_path):
    dice = random.Random(1)
    messages = [(layout["to_controller"], make.message([make.record(layout, dice, entries)], dice))
                for layout in protocol["records"] for entries in (0, 1, 3)]
    found = dissect(capture(tmp_path, messages), "-o", "kx.show_pmks:TRUE")
    assert not [text for tree in found for text in malformations(tree)]
    expected = decode(programs, messages)
    assert len({each["name"] for items in expected for each in items}) == 21
    assert [records(tree, protocol) for tree in found] == expected


def test_pmks_are_shown_on_request_only(protocol, tmp_path):
    dice = random.Random(2)
    layout = next(each for each in protocol["records"] if each["name"] == "CLIENT_MGR_PMK_ADD")
    pmk = bytes(range(1, 33))
    content = make.message([make.record(layout, dice, 0)[:-32] + pmk], dice)
    file = capture(tmp_path, [(True, content)])
    fields = ["-T", "fields", "-e", "kx.has_pmk", "-e", "kx.pmk"]
    assert tshark(file, *fields) == "1\t\n"
    assert tshark(file, *fields, "-o", "kx.show_pmks:TRUE") == f"1\t{pmk.hex()}\n"
    assert pmk.hex(":") not in tshark(file, "-O", "kx")


def test_fields_can_be_filtered(protocol, tmp_path):
    dice = random.Random(3)
    update = next(each for each in protocol["records"] if each["name"] == "CLIENT_MGR_CLIENT_ASSOC")
    answer = next(each for each in protocol["records"] if each["name"] == "CLIENT_MGR_PMK_FETCH_SUCCESS")
    one, other = make.record(update, dice, 0), make.record(answer, dice, 1)
    client = one[4:10].hex(":")
    flags = other[:-4] + (2).to_bytes(4, "big")
    file = capture(tmp_path, [(True, make.message([one], dice)), (False, make.message([flags], dice))])
    for expression, numbers in ((f"kx.client == {client}", "1\n"), ("kx.flags.guest == 1", "2\n"),
                                ("kx.flags.pmk == 1", ""), ("kx.type == 2", "1\n"), ("kx.to_controller == 0", "2\n"),
                                ("kx.malformed", "")):
        assert tshark(file, "-Y", expression, "-T", "fields", "-e", "frame.number") == numbers, expression


def test_random_and_cut_messages_are_reported_as_the_controller_does(programs, protocol, tmp_path):
    dice = random.Random(4)
    messages = []
    for _ in range(10_000):
        up = dice.random() < .5
        content = make.whole_message(protocol, dice, up)
        if dice.random() < .7:
            content = make.damaged(content, dice)
        messages.append((up, dice.randbytes(dice.randint(0, 200)) if dice.random() < .05 else content))
    output = tshark(capture(tmp_path, messages), "-T", "fields", "-E", "aggregator=|", "-e", "kx.to_controller",
                    "-e", "_ws.expert.message", "-e", "_ws.lua.error")
    found = [line.split("\t") for line in output.splitlines()]
    assert [up for up, _, _ in found] == ["1" if up else "0" for up, _ in messages]
    assert not [error for _, _, error in found if error]
    expected = [[each["error"] for each in items if "error" in each] for items in decode(programs, messages)]
    assert sum(map(bool, expected)) > 3000
    for (_, content), (_, texts, _), errors in zip(messages, found, expected, strict=True):
        assert (texts.split("|") if texts else []) == errors, content.hex()


def other_messages(protocol: dict[str, Any], number: int, dice: random.Random) -> list[tuple[str, bytes]]:
    makers = {"kx_local": make.local_message, "kx_own_up": make.own_frame, "kx_own_down": make.own_frame,
              "kx": make.frames, "kx_driver_request": make.driver_request, "kx_driver_reply": make.driver_reply,
              "kx_apcomm": lambda of, dice: (106).to_bytes(4, "big") + make.whole_message(of, dice, True)}
    return [(name, makers[name](protocol, dice)) for name in dice.choices(list(makers), k=number)]


def test_random_and_cut_messages_of_other_kinds_cause_no_error(protocol, tmp_path):
    dice = random.Random(5)
    messages = [(name, make.damaged(content, dice)) for name, content in other_messages(protocol, 4000, dice)]
    file = tmp_path / "others.pcapng"
    pcapng.write(file, messages)
    output = tshark(file, "-T", "fields", "-e", "frame.protocols", "-e", "_ws.lua.error")
    found = [line.split("\t") for line in output.splitlines()]
    assert [protocols.split(":")[1:] for protocols, _ in found] == [[name] if content else []
                                                                    for name, content in messages]
    assert not [error for _, error in found if error]


def test_whole_messages_of_other_kinds_are_not_malformed(protocol, tmp_path):
    dice = random.Random(6)
    messages = [each for each in other_messages(protocol, 1000, dice)
                if each[0] in ("kx_local", "kx_driver_request", "kx_driver_reply")]
    file = tmp_path / "others.pcapng"
    pcapng.write(file, messages)
    assert tshark(file, "-Y", "kx.malformed || kx.trailing", "-T", "fields", "-e", "frame.number") == ""
