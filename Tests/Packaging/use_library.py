#!/usr/bin/env python3
"""Builds and runs the README's first program as a project of its own: use_library.py SETTINGS WAY KIND

WAY is one that the README shows: find_package, pkg_config, add_subdirectory or fetch_content; or conan, which builds
the program that Conan's recipe tries its package with.
"""

import os
import shlex

from packaging import (ARGUMENTS, CMAKE, COMPILER, ENGINE_OPTIONS, QUICKLY, SOURCE, VERSION, WORK, build, configure, expect,
                       expect_linked_as, expect_program_works, fresh, only, prefix_of, readme_block, run,
                       write_program)

# What a project has that takes the sources in must not change for the rest of it.
UNTOUCHED = """
foreach(property COMPILE_OPTIONS COMPILE_DEFINITIONS INCLUDE_DIRECTORIES LINK_OPTIONS)
    get_directory_property(value ${property})
    if(NOT "${value}" STREQUAL "")
        message(FATAL_ERROR "the library sets ${property} of its user: ${value}")
    endif()
endforeach()
foreach(variable CMAKE_BUILD_TYPE CMAKE_CXX_STANDARD CMAKE_CXX_EXTENSIONS CMAKE_CXX_VISIBILITY_PRESET
        CMAKE_VISIBILITY_INLINES_HIDDEN CMAKE_EXPORT_COMPILE_COMMANDS BUILD_SHARED_LIBS)
    if(NOT "${${variable}}" STREQUAL "")
        message(FATAL_ERROR "the library sets ${variable} of its user: ${${variable}}")
    endif()
endforeach()
foreach(target zavevents zav_tests first-program)
    if(TARGET ${target})
        message(FATAL_ERROR "the library adds ${target} to its user's project")
    endif()
endforeach()
"""


def expect_only_installed_headers(folder):
    used = run("ninja", "-C", folder / "build", "-t", "deps").splitlines()
    used = {os.path.normpath(folder / "build" / line.strip()) for line in used if line.startswith("    ")}
    expect(f"{prefix_of(kind)}/include/ZAVEventRepository/ZAVEventRepository.h" in used,
           f"the program is compiled with the installed headers, not {sorted(used)}")
    others = sorted(name for name in used if name.startswith(f"{SOURCE}/Code/"))
    expect(not others, f"the program is compiled without the headers of the source tree: {others}")


def use_by_find_package(folder):
    (folder / "CMakeLists.txt").write_text(readme_block("cmake", "find_package"), encoding="utf-8")
    configure(folder, folder / "build", f"-DCMAKE_PREFIX_PATH={prefix_of(kind)}")
    build(folder / "build")
    expect_only_installed_headers(folder)
    expect_linked_as(kind, folder / "build/my_client")
    expect_program_works(folder / "build/my_client")


def use_by_pkg_config(folder):
    descriptions = only(prefix_of(kind).rglob("pkgconfig"), "folder of descriptions")
    lines = readme_block("sh", "pkg-config").splitlines()
    line = only([line for line in lines if ("--static" in line) == (kind == "static")], f"line for {kind} linking")
    expect(line.startswith("c++ "), f"the README's line compiles: {line}")
    # Without the system's descriptions: a shared library leads to no other package.
    path = "PKG_CONFIG_PATH" if kind == "static" else "PKG_CONFIG_LIBDIR"
    run("sh", "-e", "-c", shlex.quote(COMPILER) + line.removeprefix("c++"), cwd=folder,
        environment={path: str(descriptions)})
    expect_linked_as(kind, folder / "my_client")
    expect_program_works(folder / "my_client", {"LD_LIBRARY_PATH": str(descriptions.parent)})


def use_sources(folder, block, *options):
    project = readme_block("cmake", "find_package")
    found = only([line for line in project.splitlines(True) if line.startswith("find_package")], "call of find_package")
    (folder / "CMakeLists.txt").write_text(project.replace(found, block + UNTOUCHED), encoding="utf-8")
    configure(folder, folder / "build", *ENGINE_OPTIONS, *QUICKLY, *options)
    build(folder / "build")
    expect_linked_as(kind, folder / "build/my_client")
    expect_program_works(folder / "build/my_client")
    # The install rules of the library are for those who ask for them.
    run(CMAKE, "--install", folder / "build", "--prefix", folder / "prefix")
    installed = [path for path in (folder / "prefix").rglob("*") if not path.is_dir()]
    expect(not installed, f"the library installs itself with its user's project: {installed}")


def use_by_add_subdirectory(folder):
    (folder / "ZAVEventRepository").symlink_to(SOURCE)
    use_sources(folder, readme_block("cmake", "add_subdirectory"))


def use_by_fetch_content(folder):
    # And with uriparser as pkg-config knows it.
    use_sources(folder, readme_block("cmake", "FetchContent"), f"-DFETCHCONTENT_SOURCE_DIR_ZAVEVENTREPOSITORY={SOURCE}",
                "-DCMAKE_DISABLE_FIND_PACKAGE_uriparser=ON")


def use_by_conan(folder):
    configure(SOURCE / "packaging/conan/test_package", folder / "build", f"-DCMAKE_PREFIX_PATH={prefix_of(kind)}")
    build(folder / "build")
    told = run(folder / "build/my_client")
    expect(told == f"ZAVEventRepository {VERSION}\n", f"the program of Conan's recipe tells the version: {told}")


way, kind = ARGUMENTS
place = fresh(WORK / "use" / f"{way}-{kind}")
write_program(place)
{"find_package": use_by_find_package, "pkg_config": use_by_pkg_config, "add_subdirectory": use_by_add_subdirectory,
 "fetch_content": use_by_fetch_content, "conan": use_by_conan}[way](place)
