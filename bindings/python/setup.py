"""Builds the extension with CMake, from the whole source tree.

FRAMEHOLD_BUILD_FOLDER: a build folder of the tree to build in; default: one of setuptools' own.
"""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent.parent.parent


def version() -> str:
    """The library's, from the public header."""
    header = (ROOT / "include" / "zpr_framehold.h").read_text()
    parts = [
        re.search(rf"#define ZPR_VERSION_{part} (\d+)", header) for part in ("MAJOR", "MINOR", "BUILD")
    ]
    return ".".join(part[1] for part in parts if part)


class CMakeBuild(build_ext):
    """Has CMake build the extension."""

    def build_extension(self, ext: Extension) -> None:
        """Builds it and puts it where setuptools wants it."""
        given = os.environ.get("FRAMEHOLD_BUILD_FOLDER")
        folder = Path(given or self.build_temp).resolve()
        if not given:
            options = ["BUILD_PYTHON=ON", "BUILD_TESTS=OFF", "REPORTS=OFF", "INSTALL=OFF"]
            subprocess.run(
                ["cmake", "-S", ROOT, "-B", folder, f"-DPython_EXECUTABLE={sys.executable}"]
                + [f"-DFRAMEHOLD_{option}" for option in options],
                check=True,
            )
        subprocess.run(["cmake", "--build", folder, "--target", "framehold_python"], check=True)
        target = Path(self.get_ext_fullpath(ext.name)).resolve()
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(folder / "python" / "framehold" / target.name, target)


setup(
    version=version(),
    ext_modules=[Extension("framehold._core", [])],
    cmdclass={"build_ext": CMakeBuild},
)
