#!/usr/bin/env python3
"""Counts what a commit executes on its thread while windows are open, beside one without.

usage: check_windows.py BUILD_DIR

All instructions are counted, the engine's included, those of other threads are not. With more than a limit for windows
that the commit concerns, or for windows elsewhere, it fails.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

WINDOWS = 50
LIMITS = {"here": 1.2, "elsewhere": 1.02}


def instructions(program, place, windows):
    with tempfile.TemporaryDirectory() as directory:
        profile = pathlib.Path(directory, "profile")
        command = ["valgrind", "--tool=callgrind", "--fair-sched=try", "--toggle-collect=zav::bench::commitOneEvent*",
                   f"--callgrind-out-file={profile}", str(program), place, str(windows)]
        done = subprocess.run(command, capture_output=True, text=True)
        if done.returncode != 0:
            sys.exit(f"{' '.join(command)}:\n{done.stderr}")
        return int(re.search(r"^(?:summary|totals): (\d+)", profile.read_text(errors="replace"), re.MULTILINE)[1])


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
