#!/usr/bin/env python3
"""Compares the processor time of the tool with what the library alone needs for the same events.

usage: compare_tool.py ZAVEVENTS BUILD_DIR EVENTS.jsonl [TURNS]

In each turn the tool imports the file into a new store and writes all events of it, then the library reads all of
these events and persists them in a new store, in transactions of as many events. Medians, and the tool's peak of
memory. Every event needs a sequence and a stream with a UUID.
"""

import os
import pathlib
import statistics
import subprocess
import sys
import tempfile


def measure(command):
    """Processor seconds and peak of memory in MiB of a command whose output is dropped."""
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f"{' '.join(map(str, command))} failed")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def main():
    if len(sys.argv) not in (4, 5):
        sys.exit(__doc__)
    tool, replay, events = sys.argv[1], pathlib.Path(sys.argv[2], "Benchmarks", "zav_replay"), sys.argv[3]
    times = {name: [] for name in ("import", "persist", "events --all", "read all")}
    peaks = {"import": 0.0, "events --all": 0.0}
    for _ in range(int(sys.argv[4]) if len(sys.argv) == 5 else 5):
        with tempfile.TemporaryDirectory() as directory:
            store = pathlib.Path(directory, "store.db")
            for name, command in (("import", [tool, "import", store, events]),
                                  ("events --all", [tool, "events", store, "--all"])):
                seconds, peak = measure(command)
                times[name].append(seconds)
                peaks[name] = max(peaks[name], peak)
            answer = subprocess.run([replay, store], capture_output=True, text=True, check=True).stdout.split()
            times["read all"].append(float(answer[1]))
            times["persist"].append(float(answer[2]))
    median = {name: statistics.median(values) for name, values in times.items()}
    for name, base in (("import", "persist"), ("events --all", "read all")):
        print(f"{name:13} {median[name]:7.3f} s, the library to {base:8} {median[base]:7.3f} s: "
              f"{median[name] / median[base]:.2f}; peak {peaks[name]:.1f} MiB")


if __name__ == "__main__":
    main()
