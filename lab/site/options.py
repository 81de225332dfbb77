"""The options of `run`. Imports only the standard library, so that `run` can check them before it builds anything."""

import argparse
import os
import sys
from collections.abc import Callable
from pathlib import Path
from typing import NoReturn

from lab.site.failure import LabFailure
from lab.site.plain_text import plain

PROGRAM = os.environ.get("LAB_PROGRAM", "run")  # as the user has called it
USAGE = (f"{PROGRAM} [--json] [--speed N|max] [FILE] | {PROGRAM} --site [--speed N] [--seed N] "
         "[--stay [--aps N] [--stations M]]" + (" | run --stock" if PROGRAM == "run" else ""))
HELP = "./run --help" if PROGRAM == "run" else f"man {PROGRAM}"

APS_MAX = 10_000  # of the fleet
STATIONS_MAX = 1_000_000
SPEED_MAX = 1_000_000


class _Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        self.print_usage(sys.stderr)
        self.exit(os.EX_USAGE, f"{PROGRAM}: {message}; {HELP} lists the options\n")


def read_options() -> argparse.Namespace:
    """Exits when the command line is invalid. Raises LabFailure when the capture cannot be read."""
    parser = _Parser(prog=PROGRAM, usage=USAGE, add_help=False)
    parser.add_argument("--build", type=Path, help=argparse.SUPPRESS)
    parser.add_argument("--json", action="store_true")
    parser.add_argument("--speed", type=speed)
    parser.add_argument("--site", action="store_true")
    if PROGRAM == "run":  # it needs the source tree
        parser.add_argument("--stock", action="store_true")
    parser.add_argument("--seed", type=int)
    parser.add_argument("--stay", action="store_true")
    parser.add_argument("--aps", type=number_up_to(APS_MAX))
    parser.add_argument("--stations", type=number_up_to(STATIONS_MAX))
    parser.add_argument("capture", nargs="?", type=Path)
    options = parser.parse_args()
    if "--stock" in sys.argv and len(sys.argv) > 2:
        parser.error("--stock stands alone")
    if options.site and (options.json or options.capture or options.speed == "max"):
        parser.error("--site takes neither --json nor a capture, and a number for --speed")
    if options.seed is not None and not options.site:
        parser.error("--seed requires --site")
    if options.stay and not options.site:
        parser.error("--stay requires --site")
    if (options.aps or options.stations) and not options.stay:
        parser.error("--aps and --stations require --stay")
    if options.capture:
        _check_readable(options.capture)
    return options


def number_up_to(most: int) -> Callable[[str], int]:
    def number(text: str) -> int:
        if not text.isdecimal() or not 0 < int(text) <= most:
            raise argparse.ArgumentTypeError(f"expected a number from 1 to {most}")
        return int(text)

    return number


def speed(text: str) -> str:
    if text == "max":
        return text
    try:
        is_speed = 0 < float(text) <= SPEED_MAX
    except ValueError:
        is_speed = False
    if not is_speed:
        raise argparse.ArgumentTypeError(f'expected "max" or a number above 0 and up to {SPEED_MAX}')
    return text


def _check_readable(file: Path) -> None:
    try:
        with open(file, "rb"):
            pass
    except OSError as error:
        raise LabFailure(f"{file}: {error.strerror}; expected a pcap or pcapng file of 802.11 traffic") from None


def main() -> int:
    try:
        read_options()
    except LabFailure as failure:
        print(f"{PROGRAM}: {plain(failure)}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
