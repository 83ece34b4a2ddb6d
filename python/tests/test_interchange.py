"""To and from other packages' meshes; each skipped, and said so, where its package is missing."""

from __future__ import annotations

import sys
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import qxdb


def same_mesh(a: qxdb.Model, b: qxdb.Model) -> None:
    np.testing.assert_array_equal(a.nodes.keys, b.nodes.keys)
    np.testing.assert_array_equal(a.nodes.xyz, b.nodes.xyz)
    assert a.elements.counts() == b.elements.counts()
    for name in a.elements.counts():
        order = np.argsort(a.elements[name].keys), np.argsort(b.elements[name].keys)
        for x, y in ((a, order[0]), (b, order[1])):
            assert len(x.elements[name]) == len(y)
        np.testing.assert_array_equal(
            a.elements[name].nodes[:][order[0]], b.elements[name].nodes[:][order[1]]
        )


# Older versions of meshio do not know them.
PERHAPS_UNKNOWN = ("pyramid13", "wedge15")


def every_type(without: tuple[str, ...] = ()) -> qxdb.Model:
    """One element of each ordinary type, on nodes of its own."""
    model = qxdb.new()
    rng = np.random.default_rng(1)
    from qxdb._schema import ELEMENT_NAMES, ELEMENT_NODES

    with model.step("one of each"):
        for code, name in ELEMENT_NAMES.items():
            if name in without:
                continue
            keys = model.nodes.insert(rng.random((ELEMENT_NODES[code], 3)))
            model.elements.insert(name, nodes=[keys])
    model.nodes.renumber(11)
    return model


def test_meshio(bracket: qxdb.Model) -> None:
    pytest.importorskip("meshio")
    mesh = bracket.to_meshio()
    assert mesh.points.shape == (9210, 3) and set(mesh.cells_dict) == {"triangle6", "tetra10"}
    again = qxdb.from_meshio(mesh, units="mm")
    same_mesh(bracket, again)
    for name in ("foot", "bracket"):
        assert again.sets[name].elements == bracket.sets[name].elements
    try:
        every_type().to_meshio()
        without: tuple[str, ...] = ()
    except qxdb.ValueFault as error:
        assert any(name in str(error) for name in PERHAPS_UNKNOWN)
        without = PERHAPS_UNKNOWN
    model = every_type(without)
    same_mesh(model, qxdb.from_meshio(model.to_meshio()))


def test_meshio_lists_nodes_as_we_do(tmp_path: Path, bracket: qxdb.Model) -> None:
    """The same file by its reader and by ours: one connectivity."""
    meshio = pytest.importorskip("meshio")
    path = tmp_path / "all.msh"
    model = every_type(PERHAPS_UNKNOWN)
    model.write(path)
    theirs = qxdb.from_meshio(meshio.read(path))
    for name in model.elements.counts():
        np.testing.assert_array_equal(
            theirs.nodes.xyz[:][theirs.elements[name].nodes.rows],
            model.nodes.xyz[:][model.elements[name].nodes.rows],
            name,
        )


def test_vtk(bracket: qxdb.Model) -> None:
    pytest.importorskip("vtkmodules")
    grid = bracket.to_vtk()
    assert grid.GetNumberOfPoints() == 9210 and grid.GetNumberOfCells() == 5849
    same_mesh(bracket, qxdb.from_vtk(grid))
    same_mesh(every_type(), qxdb.from_vtk(every_type().to_vtk()))


def test_pandas(cube: qxdb.Model) -> None:
    cube.materials.insert(3, name=["a", "b", "c"], density=[1.0, 2.0, 3.0])
    frame = cube.materials.to_pandas()
    assert frame.loc[2, "name"] == "b" and frame.loc[3, "density"] == 3.0
    frame["density"] *= 2
    cube.materials.from_pandas(frame[["density"]])
    np.testing.assert_array_equal(cube.materials.density, [2, 4, 6])
    nodes = cube.nodes.to_pandas()
    state = cube.state
    cube.nodes.from_pandas(nodes)
    assert cube.state == state
    cube.elements.remove()
    cube.nodes.remove()
    for wrong in (nodes.drop(columns="position_1"), nodes.assign(position_3=1.0)):
        with pytest.raises(qxdb.MissingError, match="position_0, position_1, position_2"):
            cube.nodes.from_pandas(wrong, insert=True)
    cube.nodes.from_pandas(nodes, insert=True)
    np.testing.assert_array_equal(cube.nodes.xyz[:, 2], nodes["position_2"])


@pytest.mark.parametrize(
    "call, package",
    [
        ("to_pandas", "python3-pandas"),
        ("to_meshio", "python3-meshio"),
        ("to_vtk", "python3-vtk9"),
    ],
)
def test_packages_that_are_missing(
    cube: qxdb.Model, monkeypatch: pytest.MonkeyPatch, call: str, package: str
) -> None:
    modules: Any = sys.modules
    for module in ("pandas", "meshio", "vtkmodules"):
        monkeypatch.setitem(modules, module, None)
    of = cube.nodes if call == "to_pandas" else cube
    with pytest.raises(qxdb.PackageError) as raised:
        getattr(of, call)()
    assert package in raised.value.remedy and isinstance(raised.value, ImportError)
