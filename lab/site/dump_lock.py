"""The lock on the file of the daemons' table dumps."""

import fcntl
import os
import pwd
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

from lab.site.failure import LabFailure
from lab.site.waiting import wait_until

PATIENCE_SECONDS = 5  # a reader needs milliseconds


@contextmanager
def locked_directory(directory: Path) -> Iterator[None]:
    """Raises LabFailure with the name of the process that does not release the lock."""
    descriptor = os.open(directory, os.O_RDONLY | os.O_DIRECTORY)
    try:
        try:
            wait_until(lambda: try_lock(descriptor), f"{directory}: lock", PATIENCE_SECONDS)
        except LabFailure:
            raise LabFailure(f"{directory}: {describe_holder(os.fstat(descriptor))} holds the lock") from None
        yield
    finally:
        os.close(descriptor)


def try_lock(descriptor: int) -> bool:
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        return False
    return True


def describe_holder(locked: os.stat_result) -> str:
    """Returns the process and the user, as far as /proc shows them."""
    place = f"{os.major(locked.st_dev):02x}:{os.minor(locked.st_dev):02x}:{locked.st_ino}"
    for line in Path("/proc/locks").read_text().splitlines():
        words = line.split()  # number, type, "ADVISORY", "WRITE", process, place, first byte, last byte
        if words[1] == "FLOCK" and words[5] == place:
            return describe_process(int(words[4]))
    return "another process"


def describe_process(pid: int) -> str:
    try:
        user = os.stat(f"/proc/{pid}").st_uid
    except OSError:
        return f"process {pid}"
    try:
        return f"process {pid} of user {pwd.getpwuid(user).pw_name}"
    except KeyError:
        return f"process {pid} of user {user}"
