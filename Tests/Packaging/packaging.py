"""What the tests of packaging share: where things are, and how outside projects are made and built."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

SETTINGS = json.loads(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8"))
ARGUMENTS = sys.argv[2:]
SOURCE = pathlib.Path(SETTINGS["source"])
WORK = pathlib.Path(SETTINGS["work"])
VERSION = SETTINGS["version"]
CMAKE = SETTINGS["cmake"]
COMPILER = SETTINGS["compiler"]
ENGINE = SETTINGS["engine"]
ENGINE_OPTIONS = [f"-DZAV_ENGINE={ENGINE}"]
if ENGINE == "amalgamation":
    ENGINE_OPTIONS.append(f"-DZAV_ENGINE_SOURCE={SETTINGS['engine_source']}")
# What the library links; one that is compiled in is part of it.
ENGINE_LIBRARIES = {"sqlite": ["libsqlite3"], "sqlcipher": ["libsqlcipher"], "amalgamation": []}[ENGINE]
LIBRARY = f"libZAVEventRepository.so.{SETTINGS['soversion']}"

# One compilation instead of forty, for a library that is only to be linked.
QUICKLY = ["-DCMAKE_UNITY_BUILD=ON", "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0"]


def fail(message):
    sys.exit(f"FAILED: {message}")


def expect(condition, message):
    if not condition:
        fail(message)


def run(*command, cwd=None, environment=None, succeeds=True):
    """Runs a command; returns what it printed. `succeeds=False` expects that it fails."""
    command = [str(word) for word in command]
    result = subprocess.run(command, cwd=cwd, env={**os.environ, **(environment or {})}, check=False, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=500)
    if (result.returncode == 0) != succeeds:
        fail(f"{' '.join(command)}: ended with {result.returncode}\n{result.stdout}")
    return result.stdout


def configure(source, build, *options, succeeds=True):
    launcher = [f"-DCMAKE_{language}_COMPILER_LAUNCHER={SETTINGS['launcher']}" for language in ("C", "CXX")
                if SETTINGS["launcher"]]
    return run(CMAKE, "-S", source, "-B", build, "-G", SETTINGS["generator"], f"-DCMAKE_CXX_COMPILER={COMPILER}",
               *launcher, *options, succeeds=succeeds)


def build(folder):
    return run(CMAKE, "--build", folder, "-j", "2")


def build_of(kind):
    return WORK / kind / "build"


def prefix_of(kind):
    return WORK / kind / "prefix"


def fresh(folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    return folder


def only(paths, what):
    paths = sorted(paths)
    expect(len(paths) == 1, f"there is one {what}, not {len(paths)}: {paths}")
    return paths[0]


def readme_blocks(language):
    """The code blocks of the README in a language, in their order."""
    text = (SOURCE / "README.md").read_text(encoding="utf-8")
    return re.findall(rf"```{language}\n(.*?)```", text, re.DOTALL)


def readme_block(language, word):
    return only([block for block in readme_blocks(language) if word in block], f"block of the README with {word}")


def write_program(folder):
    """Writes the README's first program to main.cpp."""
    (folder / "main.cpp").write_text(readme_block("cpp", "first-program.db"), encoding="utf-8")


def expect_program_works(program, environment=None):
    """The README's first program prints what was received and what was sent."""
    place = fresh(program.parent / "run")
    lines = run(program, cwd=place, environment=environment).splitlines()
    expect(lines == ["bruno: Hello!", "ada: Hello, Bruno!"], f"the program prints two messages, not {lines}")
    expect((place / "first-program.db").stat().st_size > 0, "the program has stored its events")


def needed_libraries(binary):
    return re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-d", binary, environment={"LC_ALL": "C"}))


def expect_linked_as(kind, program):
    """A static library has become part of the program; of a shared one the program needs that alone."""
    needed = needed_libraries(program)
    expect((LIBRARY in needed) == (kind == "shared"), f"a program of the {kind} kind needs {needed}")
    behind = [name for name in needed if re.search("sqlite|sqlcipher|spdlog|fmt|uriparser", name)]
    expect(bool(behind) == (kind != "shared"), f"a program of the {kind} kind needs {needed}")
