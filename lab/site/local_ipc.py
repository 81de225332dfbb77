"""Local IPC: datagrams of a header (id, payload length, flags; 32-bit, big-endian) and a payload, below $KX_ROOT."""

import itertools
import os
import socket
import struct
from pathlib import Path

from lab.site.failure import LabFailure

HEADER = struct.Struct(">III")
MESSAGE_MAX = 16384
NOTIFICATION = 1
REQUEST = 2
ANSWER_SECONDS = 10

DAEMON = "kx/ipc/client_mgr"
RADIO = "kx/ipc/radio"

_numbers = itertools.count()


class LocalSocket:
    """An endpoint of the lab's own in the access point with the root directory `root`."""

    def __init__(self, root: Path) -> None:
        self._root = root
        self._path = root / "kx/ipc" / f"lab.{os.getpid()}.{next(_numbers)}"
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.settimeout(ANSWER_SECONDS)
        self._socket.bind(str(self._path))

    def __enter__(self) -> "LocalSocket":
        return self

    def __exit__(self, *_: object) -> None:
        self._path.unlink(missing_ok=True)
        self._socket.close()

    def notify(self, endpoint: str, message: int, payload: bytes) -> None:
        self._send(endpoint, message, NOTIFICATION, payload)

    def request(self, endpoint: str, message: int, payload: bytes = b"") -> bytes:
        """Returns the payload of the answer."""
        self._send(endpoint, message, REQUEST, payload)
        try:
            answer = self._socket.recv(MESSAGE_MAX)
        except TimeoutError:
            raise LabFailure(f"{self._root / endpoint}: no answer to message {message} within "
                             f"{ANSWER_SECONDS} s") from None
        identifier, length, _ = HEADER.unpack_from(answer)
        if identifier != message or length != len(answer) - HEADER.size:
            raise LabFailure(f"{self._root / endpoint}: a malformed answer to message {message}")
        return answer[HEADER.size:]

    def _send(self, endpoint: str, message: int, flags: int, payload: bytes) -> None:
        try:
            self._socket.sendto(HEADER.pack(message, len(payload), flags) + payload, str(self._root / endpoint))
        except OSError as error:
            raise LabFailure(f"{self._root / endpoint}: {error.strerror or error}") from None
