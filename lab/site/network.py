"""A network of the lab's own."""

import ctypes
import fcntl
import os
import socket
import struct

CLONE_NEWNET = 0x40000000  # linux/sched.h
SIOCGIFFLAGS = 0x8913      # linux/sockios.h
SIOCSIFFLAGS = 0x8914
IFF_UP = 1

_libc = ctypes.CDLL(None, use_errno=True)


def enter_own_network() -> bool:
    """Moves this process into a new network namespace that has a loopback interface alone.

    The daemon changes addresses, routes and bridges of interfaces that bear its VAPs' names: as root it must not find
    the machine's. False where that is not permitted. With $LAB_OWN_NETWORK set to 1, who started this process has seen
    to that already.
    """
    if os.environ.get("LAB_OWN_NETWORK") == "1":
        return True
    if os.geteuid() != 0 or _libc.unshare(CLONE_NEWNET) != 0:
        return False
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        request = fcntl.ioctl(control, SIOCGIFFLAGS, struct.pack("16sH22x", b"lo", 0))
        flags = struct.unpack_from("16sH", request)[1]
        fcntl.ioctl(control, SIOCSIFFLAGS, struct.pack("16sH22x", b"lo", flags | IFF_UP))
    return True
