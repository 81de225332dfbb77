"""The examples of docs/protocol.md: each is a block of bytes, named by its protocol, and a block of its fields."""

import re
from pathlib import Path

import pcapng
from dissection import Pairs, dissect, malformations

PAGE = Path(__file__).parents[2] / "docs/protocol.md"
EXAMPLE = re.compile(r"^```(kx\w*)\n(.*?)^```\n\n```fields\n(.*?)^```\n", re.S | re.M)
IMPLIED = {"kx.has_pmk", "kx.to_controller"}


def describe(tree: Pairs, indent: str = "") -> str:
    """A line for each field, and the fields of a record or an entry below it. Without what has to be zero."""
    text = ""
    for name, value in tree:
        if name in IMPLIED or not name.startswith("kx."):
            continue
        key = name.removeprefix("kx.")
        if isinstance(value, list):
            below = describe(value, indent + "  ")
            text += below if key.endswith("_tree") else f"{indent}{key}\n{below}"
        elif key not in ("zero", "reserved", "unused") or set(value) - set("0:"):
            text += f"{indent}{key} {value}\n"
    return text


def test_examples_are_what_they_say(tmp_path):
    page = PAGE.read_text(encoding="utf-8")
    examples = EXAMPLE.findall(page)
    assert len(examples) == page.count("```kx") == page.count("```fields") > 10
    file = tmp_path / "examples.pcapng"
    pcapng.write(file, [(protocol, bytes.fromhex(digits)) for protocol, digits, _ in examples])
    trees = dissect(file, "-o", "kx.show_pmks:TRUE")
    assert not [text for tree in trees for text in malformations(tree)]
    for tree, (_, digits, fields) in zip(trees, examples, strict=True):
        assert describe(tree) == fields, digits
