"""A store with many clients, as if a large site had been there before."""

import sqlite3
import struct
from pathlib import Path

from steps import client_mac

APS, VLANS = 100, (10, 20, 30)
NAMED_EVERY = 100


def mac(prefix: int, number: int) -> bytes:
    return struct.pack(">HI", prefix, number)


def access_point(number: int) -> bytes:
    return mac(0x02A0, number << 8)


def fill(database: Path, clients: int) -> list[str]:
    """Adds clients to a store whose controller has ended. Returns the addresses, in order."""
    def place(number: int) -> bytes:
        ap = access_point(number % APS)
        return ap + ap[:5] + b"\x01"

    store = sqlite3.connect(database)
    with store:
        store.executemany("INSERT INTO client VALUES (?, ?, NULL, ?, ?, 0)",
                          ((bytes.fromhex(client_mac(number).replace(":", "")), place(number), VLANS[number % 3],
                            0x0A000000 + number) for number in range(clients)))
        store.executemany("INSERT INTO client_name VALUES (?, ?)",
                          ((bytes.fromhex(client_mac(number).replace(":", "")), f"printer {number}")
                           for number in range(0, clients, NAMED_EVERY)))
    store.close()
    return [client_mac(number) for number in range(clients)]
