#!/usr/bin/env python3
"""Counts what it executes to read the events of a page jointly, beside reading one by one.

usage: check_joined.py BUILD_DIR

All instructions are counted, the engine's included. With more than a limit of those that one event at a time takes, it
fails.
"""

import pathlib
import sys

import callgrind

LIMIT = 0.76


def instructions(program, way):
    return callgrind.instructions_of("zav::bench::readCounted", [str(program), way])


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    program = pathlib.Path(sys.argv[1], "Benchmarks", "zav_joined")
    singly = instructions(program, "singly")
    jointly = instructions(program, "jointly")
    ratio = jointly / singly
    print(f"events one by one: {singly:,} instructions; as a page: {jointly:,}, {ratio:.3f} of that; at most {LIMIT}")
    sys.exit(0 if ratio <= LIMIT else 1)


main()
