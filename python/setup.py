"""Builds the package vorn: CMake makes the extension module from the sources of this repository."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parent


def version():
    """The version that stands in the CMakeLists.txt of the repository."""
    text = (SOURCE / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"project\(vorn\s+VERSION (\S+)", text)[1]


def pybind11_hint():
    """Where CMake finds pybind11 when it is a Python package; nothing when it is the system's."""
    try:
        import pybind11
    except ImportError:
        return []
    try:
        return [f"-Dpybind11_DIR={pybind11.get_cmake_dir()}"]
    except (AttributeError, ImportError):
        return []


class BuildWithCMake(build_ext):
    def build_extension(self, ext):
        if shutil.which("cmake") is None:
            raise SystemExit("vorn: CMake is needed to build this package (Debian: cmake)")
        target = pathlib.Path(self.get_ext_fullpath(ext.name)).resolve()
        # VORN_PYTHON_BUILD names a folder where the objects of an earlier build are.
        build = pathlib.Path(os.environ.get("VORN_PYTHON_BUILD") or self.build_temp).resolve()
        build.mkdir(parents=True, exist_ok=True)
        # A build that is there already keeps its settings.
        settings = [] if (build / "CMakeCache.txt").exists() else [
            "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG",
            "-DVORN_BUILD_APP=OFF", "-DVORN_BUILD_TESTS=OFF"]
        self.run_cmake(
            ["-S", str(SOURCE), "-B", str(build), *settings, "-DVORN_BUILD_PYTHON=ON",
             f"-DPYTHON_EXECUTABLE={sys.executable}", *pybind11_hint()])
        self.run_cmake(["--build", str(build), "--target", "vorn_python",
                        "--parallel", str(os.cpu_count() or 1)])
        built = [file for file in (build / "lib").glob("_core*") if file.suffix in (".so", ".pyd")]
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(built[0], target)
        # GDAL's module, where it was built, is loaded from beside the extension module.
        for module in build.glob("lib/**/vorn_geopackage.so"):
            shutil.copy2(module, target.parent)

    @staticmethod
    def run_cmake(arguments):
        done = subprocess.run(["cmake", *arguments], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True)
        if done.returncode != 0:
            # CMake's own sentence says what is missing.
            raise SystemExit(f"{done.stdout}\nvorn: the extension module could not be built")


setup(
    name="vorn",
    version=version(),
    description="Photogrammetric bundle adjustment",
    python_requires=">=3.9",
    packages=["vorn"],
    package_data={"vorn": ["py.typed", "*.pyi"]},
    install_requires=["numpy"],
    extras_require={"tables": ["pandas"], "plots": ["matplotlib"]},
    ext_modules=[Extension("vorn._core", sources=[])],
    cmdclass={"build_ext": BuildWithCMake},
    zip_safe=False,
)
