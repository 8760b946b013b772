#!/usr/bin/env python3
"""Checks a shared library with the engine inside, hidden and handed out: check_engine.py SETTINGS

Hidden, none of the engine's names is to be linked, and a program gets no connection. Handed out, what its header declares
is, and nothing that it does not, and a program that knows of nothing else works on the library's own connection. Another
engine that a program brings along does not take the place of the library's.
"""

import pathlib
import re
import sys

from packaging import (CMAKE, LIBRARY, QUICKLY, SETTINGS, SOURCE, WORK, build, configure, expect, fresh, only,
                       readme_block, run)

SKIPPED = 77
PROGRAM = """
#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <iostream>
#ifdef WITH_ITS_ENGINE
#include <sqlite3.h>
#endif
int main() {
    std::cout << zav::ZAVDatabaseEngine::version() << '\\n';
    const auto database = zav::FMDatabase::databaseWithPath("engine.db");
    if (!database || !database->executeStatements("CREATE TABLE t (a); INSERT INTO t VALUES (1)")) {
        return 1;
    }
    sqlite3* const connection = database->sqliteHandle();
    if (connection == nullptr) {
        std::cout << "no connection\\n";
        return 0;
    }
#ifdef WITH_ITS_ENGINE
    sqlite3_exec(connection, "INSERT INTO t VALUES (2), (3)", nullptr, nullptr, nullptr);
    std::cout << sqlite3_libversion() << ' ' << sqlite3_changes(connection) << '\\n';
#endif
}
"""
# Another engine, as far as it goes: it stands before the library's where programs look for names.
OTHER_ENGINE = 'extern "C" const char* sqlite3_libversion() { return "another"; }\n'

engine = pathlib.Path(SETTINGS["engine_source"])
if not (engine / "sqlite3.c").exists():
    print(f"skipped: no engine lies in {engine}; scripts/fetch-engine.sh fetches one")
    sys.exit(SKIPPED)
header = (engine / "sqlite3.h").read_text(encoding="utf-8")
version = re.search(r'^#define SQLITE_VERSION\s+"([\d.]+)"', header, re.MULTILINE)[1]
declared = set(re.findall(r"^SQLITE_API [^;]*?\b(sqlite3_\w+)\s*[(\[;]", header, re.MULTILINE))
# What the engine was compiled without, or has for other systems only.
ALWAYS = {"sqlite3_open_v2", "sqlite3_close", "sqlite3_exec", "sqlite3_prepare_v2", "sqlite3_step", "sqlite3_reset",
          "sqlite3_finalize", "sqlite3_bind_blob", "sqlite3_column_blob", "sqlite3_create_function_v2",
          "sqlite3_backup_init", "sqlite3_errmsg", "sqlite3_changes", "sqlite3_libversion", "sqlite3_sourceid",
          "sqlite3_config", "sqlite3_db_config", "sqlite3_version"}
expect(ALWAYS <= declared, f"the engine's header declares what every program needs, not {sorted(ALWAYS - declared)}")


def install(name, *options):
    place = fresh(WORK / "engine" / name)
    configure(SOURCE, WORK / "engine/build", "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O0",
              "-DCMAKE_C_FLAGS_RELEASE=-O0", *QUICKLY, "-DBUILD_SHARED_LIBS=ON", "-DZAV_ENGINE=amalgamation",
              f"-DZAV_ENGINE_SOURCE={engine}", "-DZAV_BUILD_TESTS=OFF", "-DZAV_BUILD_EXAMPLES=OFF",
              "-DZAV_BUILD_TOOLS=OFF", "-DZAV_WARNINGS_AS_ERRORS=OFF", *options)
    build(WORK / "engine/build")
    run(CMAKE, "--install", WORK / "engine/build", "--prefix", place / "prefix")
    return place


def engine_names(place):
    library = only((place / "prefix").rglob(LIBRARY), "library")
    names = [line.split()[2] for line in run("nm", "-D", "--defined-only", library).splitlines()]
    expect([name for name in names if name.startswith("_ZN3zav")], "the library offers its own names")
    return {name for name in names if not re.match(r"_Z(N|NK|TIN|TSN|TVN)3zav", name)}


def output_of_program(place, *definitions):
    """What a program prints that finds the package, alone and beside another engine."""
    project = fresh(place / "client")
    text = readme_block("cmake", "find_package")
    text += "".join(f"target_compile_definitions(my_client PRIVATE {name})\n" for name in definitions)
    text += "add_library(other_engine SHARED other.cpp)\n"
    (project / "CMakeLists.txt").write_text(text, encoding="utf-8")
    (project / "main.cpp").write_text(PROGRAM, encoding="utf-8")
    (project / "other.cpp").write_text(OTHER_ENGINE, encoding="utf-8")
    configure(project, project / "build", f"-DCMAKE_PREFIX_PATH={place / 'prefix'}")
    build(project / "build")
    other = only((project / "build").glob("libother_engine.*"), "other engine")
    outputs = []
    for preloaded in ("", str(other)):
        outputs.append(run(project / "build/my_client", cwd=fresh(place / "run"), environment={"LD_PRELOAD": preloaded}))
    return outputs


hidden = install("hidden", "-DZAV_EXPORT_ENGINE=OFF")
expect(not engine_names(hidden), f"a hidden engine offers no name: {sorted(engine_names(hidden))}")
expect(not list((hidden / "prefix").rglob("sqlite3.h")), "a hidden engine's header is not installed")
for printed in output_of_program(hidden):
    expect(printed == f"{version}\nno connection\n", f"a hidden engine's connection stays inside: {printed}")

offered = install("offered", "-DZAV_EXPORT_ENGINE=ON")
names = engine_names(offered)
expect(names >= ALWAYS, f"the engine's functions are offered, and not without {sorted(ALWAYS - names)}")
expect(names <= declared, f"what its header does not declare is not offered: {sorted(names - declared)}")
installed = only((offered / "prefix").rglob("sqlite3.h"), "header of the engine")
expect(installed.read_text(encoding="utf-8") == header, "the header is that of the engine inside")
expect(installed.parent.name == "engine", "the header stands in the way of no other engine's")
alone, beside = output_of_program(offered, "WITH_ITS_ENGINE")
expect(alone == f"{version}\n{version} 2\n", f"a program works on the library's connection: {alone}")
expect(beside == f"{version}\nanother 2\n", f"the library keeps to its own engine: {beside}")
flags = run("pkg-config", "--cflags", "ZAVEventRepository",
            environment={"PKG_CONFIG_PATH": str(only((offered / "prefix").rglob("pkgconfig"), "description"))})
folders = [pathlib.Path(flag.removeprefix("-I")).resolve() for flag in flags.split() if flag.startswith("-I")]
expect(installed.parent.resolve() in folders, f"pkg-config leads to the header: {flags}")

refused = configure(SOURCE, WORK / "engine/refused", "-DZAV_ENGINE=sqlite", "-DZAV_EXPORT_ENGINE=ON", succeeds=False)
expect("needs ZAV_ENGINE=amalgamation" in " ".join(refused.split()), f"what is not inside cannot be offered: {refused}")
print(len(names), "of", len(declared), "names of the engine are offered")
