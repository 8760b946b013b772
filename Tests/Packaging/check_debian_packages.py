#!/usr/bin/env python3
"""Makes the Debian packages, and uses the library from them: check_debian_packages.py SETTINGS KIND"""

import re

from packaging import (ARGUMENTS, CMAKE, ENGINE_LIBRARIES, LIBRARY, SOURCE, VERSION, WORK, build, build_of, configure,
                       expect, expect_linked_as, expect_program_works, fresh, only, readme_block, run, write_program)

kind = ARGUMENTS[0]
folder = fresh(WORK / "debian" / kind)
configure(SOURCE, build_of(kind), "-DCMAKE_INSTALL_PREFIX=/usr")
build(build_of(kind))
run(CMAKE.replace("cmake", "cpack") if CMAKE.endswith("cmake") else "cpack", "-G", "DEB", "-B", folder,
    cwd=build_of(kind))

packages = {path.name.split("_")[0]: path for path in folder.glob("*.deb")}
runtime = LIBRARY.replace(".so.", "").lower()
expected = {"libzaveventrepository-dev"} | ({runtime, "zavevents"} if kind == "shared" else set())
expect(set(packages) == expected, f"there is a package of each component: {sorted(packages)}")

depends, files = {}, {}
for name, path in packages.items():
    told = run("dpkg-deb", "-f", path, "Package", "Version", "Depends", "Maintainer", "Description")
    fields = dict(re.findall(r"^(\w+): (.*)$", told, re.MULTILINE))
    expect(fields["Package"] == name and fields["Version"] == VERSION, f"{path.name} is what its name says: {fields}")
    depends[name] = fields.get("Depends", "")
    run("dpkg-deb", "-x", path, fresh(folder / "alone" / name))
    run("dpkg-deb", "-x", path, folder / "root")
    files[name] = {found.relative_to(folder / "alone" / name).as_posix()
                   for found in (folder / "alone" / name).rglob("*") if not found.is_dir()}
    expect(f"usr/share/doc/{name}/copyright" in files[name], f"{name} brings its licence: {sorted(files[name])}")
owned = [file for names in files.values() for file in names]
expect(len(owned) == len(set(owned)), "no file is in two packages")

root = folder / "root/usr"
libraries = only(root.rglob("libZAVEventRepository.*" if kind == "static" else LIBRARY), "library").parent
if kind == "shared":
    for name in (*ENGINE_LIBRARIES, "liburiparser", "libspdlog", "libstdc++", "libc"):
        expect(re.search(rf"(^|, ){re.escape(name)}-?\d", depends[runtime]),
               f"the library's package depends on {name}: {depends[runtime]}")
    for name in ("libzaveventrepository-dev", "zavevents"):
        expect(f"{runtime} (= {VERSION})" in depends[name], f"{name} depends on its library: {depends[name]}")
    expect(not [name for name in (*ENGINE_LIBRARIES, "liburiparser") if name in depends["libzaveventrepository-dev"]],
           f"who links the shared library needs nothing behind it: {depends['libzaveventrepository-dev']}")
    expect({file.rsplit("/")[-1] for file in files[runtime] if "/lib" in file} >=
           {LIBRARY, f"libZAVEventRepository.so.{VERSION}"}, f"the library is in its package: {sorted(files[runtime])}")
    expect(not [file for file in files[runtime] if file.endswith((".so", ".h"))],
           f"what only developers need is in their package: {sorted(files[runtime])}")
    manual = {"usr/share/man/man1/zavevents.1", "usr/share/bash-completion/completions/zavevents",
              "usr/share/zsh/vendor-completions/_zavevents"}
    expect({"usr/bin/zavevents"} | manual <= files["zavevents"],
           f"the tool is in its package, with its manual: {sorted(files['zavevents'])}")
    told = run(root / "bin/zavevents", "--version", environment={"LD_LIBRARY_PATH": str(libraries)})
    expect(told.startswith(f"zavevents {VERSION}\n"), f"the packaged tool runs: {told}")
    dynamic = run("readelf", "-d", root / "bin/zavevents", environment={"LC_ALL": "C"})
    expect("RUNPATH" not in dynamic and "RPATH" not in dynamic, "a packaged tool looks where the system does")
else:
    for name in (*[f"{library}-dev" for library in ENGINE_LIBRARIES], "liburiparser-dev", "libspdlog-dev", "libfmt-dev"):
        expect(name in depends["libzaveventrepository-dev"],
               f"who links the static library needs {name}: {depends['libzaveventrepository-dev']}")

project = fresh(folder / "client")
(project / "CMakeLists.txt").write_text(readme_block("cmake", "find_package"), encoding="utf-8")
write_program(project)
configure(project, project / "build", f"-DCMAKE_PREFIX_PATH={root}")
build(project / "build")
expect_linked_as(kind, project / "build/my_client")
expect_program_works(project / "build/my_client")
for name in sorted(packages):
    print(f"{packages[name].name}: {depends[name]}")
