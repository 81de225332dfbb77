"""A network namespace, its programs and sockets."""

import ctypes
import os
import socket
import subprocess
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

CLONE_NEWNET = 0x40000000  # linux/sched.h
NAMES = Path("/run/netns")
OF_MACHINE = Path("/proc/1/ns/net")

_libc = ctypes.CDLL(None, use_errno=True)


def run(*words: object) -> str:
    """Runs a program of the root namespace. Returns its output."""
    done = subprocess.run([str(word) for word in words], capture_output=True, text=True, check=False)
    assert done.returncode == 0, f"{' '.join(done.args)}: {done.stderr.strip() or done.stdout.strip()}"
    return done.stdout


class Namespace:
    def __init__(self, name: str) -> None:
        self.name = name
        self.launcher = ("ip", "netns", "exec", name)
        run("ip", "netns", "add", name)
        self.ip("link set lo up")

    def run(self, *words: object) -> str:
        return run(*self.launcher, *words)

    def ask(self, *words: object) -> str:
        """As `run`, in half of the time: the program does not get the namespace's /sys."""
        with entered(NAMES / self.name):
            return run(*words)

    def ip(self, *commands: str) -> None:
        """Runs the commands of ip(8) in one process."""
        done = subprocess.run(["ip", "-n", self.name, "-batch", "-"], input="\n".join(commands), capture_output=True,
                              text=True, check=False)
        assert done.returncode == 0, f"{self.name}: {done.stderr}"

    def interfaces(self) -> list[str]:
        with entered(NAMES / self.name):
            return [name for _, name in socket.if_nameindex()]

    def socket(self, *arguments: int) -> socket.socket:
        """A socket of this namespace, for a process that stays in its own."""
        with entered(NAMES / self.name):
            return socket.socket(*arguments)


@contextmanager
def entered(namespace: Path) -> Iterator[None]:
    """This thread is in the network namespace of that file meanwhile."""
    with open("/proc/thread-self/ns/net") as own, open(namespace) as other:
        enter(other.fileno())
        try:
            yield
        finally:
            enter(own.fileno())


def enter(descriptor: int) -> None:
    if _libc.setns(descriptor, CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))
