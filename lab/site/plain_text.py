"""Text from outside the lab, such as an SSID, for a terminal."""

import sys


def plain(text: object) -> str:
    """Returns the text on one line, with each character that is not printable as a backslash sequence."""
    return "".join(each if each.isprintable() else each.encode("unicode_escape").decode() for each in str(text))


def escape_what_the_output_cannot_encode() -> None:
    for stream in (sys.stdout, sys.stderr):
        stream.reconfigure(errors="backslashreplace")
