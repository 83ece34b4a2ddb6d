#!/usr/bin/env python3
"""Speed of the package beside C++ alone, numpy, meshio, Gmsh's module and VTK, in one process.

    cmake --preset release -DQX_PYTHON=ON -DCMAKE_BUILD_TYPE=Release
    cmake --build --preset release --target qxdb_core qxdb_bench
    PYTHONPATH=build/release/python /usr/bin/python3 python/bench/bench.py

Each figure is the median of several runs, ours and the other's in turn. Peers that are not
installed are said to be missing.
"""

from __future__ import annotations

import argparse
import importlib
import statistics
import subprocess
import sys
import time
from collections.abc import Callable
from typing import Any

import numpy as np
import qxdb


def timed(work: Callable[[], Any]) -> float:
    begin = time.perf_counter()
    result = work()
    seconds = time.perf_counter() - begin
    del result
    return seconds


def beside(ours: Callable[[], float], other: Callable[[], float], runs: int) -> tuple[float, float]:
    """Medians of runs in turn, the first of each for warming up."""
    pairs = [(ours(), other()) for _ in range(runs + 1)][1:]
    return statistics.median(p[0] for p in pairs), statistics.median(p[1] for p in pairs)


def line(what: str, ours: float, other: float, goal: float | None, named: str) -> None:
    aim = f"  goal {goal}" if goal else ""
    print(f"{what:34} {ours*1e3:9.1f} ms  {named:28} {other*1e3:9.1f} ms  ratio {ours/other:5.2f}{aim}")


def hexes(n: int) -> tuple[np.ndarray, np.ndarray]:
    """Positions of the nodes, and node rows of n x n x n hexahedra."""
    axis = np.arange(n + 1.0)
    z, y, x = np.meshgrid(axis, axis, axis, indexing="ij")
    xyz = np.column_stack([x.ravel(), y.ravel(), z.ravel()])
    k, j, i = np.meshgrid(*[np.arange(n)] * 3, indexing="ij")
    first = (i + (n + 1) * (j + (n + 1) * k)).ravel()
    corners = [0, 1, n + 2, n + 1]
    up = (n + 1) ** 2
    rows = np.column_stack([first + c for c in corners] + [first + up + c for c in corners])
    return xyz, rows.astype(np.int64)


