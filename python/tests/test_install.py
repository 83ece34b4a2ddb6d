"""pip builds the package against an installed library, in an environment of its own."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest
from conftest import SOURCE

BUILD = os.environ.get("QX_BUILD_DIR", "")


def must(*command: object, **env: str) -> str:
    done = subprocess.run(
        [str(part) for part in command],
        env={**os.environ, **env},
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 0, done.stdout[-4000:] + done.stderr[-4000:]
    return done.stdout


@pytest.mark.skipif(not BUILD, reason="QX_BUILD_DIR names no build to install")
@pytest.mark.skipif("LD_PRELOAD" in os.environ, reason="an installed library has no sanitizer")
def test_pip_install(tmp_path: Path) -> None:
    stage, venv = tmp_path / "stage", tmp_path / "venv"
    must("cmake", "--install", BUILD, "--prefix", stage)
    # A copy, so that nothing is built into the tree.
    source = tmp_path / "source" / "python"
    shutil.copytree(SOURCE / "python", source)
    shutil.copy(SOURCE / "CMakeLists.txt", source.parent)
    must(sys.executable, "-m", "venv", "--system-site-packages", venv)
    python = venv / "bin" / "python"
    must(
        python, "-m", "pip", "install", "--no-build-isolation", "--no-deps", source,
        CMAKE_PREFIX_PATH=str(stage), PYTHONPATH="",
    )  # fmt: skip
    code = (
        "import qxdb; m = qxdb.new('mm'); m.nodes.insert([[0, 0, 0], [1, 0, 0]]);"
        "print(qxdb.__file__, qxdb.__version__, len(m.nodes))"
    )
    where, version, nodes = must(python, "-c", code, PYTHONPATH="").split()
    assert where.startswith(str(venv)) and version[0].isdigit() and nodes == "2"
    assert (Path(where).parent / "py.typed").exists()
