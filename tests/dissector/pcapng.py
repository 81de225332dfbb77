"""Captures of exported PDUs: packets that name the protocol that dissects them."""

import struct
from pathlib import Path

LINKTYPE_EXPORTED_PDU = 252
TAG_END, TAG_PROTOCOL = 0, 12
SECTION, INTERFACE, PACKET = 0x0a0d0d0a, 1, 6


def block(kind: int, body: bytes) -> bytes:
    length = 12 + len(body)
    return struct.pack("<II", kind, length) + body + struct.pack("<I", length)


def padded(content: bytes) -> bytes:
    return content + bytes(-len(content) % 4)


def exported(protocol: str, message: bytes) -> bytes:
    name = padded(protocol.encode())
    return struct.pack(">HH", TAG_PROTOCOL, len(name)) + name + struct.pack(">HH", TAG_END, 0) + message


def packet(content: bytes) -> bytes:
    head = struct.pack("<IIIII", 0, 0, 0, len(content), len(content))
    return block(PACKET, head + padded(content))


def write(file: Path, messages: list[tuple[str, bytes]]) -> None:
    """Writes (protocol, message) pairs."""
    with file.open("wb") as to:
        to.write(block(SECTION, struct.pack("<IHHq", 0x1a2b3c4d, 1, 0, -1)))
        to.write(block(INTERFACE, struct.pack("<HHI", LINKTYPE_EXPORTED_PDU, 0, 0)))
        for protocol, message in messages:
            to.write(packet(exported(protocol, message)))
