"""Finite-element models behind numpy arrays, with undo.

    import qxdb

    with qxdb.open("wing.qxm") as model:
        nodes = model.nodes
        with model.step("raise tip"):
            nodes.xyz[nodes.xyz[:, 0] > 10, 2] += 0.5
        model.undo()

Numbers are in the units of the model (`model.units`). Arrays are copies: what changes the model is
assigning to columns and records, and the methods that say so; each such change is one step of the
history, and so is everything in a `with model.step(name)`.
"""

from __future__ import annotations

from typing import Any, NamedTuple

from . import _core
from ._columns import Ragged
from ._errors import (
    ClosedError,
    Error,
    FileError,
    MissingError,
    PackageError,
    RefusedError,
    ThreadError,
    TypeFault,
    ValueFault,
)
from ._model import Model, new, open, read
from ._results import Event, Finding, Imported, QualitySummary, Step
from ._seeding import Curves, Seeds
from ._sets import KeySet, Members, MeshSet
from ._table import Record, Table
from ._units import Quantity, categories, convert, unit_names

__version__: str = _core.version

__all__ = [
    "ClosedError", "Curves", "Error", "Event", "FileError", "Finding", "Imported", "KeySet",
    "Members", "MeshSet", "MissingError", "Model", "QualitySummary", "PackageError", "Quantity",
    "Ragged", "Record",
    "RefusedError", "Seeds", "Step", "Table", "ThreadError", "TypeFault", "ValueFault", "categories", "convert", "formats",
    "from_meshio", "from_vtk", "materials", "measures", "new", "open", "probe", "read",
    "set_threads", "unit_names",
]  # fmt: skip


class Format(NamedTuple):
    """A format of files of other programs."""

    extension: str
    what: str
    reads: bool
    writes: bool


def formats() -> list[Format]:
    """What qxdb.read reads and model.write writes, by extension."""
    return [Format(*row) for row in _core.formats()]


class Measure(NamedTuple):
    """A measure of the shape of elements; `acceptable` is the worst value that is still good, None
    for one that grows with the element."""

    name: str
    label: str
    unit: str
    high_is_bad: bool
    acceptable: float | None


def measures() -> list[Measure]:
    """The measures that model.elements.quality takes."""
    return [Measure(*row) for row in _core.measures()]


def set_threads(count: int = 0) -> None:
    """How many threads the work on large arrays may use; 0, as at first, means one for each core."""
    if not isinstance(count, int) or count < 0:
        raise ValueFault(f"{count} is no number of threads", remedy="give 0 or more")
    _core.set_threads(count)


set_threads()


def probe(url: str) -> int:
    """The status with which a web address answers. Raises FileError, with the reason, where there
    is no answer."""
    return _core.probe(url)


def materials(path: Any, *units: str, form: str | None = None, encoding: str | None = None) -> Any:
    """Reads a material file; see qxdb._materials.materials."""
    from ._materials import materials as read_materials

    return read_materials(path, *units, form=form, encoding=encoding)


def from_meshio(mesh: Any, units: Any = ()) -> Model:
    """A new model of a meshio.Mesh whose numbers are in `units`; cell sets become mesh sets."""
    from ._interchange import from_meshio as take

    return take(mesh, units)


def from_vtk(grid: Any, units: Any = ()) -> Model:
    """A new model of a vtkUnstructuredGrid whose numbers are in `units`."""
    from ._interchange import from_vtk as take

    return take(grid, units)
