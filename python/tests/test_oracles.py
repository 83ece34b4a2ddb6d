"""What the exports write, as other programs read it: the same counts and sets, nodes in their order.

Each reader of another program is skipped, and said so, where its package is missing. The exports run
through the command line, which knows the options of every format."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
from pathlib import Path
from typing import Any, Iterator

import numpy as np
import pytest
import qxdb
from qxdb._schema import ELEMENT_NAMES, ELEMENT_NODES

QXDB = os.environ.get("QX_QXDB", "qxdb")
pytestmark = pytest.mark.skipif(
    "LD_PRELOAD" in os.environ, reason="other programs do not run under our sanitizers"
)

# Corners, and the pairs of them that mid-side nodes lie between, by the element's name.
TRI = [(0, 1), (1, 2), (2, 0)]
QUAD = [(0, 1), (1, 2), (2, 3), (3, 0)]
CORNERS: dict[str, Any] = {
    "line": [(0, 0, 0), (1, 0, 0)],
    "tri": [(0, 0, 0), (1, 0, 0), (0, 1, 0)],
    "quad": [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0)],
    "tet": [(0, 0, 0), (1, 0, 0), (0, 1, 0), (0, 0, 1)],
    "pyramid": [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0), (0.5, 0.5, 1)],
    "wedge": [(0, 0, 0), (1, 0, 0), (0, 1, 0), (0, 0, 1), (1, 0, 1), (0, 1, 1)],
    "hex": [(x, y, z) for z in (0, 1) for x, y in ((0, 0), (1, 0), (1, 1), (0, 1))],
}
EDGES = {
    "line": [(0, 1)],
    "tri": TRI,
    "quad": QUAD,
    "tet": TRI + [(0, 3), (1, 3), (2, 3)],
    "pyramid": QUAD + [(0, 4), (1, 4), (2, 4), (3, 4)],
    "wedge": TRI + [(3, 4), (4, 5), (5, 3)] + [(0, 3), (1, 4), (2, 5)],
    "hex": QUAD + [(4, 5), (5, 6), (6, 7), (7, 4)] + [(0, 4), (1, 5), (2, 6), (3, 7)],
}
NAMES = [name for name in ELEMENT_NAMES.values() if not name.startswith("point")]


def shape_of(name: str) -> str:
    return re.sub(r"\d+$", "", name)


def make(names: list[str], first: int = 11) -> qxdb.Model:
    """Two elements of each kind in random places, of random sizes, on nodes of their own numbered
    from `first` on; a set of the solids and one of the others."""
    codes = {name: code for code, name in ELEMENT_NAMES.items()}
    rng = np.random.default_rng(7)
    model = qxdb.new()
    solids: list[int] = []
    others: list[int] = []
    with model.step("make"):
        for name in names:
            shape = shape_of(name)
            corners = np.array(CORNERS[shape], float)
            middles = [(corners[a] + corners[b]) / 2 for a, b in EDGES[shape]]
            points = np.array([*corners, *middles][: ELEMENT_NODES[codes[name]]])
            for _ in range(2):
                placed = rng.uniform(-50, 50, 3) + rng.uniform(0.5, 5) * points
                nodes = model.nodes.insert(placed)
                elements = model.elements.insert(name, nodes=[nodes])
                is_solid = shape in ("tet", "pyramid", "wedge", "hex")
                (solids if is_solid else others).extend(int(key) for key in elements)
        model.nodes.renumber(first)
        model.sets.add("solids", elements=solids)
        if others:
            model.sets.add("others", elements=others)
    return model


def export(model: qxdb.Model, folder: Path, name: str, *options: str) -> Path:
    source, target = folder / "model.qxm", folder / name
    model.save(source)
    subprocess.run([QXDB, "export", source, target, *options], check=True, capture_output=True)
    return target


# ---- VTK ----------------------------------------------------------------------------------------


def check_grid(grid: Any, names: list[str], turned: tuple[str, ...] = ()) -> None:
    """Every cell is convex: its faces look outward by their nodes' order; nodes between two corners
    lie in the middle of the edge that the program says they are of. Kinds of cells that are `turned`
    look inward."""
    assert grid.GetNumberOfCells() == 2 * len(names)
    for i in range(grid.GetNumberOfCells()):
        cell = grid.GetCell(i)
        points = np.array([cell.GetPoints().GetPoint(n) for n in range(cell.GetNumberOfPoints())])
        kind = cell.GetClassName()
        ids = [cell.GetPointId(n) for n in range(cell.GetNumberOfPoints())]
        for e in range(cell.GetNumberOfEdges()):
            edge = cell.GetEdge(e)
            at = [np.array(grid.GetPoint(edge.GetPointId(n))) for n in range(edge.GetNumberOfPoints())]
            if len(at) == 3:
                np.testing.assert_allclose(at[2], (at[0] + at[1]) / 2, atol=1e-9, err_msg=kind)
        corners = len(CORNERS[shape_of(vtk_shape(kind))])
        middle = points[:corners].mean(axis=0)
        for f in range(cell.GetNumberOfFaces()):
            face = cell.GetFace(f)
            all_at = [grid.GetPoint(face.GetPointId(n)) for n in range(face.GetNumberOfPoints())]
            on = np.array(all_at[: 3 if len(all_at) in (3, 6) else 4])
            normal = np.cross(on[1] - on[0], on[2] - on[0])
            outward = np.dot(normal, on.mean(axis=0) - middle)
            assert (outward < 0) == (kind in turned), f"{kind}: face {f}"
        assert len(set(ids)) == len(ids)


def vtk_shape(kind: str) -> str:
    for word, shape in (
        ("Hexahedron", "hex"), ("Wedge", "wedge"), ("Pyramid", "pyramid"), ("Tetra", "tet"),
        ("Quad", "quad"), ("Triangle", "tri"), ("Line", "line"), ("Edge", "line"),
    ):  # fmt: skip
        if word in kind.replace("Quadratic", ""):
            return shape
    raise AssertionError(kind)


VTU = [
    (f"--option=encoding={e}", f"--option=compression={c}")
    for e in ("base64", "raw", "inline", "ascii")
    for c in ("none", "zlib", "lz4")
]


@pytest.mark.parametrize("options", VTU, ids=lambda o: "-".join(x.split("=")[-1] for x in o))
def test_vtk_reads_vtu(tmp_path: Path, options: tuple[str, ...]) -> None:
    xml = pytest.importorskip("vtkmodules.vtkIOXML")
    numpy_support = pytest.importorskip("vtkmodules.util.numpy_support")
    model = make(NAMES)
    path = export(model, tmp_path, "all.vtu", *options)
    reader = xml.vtkXMLUnstructuredGridReader()
    reader.SetFileName(str(path))
    reader.Update()
    grid = reader.GetOutput()
    check_grid(grid, NAMES)
    keys = numpy_support.vtk_to_numpy(grid.GetCellData().GetArray("element_key"))
    inside = numpy_support.vtk_to_numpy(grid.GetCellData().GetArray("solids"))
    assert sorted(keys[inside != 0]) == sorted(model.sets["solids"].elements)


def test_vtk_reads_exodus(tmp_path: Path) -> None:
    exodus = pytest.importorskip("vtkmodules.vtkIOExodus")
    # Debian's VTK 9.1 has no word for a pyramid of 13 nodes in these files.
    names = [name for name in NAMES if name != "pyramid13"]
    path = export(make(names), tmp_path, "all.e")
    reader = exodus.vtkExodusIIReader()
    reader.SetFileName(str(path))
    reader.UpdateInformation()
    reader.Update()
    count = 0
    for i in range(reader.GetOutput().GetBlock(0).GetNumberOfBlocks()):
        grid = reader.GetOutput().GetBlock(0).GetBlock(i)
        # Its reader hands wedges on with the corners in the order of the file, which its cells
        # count the other way round.
        check_grid(grid, names[: grid.GetNumberOfCells() // 2], ("vtkWedge", "vtkQuadraticWedge"))
        count += grid.GetNumberOfCells()
    assert count == 2 * len(names)


SURFACES = [
    ("a.stl", "vtkSTLReader", "vtkIOGeometry", ()),
    ("a.stl", "vtkSTLReader", "vtkIOGeometry", ("--encoding=ascii",)),
    ("a.obj", "vtkOBJReader", "vtkIOGeometry", ()),
    ("a.ply", "vtkPLYReader", "vtkIOPLY", ()),
    ("a.ply", "vtkPLYReader", "vtkIOPLY", ("--encoding=ascii",)),
]


@pytest.mark.parametrize("file, reader, module, options", SURFACES)
def test_vtk_reads_surfaces(
    tmp_path: Path, file: str, reader: str, module: str, options: tuple[str, ...]
) -> None:
    """The skin of one solid of each kind is closed and holds the solid's volume."""
    found = pytest.importorskip(f"vtkmodules.{module}")
    core = pytest.importorskip("vtkmodules.vtkFiltersCore")
    for name in [n for n in NAMES if shape_of(n) in ("tet", "pyramid", "wedge", "hex")]:
        path = export(make([name]), tmp_path, file, "--force", *options)
        source = getattr(found, reader)()
        source.SetFileName(str(path))
        triangles = core.vtkTriangleFilter()
        triangles.SetInputConnection(source.GetOutputPort())
        mass = core.vtkMassProperties()
        mass.SetInputConnection(triangles.GetOutputPort())
        mass.Update()
        share = {"tet": 1 / 6, "pyramid": 1 / 3, "wedge": 1 / 2, "hex": 1}[shape_of(name)]
        rng = np.random.default_rng(7)
        sizes = [(rng.uniform(-50, 50, 3), rng.uniform(0.5, 5))[1] for _ in range(2)]
        assert mass.GetVolume() == pytest.approx(share * sum(s**3 for s in sizes), rel=1e-3), name


