#!/usr/bin/env python3
"""Checks that everything tells the version of the project: check_version.py SETTINGS"""

import os
import re

from packaging import LIBRARY, SOURCE, VERSION, expect, only, prefix_of, run

major, minor, patch = VERSION.split(".")
for kind in ("static", "shared"):
    prefix = prefix_of(kind)
    description = only(prefix.rglob("ZAVEventRepository.pc"), "description for pkg-config")
    told = run("pkg-config", "--modversion", "ZAVEventRepository",
               environment={"PKG_CONFIG_PATH": str(description.parent)}).strip()
    expect(told == VERSION, f"pkg-config tells {VERSION} of the {kind} library, not {told}")
    version_file = only(prefix.rglob("ZAVEventRepositoryConfigVersion.cmake"), "version file")
    expect(f'set(PACKAGE_VERSION "{VERSION}")' in version_file.read_text(encoding="utf-8"), f"CMake finds version {VERSION} of the {kind} library")
    header = (prefix / "include/ZAVEventRepository/ZAVVersion.h").read_text(encoding="utf-8")
    expect(f'ZAVVersionString = "{VERSION}"' in header, f"ZAVVersion.h tells {VERSION}")
    for name, number in (("Major", major), ("Minor", minor), ("Patch", patch)):
        expect(f"ZAVVersion{name} = {number};" in header, f"ZAVVersion.h tells {name} {number}")

link = os.readlink(prefix_of("shared") / "lib" / LIBRARY)
expect(link == f"libZAVEventRepository.so.{VERSION}", f"{LIBRARY} is version {VERSION}, not {link}")
expect(LIBRARY.endswith(f".so.{major}.{minor}" if major == "0" else f".so.{major}"),
       f"{LIBRARY} says with what it is compatible")
told = run(prefix_of("shared") / "bin/zavevents", "--version")
expect(told.startswith(f"zavevents {VERSION}\n"), f"zavevents tells {VERSION}, not {told}")

changes = (SOURCE / "CHANGELOG.md").read_text(encoding="utf-8")
newest = re.search(r"^## (\S+)", changes, re.MULTILINE)[1]
expect(newest == VERSION, f"the change log's newest version is {VERSION}, not {newest}")
