"""Builds the native part of kestrune_mcp_responses with the project's CMake
(release flags, the library linked in statically) and places it in the
package. Used by `pip install --no-build-isolation ./python`."""
import os
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent.parent


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = Path(self.build_temp).resolve() / "cmake"
        configure = [
            "cmake", "-S", str(ROOT), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
            f"-DPython_EXECUTABLE={sys.executable}", "-DKESTRUNE_BUILD_TESTS=OFF", "-DKESTRUNE_BUILD_TOOLS=OFF",
            "-DKESTRUNE_BUILD_BENCHMARKS=OFF", "-DKESTRUNE_BUILD_EXAMPLES=OFF", "-DKESTRUNE_BUILD_FUZZERS=OFF",
            "-DKESTRUNE_INSTALL=OFF", "-DKESTRUNE_BUILD_PYTHON=ON",
        ]
        subprocess.run(configure, check=True)
        jobs = str(os.cpu_count() or 1)
        subprocess.run(["cmake", "--build", str(build), "--target", "kestrune_mcp_responses_python", "-j", jobs],
                       check=True)
        built = next((build / "python" / "kestrune_mcp_responses").glob("_native*.so"))
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(built, target)


setup(ext_modules=[Extension("kestrune_mcp_responses._native", sources=[])], cmdclass={"build_ext": CMakeBuild})
