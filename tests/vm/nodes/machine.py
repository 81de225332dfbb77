"""A machine in a namespace's network, with systemd and a file system of its own above this machine's."""

import os
from collections.abc import Sequence
from pathlib import Path

from nodes.namespace import run

from tests.e2e.small_systemd import SmallSystemd

CGROUPS = Path("/sys/fs/cgroup")
# Only what a case starts, without the units that boot a whole machine. What services print is in /var/log.
UNITS = Path("etc/systemd/system")
SETTINGS = """\
[Unit]
DefaultDependencies=no
[Service]
StandardError=append:/var/log/%N.err
"""
# $1: a directory in memory. The remaining words are the command that runs in the new file system.
ENTER = """
set -e
mount --make-rprivate /
mount -t overlay overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" "$1/root"
for each in dev proc sys; do mount --rbind "/$each" "$1/root/$each"; done
mkdir -p "$1/root/run/above"
cd "$1/root"
pivot_root . run/above
umount --lazy /run/above
shift
exec "$@"
"""


def mount_cgroups() -> None:
    if not os.path.ismount(CGROUPS):
        run("mount", "-t", "cgroup2", "cgroup2", CGROUPS)


class Machine(SmallSystemd):
    """`directory`: a new one, in memory. `launcher`: a command that becomes a program, with the machine's network."""

    def __init__(self, directory: Path, launcher: Sequence[str] = ()) -> None:
        mount_cgroups()
        for name in ("upper", "work", "root"):
            (directory / name).mkdir(parents=True)
        units = directory / "upper" / UNITS
        (units / "service.d").mkdir(parents=True)
        (units / "service.d/test.conf").write_text(SETTINGS)
        (units / "test.target").write_text("[Unit]\nDescription=What the case starts\n")
        super().__init__(f"/{UNITS}:/usr/lib/systemd/system",
                         (*launcher, "unshare", "--mount", "sh", "-c", ENTER, "sh", str(directory)))

    def shell(self, script: str, seconds: float = 120) -> str:
        """Runs a script as root. Returns what it printed."""
        done = self.run("bash", "-euc", script, seconds=seconds)
        assert done.returncode == 0, f"{script}\n{done.stdout}{done.stderr}\n{self.logs()}"
        return done.stdout

    def logs(self) -> str:
        return self.run("sh", "-c", "tail -n 40 /var/log/*.err").stdout

    def read(self, file: Path) -> bytes:
        return self._own(file).read_bytes()

    def write(self, file: Path, content: bytes) -> None:
        self._own(file).write_bytes(content)

    def _own(self, file: Path) -> Path:
        return Path(f"/proc/{self.process_1()}/root") / file.relative_to("/")
