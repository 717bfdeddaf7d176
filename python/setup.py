"""The wheel: builds the extension with CMake against the installed libraries, which CMAKE_PREFIX_PATH may name."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = pathlib.Path(__file__).resolve().parent
VERSION = re.findall(r"VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", (HERE / "../base/instrumentcenter/Version.h").read_text())


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        package = pathlib.Path(self.get_ext_fullpath(extension.name)).parent
        package.mkdir(parents=True, exist_ok=True)
        configure = ["-DCMAKE_BUILD_TYPE=Release", f"-DPython_EXECUTABLE={sys.executable}"]
        # Outside of the source tree, of which nothing but the wheel is to be left.
        with tempfile.TemporaryDirectory() as build:
            subprocess.run(["cmake", "-S", HERE, "-B", build, *configure], check=True)
            subprocess.run(["cmake", "--build", build, "--parallel", str(os.cpu_count())], check=True)
            for made in pathlib.Path(build, "inscenter").glob("_native*"):
                shutil.copy(made, package)


setup(version=".".join(VERSION), packages=["inscenter"], package_data={"inscenter": ["py.typed"]},
      ext_modules=[Extension("inscenter._native", [])], cmdclass={"build_ext": CMakeBuild})