# ---- meshio -------------------------------------------------------------------------------------

# As meshio names them, which lists nodes as VTK does.
MESHIO: dict[str, Any] = {
    "line": ("line", ""), "line3": ("line", "3"), "triangle": ("tri", ""), "triangle6": ("tri", "6"),
    "quad": ("quad", ""), "quad8": ("quad", "8"), "tetra": ("tet", ""), "tetra10": ("tet", "10"),
    "pyramid": ("pyramid", ""), "wedge": ("wedge", ""), "hexahedron": ("hex", ""),
    "hexahedron20": ("hex", "20"), "wedge15": ("wedge", "15"), "pyramid13": ("pyramid", "13"),
}  # fmt: skip
MESHIO_FILES = [
    ("a.msh", ("--encoding=ascii",), ()),
    ("a.msh", (), ()),
    ("a.msh", ("--encoding=ascii", "--option=version=2.2"), ()),
    ("a.msh", ("--option=version=2.2",), ()),
    ("a.inp", (), ("pyramid5", "pyramid13", "wedge6", "wedge15", "quad8", "line3", "tri6")),
    ("a.bdf", (), ("pyramid5", "pyramid13", "wedge15", "line3", "quad8", "tri6")),
    ("a.vtu", (), ()),
]
# Surfaces alone. Of PLY files it reads colours of faces in text, and of faces of one kind.
MESHIO_SURFACES = [
    ("a.obj", (), ["tri3", "quad4"]),
    ("a.ply", ("--encoding=ascii",), ["tri3"]),
    ("a.ply", ("--encoding=ascii",), ["quad4"]),
    ("a.stl", (), ["tri3"]),
    ("a.stl", ("--encoding=ascii",), ["tri3"]),
]


