#!/usr/bin/env python3
"""Counts the instructions of small workloads and compares them with their budgets.

usage: check_instructions.py BUILD_DIR [--update] [--functions WORKLOAD]

The counts are those of the library's own code, which is part of the program; what the engine, the C library and
the other shared libraries execute is shown beside it. A workload more than 5% above its budget is a failure, one
more than 5% below it asks for a smaller budget. All that is executed, the engine included, is compared with the
floor that fills plain records: a workload that takes a greater multiple of it than its limit is a failure too.
Counts hold for one compiler and one engine: with others nothing is checked. --update writes the counts as the new
budgets; --functions lists where a workload's go, for the library and for the two floors.
"""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

BUDGETS = pathlib.Path(__file__).with_name("instruction-budgets.json")
TOLERANCE = 0.05
PROGRAM = "zav_instructions"


def costs(profile):
    """Instructions by (object, function), each function's own only."""
    names = {"ob": {}, "fn": {}}
    current = {"ob": "", "fn": ""}
    totals = collections.Counter()
    callee_line_follows = False
    for line in profile.read_text(errors="replace").splitlines():
        reference = re.match(r"(c?)(ob|fn)=\((\d+)\)(?: (.*))?", line)
        if reference:
            called, kind, number, name = reference.groups()
            if name is not None:
                names[kind][number] = name
            if not called:
                current[kind] = names[kind][number]
        elif line.startswith("calls="):
            callee_line_follows = True
        elif re.match(r"[-+*\d]", line):
            if not callee_line_follows:
                fields = line.split()
                if len(fields) > 1:
                    totals[current["ob"], current["fn"]] += int(fields[1])
            callee_line_follows = False
    return totals


def count(program, workload, contender="library"):
    with tempfile.TemporaryDirectory() as directory:
        profile = pathlib.Path(directory, "profile")
        command = ["valgrind", "--tool=callgrind", "--instr-atstart=no", "--collect-atstart=no",
                   f"--callgrind-out-file={profile}", str(program), workload, contender]
        done = subprocess.run(command, capture_output=True, text=True)
        if done.returncode != 0:
            sys.exit(f"{workload} cannot be counted:\n{done.stderr}")
        return costs(profile)


def by_object(totals):
    objects = collections.Counter()
    for (path, _), cost in totals.items():
        objects[pathlib.Path(path).name] += cost
    return objects


def own(totals):
    return by_object(totals)[PROGRAM]


def compiler_and_engine(text):
    """What counts depend on: the compiler with its major version, the build type and the engine's version."""
    compiler, build_type, engine = text.strip().split(", ")
    return ", ".join([compiler.split(".")[0], build_type, engine])


def list_functions(program, workload):
    for contender in ("library", "floor", "plain"):
        totals = count(program, workload, contender)
        print(f"\n{contender}: {sum(totals.values()):,} instructions")
        for name, cost in by_object(totals).most_common():
            print(f"{cost:14,}  {name}")
        print()
        for (path, function), cost in totals.most_common(40):
            print(f"{cost:14,}  {pathlib.Path(path).name}: {function[:150]}")


def judge_own(counted, budget):
    """Whether the library's own instructions keep their budget, and a word on it."""
    if budget is None:
        return False, "FAILED: it has no budget"
    if counted > budget * (1 + TOLERANCE):
        return False, f"FAILED: {counted / budget - 1:.1%} above its budget"
    if counted < budget * (1 - TOLERANCE):
        return True, f"{1 - counted / budget:.1%} below its budget: lower it, with --update"
    return True, "ok"


def judge_all(ratio, limit):
    """The same of all instructions, as a multiple of the floor's."""
    if limit is None:
        return True, f"{ratio:.3f} of the plain floor"
    return ratio <= limit, f"{'' if ratio <= limit else 'FAILED: '}{ratio:.3f} of the plain floor, at most {limit}"


def check(program, workloads, budgets, limits):
    kept = True
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        counts = {(workload, contender): pool.submit(count, program, workload, contender)
                  for workload in workloads for contender in ("library", "plain")}
    for workload in workloads:
        library, plain = (counts[workload, contender].result() for contender in ("library", "plain"))
        counted, budget = own(library), budgets.get(workload)
        ratio = sum(library.values()) / sum(plain.values())
        others = ", ".join(f"{name} {cost:,}" for name, cost in by_object(library).most_common() if name != PROGRAM)
        verdicts = judge_own(counted, budget), judge_all(ratio, limits.get(workload))
        kept = kept and all(good for good, _ in verdicts)
        words = "; ".join(word for _, word in verdicts)
        print(f"{workload:12} {counted:12,} of {budget or 0:12,}  {words}  ({others})")
    return kept


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--update", action="store_true")
    parser.add_argument("--functions", metavar="WORKLOAD")
    options = parser.parse_args()
    program = options.build / "Benchmarks" / PROGRAM
    if not program.exists():
        sys.exit(f"{program} is not built")
    ask = lambda question: subprocess.run([program, question], capture_output=True, text=True, check=True).stdout
    present, workloads = compiler_and_engine(ask("--versions")), ask("--list").split()

    if options.functions:
        list_functions(program, options.functions)
    elif options.update:
        stored = json.loads(BUDGETS.read_text())
        budgets = {workload: own(count(program, workload)) for workload in workloads}
        stored |= {"made with": present, "instructions": budgets}
        BUDGETS.write_text(json.dumps(stored, indent=4) + "\n")
    else:
        stored = json.loads(BUDGETS.read_text())
        if stored["made with"] != present:
            print(f"NOT CHECKED: the budgets hold for {stored['made with']}, and this is {present}")
        elif not check(program, workloads, stored["instructions"], stored["of the plain floor"]):
            sys.exit(1)


if __name__ == "__main__":
    main()
