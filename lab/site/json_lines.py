"""A file of JSON objects, one per line, that another process is writing."""

import json
from pathlib import Path
from typing import Any


class JsonLines:
    def __init__(self, file: Path) -> None:
        self.file = file
        self._read = 0
        self._objects: list[dict[str, Any]] = []

    def read(self) -> list[dict[str, Any]]:
        """All objects whose lines are complete."""
        if not self.file.exists():
            return self._objects
        with open(self.file, "rb") as lines:
            lines.seek(self._read)
            whole, _, _ = lines.read().rpartition(b"\n")
        if whole:
            self._objects += [json.loads(line) for line in whole.split(b"\n")]
            self._read += len(whole) + 1
        return self._objects
