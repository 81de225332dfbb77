"""The control interface of hostapd and wpa_supplicant: commands with replies, and events, as datagrams of text."""

import itertools
import socket
import threading
import time
from pathlib import Path

from nodes.worker import SITE

from lab.site.failure import LabFailure

REPLY_SECONDS = 10
EVENT_MARK = b"<"  # an event starts with its priority, as "<3>"

_numbers = itertools.count()


class ControlSocket:
    """Attached: it collects every event from now on. Several threads may send requests."""

    def __init__(self, server: Path) -> None:
        self._requests = threading.Lock()
        self._own = SITE / f"control.{next(_numbers)}"
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(self._own))
        self._server = server
        self.events: list[str] = []
        try:
            self._socket.connect(str(server))
            self.command("ATTACH")
        except OSError:
            self.close()
            raise

    def close(self) -> None:
        self._socket.close()
        self._own.unlink()

    def request(self, text: str) -> str:
        with self._requests:
            self._socket.send(text.encode())
            deadline = time.monotonic() + REPLY_SECONDS
            while True:
                datagram = self._receive(deadline, f"an answer to {text}")
                if not datagram.startswith(EVENT_MARK):
                    return datagram.decode(errors="replace")
                self._collect(datagram)

    def command(self, text: str) -> None:
        """Raises LabFailure when the answer is not OK."""
        answer = self.request(text)
        if answer.strip() != "OK":
            raise LabFailure(f"{self._server}: the answer to \"{text}\" is \"{answer.strip()}\"")

    def status(self) -> dict[str, str]:
        return dict(line.split("=", 1) for line in self.request("STATUS").splitlines() if "=" in line)

    def mark(self) -> int:
        """A point in time for `wait_for`."""
        self._drain()
        return len(self.events)

    def count(self, text: str, since: int = 0) -> int:
        self._drain()
        return sum(text in event for event in self.events[since:])

    def wait_for(self, text: str, since: int = 0, seconds: float = 20) -> str:
        """Returns the first event after the mark `since` that contains `text`."""
        deadline = time.monotonic() + seconds
        seen = since
        while True:
            for event in self.events[seen:]:
                seen += 1
                if text in event:
                    return event
            self._collect(self._receive(deadline, f"the event {text}"))

    def _drain(self) -> None:
        self._socket.setblocking(False)
        try:
            while True:
                self._collect(self._socket.recv(8192))
        except BlockingIOError:
            return

    def _receive(self, deadline: float, what: str) -> bytes:
        self._socket.settimeout(max(deadline - time.monotonic(), 0.001))
        try:
            return self._socket.recv(8192)
        except TimeoutError:
            raise LabFailure(f"{self._server}: {what} did not come; the last events are {self.events[-5:]}") from None

    def _collect(self, datagram: bytes) -> None:
        if datagram.startswith(EVENT_MARK):
            self.events.append(datagram[3:].decode(errors="replace"))


def try_to_attach(server: Path) -> ControlSocket | None:
    """Returns nothing while there is no server; one that was killed leaves its socket's file."""
    try:
        return ControlSocket(server)
    except OSError:
        return None
