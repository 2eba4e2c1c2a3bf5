"""Builds the tesu Python package with CMake.

The extension, the host libraries it links and the parser plug-ins are built by the project's
CMake build and installed into the package folder (the wheel layout): the libraries next to the
module, the plug-ins in tesu/plugins, every run path relative ($ORIGIN). Set TESU_CMAKE_ARGS to
pass further arguments to CMake's configure step.
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

ROOT = Path(__file__).resolve().parent


def project_version():
    text = (ROOT / "CMakeLists.txt").read_text()
    return re.search(r"project\(\w+ VERSION ([0-9.]+)", text).group(1)


class CMakeBuild(build_ext):
    """Configures, builds and installs the CMake project into the extension's package folder."""

    def build_extension(self, ext):
        module = Path(self.get_ext_fullpath(ext.name)).resolve()
        prefix = module.parent.parent  # the folder that holds the tesu package
        build = Path(self.build_temp).resolve() / "cmake"
        configure = [
            "cmake", "-S", str(ROOT), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
            "-DTESU_BUILD_TESTS=OFF", "-DTESU_BUILD_BENCH=OFF", "-DTESU_PYTHON=ON",
            f"-DPython3_EXECUTABLE={sys.executable}", "-DTESU_WHEEL_LAYOUT=ON",
            "-DCMAKE_INSTALL_LIBDIR=tesu", "-DTESU_INSTALL_PLUGINDIR=tesu/plugins",
            "-DTESU_PYTHON_INSTALL_DIR=.",
        ]
        if shutil.which("ccache"):
            configure.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        configure += shlex.split(os.environ.get("TESU_CMAKE_ARGS", ""))
        jobs = str(self.parallel or os.cpu_count() or 1)
        subprocess.run(configure, check=True)
        subprocess.run(["cmake", "--build", str(build), "--target", "tesu_python", "-j", jobs],
                       check=True)
        for component in ("runtime", "python"):
            subprocess.run(["cmake", "--install", str(build), "--prefix", str(prefix),
                            "--component", component, "--strip"], check=True)


setup(
    version=project_version(),
    packages=["tesu"],
    package_dir={"": "python"},
    package_data={"tesu": ["py.typed", "*.pyi"]},
    ext_modules=[Extension("tesu._tesu", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    zip_safe=False,
    # Apart from the CMake build folders (build/, build-test/, ...).
    options={"build": {"build_base": "build-python"}},
)
