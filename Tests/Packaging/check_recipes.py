#!/usr/bin/env python3
"""Checks the recipes for vcpkg and Conan: check_recipes.py SETTINGS

Their form is checked, and that they agree with the project; where the package managers are installed, they read the
recipes too.
"""

import ast
import json
import re
import shutil

from packaging import SOURCE, VERSION, WORK, configure, expect, fresh, run

# What the library links, and what the tool adds to it: the names of vcpkg, then those of Conan.
LIBRARY = {"sqlite3": "sqlite3", "uriparser": "uriparser", "spdlog": "spdlog", "fmt": "fmt"}
TOOL = {"cli11": "cli11", "simdjson": "simdjson", "nlohmann-json": "nlohmann_json"}


def check_vcpkg():
    port = SOURCE / "packaging/vcpkg/ports/zaveventrepository"
    manifest = json.loads((port / "vcpkg.json").read_text(encoding="utf-8"))
    expect(re.fullmatch("[a-z0-9-]+", manifest["name"]) and manifest["name"] == port.name,
           f"the port is named as its folder: {manifest['name']}")
    expect(manifest["version"] == VERSION, f"the port is of version {VERSION}, not {manifest['version']}")
    expect(manifest["license"] == "Apache-2.0" and manifest["description"], "the port tells its licence and purpose")
    needs = {need if isinstance(need, str) else need["name"] for need in manifest["dependencies"]}
    expect(needs == set(LIBRARY) | {"vcpkg-cmake", "vcpkg-cmake-config"}, f"the port needs {sorted(needs)}")
    tool = manifest["features"]["tools"]["dependencies"]
    expect(set(tool) == set(TOOL), f"the port's tool needs {sorted(tool)}")

    portfile = (port / "portfile.cmake").read_text(encoding="utf-8")
    sources = (port / re.search(r'CMAKE_CURRENT_LIST_DIR}/([./]+)"', portfile)[1]).resolve()
    expect(sources == SOURCE.resolve(), f"the port builds these sources, not {sources}")
    for step in ("vcpkg_cmake_configure", "vcpkg_cmake_install", "vcpkg_cmake_config_fixup", "vcpkg_install_copyright"):
        expect(f"{step}(" in portfile, f"the port calls {step}")
    check_options("the port", re.findall(r"(?:-D|\b)(ZAV_\w+)", portfile))
    usage = (port / "usage").read_text(encoding="utf-8")
    expect("find_package(ZAVEventRepository CONFIG" in usage and "ZAV::EventRepository" in usage,
           "the port says how it is used")
    if shutil.which("vcpkg"):
        plan = run("vcpkg", "install", "--dry-run", f"--overlay-ports={port.parent}", port.name)
        expect(f"{port.name}" in plan and VERSION in plan, f"vcpkg would install the port:\n{plan}")
    else:
        print("vcpkg is not installed: its recipe was not read by it")


def check_options(whose, found):
    options = set(found)
    project = (SOURCE / "CMakeLists.txt").read_text(encoding="utf-8")
    known = set(re.findall(r"option\((ZAV_\w+)", project))
    expect({"ZAV_BUILD_TOOLS", "ZAV_BUILD_TESTS"} <= options <= known, f"{whose} sets options that exist: {options}")


def assigned(recipe, name):
    values = [node.value for node in recipe.body if isinstance(node, ast.Assign) and node.targets[0].id == name]
    expect(len(values) == 1, f"Conan's recipe says its {name}")
    return ast.literal_eval(values[0])


def check_export(patterns):
    """What the recipe takes along is all that the project needs to be built and installed."""
    exported = fresh(WORK / "recipes/exported")
    for pattern in patterns:
        found = list(SOURCE.glob(pattern))
        expect(found, f"there is {pattern} to take along")
        for path in found:
            to = exported / path.relative_to(SOURCE)
            to.parent.mkdir(parents=True, exist_ok=True)
            (shutil.copytree if path.is_dir() else shutil.copy2)(path, to)
    configure(exported, WORK / "recipes/build", "-DZAV_BUILD_TOOLS=ON", "-DZAV_BUILD_EXAMPLES=OFF",
              "-DZAV_BUILD_TESTS=OFF")
    rules = (SOURCE / "cmake/Install.cmake").read_text(encoding="utf-8")
    needed = set(re.findall(r"\$\{PROJECT_SOURCE_DIR\}/([\w./-]+)", rules))
    missing = [path for path in sorted(needed) if not (exported / path).exists()]
    expect(needed and not missing, f"the recipe leaves behind {missing}, which is installed")


def check_conan():
    text = (SOURCE / "packaging/conan/conanfile.py").read_text(encoding="utf-8")
    module = ast.parse(text)
    recipe = next(node for node in module.body if isinstance(node, ast.ClassDef))
    expect(recipe.bases[0].id == "ConanFile", "Conan's recipe is a recipe")
    expect(assigned(recipe, "name") == "zaveventrepository" and assigned(recipe, "license") == "Apache-2.0",
           "Conan's recipe tells its name and licence")
    expect({"os", "arch", "compiler", "build_type"} == set(assigned(recipe, "settings")),
           "each setting makes a package of its own")
    expect({"shared", "fPIC", "tools"} == set(assigned(recipe, "options")) == set(assigned(recipe, "default_options")),
           "each option has a default")
    methods = {node.name for node in recipe.body if isinstance(node, ast.FunctionDef)}
    expect({"set_version", "export_sources", "requirements", "layout", "generate", "build", "package", "package_info"}
           <= methods, f"Conan's recipe knows what to do: {sorted(methods)}")
    needs = set(re.findall(r'requires\("([\w-]+)/', text))
    expect(needs == set(LIBRARY.values()) | set(TOOL.values()), f"Conan's recipe needs {sorted(needs)}")
    check_options("Conan's recipe", re.findall(r'"(ZAV_BUILD_\w+|ZAV_WARN\w+)"', text))

    pattern = re.search(r're\.search\(r"(.*)", project\)', text)[1]
    told = re.search(pattern, (SOURCE / "CMakeLists.txt").read_text(encoding="utf-8"))
    expect(told and told[1] == VERSION, f"Conan's recipe reads version {VERSION} from the project")
    check_export([ast.literal_eval(pattern)
                  for pattern in re.search(r"for pattern in \((.*)\)", text)[1].split(", ")])

    ast.parse((SOURCE / "packaging/conan/test_package/conanfile.py").read_text(encoding="utf-8"))
    if shutil.which("conan"):
        told = json.loads(run("conan", "inspect", SOURCE / "packaging/conan", "--format=json"))
        expect(told["version"] == VERSION, f"conan reads version {VERSION}, not {told['version']}")
    else:
        print("conan is not installed: its recipe was not read by it")


check_vcpkg()
check_conan()
