"""What the exports of CGNS and MED files hold, as the formats' own libraries and other programs read
it: counts, nodes in their order, sets, fields. Each is skipped, and said so, where its package is
missing."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from qxdb._schema import ELEMENT_NAMES, ELEMENT_NODES
from test_oracles import (
    CORNERS,
    EDGES,
    MESHIO,
    NAMES,
    QXDB,
    check_grid,
    export,
    make,
    shape_of,
    signed_size,
)

pytestmark = pytest.mark.skipif(
    "LD_PRELOAD" in os.environ, reason="other programs do not run under our sanitizers"
)


def export_or_skip(model: Any, folder: Path, name: str) -> Path:
    """Formats of components that this build may lack."""
    try:
        return export(model, folder, name)
    except subprocess.CalledProcessError as error:
        if b"this build has no" not in error.stderr:
            raise
        pytest.skip(error.stderr.decode())


def run(*command: Any) -> str:
    if not shutil.which(command[0]):
        pytest.skip(f"no {command[0]}")
    done = subprocess.run(list(map(str, command)), capture_output=True, text=True, errors="replace")
    assert done.returncode == 0, done.stdout[-2000:] + done.stderr[-2000:]
    return done.stdout + done.stderr


def nodes_of(names: list[str]) -> int:
    return sum(2 * ELEMENT_NODES[code] for code, name in ELEMENT_NAMES.items() if name in names)


def with_fields(folder: Path, name: str) -> tuple[Any, Path]:
    """A model of two tetrahedra and a hexahedron with fields, made of meshio's file, in a file of
    ours; and what meshio was given."""
    meshio = pytest.importorskip("meshio")
    points = np.array([*CORNERS["hex"], (2, 0, 0), (2, 1, 0.5)], float)
    rng = np.random.default_rng(3)
    cells = [("hexahedron", np.array([range(8)])), ("tetra", np.array([[1, 8, 2, 5], [8, 9, 2, 5]]))]
    mesh = meshio.Mesh(
        points,
        cells,
        point_data={"heat": rng.uniform(size=10), "shift": rng.uniform(size=(10, 3))},
        cell_data={"stress": [rng.uniform(size=1), rng.uniform(size=2)]},
    )
    meshio.write(folder / "in.vtu", mesh)
    model = folder / "fields.qxm"
    subprocess.run([QXDB, "import", folder / "in.vtu", model], check=True, capture_output=True)
    target = folder / name
    done = subprocess.run([QXDB, "export", model, target], capture_output=True, text=True)
    if "this build has no" in done.stderr:
        pytest.skip(done.stderr)
    assert done.returncode == 0, done.stderr
    return mesh, target


# ---- the formats' own libraries -----------------------------------------------------------------


def test_the_library_of_cgns_finds_no_fault(tmp_path: Path) -> None:
    model = make(NAMES)
    said = run("cgnscheck", "-v", export_or_skip(model, tmp_path, "all.cgns"))
    assert not re.search("^ *ERROR", said, re.M), said
    assert f"Vertex Size=[{len(model.nodes)}]" in said
    assert said.count("checking element set") == len(NAMES)
    _, path = with_fields(tmp_path, "fields.cgns")
    said = run("cgnscheck", "-v", path)
    assert not re.search("^ *ERROR", said, re.M), said
    fields = ["heat", "shiftX", "shiftY", "shiftZ", "stress"]
    assert re.findall(r'checking solution field "(\w+)"', said) == fields


def dump_of_med(path: Path) -> str:
    """By the dump of version 3, in which the files are laid out: that of version 4 reads fields of
    later files only."""
    return run("mdump3", path, "NODALE", "FULL_INTERLACE", "0")


def test_the_library_of_med_reads_all(tmp_path: Path) -> None:
    path = export_or_skip(make(NAMES), tmp_path, "all.med")
    run("medconforme", path)
    said = dump_of_med(path)
    assert f"Nombre de noeuds : {nodes_of(NAMES)}" in said
    counts = re.findall(r"Nombre de mailles de type \S+ : (\d+)", said)
    assert sum(map(int, counts)) == 2 * len(NAMES)
    assert "solids" in said and "others" in said


def test_the_library_of_med_reads_fields(tmp_path: Path) -> None:
    mesh, path = with_fields(tmp_path, "fields.med")
    said = dump_of_med(path)
    tables = re.findall(r"CHAMP \|(\w+)\|.*?- Valeurs :\s*\|([^\n]*)\|", said, re.S)
    read: dict[str, list[float]] = {}
    for name, values in tables:
        read.setdefault(name, []).extend(float(v) for v in values.replace("|", " ").split())
    for name, values in mesh.point_data.items():
        np.testing.assert_allclose(read[name], values.ravel(), atol=1e-6, err_msg=name)
    stress = np.concatenate(mesh.cell_data["stress"])
    np.testing.assert_allclose(sorted(read["stress"]), sorted(stress), atol=1e-6)


# ---- VTK and meshio -----------------------------------------------------------------------------


def test_vtk_reads_cgns(tmp_path: Path) -> None:
    found = pytest.importorskip("vtkmodules.vtkIOCGNSReader")
    solids = [n for n in NAMES if shape_of(n) in ("tet", "pyramid", "wedge", "hex")]
    names = [n for n in solids if n != "pyramid13"]  # of which Debian's VTK 9.1 makes empty cells
    reader = found.vtkCGNSReader()
    reader.SetFileName(str(export_or_skip(make(names), tmp_path, "all.cgns")))
    reader.UpdateInformation()
    reader.Update()
    # Its reader hands wedges on in the order of the file, which its cells count the other way round.
    turned = ("vtkWedge", "vtkQuadraticWedge")
    check_grid(reader.GetOutput().GetBlock(0).GetBlock(0), names, turned)


def test_vtk_reads_the_fields_of_cgns(tmp_path: Path) -> None:
    found = pytest.importorskip("vtkmodules.vtkIOCGNSReader")
    numpy_support = pytest.importorskip("vtkmodules.util.numpy_support")
    mesh, path = with_fields(tmp_path, "fields.cgns")
    reader = found.vtkCGNSReader()
    reader.SetFileName(str(path))
    reader.UpdateInformation()
    reader.EnableAllPointArrays()
    reader.EnableAllCellArrays()
    reader.Update()
    grid = reader.GetOutput().GetBlock(0).GetBlock(0)
    for data, expected in (
        (grid.GetPointData(), {k: v for k, v in mesh.point_data.items()}),
        (grid.GetCellData(), {k: np.concatenate(v) for k, v in mesh.cell_data.items()}),
    ):
        for name, values in expected.items():
            array = data.GetArray(name)
            assert array, f"{name}: {[data.GetArrayName(i) for i in range(data.GetNumberOfArrays())]}"
            read = np.sort(numpy_support.vtk_to_numpy(array), axis=0)
            np.testing.assert_allclose(read, np.sort(values, axis=0), err_msg=name)


# Its reader of these files knows no pyramids and wedges with mid-side nodes.
MESHIO_MED = [name for name in NAMES if name not in ("pyramid13", "wedge15")]


def test_meshio_reads_med(tmp_path: Path) -> None:
    meshio = pytest.importorskip("meshio")
    pytest.importorskip("h5py")
    names = MESHIO_MED
    mesh = meshio.read(export_or_skip(make(names), tmp_path, "all.med"))
    assert sum(len(block.data) for block in mesh.cells) == 2 * len(names)
    assert len(mesh.points) == nodes_of(names)
    for block in mesh.cells:
        shape, order = MESHIO[block.type]
        for row in block.data:
            points = mesh.points[row]
            if shape in ("tet", "pyramid", "wedge", "hex") and not order:
                # It hands solids on in the order of the file, whose first face looks outward.
                assert signed_size(shape, points) < 0, block.type
            middles = points[len(CORNERS[shape]) :]
            between = [(points[a] + points[b]) / 2 for a, b in EDGES[shape]]
            for middle in middles:
                assert any(np.allclose(middle, other, atol=1e-9) for other in between), block.type


def test_meshio_reads_the_fields_of_med(tmp_path: Path) -> None:
    pytest.importorskip("h5py")
    meshio = pytest.importorskip("meshio")
    given, path = with_fields(tmp_path, "fields.med")
    mesh = meshio.read(path)
    for name, values in given.point_data.items():
        np.testing.assert_allclose(mesh.point_data[name], values, err_msg=name)
    theirs = np.concatenate([np.ravel(part) for part in mesh.cell_data["stress"]])
    np.testing.assert_allclose(np.sort(theirs), np.sort(np.concatenate(given.cell_data["stress"])))
