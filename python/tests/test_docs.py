"""Every line of the documentation and of the tutorial runs."""

from __future__ import annotations

import ast
import json
import re
import shutil
from pathlib import Path
from typing import Any

import pytest
import qxdb
from conftest import SOURCE


def run(cells: list[str], name: str) -> list[Any]:
    """What the cells of a notebook show, run one after the other."""
    scope: dict[str, Any] = {"__name__": name}
    shown = []
    for number, cell in enumerate(cells):
        tree = ast.parse(cell, f"{name}, cell {number}")
        end = tree.body[-1] if tree.body else None
        last = end if isinstance(end, ast.Expr) else None
        del tree.body[len(tree.body) - (last is not None) :]
        exec(compile(tree, f"{name}, cell {number}", "exec"), scope)
        if last is not None:
            value = eval(compile(ast.Expression(last.value), f"{name}, cell {number}", "eval"), scope)
            show = getattr(value, "_repr_html_", None)
            shown.append(show() if show else repr(value))
    return shown


@pytest.fixture
def beside_bracket(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    shutil.copy(SOURCE / "examples" / "bracket.msh", tmp_path)
    monkeypatch.chdir(tmp_path)


def test_the_page(beside_bracket: None) -> None:
    text = (SOURCE / "docs" / "python.md").read_text()
    cells = re.findall(r"```python\n(.*?)```", text, re.DOTALL)
    assert len(cells) >= 8
    run(cells, "python.md")


def test_the_readme(beside_bracket: None) -> None:
    text = (SOURCE / "README.md").read_text()
    (cell,) = re.findall(r"```python\n(.*?)```", text, re.DOTALL)
    qxdb.read("bracket.msh").save("wing.qxm")
    with qxdb.open("wing.qxm", "read") as model:
        state = model.state
    run([cell], "README.md")
    with qxdb.open("wing.qxm", "read") as model:
        assert model.state == state and [s.done for s in model.history] == [False]


def test_the_tutorial(beside_bracket: None) -> None:
    notebook = json.loads((SOURCE / "python" / "notebooks" / "tutorial.ipynb").read_text())
    cells = ["".join(c["source"]) for c in notebook["cells"] if c["cell_type"] == "code"]
    assert len(cells) >= 8
    shown = run(cells, "tutorial.ipynb")
    assert "data:image/png" in shown[0]
    with qxdb.open("bracket.qxm", "read") as model:
        assert "doubtful" in model.sets


def test_the_package_page() -> None:
    """The example of the package itself is the one that the page explains."""
    assert "raise tip" in (qxdb.__doc__ or "")
    for name in qxdb.__all__:
        thing = getattr(qxdb, name)
        assert thing.__doc__, name
        for attribute, value in vars(thing).items() if isinstance(thing, type) else ():
            documented = getattr(value, "__doc__", None)
            if not attribute.startswith("_") and callable(value):
                assert documented, f"{name}.{attribute}"
