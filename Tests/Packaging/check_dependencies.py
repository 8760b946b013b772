#!/usr/bin/env python3
"""Checks what find_package asks for on the way to the library: check_dependencies.py SETTINGS KIND

A shared library needs nothing to be found; a static one says which of its own is missing.
"""

import re

from packaging import (ARGUMENTS, CMAKE, ENGINE, SOURCE, VERSION, WORK, build, build_of, configure, expect,
                       expect_program_works, fresh, only, prefix_of, readme_block, run, write_program)

kind = ARGUMENTS[0]
folder = fresh(WORK / "use" / f"dependencies-{kind}")
(folder / "CMakeLists.txt").write_text(readme_block("cmake", "find_package"), encoding="utf-8")
write_program(folder)

packages = {"sqlite": ["SQLite3"], "sqlcipher": ["PkgConfig"], "amalgamation": []}[ENGINE]
packages += ["fmt", "spdlog", "uriparser"]
prefix = f"-DCMAKE_PREFIX_PATH={prefix_of(kind)}"
if kind == "shared":
    configure(folder, folder / "build", prefix, *[f"-DCMAKE_DISABLE_FIND_PACKAGE_{name}=ON" for name in packages])
else:
    configuration = only(prefix_of(kind).rglob("ZAVEventRepositoryConfig.cmake"), "package").read_text(encoding="utf-8")
    if '"PkgConfig::uriparser" STREQUAL' in configuration:
        packages[-1] = "PkgConfig"
    for name in packages:
        output = configure(folder, folder / f"without-{name}", prefix, f"-DCMAKE_DISABLE_FIND_PACKAGE_{name}=ON",
                           succeeds=False)
        expect(name in output, f"whoever lacks {name} is told so:\n{output}")

    # Where no package of uriparser describes itself to CMake, pkg-config leads to it.
    configure(SOURCE, build_of(kind), "-DCMAKE_DISABLE_FIND_PACKAGE_uriparser=ON")
    build(build_of(kind))
    run(CMAKE, "--install", build_of(kind), "--prefix", folder / "prefix")
    configure(folder, folder / "through-pkg-config", f"-DCMAKE_PREFIX_PATH={folder / 'prefix'}",
              "-DCMAKE_DISABLE_FIND_PACKAGE_uriparser=ON")
    build(folder / "through-pkg-config")
    expect_program_works(folder / "through-pkg-config/my_client")

# Another major version is another library; while the major one is 0, so is another minor version, older or newer.
major, minor = (int(number) for number in VERSION.split(".")[:2])
others = [f"{major + 1}.0"]
if major == 0:
    others += [f"0.{minor + 1}"] + [f"0.{minor - 1}"] * (minor > 0)
project = readme_block("cmake", "find_package")
for version in others:
    other = re.sub(r"(find_package\(ZAVEventRepository) [\d.]+", rf"\1 {version}", project)
    expect(other != project, "the README's project asks for a version")
    (folder / "CMakeLists.txt").write_text(other, encoding="utf-8")
    output = configure(folder, folder / f"with-{version}", prefix, succeeds=False)
    expect(f'compatible with requested version "{version}"' in " ".join(output.split()),
           f"version {version} is not there, and that is why it fails:\n{output}")
