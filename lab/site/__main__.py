"""Runs the lab. The script `run` builds the programs and then starts this module."""

import sys

from lab.site.ending import Ended, end_on_signals


def main() -> int:
    end_on_signals()
    try:
        from lab.site.command_line import run  # here, so that a signal while the module loads is handled
        return run()
    except Ended as ended:
        return ended.status


if __name__ == "__main__":
    sys.exit(main())
