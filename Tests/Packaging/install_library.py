#!/usr/bin/env python3
"""Builds the library in a kind, static or shared, with the tool, and installs it: install_library.py SETTINGS KIND"""

from packaging import (ARGUMENTS, CMAKE, ENGINE_OPTIONS, LIBRARY, QUICKLY, SOURCE, VERSION, build, build_of, configure, expect,
                       fresh, prefix_of, run)

kind = ARGUMENTS[0]
configure(SOURCE, build_of(kind), "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O0", *QUICKLY,
          f"-DBUILD_SHARED_LIBS={'ON' if kind == 'shared' else 'OFF'}", "-DZAV_BUILD_TESTS=OFF",
          "-DZAV_BUILD_EXAMPLES=OFF", f"-DZAV_BUILD_TOOLS={'ON' if kind == 'shared' else 'OFF'}",
          *ENGINE_OPTIONS, "-DCMAKE_C_FLAGS_RELEASE=-O0", "-DZAV_WARNINGS_AS_ERRORS=OFF", "-DCMAKE_INSTALL_PREFIX=/usr/local",
          "-DCMAKE_DISABLE_FIND_PACKAGE_uriparser=OFF")
build(build_of(kind))
prefix = fresh(prefix_of(kind))
run(CMAKE, "--install", build_of(kind), "--prefix", prefix)

installed = {path.relative_to(prefix).as_posix() for path in prefix.rglob("*") if not path.is_dir()}
headers = {path for path in installed if path.startswith("include/")}
package = "lib/cmake/ZAVEventRepository/ZAVEventRepository"
expected = {f"{package}Config.cmake", f"{package}ConfigVersion.cmake", f"{package}Targets.cmake",
            f"{package}Targets-release.cmake", "lib/pkgconfig/ZAVEventRepository.pc",
            "share/doc/libzaveventrepository-dev/copyright"}
if kind == "shared":
    expected |= {"lib/libZAVEventRepository.so", f"lib/{LIBRARY}", f"lib/libZAVEventRepository.so.{VERSION}",
                 f"share/doc/{LIBRARY.replace('.so.', '').lower()}/copyright", "bin/zavevents",
                 "share/doc/zavevents/copyright", "share/man/man1/zavevents.1",
                 "share/bash-completion/completions/zavevents", "share/zsh/site-functions/_zavevents"}
else:
    expected |= {"lib/libZAVEventRepository.a"}
expect(installed - headers == expected, f"beside the headers is installed {sorted(installed - headers)}")
expect(headers, "headers are installed")

if kind == "shared":
    # Wherever the prefix lies, the tool finds its library there.
    told = run(prefix / "bin/zavevents", "--version")
    expect(told.startswith(f"zavevents {VERSION}\n"), "the installed tool runs")
