"""The lab's network namespace."""

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
    """Moves this process into a new network namespace with only a loopback interface.

    As root the daemon changes addresses, routes and bridges of interfaces that have its VAPs' names, and these must not
    be the machine's. Returns False when the move is not permitted. $LAB_OWN_NETWORK is 1 when the caller has already
    made the namespace.
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
