"""Builds the contour package: the Python files of contour/ and the _contour
module, which CMake compiles from the whole repository (the module target
only, with the library's shared objects copied beside it).

    /usr/bin/python3 -m pip install --no-build-isolation --break-system-packages ./python
"""
import glob
import os
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        build = os.path.abspath(os.path.join(self.build_temp, "cmake"))
        subprocess.check_call(["cmake", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                               "-DCTR_BUILD_TESTS=OFF", "-DCTR_BUILD_PYTHON=ON",
                               f"-DPython_EXECUTABLE={sys.executable}", "-DCMAKE_BUILD_WITH_INSTALL_RPATH=ON"])
        subprocess.check_call(["cmake", "--build", build, "--target", "_contour", "-j", str(os.cpu_count() or 1)])
        target = self.get_ext_fullpath(ext.name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copyfile(glob.glob(os.path.join(build, "python", "contour", "_contour*.so"))[0], target)
        # The module finds the library's shared objects beside it ($ORIGIN).
        for library in (os.path.join(build, "src", "libqeContouringLib.so.1"),
                        os.path.join(build, "platform", "libqePlatform.so.1")):
            shutil.copyfile(library, os.path.join(os.path.dirname(target), os.path.basename(library)))
        # The readers of assimp's formats and of CAD files are loaded from
        # beside the module when a file needs them.
        for reader in glob.glob(os.path.join(build, "readers", "libcontour-*-reader.so")):
            shutil.copyfile(reader, os.path.join(os.path.dirname(target), os.path.basename(reader)))


setup(
    name="contour",
    version="1.0.0",
    description="Exact hidden-line drawings of triangle meshes as SVG pages",
    packages=["contour"],
    package_data={"contour": ["py.typed", "*.pyi"]},
    ext_modules=[Extension("contour._contour", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    install_requires=["numpy"],
    python_requires=">=3.9",
)
