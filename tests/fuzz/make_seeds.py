#!/usr/bin/env python3
"""Writes the seeds of every fuzz target: well-formed inputs that the fuzzers start from.

DIRECTORY/TARGET/ gets one file for each seed of the target, and DIRECTORY/TARGET.list names them and the target's
regressions, separated by commas. DIRECTORY/TARGET.dict is the target's dictionary.
"""
import argparse
import pathlib
import shutil
import sys

HERE = pathlib.Path(__file__).parent
sys.path[:0] = [str(HERE), str(HERE.parents[1])]

import daemon_seeds  # noqa: E402
import hostapd_seeds  # noqa: E402
import http_seeds  # noqa: E402
import lab_seeds  # noqa: E402
import radius_seeds  # noqa: E402


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("directory", type=pathlib.Path)
    parser.add_argument("regressions", type=pathlib.Path)
    arguments = parser.parse_args()
    makers = (daemon_seeds, hostapd_seeds, http_seeds, lab_seeds, radius_seeds)
    for target, seeds in (item for maker in makers for item in maker.all_seeds().items()):
        place = arguments.directory / target
        place.mkdir(parents=True)
        files = []
        for number, seed in enumerate(seeds):
            files.append(place / f"{number:03}")
            files[-1].write_bytes(seed)
        files += sorted((arguments.regressions / target).glob("*"))
        (arguments.directory / f"{target}.list").write_text(",".join(map(str, files)))
        own = HERE / f"{target}.dict"
        shutil.copyfile(own if own.exists() else HERE / "daemon.dict", arguments.directory / f"{target}.dict")


if __name__ == "__main__":
    main()
