"""What vcpkg.json and the Conan recipe promise, against this tree and what the port has installed.

usage: check_recipes.py SOURCE_DIR PREFIX FEATURES_OF_THE_PORT
"""

import collections
import fnmatch
import json
import os
import re
import sys
import types

source, prefix, port_features = sys.argv[1:]


def expect(holds, message):
    if not holds:
        sys.exit(f"FAILED: {message}")


def read(*path):
    with open(os.path.join(source, *path), encoding="utf-8") as file:
        return file.read()


version = ".".join(re.findall(r"_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", read("base", "instrumentcenter", "Version.h")))
with open(port_features, encoding="utf-8") as file:
    asked = set(file.read().split())

port = json.loads(read("packaging", "vcpkg", "vcpkg.json"))
expect(port["version-semver"] == version, f"vcpkg.json is of {port['version-semver']}, the tree of {version}")
expect(set(port["features"]) == asked, f"vcpkg.json has the features {set(port['features'])}, the port's file {asked}")
for part in [port, *port["features"].values()]:
    names = [entry if isinstance(entry, str) else entry["name"] for entry in part["dependencies"]]
    expect(names == sorted(set(names)), f"dependencies are not in order, once each: {names}")
    expect(all(re.fullmatch(r"[a-z0-9]+(-[a-z0-9]+)*", name) for name in names), f"no name for vcpkg among {names}")

# The manifest at the top installs what the port takes, and what tests and pkg-config need beside it.
taken = {entry if isinstance(entry, str) else entry["name"]
         for part in [port, *port["features"].values()] for entry in part["dependencies"]}
taken = taken - {"vcpkg-cmake", "vcpkg-cmake-config", port["name"]} | {"gtest", "pkgconf"}
manifest = {entry if isinstance(entry, str) else entry["name"] for entry in json.loads(read("vcpkg.json"))["dependencies"]}
expect(manifest == taken, f"the manifest differs from the port in {manifest ^ taken}")


class Anything:
    """Stands for what the recipe makes and sets properties of."""

    def __init__(self, *_arguments):
        self.properties = {}

    def set_property(self, key, value):
        self.properties[key] = value

    def generate(self):
        pass


class CMakeToolchain(Anything):
    cache_variables = {}


class Options:
    def __init__(self, **values):
        self.__dict__.update(values)

    def rm_safe(self, name):
        self.__dict__.pop(name, None)


class ConanFile:
    def __init__(self, folder, **options):
        self.recipe_folder = folder
        self.export_sources_folder = "exported"
        self.options = Options(**{**self.default_options, **options})
        self.settings = types.SimpleNamespace(os="Linux")
        self.required = []
        self.cpp_info = Anything()
        self.cpp_info.components = collections.defaultdict(Anything)

    def requires(self, reference, **_traits):
        self.required.append(reference.split("/")[0])

    tool_requires = requires


def load(_recipe, path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def copy(_recipe, pattern, src, dst):
    exported.append(pattern)
    expect(any(fnmatch.fnmatch(os.path.relpath(os.path.join(folder, name), src), pattern)
               for folder, _, names in os.walk(src) for name in names if "/build" not in folder),
           f"the recipe exports {pattern}, which matches nothing")


exported = []
stand_ins = {
    "conan": {"ConanFile": ConanFile},
    "conan.errors": {"ConanInvalidConfiguration": type("ConanInvalidConfiguration", (Exception,), {})},
    "conan.tools": {},
    "conan.tools.build": {"check_min_cppstd": lambda *_: None},
    "conan.tools.cmake": {"CMake": Anything, "CMakeDeps": Anything, "CMakeToolchain": CMakeToolchain,
                          "cmake_layout": lambda *_: None},
    "conan.tools.files": {"copy": copy, "load": load, "rmdir": lambda *_: None},
    "conan.tools.gnu": {"PkgConfigDeps": Anything},
}
for name, members in stand_ins.items():
    sys.modules[name] = module = types.ModuleType(name)
    module.__dict__.update(members)

space = {"__name__": "recipe"}
exec(compile(read("packaging", "conan", "conanfile.py"), "conanfile.py", "exec"), space)
compile(read("packaging", "conan", "test_package", "conanfile.py"), "test_package/conanfile.py", "exec")
recipe = space["PmInstrumentCenterRecipe"](os.path.join(source, "packaging", "conan"), tool=True)
for step in ("set_version", "export_sources", "configure", "layout", "validate", "requirements", "build_requirements",
             "generate", "package_info"):
    getattr(recipe, step)()

expect(recipe.version == version, f"the recipe is of {recipe.version}, the tree of {version}")
known = read("CMakeLists.txt")
variables = CMakeToolchain.cache_variables
expect(all(name == "BUILD_TESTING" or f"option({name} " in known for name in variables),
       f"the recipe sets an option that the tree does not have: {variables}")
for folder in re.findall(r"add_subdirectory\((\w+)", known) + ["cmake"]:
    wanted = folder in ("tests", "bench", "fuzz") or any(pattern.startswith(folder + "/") for pattern in exported)
    expect(wanted, f"the recipe does not export {folder}/")
installed = {name[3:-2] for name in os.listdir(os.path.join(prefix, "lib")) if name.endswith(".a")}
components = recipe.cpp_info.components
expect(set(components) == installed, f"the recipe names {set(components)}, installed are {installed}")
for name, component in components.items():
    expect(component.libs == [name] and os.path.isdir(os.path.join(prefix, *component.includedirs)),
           f"{name}: no such library or include directory")
    packages = {entry.split("::")[0] for entry in component.requires}
    expect(packages <= set(recipe.required) | set(components), f"{name} needs {packages}, required are {recipe.required}")
print(f"vcpkg.json and the Conan recipe agree with version {version} and its {len(installed)} libraries")
