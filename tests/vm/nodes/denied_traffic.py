"""A control group whose processes send and receive no IP packet, as systemd's IPAddressDeny=any makes one."""

import ctypes
import os
import platform
import struct
from pathlib import Path

from nodes.namespace import run

# linux/bpf.h, and the number of bpf(2) in asm/unistd.h
NUMBER_OF_BPF = {"x86_64": 321}[platform.machine()]
PROG_LOAD, PROG_ATTACH = 5, 8
CGROUP_SKB = 8
INGRESS, EGRESS = 0, 1
DENY = struct.pack("<BBhi", 0xB7, 0, 0, 0) + struct.pack("<BBhi", 0x95, 0, 0, 0)  # r0 = 0; exit
LICENCE = b"GPL\0"


def bpf(command: int, attributes: bytes) -> int:
    libc = ctypes.CDLL(None, use_errno=True)
    result = libc.syscall(NUMBER_OF_BPF, command, ctypes.create_string_buffer(attributes, len(attributes)),
                          len(attributes))
    if result < 0:
        raise OSError(ctypes.get_errno(), "bpf")
    return result


class DeniedTraffic:
    def __init__(self, directory: Path) -> None:
        tree = directory / "cgroup"
        tree.mkdir()
        run("mount", "-t", "cgroup2", "none", tree)
        self.group = tree / "denied"
        self.group.mkdir(exist_ok=True)
        instructions, licence = ctypes.create_string_buffer(DENY, len(DENY)), ctypes.create_string_buffer(LICENCE)
        program = bpf(PROG_LOAD, struct.pack("<IIQQ", CGROUP_SKB, len(DENY) // 8, ctypes.addressof(instructions),
                                             ctypes.addressof(licence)).ljust(120, b"\0"))
        group = os.open(self.group, os.O_RDONLY)
        for direction in (INGRESS, EGRESS):
            bpf(PROG_ATTACH, struct.pack("<IIII", group, program, direction, 0))
        os.close(group)
        os.close(program)

    def launcher(self) -> tuple[str, ...]:
        """Words before those of a command."""
        return "sh", "-c", f'echo $$ >{self.group}/cgroup.procs && exec "$0" "$@"'
