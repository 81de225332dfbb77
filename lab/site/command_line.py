"""The command line of `run`."""

import argparse
import os
import signal
import sys

from rich.console import Console

from lab.site.capture_run import builtin_capture, open_capture, run_for_people, run_json
from lab.site.failure import LabFailure
from lab.site.network import enter_own_network
from lab.site.options import PROGRAM, read_options
from lab.site.plain_text import escape_what_the_output_cannot_encode, plain
from lab.site.site_report import run_site
from lab.site.site_run import Plan
from lab.site.stay import StayPlan, stay


def dispatch(options: argparse.Namespace) -> int:
    """Returns the exit status."""
    programs = options.build / "bin"
    console = make_console()
    if options.stay:
        stay(StayPlan(options.aps or StayPlan.access_points, options.stations or StayPlan.stations, options.seed,
                      float(options.speed or StayPlan.speed)), programs, console)
    enter_own_network()
    if options.site:
        plan = Plan(seed=options.seed, speed=float(options.speed or Plan.speed))
        return 0 if run_site(plan, programs, console) else 1
    capture = open_capture(options.capture, programs) if options.capture else builtin_capture(options.build)
    if not capture.vaps:
        print(f"{PROGRAM}: {plain(capture.file)}: no station associates with an access point in this capture", file=sys.stderr)
    elif options.json:
        run_json(capture, options.speed or "max", programs)
    else:
        run_for_people(capture, options.speed or ("max" if options.capture else "1"), programs, console)
    return 0


def make_console() -> Console:
    """Emoji codes are off, because they occur in MAC addresses."""
    return Console(highlight=False, emoji=False)


def run() -> int:
    """Returns the exit status."""
    escape_what_the_output_cannot_encode()
    try:
        status = dispatch(read_options())
        sys.stdout.flush()
        return status
    except LabFailure as failure:
        print(f"{PROGRAM}: {plain(failure)}", file=sys.stderr)
        return 1
    except BrokenPipeError:
        discard_output()
        return 128 + signal.SIGPIPE
    except OSError as error:
        discard_output()
        where = f"{error.filename}: " if error.filename else ""
        print(f"{PROGRAM}: {plain(where)}{error.strerror}", file=sys.stderr)
        return 1


def discard_output() -> None:
    """What is buffered is written at the end of the process, and must not fail then."""
    os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
