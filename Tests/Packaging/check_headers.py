#!/usr/bin/env python3
"""Checks the installed headers: check_headers.py SETTINGS

They are the public ones, each compiles with nothing but the compiler's own headers and the others, and all are
installed alike with a shared library.
"""

import re
from concurrent.futures import ThreadPoolExecutor

from packaging import COMPILER, SOURCE, WORK, expect, fresh, prefix_of, run

include = prefix_of("static") / "include"
installed = {path.relative_to(include).as_posix() for path in include.rglob("*") if not path.is_dir()}
project = (SOURCE / "Code/CMakeLists.txt").read_text(encoding="utf-8")
listed = re.search(r"set\(public_headers(.*?)\)", project, re.DOTALL)
public = {f"ZAVEventRepository/{path.rsplit('/')[-1]}" for path in listed[1].split()}
public.add("ZAVEventRepository/ZAVVersion.h")
expect(installed == public, f"installed are the public headers, apart from {sorted(installed ^ public)}")

for name in sorted(installed):
    for target in re.findall(r'^\s*#\s*include\s*(\S+)', (include / name).read_text(encoding="utf-8"), re.MULTILINE):
        beside = re.fullmatch(r"<(ZAVEventRepository/[^>]+)>", target)
        expect(beside[1] in installed if beside else re.fullmatch(r"<[a-z_]+>", target),
               f"{name} includes {target}, which is neither beside it nor of the C++ standard library")

folder = fresh(WORK / "headers")


def compile_alone(name):
    source = folder / f"{name.rsplit('/')[-1]}.cpp"
    # Twice: a header may be included again.
    source.write_text(f"#include <{name}>\n#include <{name}>\n", encoding="utf-8")
    run(COMPILER, "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror",
        "-I", include, source)


with ThreadPoolExecutor(2) as compilers:
    list(compilers.map(compile_alone, sorted(installed)))
print(len(installed), "headers")