@pytest.mark.parametrize("file, options, beyond", MESHIO_FILES)
def test_meshio_reads(
    tmp_path: Path, file: str, options: tuple[str, ...], beyond: tuple[str, ...]
) -> None:
    """`beyond`: what its reader of that format does not know, or knows in another order."""
    meshio = pytest.importorskip("meshio")
    names = [n for n in NAMES if n not in beyond + ("pyramid13", "wedge15")]
    # Its reader of version 2.2 takes nodes that are numbered from 1 only.
    path = export(make(names, 1), tmp_path, file, *options)
    mesh = meshio.read(path)
    assert sum(len(block.data) for block in mesh.cells) == 2 * len(names)
    assert len(mesh.points) == sum(
        2 * ELEMENT_NODES[code] for code, name in ELEMENT_NAMES.items() if name in names
    )
    for block in mesh.cells:
        shape, order = MESHIO[block.type]
        corners = len(CORNERS[shape])
        for row in block.data:
            points = mesh.points[row]
            assert signed_size(shape, points) > 0, block.type
            if order:
                for m, (a, b) in enumerate(EDGES[shape]):
                    middle = (points[a] + points[b]) / 2
                    np.testing.assert_allclose(points[corners + m], middle, atol=1e-9)


@pytest.mark.parametrize("file, options, names", MESHIO_SURFACES)
def test_meshio_reads_surfaces(
    tmp_path: Path, file: str, options: tuple[str, ...], names: list[str]
) -> None:
    meshio = pytest.importorskip("meshio")
    model = make(names)
    mesh = meshio.read(export(model, tmp_path, file, *options))
    assert sum(len(block.data) for block in mesh.cells) == 2 * len(names)
    np.testing.assert_allclose(np.sort(mesh.points, 0), np.sort(model.nodes.xyz, 0), rtol=1e-6)


