#!/usr/bin/env python3
"""Counts the instructions of small workloads and compares them with their budgets.

usage: check_instructions.py BUILD_DIR [--update] [--functions WORKLOAD] [--beside BUILD_DIR]

The counts are those of the library's own code, which is part of the program; what the engine, compiled in or not,
the C library and the other shared libraries execute is shown beside it. A workload more than 5% above its budget is
a failure, one more than 5% below it asks for a smaller budget. All that is executed, the engine included, is compared
with the floor that fills plain records: a workload that takes a greater multiple of it than its limit is a failure
too. Counts hold for one compiler and one engine: with others nothing is checked. --update writes the counts as the new
budgets of this compiler and engine; --functions lists where a workload's go, for the library and for the two floors.
--beside compares all instructions, the engine's included, with those of a build on another engine.
"""

import argparse
import collections
import concurrent.futures
import functools
import json
import os
import pathlib
import re
import subprocess
import sys

import callgrind

BUDGETS = pathlib.Path(__file__).with_name("instruction-budgets.json")
TOLERANCE = 0.05
PROGRAM = "zav_instructions"
ENGINE = "engine, compiled in"


def costs(profile):
    """Instructions by (object, function) in the text of a profile, each function's own only."""
    names = {"ob": {}, "fn": {}}
    current = {"ob": "", "fn": ""}
    totals = collections.Counter()
    callee_line_follows = False
    for line in profile.splitlines():
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


def compiled_in(build):
    """The object file of the engine, if it is compiled in."""
    return next((build / "CMakeFiles/zav_engine.dir").rglob("sqlite3.c.o"), None)


def functions_in(object_file):
    lines = subprocess.run(["nm", object_file], capture_output=True, text=True, check=True).stdout.splitlines()
    return {line.split()[-1] for line in lines if line.split()[-2] in "tT"}


@functools.cache
def functions_of_engine(build):
    found = compiled_in(build)
    return functions_in(found) if found else set()


def with_engine_apart(totals, build):
    """The same, with what the program has of an engine that is compiled in as an object of its own."""
    apart = collections.Counter()
    for (path, function), cost in totals.items():
        is_engine = pathlib.Path(path).name == PROGRAM and function in functions_of_engine(build)
        apart[ENGINE if is_engine else path, function] += cost
    return apart


def count(build, workload, contender="library"):
    program = build / "Benchmarks" / PROGRAM
    text = callgrind.profile([str(program), workload, contender], "--instr-atstart=no", "--collect-atstart=no")
    return with_engine_apart(costs(text), build)


def by_object(totals):
    objects = collections.Counter()
    for (path, _), cost in totals.items():
        objects[pathlib.Path(path).name] += cost
    return objects


def own(totals):
    return by_object(totals)[PROGRAM]


def ask(build, question):
    program = build / "Benchmarks" / PROGRAM
    if not program.exists():
        sys.exit(f"{program} is not built")
    return subprocess.run([program, question], capture_output=True, text=True, check=True).stdout


def compiler_and_engine(build):
    """What counts depend on: the compiler with its major version, the build type and the engine's version."""
    compiler, build_type, engine = ask(build, "--versions").strip().split(", ")
    return ", ".join([compiler.split(".")[0], build_type, engine + (" compiled in" if compiled_in(build) else "")])


def list_functions(build, workload):
    for contender in ("library", "floor", "plain"):
        totals = count(build, workload, contender)
        print(f"\n{contender}: {sum(totals.values()):,} instructions")
        for name, cost in by_object(totals).most_common():
            print(f"{cost:14,}  {name}")
        print()
        for (path, function), cost in totals.most_common(40):
            print(f"{cost:14,}  {pathlib.Path(path).name}: {function[:150]}")


def compare(build, other, workloads):
    """All instructions, as lines of a table in Markdown, and how they stand to the first."""
    print(f"| workload | {compiler_and_engine(build)} | configured | {compiler_and_engine(other)} |")
    print("|---|---:|---:|---:|")
    for workload in workloads:
        base = sum(count(build, workload).values())
        others = [sum(count(build, workload, "configured").values()), sum(count(other, workload).values())]
        print(f"| {workload} | {base:,} |", " | ".join(f"{cost:,} ({cost / base:.3f})" for cost in others), "|")


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


def check(build, workloads, stored):
    budgets, limits = stored["instructions"], stored.get("of the plain floor", {})
    kept = True
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        counts = {(workload, contender): pool.submit(count, build, workload, contender)
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
    parser.add_argument("--beside", metavar="BUILD_DIR", type=pathlib.Path)
    options = parser.parse_args()
    present, workloads = compiler_and_engine(options.build), ask(options.build, "--list").split()
    budgets = json.loads(BUDGETS.read_text())

    if options.functions:
        list_functions(options.build, options.functions)
    elif options.beside:
        compare(options.build, options.beside, workloads)
    elif options.update:
        of_present = budgets.setdefault(present, {})
        of_present["instructions"] = {workload: own(count(options.build, workload)) for workload in workloads}
        BUDGETS.write_text(json.dumps(budgets, indent=4) + "\n")
    elif present not in budgets:
        print(f"NOT CHECKED: the budgets hold for {' and for '.join(budgets)}, and this is {present}")
    elif not check(options.build, workloads, budgets[present]):
        sys.exit(1)


if __name__ == "__main__":
    main()
