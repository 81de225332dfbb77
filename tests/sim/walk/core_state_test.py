"""Checks that no variable of the daemon is missed where its state is saved: every writable section of the library is
core_state."""

import argparse
import re
import subprocess
import sys

# Written by the loader alone, or a sanitizer's or a fuzzer's own.
NOT_STATE = re.compile(r"\.data\.rel\.ro|\.init_array|\.fini_array|asan_globals|__sancov|\.got|__patchable")


# As readelf shows it: [number] name type address offset size entry-size flags link info alignment.
SECTION = re.compile(r"\[ *\d+\] (\S+) +\S+ +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) [0-9a-f]+ +([A-Za-z]*) +\d+ +\d+ +\d+")


def sections(readelf, library):
    """Name, size and flags of every section of every member."""
    output = subprocess.run([readelf, "-S", "-W", library], check=True, capture_output=True, text=True).stdout
    for name, size, flags in SECTION.findall(output):
        yield name, int(size, 16), flags


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--readelf", required=True, help="readelf for the library's target")
    parser.add_argument("--library", required=True, help="the library with its sections renamed")
    args = parser.parse_args()

    saved, missed = 0, []
    for name, size, flags in sections(args.readelf, args.library):
        if name == "core_state":
            saved += size
        elif size > 0 and "A" in flags and "W" in flags and not NOT_STATE.match(name):
            missed.append(f"{name}, {size} bytes: {flags}")
    print(f"{saved} bytes of state")
    # Both tables and both message buffers at least.
    if saved < 2048 * (112 + 56) + 2 * 16384:
        sys.exit("that is less than the tables and buffers need")
    if missed:
        sys.exit("writable and not saved:\n" + "\n".join(missed))


if __name__ == "__main__":
    main()