def signed_size(shape: str, points: np.ndarray[Any, Any]) -> float:
    """A number of the sign of the volume; the length or area of others."""
    if shape == "line":
        return float(np.linalg.norm(points[1] - points[0]))
    a, b = points[1] - points[0], points[len(CORNERS[shape][:3]) - 1] - points[0]
    if shape in ("tri", "quad"):
        return float(np.linalg.norm(np.cross(a, b)))
    apex = {"tet": 3, "pyramid": 4, "wedge": 3, "hex": 4}[shape]
    return float(np.dot(np.cross(a, b), points[apex] - points[0]))


# ---- ncdump -------------------------------------------------------------------------------------


def test_ncdump_reads_exodus(tmp_path: Path) -> None:
    if not shutil.which("ncdump"):
        pytest.skip("no ncdump")
    model = make(NAMES)
    path = export(model, tmp_path, "all.e")
    text = subprocess.run(["ncdump", path], check=True, capture_output=True, text=True).stdout
    sizes = {k: int(v) for k, v in re.findall(r"^\t(\w+) = (\d+) ;", text, re.M)}
    assert sizes["num_nodes"] == len(model.nodes) and sizes["num_elem"] == 2 * len(NAMES)
    blocks = sum(v for k, v in sizes.items() if k.startswith("num_el_in_blk"))
    assert blocks == sizes["num_elem"]
    assert '"solids"' in text
    numbers = re.search(r"node_num_map = ([\d, \n]+);", text)
    assert numbers
    keys = [int(n) for n in numbers.group(1).replace("\n", " ").split(",")]
    assert keys == list(model.nodes.keys)


# ---- Gmsh ---------------------------------------------------------------------------------------


@pytest.fixture
def gmsh() -> Iterator[Any]:
    module = pytest.importorskip("gmsh")
    module.initialize()
    module.option.setNumber("General.Terminal", 0)
    yield module
    module.finalize()


# Its interface tells of one order of elements in an entity.
LINEAR = ["line2", "tri3", "quad4", "tet4", "pyramid5", "wedge6", "hex8"]
ORDERS = {"linear": LINEAR, "quadratic": [name for name in NAMES if name not in LINEAR]}


