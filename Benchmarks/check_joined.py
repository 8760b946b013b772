#!/usr/bin/env python3
"""Counts what it executes to read the events of a page jointly, beside reading one by one.

usage: check_joined.py BUILD_DIR

All instructions are counted, the engine's included. With more than a limit of those that one event at a time takes, it
fails.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

LIMIT = 0.92


def instructions(program, way):
    with tempfile.TemporaryDirectory() as directory:
        profile = pathlib.Path(directory, "profile")
        command = ["valgrind", "--tool=callgrind", "--toggle-collect=zav::bench::readCounted*",
                   f"--callgrind-out-file={profile}", str(program), way]
        done = subprocess.run(command, capture_output=True, text=True)
        if done.returncode != 0:
            sys.exit(f"{' '.join(command)}:\n{done.stderr}")
        return int(re.search(r"^(?:summary|totals): (\d+)", profile.read_text(errors="replace"), re.MULTILINE)[1])


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
