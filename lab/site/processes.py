"""The lab's processes: none of them outlives the one that started it."""

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
    """In a new child: be killed when the thread that started it ends, however that comes about."""
    _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def environment_for(root: Path | None) -> dict[str, str]:
    """The environment without the settings of any other access point; with `root`, for the one that lives there."""
    inherited = {name: value for name, value in os.environ.items() if not name.startswith("KX_")}
    return inherited | ({"KX_ROOT": str(root)} if root else {})


class Process:
    """A running program; its output is appended to `<directory>/<program>.out` and `<program>.err`."""

    def __init__(self, executable: Path, arguments: Sequence[object], directory: Path,
                 environment: dict[str, str]) -> None:
        self.name = f"{directory.name}/{executable.name}"
        self.out = directory / f"{executable.name}.out"
        self.err = directory / f"{executable.name}.err"
        argv = [str(word) for word in (executable, *arguments)]
        parent = os.getpid()

        def prepare() -> None:
            die_with_parent()
            if os.getppid() != parent:
                os._exit(1)

        with open(self.out, "ab") as out, open(self.err, "ab") as err:
            # A session of its own: what the terminal sends goes to the lab alone, which ends its processes in order.
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
        """Also to what it has started itself."""
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
    """Everything that one lab has started."""

    def __init__(self, programs: Path) -> None:
        self.programs = programs
        self.all: list[Process] = []

    def start(self, program: str, arguments: Sequence[object], directory: Path, root: Path | None = None) -> Process:
        """`root`: where the access point lives to which the program belongs."""
        executable = self.programs / program
        if not os.access(executable, os.X_OK):
            raise LabFailure(f"{executable}: the program is missing")
        process = Process(executable, arguments, directory, environment_for(root))
        self.all.append(process)
        return process

    def check(self) -> None:
        """Raises LabFailure when one of them has ended by itself."""
        for process in self.all:
            process.check_runs()

    def forget(self, process: Process) -> None:
        """`process` may end from now on."""
        self.all.remove(process)

    def end(self) -> None:
        """Ends them in the reverse order of their start; who does not end when asked is killed."""
        for process in reversed(self.all):
            process.signal(signal.SIGTERM)
        deadline = time.monotonic() + END_SECONDS
        for process in self.all:
            try:
                process.wait(deadline - time.monotonic())
            except LabFailure:
                process.kill()
        self.all.clear()
