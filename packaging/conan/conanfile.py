"""conan create packaging/conan --build=missing"""

import pathlib
import re

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy

SOURCES = ("CMakeLists.txt", "LICENSE", "cmake/*", "include/*", "platform/*", "src/*")


class PlexaTarn(ConanFile):
    name = "plexa_tarn"
    license = "MIT"
    description = "The Tarn protocol over CAN for embedded Linux controllers"
    topics = ("can", "socketcan", "embedded")
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False]}
    default_options = {"shared": True}

    def set_version(self):
        header = pathlib.Path(self.recipe_folder, "../../include/tarn/Version.h").read_text(encoding="utf-8")
        self.version = ".".join(re.findall(r"#define TARN_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header))

    def export_sources(self):
        for pattern in SOURCES:
            copy(self, pattern, pathlib.Path(self.recipe_folder, "../.."), self.export_sources_folder)

    def requirements(self):
        self.requires("poco/[>=1.11 <2]", transitive_headers=True)
        self.requires("libpcap/[>=1.10 <2]")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        CMakeDeps(self).generate()
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["PLEXA_BUILD_SHARED"] = bool(self.options.shared)
        for part in ("TESTS", "TOOLS", "EXAMPLES"):
            toolchain.cache_variables[f"PLEXA_BUILD_{part}"] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        self.cpp_info.set_property("cmake_find_mode", "none")  # it brings its own
        self.cpp_info.builddirs.append("lib/cmake/plexa_tarn")
