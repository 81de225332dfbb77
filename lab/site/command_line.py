"""What `run` asks of the lab."""

import argparse
import os
import signal
import sys
from pathlib import Path

from rich.console import Console

from lab.site.capture_run import builtin_capture, open_capture, run_for_people, run_json
from lab.site.failure import LabFailure
from lab.site.network import enter_own_network

USAGE = "run [--json] [--speed N|max] [FILE]"


def read_options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="run", usage=USAGE, add_help=False)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--json", action="store_true")
    parser.add_argument("--speed", type=speed)
    parser.add_argument("capture", nargs="?", type=Path)
    return parser.parse_args()


def speed(text: str) -> str:
    if text != "max" and not 0 < float(text) <= 1e6:
        raise ValueError
    return text


def dispatch(options: argparse.Namespace) -> None:
    programs = options.build / "bin"
    enter_own_network()
    capture = open_capture(options.capture, programs) if options.capture else builtin_capture(options.build)
    if options.json:
        run_json(capture, options.speed or "max", programs)
    else:
        run_for_people(capture, options.speed or ("max" if options.capture else "1"), programs,
                       Console(highlight=False))


def run() -> int:
    """The exit status."""
    try:
        dispatch(read_options())
        return 0
    except LabFailure as failure:
        print(f"run: {failure}", file=sys.stderr)
        return 1
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 128 + signal.SIGPIPE
