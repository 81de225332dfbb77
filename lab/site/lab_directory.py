"""The private directories of labs.

A lab holds a lock on a file in its directory. The kernel releases the lock of a lab that was killed; the next lab then
removes the directory, whose keys would otherwise stay.
"""

import fcntl
import os
import shutil
import tempfile
from pathlib import Path

PREFIX = "kx-lab."
LOCK = "running"
# The longest socket name below the directory, and the longest path of a socket (linux/un.h).
LONGEST_SOCKET = "/ap10/kx/ipc/anonymous.4194304.99"
SOCKET_NAME_MAX = 107


class LabDirectory:
    """A directory with mode 0700 whose name is short enough for the sockets in it."""

    def __init__(self) -> None:
        for parent in {Path(tempfile.gettempdir()), Path("/tmp")}:
            remove_dead_directories(parent)
        self.path = make_directory()
        # The file gets its name when it is locked, so that nobody takes the directory for a dead lab's.
        aside = self.path / "starting"
        self._lock = os.open(aside, os.O_RDWR | os.O_CREAT, 0o600)
        fcntl.flock(self._lock, fcntl.LOCK_EX)
        aside.rename(self.path / LOCK)

    def release(self) -> None:
        """Keeps the directory for good."""
        if self._lock >= 0:
            (self.path / LOCK).unlink(missing_ok=True)
            os.close(self._lock)
            self._lock = -1


def make_directory() -> Path:
    directory = Path(tempfile.mkdtemp(prefix=PREFIX))
    if len(os.fsencode(directory)) + len(LONGEST_SOCKET) <= SOCKET_NAME_MAX:
        return directory
    directory.rmdir()
    return Path(tempfile.mkdtemp(prefix=PREFIX, dir="/tmp"))


def remove_dead_directories(parent: Path) -> None:
    for directory in parent.glob(f"{PREFIX}*"):
        if not directory.is_symlink() and is_dead(directory):
            shutil.rmtree(directory, ignore_errors=True)


def is_dead(directory: Path) -> bool:
    """Returns whether this user's lab in the directory was killed."""
    try:
        if directory.stat().st_uid != os.geteuid():
            return False
        descriptor = os.open(directory / LOCK, os.O_RDWR | os.O_NOFOLLOW)
    except OSError:
        return False
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        return False
    finally:
        os.close(descriptor)
    return True
