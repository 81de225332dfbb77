"""The protocol as data."""

import json
import subprocess
from pathlib import Path
from typing import Any


def load(programs: Path) -> dict[str, Any]:
    """What the program protocol_tables prints."""
    done = subprocess.run([programs / "protocol_tables"], check=True, capture_output=True, text=True)
    return json.loads(done.stdout)
