"""Runs a program under the system call filter of a systemd unit, as systemd would set it up.

    system_call_filter.py UNIT PROGRAM [ARGUMENT]...
"""

import ctypes
import errno
import os
import subprocess
import sys

# seccomp.h
ACT_ALLOW = 0x7FFF0000
ACT_ERRNO = 0x00050000 | errno.EPERM
NO_SUCH_SYSTEM_CALL = -1


def read_groups() -> dict[str, list[str]]:
    """systemd's groups of system calls, which may name other groups."""
    groups: dict[str, list[str]] = {}
    listed = subprocess.run(["systemd-analyze", "syscall-filter"], check=True, capture_output=True, text=True).stdout
    for line in listed.splitlines():
        if line.startswith("@"):
            group = groups.setdefault(line.strip(), [])
        elif line.startswith("    ") and not line.strip().startswith("#"):
            group.append(line.strip())
    return groups


def expand(name: str, groups: dict[str, list[str]]) -> set[str]:
    return {name} if not name.startswith("@") else set().union(*(expand(each, groups) for each in groups[name]))


def read_allowed(unit: str) -> set[str]:
    """The calls that the lists allow. One that begins with ~ removes calls that the lists before it have added."""
    groups = read_groups()
    allowed = expand("@default", groups)
    with open(unit) as lines:
        for line in lines:
            name, _, value = line.strip().partition("=")
            if name != "SystemCallFilter":
                continue
            listed = set().union(*(expand(each, groups) for each in value.removeprefix("~").split()))
            allowed = allowed - listed if value.startswith("~") else allowed | listed
    return allowed


def set_filter(allowed: set[str]) -> None:
    """Installs the filter, and keeps the process from gaining privileges."""
    library = ctypes.CDLL("libseccomp.so.2", use_errno=True)
    library.seccomp_init.restype = ctypes.c_void_p
    context = ctypes.c_void_p(library.seccomp_init(ctypes.c_uint32(ACT_ERRNO)))
    for name in allowed:
        number = library.seccomp_syscall_resolve_name(name.encode())
        if number != NO_SUCH_SYSTEM_CALL:
            library.seccomp_rule_add(context, ctypes.c_uint32(ACT_ALLOW), number, 0)
    if result := library.seccomp_load(context):
        raise OSError(-result, os.strerror(-result))


def main() -> None:
    _, unit, program, *arguments = sys.argv
    set_filter(read_allowed(unit))
    os.execv(program, [program, *arguments])


if __name__ == "__main__":
    main()
