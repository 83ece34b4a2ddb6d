"""Builds the compiled module with CMake against an installed QX_db.

Where that is in no standard place, name it: CMAKE_PREFIX_PATH=/opt/qx_db pip install ...
"""

import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = Path(__file__).resolve().parent


def version() -> str:
    """That of the project around, or where this folder stands alone, of the installed library."""
    root = HERE.parent / "CMakeLists.txt"
    text = root.read_text() if root.exists() else ""
    found = re.search(r"project\(QX_db VERSION ([0-9.]+)", text)
    if found:
        return found[1]
    asked = subprocess.run(
        ["pkg-config", "--modversion", "qx_db"], capture_output=True, text=True, check=False
    )
    return asked.stdout.strip() or "0"


class CMakeBuild(build_ext):
    def build_extension(self, extension: Extension) -> None:
        target = Path(self.get_ext_fullpath(extension.name)).resolve()
        build = Path(self.build_temp).resolve()
        build.mkdir(parents=True, exist_ok=True)
        configure = [
            "cmake", "-S", str(HERE), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
            f"-DPython_EXECUTABLE={sys.executable}", f"-DQX_PYTHON_OUTPUT={target.parent}",
        ]  # fmt: skip
        if shutil.which("ninja"):
            configure += ["-G", "Ninja"]  # CMake's own choice is make, even where there is none
        subprocess.run(configure, check=True)
        subprocess.run(["cmake", "--build", str(build), "--parallel"], check=True)


setup(
    version=version(),
    ext_modules=[Extension("qxdb._core", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
)
