#!/usr/bin/env python3
"""Checks the presets: check_presets.py SETTINGS

CMake can read them, each that configures also builds, each that builds the tests also runs them, and what they set is
something that this project knows.
"""

import json
import re

from packaging import CMAKE, SOURCE, expect, run

presets = json.loads((SOURCE / "CMakePresets.json").read_text(encoding="utf-8"))
shown = {preset["name"]: preset for preset in presets["configurePresets"] if not preset.get("hidden")}
wanted = {"debug", "release", "asan", "tsan", "shared", "static", "coverage", "sqlcipher"}
expect(wanted <= set(shown), f"there are presets for {sorted(wanted - set(shown))} too")

listed = run(CMAKE, "--list-presets=configure", SOURCE, cwd=SOURCE)
expect(set(re.findall(r'^ +"([\w-]+)"', listed, re.MULTILINE)) == set(shown), f"CMake offers the presets:\n{listed}")
for kind, names in (("build", set(shown)), ("test", set(shown) - {"package"}), ("package", {"package"}),
                    ("workflow", {"package"})):
    listed = run(CMAKE, f"--list-presets={kind}", cwd=SOURCE)
    offered = set(re.findall(r'^ +"([\w-]+)"', listed, re.MULTILINE))
    expect(offered == names, f"presets to {kind} are those wanted, apart from {sorted(offered ^ names)}:\n{listed}")

project = "".join((SOURCE / name).read_text(encoding="utf-8") for name in ("CMakeLists.txt", "cmake/Engine.cmake"))
for name, preset in shown.items():
    for variable in preset.get("cacheVariables", {}):
        expect(variable.startswith("CMAKE_") or re.search(rf"\b(option|set)\({variable} ", project),
               f"the preset {name} sets {variable}, which the project does not know")
