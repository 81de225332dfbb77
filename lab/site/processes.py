"""The lab's processes. None of them outlives the process that started it."""

import ctypes
import os
import signal
import subprocess
import time
from collections.abc import Sequence
from pathlib import Path

from lab.site.failure import LabFailure
from lab.site.waiting import wait_until

END_SECONDS = 5
PR_SET_PDEATHSIG = 1  # linux/prctl.h

_libc = ctypes.CDLL(None, use_errno=True)


def die_with_parent() -> None:
    """For a new child process: the kernel kills it when the thread that started it ends."""
    _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def environment_for(root: Path | None) -> dict[str, str]:
    """The environment without KX_ variables, except KX_ROOT when `root` is given."""
    inherited = {name: value for name, value in os.environ.items() if not name.startswith("KX_")}
    return inherited | ({"KX_ROOT": str(root)} if root else {})


class Process:
    """A running program. Its output is appended to `<directory>/<program>.err` and, unless it is not kept,
    `<program>.out`."""

    def __init__(self, executable: Path, arguments: Sequence[object], directory: Path, environment: dict[str, str],
                 launcher: Sequence[object] = (), keeps_output: bool = True) -> None:
        self.name = f"{directory.name}/{executable.name}"
        self.out = directory / f"{executable.name}.out"
        self.err = directory / f"{executable.name}.err"
        argv = [str(word) for word in (*launcher, executable, *arguments)]
        parent = os.getpid()

        def prepare() -> None:
            die_with_parent()
            if os.getppid() != parent:
                os._exit(1)

        with open(self.out if keeps_output else os.devnull, "ab") as out, open(self.err, "ab") as err:
            # A session of its own: the terminal's signals go only to the lab, which ends its processes in order.
            self._popen = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=out, stderr=err, env=environment,
                                           start_new_session=True, preexec_fn=prepare)

    @property
    def pid(self) -> int:
        return self._popen.pid

    @property
    def status(self) -> int | None:
        """The exit status, negative for a signal; None while it runs."""
        return self._popen.poll()

    def check_runs(self) -> None:
        if self.status is not None:
            raise LabFailure(f"{self.name} ended with status {self.status}: {last_line(self.err)}; see {self.err}")

    def signal(self, number: int) -> None:
        """Signals the process and its children."""
        if self.status is None:
            os.killpg(self.pid, number)

    def wait(self, seconds: float = END_SECONDS) -> int:
        wait_until(lambda: self.status is not None, f"{self.name} ends", seconds, self.err)
        return self._popen.returncode

    def kill(self) -> None:
        self.signal(signal.SIGKILL)
        self._popen.wait()


def last_line(file: Path) -> str:
    lines = file.read_text(errors="replace").strip().splitlines()
    return lines[-1] if lines else "no message"


class Processes:
    """All processes of one lab. `launcher` is a command that becomes the program, such as one of ip-netns(8)."""

    def __init__(self, programs: Path, launcher: Sequence[object] = ()) -> None:
        self.programs = programs
        self.launcher = launcher
        self.all: list[Process] = []

    def start(self, program: str, arguments: Sequence[object], directory: Path, root: Path | None = None,
              keeps_output: bool = True) -> Process:
        """`root` is the root directory of the program's access point."""
        executable = self.programs / program
        if not os.access(executable, os.X_OK):
            raise LabFailure(f"{executable}: no such program")
        process = Process(executable, arguments, directory, environment_for(root), self.launcher, keeps_output)
        self.all.append(process)
        return process

    def check(self) -> None:
        """Raises LabFailure when a process has ended unexpectedly."""
        for process in self.all:
            process.check_runs()

    def forget(self, process: Process) -> None:
        """Stops watching a process, which may then end."""
        self.all.remove(process)

    def end(self) -> None:
        """Ends all processes in the reverse order of their start. Kills those that do not end on SIGTERM."""
        for process in reversed(self.all):
            process.signal(signal.SIGTERM)
        deadline = time.monotonic() + END_SECONDS
        for process in self.all:
            try:
                process.wait(deadline - time.monotonic())
            except LabFailure:
                process.kill()
        self.all.clear()
