"""Searches the memory of a process for a key."""

import os
import secrets
import struct
from pathlib import Path


class Key:
    """A key, a random one by default, and the search for it or a part of it, in binary or as text."""

    def __init__(self, key: bytes | None = None) -> None:
        self.bytes = key or secrets.token_bytes(32)
        parts = [self.bytes[at:at + 8] for at in range(0, 32, 8)]
        self._marks = [*parts, *(form(part).encode() for part in parts for form in (
            bytes.hex, lambda part: part.hex().upper(), lambda part: part.hex(" "),
            lambda part: part.hex(" ").upper()))]

    def is_in(self, data: bytes) -> bool:
        return any(mark in data for mark in self._marks)


def places_of(key, process):
    """The writable mappings of a process that hold the key."""
    found = []
    with open(f"/proc/{process.pid}/maps") as maps, open(f"/proc/{process.pid}/mem", "rb", buffering=0) as memory:
        for line in maps:
            fields = line.split(maxsplit=5)
            if not fields[1].startswith("rw"):
                continue
            start, end = (int(each, 16) for each in fields[0].split("-"))
            if key.is_in(read_mapping(memory, start, end)):
                found.append(fields[5].strip() if len(fields) > 5 else fields[0])
    return found


# AddressSanitizer's shadow memory. It never holds data of the process.
SHADOW = 1 << 40
LARGE = 1 << 26


def read_mapping(memory, start, end):
    """The content of a mapping. Of a large one, only the pages that were ever used."""
    if end - start >= SHADOW:
        return b""
    if end - start < LARGE:
        return os.pread(memory.fileno(), end - start, start)
    page = os.sysconf("SC_PAGESIZE")
    with open(Path(memory.name).with_name("pagemap"), "rb", buffering=0) as pagemap:
        words = os.pread(pagemap.fileno(), (end - start) // page * 8, start // page * 8)
    return b"".join(os.pread(memory.fileno(), page, start + number * page)
                    for number, (word,) in enumerate(struct.iter_unpack("<Q", words)) if word >> 63)
