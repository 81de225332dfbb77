"""What is on the air: the frames of all radios, with the kernel's time."""

import socket
import struct
import threading
from dataclasses import dataclass
from types import TracebackType

from nodes.namespace import OF_MACHINE, entered, run

MONITOR = "hwsim0"  # of mac80211_hwsim: every frame that a radio sends, behind a radiotap header
ETH_P_ALL = 3  # linux/if_ether.h
SO_TIMESTAMPNS = 35  # asm-generic/socket.h; the control message has the same number
# The first octet of Frame Control (IEEE 802.11-2020, 9.2.4.1).
ASSOC_REQUEST, ASSOC_RESPONSE, REASSOC_REQUEST, REASSOC_RESPONSE, AUTHENTICATION = 0x00, 0x10, 0x20, 0x30, 0xB0
DATA, QOS_DATA = 0x08, 0x88
HEADER_SIZES = {DATA: 24, QOS_DATA: 26}
EAPOL = bytes.fromhex("aaaa03000000888e")  # LLC and SNAP


@dataclass(frozen=True)
class Frame:
    """`kind` is the first octet of Frame Control. Only EAPOL is kept of the data frames."""

    time: float
    kind: int
    receiver: str
    sender: str


class AirCapture:
    """Inside the context `frames` grows."""

    def __init__(self) -> None:
        run("nsenter", f"--net={OF_MACHINE}", "ip", "link", "set", MONITOR, "up")
        with entered(OF_MACHINE):
            self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
            self._socket.bind((MONITOR, ETH_P_ALL))
        self._socket.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
        self._socket.settimeout(0.2)
        self.frames: list[Frame] = []
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._receive)

    def __enter__(self) -> "AirCapture":
        self._thread.start()
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._ended.set()
        self._thread.join()
        self._socket.close()
        run("nsenter", f"--net={OF_MACHINE}", "ip", "link", "set", MONITOR, "down")

    def _receive(self) -> None:
        while not self._ended.is_set():
            try:
                octets, control, _, _ = self._socket.recvmsg(4096, socket.CMSG_SPACE(16))
            except TimeoutError:
                continue
            seconds, nanoseconds = struct.unpack("qq", control[0][2])
            frame = parse(octets, seconds + nanoseconds / 1e9)
            if frame:
                self.frames.append(frame)


def parse(octets: bytes, time: float) -> Frame | None:
    """None for a frame that no association has."""
    frame = octets[struct.unpack_from("<H", octets, 2)[0]:]
    if len(frame) < 24:
        return None
    kind = frame[0]
    if kind in HEADER_SIZES:
        if frame[HEADER_SIZES[kind]:].startswith(EAPOL):
            return Frame(time, kind, frame[4:10].hex(":"), frame[10:16].hex(":"))
        return None
    if kind in (ASSOC_REQUEST, ASSOC_RESPONSE, REASSOC_REQUEST, REASSOC_RESPONSE, AUTHENTICATION):
        return Frame(time, kind, frame[4:10].hex(":"), frame[10:16].hex(":"))
    return None
