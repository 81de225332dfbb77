"""A machine with systemd as its process 1, in namespaces: Debian, and what a test installs."""

import shlex
from pathlib import Path

from tests.e2e.small_systemd import SmallSystemd

# Everything that is written goes to the directory `upper`.
START = """
mount --make-rprivate / && ip link set lo up &&
mount -t overlay overlay -o lowerdir={lower},upperdir={upper},workdir={work} {root} && cd {root} &&
mount -t proc proc proc && mount -t sysfs sysfs sys && mount -t cgroup2 cgroup2 sys/fs/cgroup &&
mount -t tmpfs -o mode=755 tmpfs dev && mount -t tmpfs -o mode=755 tmpfs run && mount -t tmpfs -o mode=1777 tmpfs tmp &&
for device in "null 1 3" "zero 1 5" "full 1 7" "random 1 8" "urandom 1 9" "tty 5 0"; do
    set -- $device && mknod -m 666 "dev/$1" c "$2" "$3" || exit 1
done &&
ln -s /proc/self/fd dev/fd && ln -s pts/ptmx dev/ptmx && mkdir dev/shm dev/pts && {bind} pivot_root . . && umount -l . &&
exec env -i container=test PATH=/usr/sbin:/usr/bin:/sbin:/bin /lib/systemd/systemd --system --unit=multi-user.target \\
    --log-target=null --show-status=no
"""


class Machine(SmallSystemd):
    """`debian`: the root of a Debian installation, which stays as it is. `directory`: a private one for its changes.

    The directory `shared` is its /srv.
    """

    target = "multi-user.target"

    def __init__(self, debian: Path, directory: Path, shared: Path) -> None:
        self.upper = directory / "upper"
        places = {"lower": debian, "upper": self.upper, "work": directory / "work", "root": directory / "root"}
        for name in ("upper", "work", "root"):
            places[name].mkdir()
        bind = f"mount --bind {shlex.quote(str(shared))} srv &&"
        super().__init__(directory, start=START.format(
            bind=bind, **{name: shlex.quote(str(path)) for name, path in places.items()}))

    def must(self, *words: object) -> str:
        """Runs a command, which must succeed. Returns its output."""
        done = self.run(*map(str, words), seconds=120)
        assert done.returncode == 0, f"{words}: {done.stdout}{done.stderr}"
        return done.stdout
