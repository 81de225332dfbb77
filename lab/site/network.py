"""The lab's network namespace."""

import ctypes
import fcntl
import os
import socket
import struct

from lab.site.failure import LabFailure

CLONE_NEWNET = 0x40000000  # linux/sched.h
SIOCGIFFLAGS = 0x8913      # linux/sockios.h
SIOCSIFFLAGS = 0x8914
IFF_UP = 1
CAP_NET_ADMIN = 12                # linux/capability.h
CAPABILITY_VERSION_3 = 0x20080522
PR_SET_NO_NEW_PRIVS = 38          # linux/prctl.h

_libc = ctypes.CDLL(None, use_errno=True)


def enter_own_network() -> bool:
    """Moves this process into a new network namespace with only a loopback interface.

    With CAP_NET_ADMIN the daemon changes addresses, routes and bridges of interfaces that have its VAPs' names, and
    these must not be the machine's. Returns False when the move is not permitted; this process and its children then
    no longer have the capability. $LAB_OWN_NETWORK is 1 when the caller has already made the namespace.
    """
    if os.environ.get("LAB_OWN_NETWORK") == "1":
        return True
    if os.geteuid() != 0 or _libc.unshare(CLONE_NEWNET) != 0:
        drop_net_admin()
        return False
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        request = fcntl.ioctl(control, SIOCGIFFLAGS, struct.pack("16sH22x", b"lo", 0))
        flags = struct.unpack_from("16sH", request)[1]
        fcntl.ioctl(control, SIOCSIFFLAGS, struct.pack("16sH22x", b"lo", flags | IFF_UP))
    return True


def drop_net_admin() -> None:
    """With no_new_privs a program that root starts gets no capability back. Raises LabFailure."""
    header = struct.pack("=Ii", CAPABILITY_VERSION_3, 0)
    sets = ctypes.create_string_buffer(24)  # effective, permitted, inheritable; then their upper halves
    failed = _libc.capget(header, sets) != 0
    kept = [word & ~(1 << CAP_NET_ADMIN) for word in struct.unpack("=3I", sets.raw[:12])]
    failed = failed or _libc.prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0
    if failed or _libc.capset(header, struct.pack("=3I", *kept) + sets.raw[12:]) != 0:
        raise LabFailure(f"CAP_NET_ADMIN cannot be given up: {os.strerror(ctypes.get_errno())}; without a network "
                         "namespace the lab would change this machine's network")
