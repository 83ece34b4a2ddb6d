"""What the tests share: small models of every shape."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Iterator

import numpy as np
import pytest
import qxdb

SOURCE = Path(os.environ.get("QX_SOURCE_DIR", Path(__file__).resolve().parents[2]))


@pytest.fixture
def bracket() -> Iterator[qxdb.Model]:
    """A real part of quadratic tetrahedra and triangles, with mesh sets."""
    with qxdb.read(SOURCE / "examples" / "bracket.msh", units="mm") as model:
        yield model


def block(n: int = 2) -> qxdb.Model:
    """n x n x n hexahedra of side 1."""
    model = qxdb.new()
    axis = np.arange(n + 1.0)
    z, y, x = np.meshgrid(axis, axis, axis, indexing="ij")
    with model.step("Make a block"):
        model.nodes.insert(np.column_stack([x.ravel(), y.ravel(), z.ravel()]))
        i, j, k = np.meshgrid(*[np.arange(n)] * 3, indexing="ij")
        first = (i + (n + 1) * (j + (n + 1) * k)).ravel()
        across = n + 1
        up = across * across
        corners = [0, 1, across + 1, across]
        rows = np.column_stack([first + c for c in corners] + [first + up + c for c in corners])
        model.elements.insert("hex8", node_rows=rows)
    return model


@pytest.fixture
def cube() -> Iterator[qxdb.Model]:
    with block() as model:
        yield model
