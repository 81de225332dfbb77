"""A real-time clock that the lab can set.

Setting the machine's clock would affect all processes, and a time namespace has no real-time clock. A client_mgr that
is started in the clock's context preloads a library (lab/stepped_clock), which adds an offset from a file to the
results of libc's functions.
"""

import os
import struct
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

LIBRARY = "libstepped_clock.so"


class SteppedClock:
    def __init__(self, programs: Path, directory: Path) -> None:
        self._library = programs / LIBRARY
        self._file = directory / "clock"
        self._set(0)
        self._offset = 0

    @contextmanager
    def given(self) -> Iterator[None]:
        added = {"LD_PRELOAD": str(self._library), "STEPPED_CLOCK": str(self._file)}
        os.environ.update(added)
        try:
            yield
        finally:
            for name in added:
                del os.environ[name]

    def step(self, seconds: int) -> None:
        self._offset += seconds
        self._set(self._offset)

    def _set(self, offset: int) -> None:
        with open(self._file, "r+b" if self._file.exists() else "wb") as file:
            file.write(struct.pack("=q", offset))
