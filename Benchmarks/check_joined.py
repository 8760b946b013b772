#!/usr/bin/env python3
"""Counts what it executes to read the events of a page jointly, beside reading one by one.

usage: check_joined.py BUILD_DIR

All instructions are counted, the engine's included, of events whose rows are scattered among those of other streams and
of events whose rows follow one another. With more than a limit of those that one event at a time takes, it fails.
"""

import pathlib
import sys

import callgrind

LIMITS = {"scattered": 0.74, "together": 0.58}


def instructions(program, *words):
    return callgrind.instructions_of("zav::bench::readCounted", [str(program), *words])


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    program = pathlib.Path(sys.argv[1], "Benchmarks", "zav_joined")
    missed = False
    for rows, limit in LIMITS.items():
        singly = instructions(program, "singly", rows)
        jointly = instructions(program, "jointly", rows)
        ratio = jointly / singly
        missed |= ratio > limit
        print(
            f"rows {rows}: events one by one: {singly:,} instructions; as a page: {jointly:,}, {ratio:.3f} of that; "
            f"at most {limit}"
        )
    sys.exit(1 if missed else 0)


main()
