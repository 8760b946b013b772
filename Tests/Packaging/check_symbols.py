#!/usr/bin/env python3
"""Checks what the shared library offers to be linked: check_symbols.py SETTINGS

Nothing but what an installed header marks with ZAV_EXPORT, and all of that.
"""

import re

from packaging import LIBRARY, expect, prefix_of, run

# Wholly inline: their tables are made by whoever uses them.
INLINE = {"ZAVMessagePart"}

names = set()
for header in (prefix_of("shared") / "include/ZAVEventRepository").iterdir():
    if header.name == "ZAVExport.h":
        continue
    text = header.read_text(encoding="utf-8")
    names |= set(re.findall(r"^class ZAV_EXPORT (\w+)", text, re.MULTILINE))
    names |= set(re.findall(r"ZAV_EXPORT [^;{]*?\b(operator\W+|\w+)\(", text))
    names |= set(re.findall(r"^extern ZAV_EXPORT [^;]*?(\w+);", text, re.MULTILINE))
expect(len(names) > 40, f"the headers mark what is offered: {sorted(names)}")

library = prefix_of("shared") / "lib" / LIBRARY
offered = [line.split(maxsplit=2)[2] for line in run("nm", "-D", "--defined-only", "-C", library).splitlines()]
# A name of the library, perhaps a member of it, but nothing inside of a class inside of it.
shape = re.compile(r"(?:(?:typeinfo|typeinfo name|vtable) for )?zav::(operator\W+|\w+)(?:::(?:~?\w+|operator[^\w(]+))?"
                   r"(?:\[abi:\w+\])?(?:\(.*\)(?: const)?)?")
seen, strange = set(), []
for symbol in offered:
    match = shape.fullmatch(symbol)
    if match and match[1] in names:
        seen.add(match[1])
    else:
        strange.append(symbol)
expect(not strange, "the library offers what no public header does:\n" + "\n".join(strange))
expect(seen == names - INLINE, f"every marked name is offered, apart from {sorted(names - INLINE - seen)}")

soname = re.findall(r"\(SONAME\).*\[(.*)\]", run("readelf", "-d", library, environment={"LC_ALL": "C"}))
expect(soname == [LIBRARY], f"the library's name for the linker is {LIBRARY}, not {soname}")
print(len(offered), "symbols of", len(seen), "names")
