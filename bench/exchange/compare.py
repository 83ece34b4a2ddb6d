#!/usr/bin/env python3
"""Readers and writers of files beside VTK's, Gmsh's, netCDF's and meshio's.

    cmake --preset release -DQX_BENCH=ON && cmake --build --preset release --target bench_exchange
    /usr/bin/python3 bench/exchange/compare.py build/release/bin/bench_exchange

Both sides work in turn, on the same file, on memory in the page cache, in processes of their own
that wait for each other; each figure is the median of several runs. The ratio of processor time, which
a busy machine changes less, stands at the end. A peer that is not installed is said to be missing.
"""

from __future__ import annotations

import argparse
import importlib
import os
import statistics
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from typing import Any

Seconds = tuple[float, float]  # by the clock, and of the processor
Work = Callable[[], Seconds]


class Ours:
    """The process of bench_exchange."""

    def __init__(self, program: str) -> None:
        self.process = subprocess.Popen(
            [program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
        )

    def ask(self, *words: object) -> Seconds:
        assert self.process.stdin and self.process.stdout
        print(*words, file=self.process.stdin, flush=True)
        answer = self.process.stdout.readline()
        if not answer or answer.startswith("failed"):
            sys.exit(f"{' '.join(map(str, words))}: {answer.strip() or 'the program ended'}")
        clock, processor = map(float, answer.split())
        return clock, processor


def timed(work: Callable[[], Any]) -> Seconds:
    processor = time.process_time()
    begin = time.perf_counter()
    kept = work()
    seconds = time.perf_counter() - begin, time.process_time() - processor
    del kept
    return seconds


def have(name: str) -> Any:
    try:
        return importlib.import_module(name)
    except Exception as error:  # a module may fail in many ways to be there
        print(f"missing: {name} ({error})")
        return None


class Table:
    def __init__(self, runs: int, only: str) -> None:
        self.runs = runs
        self.only = only

    def compare(
        self, what: str, ours: Work, peer: str, theirs: Work, goal: float, runs: int = 0
    ) -> None:
        if self.only not in what:
            return
        pairs = [(ours(), theirs()) for _ in range((runs or self.runs) + 1)]
        pairs = pairs[1:] if len(pairs) > 2 else pairs[-1:]
        (a, own), (b, other) = (
            [statistics.median(values) for values in zip(*side)] for side in zip(*pairs)
        )
        verdict = "met" if a <= goal * b else "MISSED"
        print(
            f"{what:34} {a*1e3:9.1f} ms  {peer:22} {b*1e3:9.1f} ms  ratio {a/b:5.2f}"
            f"  goal {goal:4.2f}  {verdict:6}  of the processor {own/other:5.2f}",
            flush=True,
        )


def vtk_side(table: Table, ours: Ours, folder: str) -> None:
    xml = have("vtkmodules.vtkIOXML")
    legacy = have("vtkmodules.vtkIOLegacy")
    if not xml or not legacy:
        return

    def read(reader_of: Any, path: str) -> Any:
        reader = reader_of()
        reader.SetFileName(path)
        reader.Update()
        return reader.GetOutput()

    first = f"{folder}/first.vtu"
    ours.ask("write", first, "encoding=raw")
    grid = read(xml.vtkXMLUnstructuredGridReader, first)
    forms = [
        ("raw", ["encoding=raw"], "Appended", False, "None"),
        ("base64", ["encoding=base64"], "Appended", True, "None"),
        ("LZ4", ["encoding=raw", "compression=lz4"], "Appended", False, "LZ4"),
        ("zlib", ["encoding=raw", "compression=zlib"], "Appended", False, "ZLib"),
        ("ascii", ["encoding=ascii"], "Ascii", False, "None"),
    ]
    for name, options, mode, base64, packed in forms:
        path = f"{folder}/{name}.vtu"
        theirs_path = f"{folder}/{name}_vtk.vtu"

        def write_theirs() -> Seconds:
            writer = xml.vtkXMLUnstructuredGridWriter()
            writer.SetFileName(theirs_path)
            writer.SetInputData(grid)
            writer.SetHeaderTypeToUInt64()
            getattr(writer, f"SetDataModeTo{mode}")()
            writer.SetEncodeAppendedData(base64)
            getattr(writer, f"SetCompressorTypeTo{packed}")()
            if packed == "ZLib":
                writer.SetCompressionLevel(1)  # that of ours
            return timed(writer.Write)

        table.compare(
            f"VTU {name} out", lambda: ours.ask("write", path, *options), "VTK", write_theirs, 1.2
        )
        if not os.path.exists(path):
            ours.ask("write", path, *options)
        reader = xml.vtkXMLUnstructuredGridReader
        table.compare(
            f"VTU {name} in",
            lambda: ours.ask("deck", path),
            "VTK",
            lambda: timed(lambda: read(reader, path)),
            1.3,
        )
    for name, binary in (("binary", True), ("text", False)):
        for version in (42, 51):
            path = f"{folder}/{name}{version}.vtk"
            writer = legacy.vtkUnstructuredGridWriter()
            writer.SetFileName(path)
            writer.SetInputData(grid)
            if hasattr(writer, "SetFileVersion"):
                writer.SetFileVersion(version)
            writer.SetFileTypeToBinary() if binary else writer.SetFileTypeToASCII()
            writer.Write()
            reader = legacy.vtkUnstructuredGridReader
            table.compare(
                f"legacy VTK {version / 10} {name} in",
                lambda: ours.ask("deck", path),
                "VTK",
                lambda: timed(lambda: read(reader, path)),
                1.3,
            )


def surface_side(table: Table, ours: Ours, folder: str) -> None:
    """The skin of the model in files of surfaces: out from the solids, in without merging."""
    geometry = have("vtkmodules.vtkIOGeometry")
    ply = have("vtkmodules.vtkIOPLY")
    skins = have("vtkmodules.vtkFiltersGeometry")
    core = have("vtkmodules.vtkFiltersCore")
    xml = have("vtkmodules.vtkIOXML")
    if not (geometry and ply and skins and core and xml):
        return
    solids = f"{folder}/solids.vtu"
    ours.ask("write", solids, "encoding=raw")
    source = xml.vtkXMLUnstructuredGridReader()
    source.SetFileName(solids)
    source.Update()
    forms = [
        ("STL binary", "skin.stl", [], geometry.vtkSTLReader, geometry.vtkSTLWriter),
        ("STL text", "text.stl", ["encoding=ascii"], geometry.vtkSTLReader, geometry.vtkSTLWriter),
        ("PLY binary", "skin.ply", [], ply.vtkPLYReader, ply.vtkPLYWriter),
        ("OBJ", "skin.obj", [], geometry.vtkOBJReader, None),
    ]
    for name, file, options, reader_of, writer_of in forms:
        path = f"{folder}/{file}"
        ours.ask("write", path, *options)

        def read() -> Any:
            reader = reader_of()
            reader.SetFileName(path)
            if hasattr(reader, "MergingOff"):
                reader.MergingOff()
            reader.Update()
            return reader.GetOutput()

        table.compare(f"{name} in", lambda: ours.ask("deck", path), "VTK", lambda: timed(read), 1.3)
        if not writer_of:
            continue

        def write() -> Seconds:
            skin = skins.vtkGeometryFilter()
            skin.SetInputData(source.GetOutput())
            triangles = core.vtkTriangleFilter()
            triangles.SetInputConnection(skin.GetOutputPort())
            writer = writer_of()
            writer.SetFileName(f"{folder}/vtk_{file}")
            writer.SetInputConnection(triangles.GetOutputPort())
            writer.SetFileTypeToASCII() if options else writer.SetFileTypeToBinary()
            return timed(writer.Write)

        table.compare(
            f"{name} out", lambda: ours.ask("write", path, *options), "VTK, skin and file", write, 1.2
        )


def session_side(table: Table, ours: Ours, folder: str) -> None:
    path = f"{folder}/session.msh"
    ours.ask("write", path)
    ours.ask("deck", path)
    table.compare(
        "deck into the session",
        lambda: ours.ask("session", path),
        "inserted one by one",
        lambda: ours.ask("insert", path),
        1.3,
    )


def gmsh_side(table: Table, ours: Ours, folder: str) -> None:
    gmsh = have("gmsh")
    if not gmsh:
        return
    gmsh.initialize()
    gmsh.option.setNumber("General.Terminal", 0)
    for version in ("4.1", "2.2"):
        for encoding in ("binary", "ascii"):
            path = f"{folder}/{encoding}{version}.msh"
            theirs_path = f"{folder}/{encoding}{version}_gmsh.msh"
            options = [f"version={version}", f"encoding={encoding}"]
            ours.ask("write", path, *options)

            def read_theirs() -> Seconds:
                gmsh.clear()
                return timed(lambda: gmsh.merge(path))

            def write_theirs() -> Seconds:
                gmsh.option.setNumber("Mesh.MshFileVersion", float(version))
                gmsh.option.setNumber("Mesh.Binary", encoding == "binary")
                return timed(lambda: gmsh.write(theirs_path))

            name = f"MSH {version} {encoding}"
            table.compare(f"{name} in", lambda: ours.ask("deck", path), "Gmsh", read_theirs, 1.3)
            table.compare(
                f"{name} out", lambda: ours.ask("write", path, *options), "Gmsh", write_theirs, 1.2
            )
    path = f"{folder}/mesh.unv"
    theirs_path = f"{folder}/mesh_gmsh.unv"
    ours.ask("write", path)

    def read_unv() -> Seconds:
        gmsh.clear()
        return timed(lambda: gmsh.merge(path))

    def write_unv() -> Seconds:
        gmsh.option.setNumber("Mesh.SaveAll", 1)
        return timed(lambda: gmsh.write(theirs_path))

    table.compare("UNV in", lambda: ours.ask("deck", path), "Gmsh", read_unv, 1.3)
    table.compare("UNV out", lambda: ours.ask("write", path), "Gmsh", write_unv, 1.2)
    gmsh.finalize()


def meshio_side(table: Table, ours: Ours, folder: str, runs: int) -> None:
    meshio = have("meshio")
    if not meshio:
        return
    forms = [
        ("Abaqus", "deck.inp", [], "abaqus", {}),
        ("Nastran", "deck.bdf", [], "nastran", {}),
        ("MSH text", "text.msh", ["encoding=ascii"], "gmsh", {"binary": False}),
        ("VTU text", "text.vtu", ["encoding=ascii"], "vtu", {"binary": False}),
        ("STL", "meshio.stl", [], "stl", {"binary": True}),
        ("OBJ", "meshio.obj", [], "obj", {}),
        ("PLY", "meshio.ply", [], "ply", {}),
    ]
    for name, file, options, kind, how in forms:
        if all(table.only not in f"{name} {way}, meshio" for way in ("in", "out")):
            continue
        path = f"{folder}/{file}"
        ours.ask("write", path, *options)
        mesh = meshio.read(path, kind)
        theirs_path = f"{folder}/meshio_{file}"
        table.compare(
            f"{name} in, meshio",
            lambda: ours.ask("deck", path),
            "meshio",
            lambda: timed(lambda: meshio.read(path, kind)),
            0.25,
            runs,
        )
        if file in ("meshio.stl", "meshio.obj", "meshio.ply"):
            continue  # ours finds the skin among the solids, theirs has it
        table.compare(
            f"{name} out, meshio",
            lambda: ours.ask("write", path, *options),
            "meshio",
            lambda: timed(lambda: meshio.write(theirs_path, mesh, kind, **how)),
            0.5,
            runs,
        )


def netcdf_side(table: Table, ours: Ours, folder: str) -> None:
    path = f"{folder}/mesh.exo"
    ours.ask("write", path)
    table.compare(
        "Exodus in", lambda: ours.ask("deck", path), "netCDF", lambda: ours.ask("netcdf", path), 1.3
    )


def hdf5_side(table: Table, ours: Ours, folder: str) -> None:
    """CGNS and MED files. Ours reads each twice: first in a copy of the process, since the library
    below falls over damaged files."""
    cgns = have("vtkmodules.vtkIOCGNSReader")
    meshio = have("meshio") if have("h5py") else None
    for name, file in (("CGNS", "mesh.cgns"), ("MED", "mesh.med")):
        path = f"{folder}/{file}"
        theirs_path = f"{folder}/meshio_{file}"
        ours.ask("write", path)

        def read_vtk() -> Any:
            reader = cgns.vtkCGNSReader()
            reader.SetFileName(path)
            reader.Update()
            return reader.GetOutput()

        if cgns and name == "CGNS":
            table.compare(
                "CGNS in", lambda: ours.ask("deck", path), "VTK", lambda: timed(read_vtk), 1.3
            )
        if not meshio or name == "CGNS":  # meshio knows CGNS files of tetrahedra only
            continue
        mesh = meshio.read(path)
        table.compare(
            f"{name} in",
            lambda: ours.ask("deck", path),
            "meshio",
            lambda: timed(lambda: meshio.read(path)),
            1.3,
        )
        table.compare(
            f"{name} out",
            lambda: ours.ask("write", path),
            "meshio",
            lambda: timed(lambda: meshio.write(theirs_path, mesh, "med")),
            1.2,
        )


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program", help="bench_exchange")
    parser.add_argument("--side", type=int, default=100, help="hexahedra along each side")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--slow-runs", type=int, default=1, help="of meshio's texts")
    parser.add_argument("--only", default="", help="part of the names of the figures wanted")
    parser.add_argument(
        "--peers", default="vtk,surface,session,gmsh,netcdf,hdf5,meshio", help="those wanted, with commas"
    )
    given = parser.parse_args()
    ours = Ours(given.program)
    ours.ask("make", given.side)
    table = Table(given.runs, given.only)
    print(f"{given.side**3:,} hexahedra, medians of {given.runs} runs; load {os.getloadavg()}")
    sides = {
        "vtk": vtk_side,
        "surface": surface_side,
        "session": session_side,
        "gmsh": gmsh_side,
        "netcdf": netcdf_side,
        "hdf5": hdf5_side,
        "meshio": lambda t, o, f: meshio_side(t, o, f, given.slow_runs),
    }
    with tempfile.TemporaryDirectory() as folder:
        for name in given.peers.split(","):
            sides[name](table, ours, folder)
    print(f"load at the end {os.getloadavg()}")


if __name__ == "__main__":
    main()
