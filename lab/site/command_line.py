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
from lab.site.site_report import run_site
from lab.site.site_run import Plan

USAGE = "run [--json] [--speed N|max] [FILE] | run --site [--speed N] [--seed N]"


def read_options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="run", usage=USAGE, add_help=False)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--json", action="store_true")
    parser.add_argument("--speed", type=speed)
    parser.add_argument("--site", action="store_true")
    parser.add_argument("--seed", type=int)
    parser.add_argument("capture", nargs="?", type=Path)
    options = parser.parse_args()
    if options.site and (options.json or options.capture or options.speed == "max"):
        parser.error("--site goes with --seed and a number for --speed alone")
    if options.seed is not None and not options.site:
        parser.error("--seed is for --site")
    return options


def speed(text: str) -> str:
    if text != "max" and not 0 < float(text) <= 1e6:
        raise ValueError
    return text


def dispatch(options: argparse.Namespace) -> int:
    """The exit status."""
    programs = options.build / "bin"
    console = Console(highlight=False)
    enter_own_network()
    if options.site:
        plan = Plan(seed=options.seed, speed=float(options.speed or Plan.speed))
        return 0 if run_site(plan, programs, console) else 1
    capture = open_capture(options.capture, programs) if options.capture else builtin_capture(options.build)
    if not capture.vaps:
        print(f"run: {capture.file}: no station associates with an access point in this capture", file=sys.stderr)
    elif options.json:
        run_json(capture, options.speed or "max", programs)
    else:
        run_for_people(capture, options.speed or ("max" if options.capture else "1"), programs, console)
    return 0


def run() -> int:
    """The exit status."""
    try:
        return dispatch(read_options())
    except LabFailure as failure:
        print(f"run: {failure}", file=sys.stderr)
        return 1
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 128 + signal.SIGPIPE
