"""Type annotations: whole, strict, and true to the compiled module."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import pytest
import qxdb
from conftest import SOURCE

mypy = pytest.importorskip("mypy")
asan = pytest.mark.skipif("LD_PRELOAD" in os.environ, reason="mypy says nothing of addresses")


def told_by(*arguments: str, cwd: Path, env: dict[str, str] | None = None) -> str:
    done = subprocess.run(
        [sys.executable, "-m", *arguments],
        cwd=cwd,
        env={**os.environ, **(env or {})},
        capture_output=True,
        text=True,
        check=False,
    )
    return "" if done.returncode == 0 else done.stdout + done.stderr


@asan
def test_the_package_is_typed(tmp_path: Path) -> None:
    config = SOURCE / "python" / "pyproject.toml"
    package = SOURCE / "python" / "package" / "qxdb"
    cache = f"--cache-dir={tmp_path}"
    strict = ["mypy", cache, f"--config-file={config}"]
    assert told_by(*strict, str(package), cwd=tmp_path) == ""
    # The tests are the package's first users. They call in ways that no annotation allows.
    tests = ["--allow-untyped-calls", "--no-warn-return-any", str(SOURCE / "python" / "tests")]
    assert told_by(*strict, *tests, cwd=tmp_path, env={"MYPYPATH": str(package.parent)}) == ""


@asan
def test_the_stub_is_the_module(tmp_path: Path) -> None:
    """Every name of the compiled module is in its stub, and the other way round."""
    import ast

    stub = ast.parse((SOURCE / "python" / "package" / "qxdb" / "_core.pyi").read_text())

    def names(body: list[ast.stmt]) -> set[str]:
        found = {n.name for n in body if isinstance(n, (ast.FunctionDef, ast.ClassDef))}
        return found | {n.target.id for n in body if isinstance(n, ast.AnnAssign)}  # type: ignore

    def real(of: object) -> set[str]:
        return {n for n in vars(of) if not n.startswith("_")}

    def public(found: set[str]) -> set[str]:
        return {n for n in found if not n.startswith("_")}

    assert public(names(stub.body)) == real(qxdb._core)
    for node in stub.body:
        if isinstance(node, ast.ClassDef):
            kind = getattr(qxdb._core, node.name)
            assert public(names(node.body)) == real(kind)
            for method in node.body:
                if not isinstance(method, ast.FunctionDef) or method.name.startswith("__"):
                    continue
                if method.decorator_list:
                    continue
                signature = (getattr(kind, method.name).__doc__ or "").split("->")[0]
                for argument in method.args.args[1:]:
                    assert f"{argument.arg}:" in signature, f"{node.name}.{method.name}"
