"""The tables of tools/dissector/kx_layouts.lua."""

from typing import Any

HEAD = """\
-- Made by tools/protocol/generate from the controller's table of layouts and the headers of wire/ and tunnel/.
-- A field is {key, kind, offset, width}.
return {
"""


def text(value: str) -> str:
    return '"' + value.replace("\\", "\\\\").replace('"', '\\"') + '"'


def plain(value: Any) -> str:
    if isinstance(value, bool):
        return "true" if value else "false"
    return text(value) if isinstance(value, str) else str(value)


def row(values: dict[str, Any]) -> str:
    """A table of one line. What is null or empty is left out."""
    return "{" + ", ".join(f"{key} = {plain(value)}" for key, value in values.items() if value not in (None, "")) + "}"


def fields(of: list[dict[str, Any]], indent: str) -> str:
    if not of:
        return "{}"
    lines = "".join(f'{indent}  {{"{each["key"]}", "{each["kind"]}", {each["offset"]}, {each["width"]}}},\n'
                    for each in of)
    return "{\n" + lines + indent + "}"


def record(of: dict[str, Any]) -> str:
    head = "".join(f"      {key} = {plain(of[key])},\n" for key in ("name", "to_controller", "open_ended", "list")
                   if of[key] is not None)
    return (f"    [{of['type']}] = {{\n{head}      body = {fields(of['body'], '      ')},\n"
            f"      entry = {fields(of['entry'], '      ')},\n    }},\n")


def table(name: str, rows: list[str]) -> str:
    return f"  {name} = {{\n" + "".join(rows) + "  },\n"


def lua_tables(protocol: dict[str, Any]) -> str:
    structures = [f"    {name} = {{size = {each['size']}, fields = {fields(each['fields'], '    ')}}},\n"
                  for name, each in protocol["structures"].items()]
    rows = {name: [f"    {row(each)},\n" for each in protocol[name]]
            for name in ("local_messages", "own_frames", "driver_calls", "value_names")}
    return (HEAD + table("limits", [f"    {key} = {value},\n" for key, value in protocol["limits"].items()]) +
            table("records", [record(each) for each in protocol["records"]]) + table("structures", structures) +
            "".join(table(name, lines) for name, lines in rows.items()) + "}\n")
