"""Runs the lab; started by `run`, which builds the programs first."""

import sys

from lab.site.ending import Ended, end_on_signals


def main() -> int:
    end_on_signals()
    try:
        from lab.site.command_line import run  # loading it takes a moment, in which a signal may come already
        return run()
    except Ended as ended:
        return ended.status


if __name__ == "__main__":
    sys.exit(main())
