"""mavkit for Conan 2: `conan create packaging/conan`, at the root of the tree."""

import os
import re

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load

SOURCES = ("CMakeLists.txt", "LICENSE", "CHANGELOG.md", "cmake/*", "mavkit/*", "tools/*")


class MavkitConan(ConanFile):
    name = "mavkit"
    description = "Toolkit of the resident applications of an embedded Linux terminal"
    license = "MIT"
    topics = ("embedded", "ipc", "bcd", "tracing")
    package_type = "library"
    settings = "os", "compiler", "build_type", "arch"
    options = {"shared": [True, False], "fPIC": [True, False], "tools": [True, False]}
    default_options = {"shared": False, "fPIC": True, "tools": False}
    implements = ["auto_shared_fpic"]

    def tree(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        header = load(self, os.path.join(self.tree(), "mavkit", "Version.h"))
        numbers = re.findall(r"^#define MAVKIT_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header, re.M)
        self.version = ".".join(numbers)

    def export_sources(self):
        for pattern in SOURCES:
            copy(self, pattern, src=self.tree(), dst=self.export_sources_folder)

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["MAVKIT_SHARED"] = bool(self.options.shared)
        toolchain.cache_variables["MAVKIT_TOOLS"] = bool(self.options.tools)
        toolchain.cache_variables["MAVKIT_TESTS"] = False
        toolchain.cache_variables["MAVKIT_EXAMPLES"] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        self.cpp_info.libs = ["mavkit"]
        self.cpp_info.set_property("cmake_file_name", "mavkit")
        self.cpp_info.set_property("cmake_target_name", "mavkit::mavkit")
        self.cpp_info.set_property("pkg_config_name", "mavkit")
