"""Frames that say where and when they were sent, and who hears them."""

import socket
import threading
import time
from collections import Counter

from nodes.namespace import Namespace

EXPERIMENTAL = 0x88B5  # IEEE 802, 9.2.3
ARP = 0x0806
MARK = b"marked "
BROADCAST = bytes(6 * [0xFF])
INTERVAL_SECONDS = 0.1


class Sender:
    """Sends a broadcast with its mark and a number every 100 ms, from its start to its end."""

    def __init__(self, mark: str, interface: str, mac: str, ethertype: int = EXPERIMENTAL,
                 namespace: Namespace | None = None) -> None:
        self.mark = mark
        self._ethertype = ethertype
        self._source = bytes.fromhex(mac.replace(":", ""))
        self._socket = open_socket(interface, ethertype, namespace)
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._send, daemon=True)

    def __enter__(self) -> "Sender":
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._ended.set()
        self._thread.join()
        self._socket.close()

    def _send(self) -> None:
        number = 0
        while not self._ended.wait(INTERVAL_SECONDS):
            text = MARK + f"{self.mark} {number}".encode().ljust(39)
            number += 1
            try:
                self._socket.send(BROADCAST + self._source + self._ethertype.to_bytes(2, "big") + text)
            except OSError:  # the station is not connected
                pass


class Listener:
    """Counts the marked frames that an interface receives, each by mark and number."""

    def __init__(self, interface: str, namespace: Namespace | None = None, ethertype: int = EXPERIMENTAL) -> None:
        self._socket = open_socket(interface, ethertype, namespace)
        self._socket.settimeout(0.2)
        self._ended = False
        self.heard: dict[str, Counter[int]] = {}
        self._thread = threading.Thread(target=self._receive, daemon=True)

    def __enter__(self) -> "Listener":
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._ended = True
        self._thread.join()
        self._socket.close()

    def count(self, mark: str) -> int:
        return len(self.heard.get(mark, ()))

    @property
    def repeated(self) -> dict[str, list[int]]:
        """The numbers that came more than once."""
        return {mark: twice for mark, numbers in list(self.heard.items())
                if (twice := [number for number, times in list(numbers.items()) if times > 1])}

    def _receive(self) -> None:
        while not self._ended:
            try:
                frame, address = self._socket.recvfrom(2048)
            except (TimeoutError, OSError):
                time.sleep(0.01)
                continue
            if address[2] == socket.PACKET_OUTGOING or not frame[14:].startswith(MARK):
                continue
            mark, number = frame[14 + len(MARK):].decode().split()
            self.heard.setdefault(mark, Counter())[int(number)] += 1


def open_socket(interface: str, ethertype: int, namespace: Namespace | None = None) -> socket.socket:
    arguments = (socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ethertype))
    opened = namespace.socket(*arguments) if namespace else socket.socket(*arguments)
    opened.bind((interface, ethertype))
    return opened
