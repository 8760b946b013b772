import os
import re

from conan import ConanFile
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load, rmdir

REPOSITORY = os.path.join("..", "..")


class ZAVEventRepositoryConan(ConanFile):
    name = "zaveventrepository"
    description = "Client-side event store for messaging"
    license = "Apache-2.0"
    topics = ("messaging", "sqlite", "events")
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False], "fPIC": [True, False], "tools": [True, False]}
    default_options = {"shared": False, "fPIC": True, "tools": False}
    implements = ["auto_shared_fpic"]

    def set_version(self):
        # The project's own is the only one.
        project = load(self, os.path.join(self.recipe_folder, REPOSITORY, "CMakeLists.txt"))
        self.version = re.search(r"project\(ZAVEventRepository VERSION ([\d.]+)", project)[1]

    def export_sources(self):
        repository = os.path.join(self.recipe_folder, REPOSITORY)
        for pattern in ("CMakeLists.txt", "LICENSE", "Code/*", "Documentation/*", "Tools/*", "cmake/*"):
            copy(self, pattern, src=repository, dst=self.export_sources_folder)

    def requirements(self):
        self.requires("sqlite3/[>=3.15 <4]")
        self.requires("uriparser/[>=0.9 <1]")
        self.requires("spdlog/[>=1.10 <2]")
        self.requires("fmt/[>=9]")
        if self.options.tools:
            self.requires("cli11/[>=2 <3]")
            self.requires("simdjson/[>=2]")
            self.requires("nlohmann_json/[>=3 <4]")

    def validate(self):
        check_min_cppstd(self, 20)

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["ZAV_BUILD_TOOLS"] = bool(self.options.tools)
        toolchain.cache_variables["ZAV_BUILD_EXAMPLES"] = False
        toolchain.cache_variables["ZAV_BUILD_TESTS"] = False
        toolchain.cache_variables["ZAV_WARNINGS_AS_ERRORS"] = False
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(self, "LICENSE", src=self.source_folder, dst=os.path.join(self.package_folder, "licenses"))
        for folder in ("cmake", "pkgconfig"):
            rmdir(self, os.path.join(self.package_folder, "lib", folder))
        rmdir(self, os.path.join(self.package_folder, "share"))

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "ZAVEventRepository")
        self.cpp_info.set_property("cmake_target_name", "ZAV::EventRepository")
        self.cpp_info.set_property("pkg_config_name", "ZAVEventRepository")
        self.cpp_info.libs = ["ZAVEventRepository"]
        if self.options.shared:
            self.cpp_info.defines = ["ZAV_SHARED"]
        elif self.settings.os in ("Linux", "FreeBSD"):
            self.cpp_info.system_libs = ["pthread"]