@pytest.mark.parametrize("order", list(ORDERS))
@pytest.mark.parametrize("version", ["2.2", "4.1"])
@pytest.mark.parametrize("encoding", ["ascii", "binary"])
def test_gmsh_reads_msh(
    tmp_path: Path, gmsh: Any, version: str, encoding: str, order: str
) -> None:
    names = ORDERS[order]
    model = make(names)
    path = export(
        model, tmp_path, "all.msh", f"--encoding={encoding}", f"--option=version={version}"
    )
    gmsh.open(str(path))
    assert len(gmsh.model.mesh.getNodes()[0]) == len(model.nodes)
    assert len({name for name in groups(gmsh)} & {"solids"}) == 1
    assert count_checked(gmsh) == 2 * len(names)


# The format has no pyramids.
UNV = [name for name in NAMES if not name.startswith("pyramid")]


@pytest.mark.parametrize("order", list(ORDERS))
def test_gmsh_reads_unv(tmp_path: Path, gmsh: Any, order: str) -> None:
    names = [name for name in ORDERS[order] if name in UNV]
    model = make(names)
    gmsh.open(str(export(model, tmp_path, "all.unv")))
    assert count_checked(gmsh) == 2 * len(names)
    assert "solids" in groups(gmsh)
    assert set(gmsh.model.mesh.getNodes()[0]) >= set(model.nodes.keys)


@pytest.mark.parametrize("order", list(ORDERS))
def test_gmsh_writes_unv(tmp_path: Path, gmsh: Any, order: str) -> None:
    """What it makes of our elements and writes comes back as it was."""
    names = [name for name in ORDERS[order] if name in UNV]
    model = make(names)
    gmsh.open(str(export(model, tmp_path, "all.msh")))
    gmsh.option.setNumber("Mesh.SaveAll", 1)
    gmsh.write(str(tmp_path / "theirs.unv"))
    theirs, back = tmp_path / "theirs.unv", tmp_path / "back.qxm"
    subprocess.run([QXDB, "import", theirs, back], check=True, capture_output=True)
    subprocess.run([QXDB, "export", back, tmp_path / "back.msh"], check=True, capture_output=True)
    gmsh.open(str(tmp_path / "back.msh"))
    assert count_checked(gmsh) == 2 * len(names)


def count_checked(gmsh: Any) -> int:
    """The number of elements, each of which lies as the program wants it."""
    tags, coordinates, _ = gmsh.model.mesh.getNodes()
    where = {t: coordinates[3 * i : 3 * i + 3] for i, t in enumerate(tags)}
    count = 0
    for kind, elements, nodes in zip(*gmsh.model.mesh.getElements()):
        name, dimension, _, size, local, corners = gmsh.model.mesh.getElementProperties(kind)
        count += len(elements)
        assert len(nodes) == size * len(elements)
        reference = np.reshape(local, (size, -1))
        for row in np.reshape(nodes, (-1, size)):
            check_element(name, corners, reference, np.array([where[n] for n in row]), dimension)
    return count


def check_element(
    name: str, corners: int, reference: np.ndarray[Any, Any], points: np.ndarray[Any, Any], dimension: int
) -> None:
    """An element lies in space as in the program's reference: nodes amid two corners there are amid
    them here, and four corners turn the same way."""
    if dimension == 3:
        turns = [
            np.linalg.det(np.array([p[i] - p[0] for i in (1, 2, corners - 1)]))
            for p in (reference[:corners], points)
        ]
        assert turns[0] * turns[1] > 0, name
    for node in range(corners, len(points)):
        found = [
            (a, b)
            for a in range(corners)
            for b in range(a)
            if np.allclose(reference[node], (reference[a] + reference[b]) / 2)
        ]
        # The middle of a diagonal is no node of these elements.
        assert found, f"{name}: node {node}"
        assert any(
            np.allclose(points[node], (points[a] + points[b]) / 2, atol=1e-9) for a, b in found
        ), f"{name}: node {node}"


def groups(gmsh: Any) -> list[str]:
    return [gmsh.model.getPhysicalName(*group) for group in gmsh.model.getPhysicalGroups()]
