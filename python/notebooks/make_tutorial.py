"""Writes tutorial.ipynb from the cells below: a notebook is no text that one edits well."""

import json
from pathlib import Path

CELLS = [
    """# A bracket, from mesh to mended model

Run beside `bracket.msh` of the examples. Each change below is a step that can be undone.""",
    """import numpy as np
import qxdb

model = qxdb.read("bracket.msh", units="mm")
model""",
    "The tables of the model have numpy columns; reading copies.",
    """xyz = model.nodes.xyz[:]
xyz.min(axis=0), xyz.max(axis=0), model.nodes.xyz.unit""",
    """model.elements.counts()""",
    "Assigning to a column changes the model, as one step.",
    """tip = xyz[:, 0] > 0.9 * xyz[:, 0].max()
with model.step("raise tip"):
    model.nodes.xyz[tip, 2] += 0.5
model.history""",
    """model.undo()
assert np.array_equal(model.nodes.xyz, xyz)""",
    "How well are the elements shaped? The worst ones become a mesh set.",
    """tets = model.elements["tet10"]
shape = tets.quality("scaled-jacobian")
worst = tets.keys[np.argsort(shape)[:20]]
doubtful = model.sets.add("doubtful", elements=worst)
doubtful, float(shape.min())""",
    """{name: len(found.keys) for name, found in model.findings().items() if len(found.keys)}""",
    "A material and a property give the part a mass.",
    """(steel,) = model.materials.insert(name="steel", density=7.85e-6)
(solid,) = model.properties.insert(name="solid", material=steel, dimension=3)
with model.step("steel"):
    model.elements["tet10"].property = solid
report = model.mass(thickness=0.0)
round(report.total.mass, 4), report.total.center.round(3)""",
    "What would go if a node went?",
    """[(c.effect, repr(c.record)[:12]) for c in model.nodes.preview_removal(12).consequences][:4]""",
    """model.save("bracket.qxm")
model.close()""",
]


def cell(text: str, number: int) -> dict[str, object]:
    is_text = not any(c in text for c in "=()[]{}") or text.startswith("# ")
    lines = text.splitlines(keepends=True)
    out: dict[str, object] = {"id": f"cell{number}", "metadata": {}, "source": lines}
    if is_text:
        return {"cell_type": "markdown", **out}
    return {"cell_type": "code", "execution_count": None, "outputs": [], **out}


notebook = {
    "cells": [cell(text, i) for i, text in enumerate(CELLS)],
    "metadata": {
        "kernelspec": {"display_name": "Python 3", "language": "python", "name": "python3"},
        "language_info": {"name": "python"},
    },
    "nbformat": 4,
    "nbformat_minor": 5,
}
target = Path(__file__).with_name("tutorial.ipynb")
target.write_text(json.dumps(notebook, indent=1) + "\n")
