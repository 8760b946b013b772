#!/usr/bin/env python3
"""Counts what a commit executes on its thread while windows are open, beside one without.

usage: check_windows.py BUILD_DIR

All instructions are counted, the engine's included, those of other threads are not. With more than a limit for windows
that the commit concerns, or for windows elsewhere, it fails.
"""

import pathlib
import sys

import callgrind

WINDOWS = 50
LIMITS = {"here": 1.2, "elsewhere": 1.02}


def instructions(program, place, windows):
    command = [str(program), place, str(windows)]
    return callgrind.instructions_of("zav::bench::commitOneEvent", command, "--fair-sched=try")


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    program = pathlib.Path(sys.argv[1], "Benchmarks", "zav_windows")
    alone = instructions(program, "here", 0)
    print(f"without a window: {alone:,} instructions")
    kept = True
    for place, limit in LIMITS.items():
        counted = instructions(program, place, WINDOWS)
        ratio = counted / alone
        kept = kept and ratio <= limit
        print(f"with {WINDOWS} windows {place}: {counted:,}, {ratio:.4f} of that; at most {limit}")
    sys.exit(0 if kept else 1)


main()
