"""Checks that the lab's Python programs number messages and records as the headers do."""

import re
import sys
from enum import IntEnum
from pathlib import Path

ROOT = Path(__file__).parents[2]
sys.path.insert(0, str(ROOT))

from lab.site.messages import Captive, Local, Pmk, Radio, Record  # noqa: E402

NUMBERS = [
    ("wire/local_messages.h", r"\bKX_MSG_ID_(\w+) = (\d+)", Local),
    ("wire/local_messages.h", r"\bCAPTIVE_MSG_(\w+) = (\d+)", Captive),
    ("wire/local_messages.h", r"\bHOSTAPD_PMK_(\w+) = (\d+)", Pmk),
    ("lab/radio/radio_control.h", r"\bRADIO_MSG_(\w+) = (\d+)", Radio),
    ("wire/ctrlr_messages.h", r"^ +(?:CLIENT|ROAMING)_MGR_(\w+) = (\d+)", Record),
]


def differences(header: str, pattern: str, numbers: type[IntEnum]) -> list[str]:
    there = {name: int(number) for name, number in re.findall(pattern, (ROOT / header).read_text(), re.M)}
    here = {each.name: each.value for each in numbers}
    return [f"{header} and lab/site/messages.py: {numbers.__name__} {name}: {there.get(name)} and {here.get(name)}"
            for name in sorted({*there, *here}) if there.get(name) != here.get(name)]


if __name__ == "__main__":
    found = [line for row in NUMBERS for line in differences(*row)]
    sys.exit("\n".join(found) if found else 0)
