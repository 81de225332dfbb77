"""systemd as process 1 of namespaces of its own, with the units that a test gives it and no others.

By default it has an empty network and an empty /run.
"""

import os
import shutil
import signal
import subprocess
import tempfile
from collections.abc import Sequence
from pathlib import Path

from lab.site.processes import die_with_parent
from lab.site.waiting import wait_until

SYSTEMD = Path("/lib/systemd/systemd")
CGROUPS = (Path("/sys/fs/cgroup/unified"), Path("/sys/fs/cgroup"))
START = """
mount --make-rprivate / && mount -t proc proc /proc && { [ "$2" = shared ] || mount -t tmpfs -o mode=755 tmpfs /run; } &&
{ ! mountpoint -q /sys/fs/cgroup || umount -R /sys/fs/cgroup; } && mount -t cgroup2 cgroup2 /sys/fs/cgroup &&
exec env -i container=test "PATH=$PATH" "SYSTEMD_UNIT_PATH=$1" /lib/systemd/systemd --system --unit=test.target \
    --log-target=null --show-status=no
"""


def is_possible() -> bool:
    return (os.geteuid() == 0 and SYSTEMD.exists() and shutil.which("nsenter") is not None
            and any((each / "cgroup.procs").exists() and os.access(each, os.W_OK) for each in CGROUPS))


class SmallSystemd:
    """`units`: the directory of the unit files, with a test.target that wants them.

    `launcher`: a command that becomes systemd, with the network that systemd gets. `start`: a shell script that does, in
    namespaces of its own; its arguments are `units` and "own" or "shared", for /run.
    """

    target = "test.target"

    def __init__(self, units: Path | str, launcher: Sequence[str] = (), own_run: bool = True, start: str = START) -> None:
        parent = next(each for each in CGROUPS if (each / "cgroup.procs").exists())
        self._cgroup = Path(tempfile.mkdtemp(prefix="kx-test.", dir=parent))

        def prepare() -> None:
            die_with_parent()
            (self._cgroup / "cgroup.procs").write_text(str(os.getpid()))

        # Ended with SIGKILL, unshare takes process 1 with it, and that all others.
        network = () if launcher else ("--net",)
        self._unshare = subprocess.Popen(
            [*launcher, "unshare", "--mount", "--pid", "--fork", "--cgroup", "--ipc", "--uts", *network, "--kill-child",
             "sh", "-c", start, "sh", str(units), "own" if own_run else "shared"],
            preexec_fn=prepare, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def __enter__(self) -> "SmallSystemd":
        wait_until(lambda: self.show(self.target, "ActiveState") == "active", "systemd is up")
        return self

    def __exit__(self, *_: object) -> None:
        self._unshare.send_signal(signal.SIGKILL)
        self._unshare.wait()
        for directory in sorted(self._cgroup.rglob("*/"), reverse=True):
            wait_until(lambda directory=directory: self._is_removed(directory), f"{directory} is empty")
        wait_until(lambda: self._is_removed(self._cgroup), f"{self._cgroup} is empty")

    @staticmethod
    def _is_removed(directory: Path) -> bool:
        try:
            directory.rmdir()
        except FileNotFoundError:
            return True
        except OSError:
            return False
        return True

    def process_1(self) -> str:
        """Its id here, and nothing while it does not run."""
        return Path(f"/proc/{self._unshare.pid}/task/{self._unshare.pid}/children").read_text().strip()

    def run(self, *words: str, seconds: float = 20) -> subprocess.CompletedProcess:
        """Runs a program among systemd's processes and files."""
        entered = ["nsenter", "--target", self.process_1(), "--mount", "--pid", "--cgroup", "--net"]
        return subprocess.run([*entered, *words], capture_output=True, text=True, check=False, timeout=seconds)

    def systemctl(self, *words: str) -> str:
        try:
            return self.run("systemctl", *words).stdout.strip()
        except ProcessLookupError:  # it is starting
            return ""

    def show(self, unit: str, name: str) -> str:
        return self.systemctl("show", "--property", name, "--value", unit)
