"""Cases of several pytest processes, which pytest-xdist starts, run side by side in one machine.

Each process is a worker with networks, a directory for files and radios of its own.
"""

import ctypes
import os
import tempfile
from pathlib import Path

from nodes.namespace import NAMES, run

CLONE_NEWNS, CLONE_NEWNET = 0x00020000, 0x40000000  # linux/sched.h
NUMBER = int(os.environ.get("PYTEST_XDIST_WORKER", "gw0").removeprefix("gw"))
SITE = Path(f"/run/site/{NUMBER}")


def enter_own_networks() -> None:
    """The names of network namespaces too are this process's and its children's own from now on."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(CLONE_NEWNS | CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))
    run("mount", "--make-rprivate", "/")
    NAMES.mkdir(exist_ok=True)
    run("mount", "-t", "tmpfs", "names", NAMES)
    run("ip", "link", "set", "lo", "up")
    SITE.mkdir(parents=True, exist_ok=True)
    tempfile.tempdir = str(SITE)