def import_seconds(runs: int) -> None:
    code = (
        "import time\nimport numpy\nb = time.perf_counter()\n"
        "import qxdb\nprint(time.perf_counter() - b)"
    )
    only = "import time\nb = time.perf_counter()\nimport numpy\nprint(time.perf_counter() - b)"

    def seconds(source: str) -> float:
        done = subprocess.run(
            [sys.executable, "-c", source], capture_output=True, text=True, check=True
        )
        return float(done.stdout)

    ours, numpy_alone = beside(lambda: seconds(code), lambda: seconds(only), runs)
    print(f"import qxdb, beyond numpy's {numpy_alone*1e3:.0f} ms: {ours*1e3:.0f} ms  goal 80 ms")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--side", type=int, default=100, help="elements along each side")
    parser.add_argument("--runs", type=int, default=5)
    options = parser.parse_args()
    runs = options.runs
    xyz, rows = hexes(options.side)
    print(f"{len(xyz):,} nodes, {len(rows):,} hexahedra, medians of {runs} runs in turn")

    import_seconds(runs)

    model = qxdb.new()
    model.nodes.insert(xyz)
    model.elements.insert("hex8", node_rows=rows)
    items = np.zeros(len(xyz) * 76, np.uint8)  # items as they lie: 76 bytes, unaligned numbers
    strided = np.ndarray((len(xyz), 3), "f8", items.data, 16, (76, 8))
    ours, other = beside(
        lambda: timed(lambda: model.nodes.xyz[:]), lambda: timed(strided.copy), runs
    )
    line("positions out", ours, other, 1.5, "numpy copy of strided bytes")

    filled = np.arange(len(rows) * 8, dtype=np.int64).reshape(-1, 8)
    column = model.elements["hex8"].nodes

    def rows_anew() -> float:
        model.nodes[[1]].set(position=np.random.default_rng().random(3))  # nothing kept holds
        return timed(lambda: column.rows)

    named = "copy of a filled int64 array"
    ours, other = beside(rows_anew, lambda: timed(filled.copy), runs)
    line("node rows of hexes, nodes edited", ours, other, 3, named)
    ours, other = beside(lambda: timed(lambda: column.rows), lambda: timed(filled.copy), runs)
    line("node rows of hexes, once more", ours, other, 3, named)
    ours, other = beside(lambda: timed(lambda: column[:]), lambda: timed(filled.copy), runs)
    line("node keys of hexes", ours, other, None, named)

    try:
        from reference import Reference
    except ImportError:
        print("missing: the C++ reference; build the target qxdb_bench")
        Reference = None
    keys = (rows + 1).astype(np.int32)
    if Reference is not None:
        alone = Reference()
        alone.build(xyz, keys)
        moved = xyz + 0.25
        some = np.random.default_rng(1).permutation(len(xyz))[: len(xyz) // 10].astype(np.int32) + 1
        somewhere = moved[some - 1]
        for what, keys_of, values in (
            ("positions in, recorded", None, moved),
            ("those of 10 % in random order", some, somewhere),
        ):

            def set_ours() -> float:
                table = model.nodes if keys_of is None else model.nodes[keys_of]
                seconds = timed(lambda: table.xyz.__setitem__(slice(None), values))
                model.undo()
                return seconds

            def set_alone() -> float:
                seconds = alone.set_positions(values, keys_of)
                alone.undo()
                return float(seconds)

            ours, other = beside(set_ours, set_alone, runs)
            line(what, ours, other, 1.2, "C++ SetMany")
        del alone

        def build_ours() -> float:
            fresh = qxdb.new()

            def work() -> None:
                with fresh.step("build"):
                    fresh.nodes.insert(xyz)
                    fresh.elements.insert("hex8", node_rows=rows)

            return timed(work)

        ours, other = beside(build_ours, lambda: Reference().build(xyz, keys), runs)
        line("build from arrays, recorded", ours, other, 1.3, "C++ AddMesh from arrays")
    peers(model, xyz, rows, runs)


def peers(model: qxdb.Model, xyz: np.ndarray, rows: np.ndarray, runs: int) -> None:
    """What the others take for the like; none of them keys, records or undoes."""

    def have(name: str) -> Any:
        try:
            return importlib.import_module(name)
        except Exception as error:  # a module may fail in many ways to be there
            print(f"missing: {name} ({error})")
            return None

    out = lambda: timed(lambda: model.nodes.xyz[:])
    rows_out = lambda: timed(lambda: model.elements["hex8"].nodes.rows)
    meshio = have("meshio")
    if meshio:
        mesh = meshio.Mesh(xyz, [("hexahedron", rows)])
        line("positions out", *beside(out, lambda: timed(mesh.points.copy), runs), None, "meshio")
        line(
            "connectivity as row numbers",
            *beside(rows_out, lambda: timed(mesh.cells[0].data.copy), runs),
            None,
            "meshio",
        )
    gmsh = have("gmsh")
    if gmsh:
        gmsh.initialize()
        gmsh.option.setNumber("General.Terminal", 0)
        gmsh.model.addDiscreteEntity(3, 1)
        tags = np.arange(1, len(xyz) + 1)
        gmsh.model.mesh.addNodes(3, 1, tags, xyz.ravel())
        gmsh.model.mesh.addElementsByType(1, 5, [], (rows + 1).ravel())
        theirs = lambda: timed(gmsh.model.mesh.getNodes)
        line("positions out", *beside(out, theirs, runs), None, "gmsh getNodes")
        theirs = lambda: timed(lambda: gmsh.model.mesh.getElementsByType(5))
        line("connectivity", *beside(rows_out, theirs, runs), None, "gmsh getElementsByType")
        gmsh.finalize()
    vtk = have("vtkmodules.util.numpy_support")
    if vtk:
        grid = model.to_vtk()
        theirs = lambda: timed(lambda: vtk.vtk_to_numpy(grid.GetPoints().GetData()).copy())
        line("positions out", *beside(out, theirs, runs), None, "vtk_to_numpy and copy")
        cells = grid.GetCells()
        theirs = lambda: timed(lambda: vtk.vtk_to_numpy(cells.GetConnectivityArray()).copy())
        line("connectivity", *beside(rows_out, theirs, runs), None, "vtk_to_numpy and copy")


if __name__ == "__main__":
    main()
