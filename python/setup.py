"""Builds the package: CMake makes the extension and both libraries, and this puts them beside the Python files.

The environment variable CMAKE_ARGS adds options for CMake.
"""

import os
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent.parent


def project_version() -> str:
    lists = ROOT / "CMakeLists.txt"
    if not lists.is_file():
        sys.exit(f"{lists} is missing: the package is built within kip's source tree, by `pip install ./python`")
    return re.search(r"\bVERSION (\d+\.\d+\.\d+)", lists.read_text())[1]


class BuildByCMake(build_ext):
    def build_extension(self, extension: Extension) -> None:
        package = Path(self.get_ext_fullpath(extension.name)).resolve().parent
        build = Path(self.build_temp).resolve() / "cmake"
        staging = build / "staging"
        switches = {"PYTHON": "ON", "TESTS": "OFF", "BENCH": "OFF", "TOOLS": "OFF"}
        options = [f"-DKIP_BUILD_{name}={value}" for name, value in switches.items()]
        try:
            import pybind11

            options.append(f"-Dpybind11_DIR={pybind11.get_cmake_dir()}")
        except ImportError:
            pass  # CMake may know where it is
        options += ["-DCMAKE_BUILD_TYPE=Release", f"-DPython_EXECUTABLE={sys.executable}"]
        # CMake itself would ask for make, which need not be there.
        chosen = "CMAKE_GENERATOR" in os.environ or "-G" in os.environ.get("CMAKE_ARGS", "")
        if shutil.which("ninja") and not chosen and not (build / "CMakeCache.txt").exists():
            options += ["-G", "Ninja"]
        options += shlex.split(os.environ.get("CMAKE_ARGS", ""))
        self.cmake("-S", ROOT, "-B", build, *options)
        self.cmake("--build", build, "--parallel", os.cpu_count() or 1, "--target", "kip_python")
        shutil.rmtree(staging, ignore_errors=True)
        self.cmake("--install", build, "--prefix", staging, "--component", "kip_python", "--strip")
        # Wheels hold no symbolic links: each library goes under the one name that it is loaded by.
        package.mkdir(parents=True, exist_ok=True)
        files = list((staging / "kip").iterdir())
        linked = {file.resolve() for file in files if file.is_symlink()}
        for file in files:
            if file not in linked:
                shutil.copyfile(file, package / file.name)

    def cmake(self, *arguments: object) -> None:
        subprocess.run(["cmake", *map(str, arguments)], check=True)


setup(
    version=project_version(),
    ext_modules=[Extension("kip._core", sources=[])],
    cmdclass={"build_ext": BuildByCMake},
)
