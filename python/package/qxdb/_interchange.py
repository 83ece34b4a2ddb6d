"""To and from the mesh objects of other packages, without files."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Union

import numpy as np

from ._errors import ValueFault, optional
from ._model import Model, new
from ._schema import ELEMENT_NAMES, ELEMENT_NODES, ELEMENT_TYPES

# meshio lists the nodes of every ordinary type as this library does.
_MESHIO = {
    "vertex": "point1", "line": "line2", "line3": "line3", "triangle": "tri3", "triangle6": "tri6",
    "quad": "quad4", "quad8": "quad8", "tetra": "tet4", "tetra10": "tet10",
    "pyramid": "pyramid5", "pyramid13": "pyramid13", "wedge": "wedge6", "wedge15": "wedge15",
    "hexahedron": "hex8", "hexahedron20": "hex20",
}  # fmt: skip
# VTK's cell types by element type code, from 1; its wedges have their first triangle facing
# outward, ours inward.
_VTK = (1, 3, 21, 5, 22, 9, 23, 10, 24, 14, 27, 13, 26, 12, 25)
_VTK_ORDER = {
    12: [0, 2, 1, 3, 5, 4],
    13: [0, 2, 1, 3, 5, 4, 8, 7, 6, 11, 10, 9, 12, 14, 13],
}


def _meshio_names() -> dict[str, int]:
    codes = dict(ELEMENT_TYPES)
    codes["point1"] = 1  # whatever the library calls it
    return {name: codes[own] for name, own in _MESHIO.items()}


def to_meshio(model: Model) -> Any:
    """See Model.to_meshio."""
    meshio = optional("meshio", "python3-meshio")
    blocks, keys = [], []
    names = {code: name for name, code in _meshio_names().items()}
    for code, name in names.items():
        table = model.elements[ELEMENT_NAMES[code]]
        if len(table):
            blocks.append((name, table.nodes.rows))
            keys.append(table.keys)
    sets = {}
    for mesh_set in model.sets:
        if len(mesh_set.elements):
            chosen = mesh_set.elements.keys
            sets[mesh_set.name] = [np.flatnonzero(np.isin(k, chosen)) for k in keys]
    try:
        return meshio.Mesh(
            model.nodes.xyz[:],
            blocks,
            point_data={"node_key": model.nodes.keys},
            cell_data={"element_key": keys} if keys else {},
            cell_sets=sets,
        )
    except KeyError as kind:
        raise ValueFault(
            f"this version of meshio has no cells of kind {kind}",
            place="meshio",
            remedy="write a file instead, or leave these elements out",
        ) from None


def _keys_or_none(values: Any) -> Any:
    """Keys that another package carried along, where they can be keys again."""
    if values is None:
        return None
    array = np.asarray(values)
    good = array.dtype.kind in "iu" and array.ndim == 1 and len(np.unique(array)) == len(array)
    return array if good and (not len(array) or array.min() > 0) else None


def from_meshio(mesh: Any, units: Union[str, Sequence[str]] = ()) -> Model:
    """A new model of a meshio.Mesh, whose numbers are in `units`. Keys that to_meshio gave come
    back; cell sets become mesh sets. Cells of kinds that the library lacks raise ValueFault."""
    model = new(*((units,) if isinstance(units, str) else units))
    points = np.asarray(mesh.points, dtype=float)
    if points.ndim == 2 and points.shape[1] == 2:
        points = np.column_stack([points, np.zeros(len(points))])
    names = _meshio_names()
    node_keys = _keys_or_none(mesh.point_data.get("node_key"))
    kept = mesh.cell_data.get("element_key")
    kept = kept if kept and _keys_or_none(np.concatenate(kept)) is not None else None
    with model.step("Take over a mesh"):
        model.nodes.insert(points, keys=node_keys)
        added = []
        for i, block in enumerate(mesh.cells):
            kind, data = block.type, block.data
            if kind not in names:
                raise ValueFault(
                    "is a kind of cell that the library lacks",
                    place=kind,
                    remedy="leave these cells out",
                )
            name = ELEMENT_NAMES[names[kind]]
            given = None if kept is None else kept[i]
            added.append(model.elements.insert(name, node_rows=np.asarray(data), keys=given))
        for name, parts in (mesh.cell_sets or {}).items():
            chosen = [k[np.asarray(p, dtype=int)] for k, p in zip(added, parts) if p is not None]
            elements = np.concatenate(chosen) if chosen else np.empty(0, np.int32)
            if name in model.sets:
                model.sets[name].add(elements=elements)
            else:
                model.sets.add(name, elements=elements)
    model.forget_history()
    return model


def to_vtk(model: Model) -> Any:
    """See Model.to_vtk."""
    optional("vtkmodules", "python3-vtk9")
    from vtkmodules.util.numpy_support import numpy_to_vtk, numpy_to_vtkIdTypeArray
    from vtkmodules.vtkCommonCore import vtkPoints
    from vtkmodules.vtkCommonDataModel import vtkCellArray, vtkUnstructuredGrid

    grid = vtkUnstructuredGrid()
    points = vtkPoints()
    points.SetData(numpy_to_vtk(model.nodes.xyz[:], deep=1))
    grid.SetPoints(points)
    nodes, counts, types, keys = [], [], [], []
    for code, name in ELEMENT_NAMES.items():
        table = model.elements[name]
        if not len(table):
            continue
        rows = table.nodes.rows
        nodes.append(rows[:, _VTK_ORDER.get(code, slice(None))].reshape(-1))
        counts.append(np.full(len(rows), ELEMENT_NODES[code]))
        types.append(np.full(len(rows), _VTK[code - 1], np.uint8))
        keys.append(table.keys)
    if nodes:
        offsets = np.concatenate([[0], np.cumsum(np.concatenate(counts))]).astype(np.int64)
        cells = vtkCellArray()
        cells.SetData(
            numpy_to_vtkIdTypeArray(offsets, deep=1),
            numpy_to_vtkIdTypeArray(np.concatenate(nodes).astype(np.int64), deep=1),
        )
        grid.SetCells(numpy_to_vtk(np.concatenate(types), deep=1), cells)
        of_cells = numpy_to_vtk(np.concatenate(keys), deep=1)
        of_cells.SetName("element_key")
        grid.GetCellData().AddArray(of_cells)
    of_points = numpy_to_vtk(model.nodes.keys, deep=1)
    of_points.SetName("node_key")
    grid.GetPointData().AddArray(of_points)
    return grid


def from_vtk(grid: Any, units: Union[str, Sequence[str]] = ()) -> Model:
    """A new model of a vtkUnstructuredGrid, whose numbers are in `units`. Keys that to_vtk gave come
    back. Cells of types that the library lacks raise ValueFault."""
    from vtkmodules.util.numpy_support import vtk_to_numpy

    model = new(*((units,) if isinstance(units, str) else units))

    def data(of: Any, name: str) -> Any:
        array = of.GetArray(name)
        return None if array is None else _keys_or_none(vtk_to_numpy(array))

    with model.step("Take over a mesh"):
        if grid.GetNumberOfPoints():
            xyz = vtk_to_numpy(grid.GetPoints().GetData()).astype(float)
            model.nodes.insert(xyz, keys=data(grid.GetPointData(), "node_key"))
        if grid.GetNumberOfCells():
            keys = data(grid.GetCellData(), "element_key")
            types = vtk_to_numpy(grid.GetCellTypesArray())
            starts = vtk_to_numpy(grid.GetCells().GetOffsetsArray())[:-1]
            nodes = vtk_to_numpy(grid.GetCells().GetConnectivityArray())
            for vtk_type in np.unique(types).tolist():
                if vtk_type not in _VTK:
                    raise ValueFault(
                        "is a type of cell that the library lacks",
                        place=f"cell type {vtk_type}",
                        remedy="leave these cells out",
                    )
                code = _VTK.index(vtk_type) + 1
                chosen = np.flatnonzero(types == vtk_type)
                rows = nodes[starts[chosen][:, None] + np.arange(ELEMENT_NODES[code])]
                order = _VTK_ORDER.get(code)
                if order is not None:
                    rows = rows[:, np.argsort(order)]
                given = None if keys is None else keys[chosen]
                model.elements.insert(ELEMENT_NAMES[code], node_rows=rows, keys=given)
    model.forget_history()
    return model
