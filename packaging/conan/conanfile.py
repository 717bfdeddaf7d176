"""Conan 2 recipe beside the sources that it builds: conan create packaging/conan --build=missing"""

import os
import re

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load, rmdir
from conan.tools.gnu import PkgConfigDeps


class PmInstrumentCenterRecipe(ConanFile):
    name = "pminstrumentcenter"
    description = "Catalogue of tradable instruments, from memory or from a local store"
    license = "Apache-2.0"
    topics = ("trading", "instruments")
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False], "fPIC": [True, False], "snapshot": [True, False], "tool": [True, False]}
    default_options = {"shared": True, "fPIC": True, "snapshot": True, "tool": False}

    @property
    def _checkout(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        # The version stands in the header that hosts compile against, and nowhere else.
        text = load(self, os.path.join(self._checkout, "base", "instrumentcenter", "Version.h"))
        self.version = ".".join(re.findall(r"#define PM_INSTRUMENTCENTER_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", text))

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "LICENSE", "base/*", "cmake/*", "docs/*.md", "examples/*", "feed/*",
                        "platform/*", "python/*", "snapshot/*", "system/*", "tools/*"):
            copy(self, pattern, src=self._checkout, dst=self.export_sources_folder)

    def configure(self):
        if self.options.shared:
            self.options.rm_safe("fPIC")

    def layout(self):
        cmake_layout(self)

    def validate(self):
        check_min_cppstd(self, 20)
        if self.settings.os != "Linux":
            raise ConanInvalidConfiguration("only Linux is supported")
        if self.options.tool and not self.options.snapshot:
            raise ConanInvalidConfiguration("the tool reads days with the library PmSnapshot: tool needs snapshot")

    def requirements(self):
        # Public headers include these two; the others are the libraries' own affair.
        self.requires("boost/[>=1.81 <2]", transitive_headers=True)
        self.requires("log4cxx/[>=1.0 <2]", transitive_headers=True)
        self.requires("fmt/[>=9.1 <12]")
        self.requires("lmdb/[>=0.9.24 <1]")
        self.requires("mongo-c-driver/[>=1.23 <2]")
        self.requires("simdjson/[>=3.0 <4]")
        self.requires("xxhash/[>=0.8.1 <1]")
        if self.options.snapshot:
            self.requires("zlib/[>=1.2.11 <2]")
            self.requires("zstd/[>=1.5 <2]")
        if self.options.tool:
            self.requires("cli11/[>=2.1 <3]")
            self.requires("sqlite3/[>=3.38 <4]")
            self.requires("utf8proc/[>=2.6 <3]")

    def build_requirements(self):
        self.tool_requires("cmake/[>=3.25]")
        self.tool_requires("pkgconf/[>=1.8 <3]")

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["BUILD_TESTING"] = False
        toolchain.cache_variables["PM_WARNINGS_AS_ERRORS"] = False
        toolchain.cache_variables["PM_BUILD_SNAPSHOT"] = bool(self.options.snapshot)
        toolchain.cache_variables["PM_BUILD_FEED"] = False  # or the machine's own libnats would decide
        toolchain.cache_variables["PM_BUILD_TOOL"] = bool(self.options.tool)
        toolchain.generate()
        CMakeDeps(self).generate()
        PkgConfigDeps(self).generate()  # what cmake/Dependencies.cmake asks pkg-config for

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(self, "LICENSE", src=self.source_folder, dst=os.path.join(self.package_folder, "licenses"))
        # Conan writes the descriptions for CMake and pkg-config itself, from package_info.
        for folder in (("lib", "cmake"), ("lib", "pkgconfig"), ("share", "doc")):
            rmdir(self, os.path.join(self.package_folder, *folder))

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "PmInstrumentCenter")
        self._component("PmPlatform", ["boost::headers", "fmt::fmt", "lmdb::lmdb", "log4cxx::log4cxx",
                                       "mongo-c-driver::bson", "simdjson::simdjson", "xxhash::xxhash"])
        self._component("PmInstrumentCenter", ["PmPlatform", "boost::filesystem", "fmt::fmt"])
        if self.options.snapshot:
            self._component("PmSnapshot", ["PmInstrumentCenter", "fmt::fmt", "simdjson::simdjson", "zlib::zlib",
                                           "zstd::zstd"])

    def _component(self, library, requires):
        component = self.cpp_info.components[library]
        component.set_property("cmake_target_name", f"PmInstrumentCenter::{library}")
        component.set_property("pkg_config_name", library)
        component.libs = [library]
        component.includedirs = [os.path.join("include", "PmInstrumentCenter")]
        component.requires = requires
        component.system_libs = ["pthread"]
