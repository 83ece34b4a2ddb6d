"""A model: opening, steps, history, and the way to everything in it."""

from __future__ import annotations

import json
import os
import weakref
from collections.abc import Callable, Iterator, Mapping, Sequence
from contextlib import contextmanager
from types import TracebackType
from typing import TYPE_CHECKING, Any, Optional, Union, cast

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _progress
from ._checked import checked, native
from ._columns import Keys, as_keys
from ._errors import FileError, MissingError, RefusedError, TypeFault, ValueFault
from ._mesh import Elements, Nodes
from ._progress import Progress, shown
from ._results import (
    Blamed,
    Difference,
    Event,
    Finding,
    Frame,
    Imported,
    LeftBehind,
    MassReport,
    Repairs,
    Sides,
    Step,
    body_of,
    step_of,
)
from ._schema import PoolInfo, pool_info
from ._table import Record, Table
from ._units import Units, system_indices

if TYPE_CHECKING:
    from ._materials import Material
    from ._sets import MeshSets

Path = Union[str, "os.PathLike[str]"]
_OPERATIONS = {100: "inserted", 101: "removed", 102: "modified"}


class Systems(Table):
    """The coordinate systems. Key 0 stands for the global one where a system is asked for."""

    def _of_keys(self, keys: Keys) -> Table:
        return Systems(self._model, self.info, keys)

    def frame(self, key: int) -> Frame:
        """Origin and axes of a system."""
        return Frame(*self._model._core.frame(key))

    def to_global(self, key: int, points: ArrayLike) -> NDArray[np.float64]:
        """Points (n, 3) in the coordinates of a system as global ones: x, y, z; r, theta, z; or r,
        theta, phi; angles in degrees."""
        return self._model._core.map_points(key, np.asarray(points, dtype=float), True)

    def from_global(self, key: int, points: ArrayLike) -> NDArray[np.float64]:
        """Global points (n, 3) in the coordinates of a system."""
        return self._model._core.map_points(key, np.asarray(points, dtype=float), False)


class Pools(Mapping[str, Table]):
    """Every pool of a model by its table name, whatever the case: `model.pools["mset"]`."""

    def __init__(self, model: Model) -> None:
        self._model = model

    def __getitem__(self, name: str) -> Table:
        info = self._model._pools.get(str(name).lower())
        if info is None:
            raise MissingError(
                "is no pool of the model",
                place=repr(name),
                remedy=f"it has {', '.join(self)}",
            )
        return self._model._table(info)

    def __iter__(self) -> Iterator[str]:
        return iter(self._model._pools)

    def __len__(self) -> int:
        return len(self._model._pools)

    def __repr__(self) -> str:
        return f"<pools: {', '.join(self)}>"


# By the code of the type, the classes of tables that are more than a table.
_CLASSES: dict[int, type[Table]] = {2: Systems, 3: Nodes, 4: Elements}


class Model:
    """One open model. Use it as a context manager: the end of the block closes it.

    Made by qxdb.open, qxdb.new and qxdb.read. It belongs to the thread that made it. Everything
    that is read is a copy; nothing refers to the model's memory, so that tables, columns and
    records of a closed model raise ClosedError, and nothing else happens.
    """

    def __init__(self, core: _core.Model, like: Optional[Model] = None) -> None:
        """For the functions of this package; `like` has the same pools."""
        self._core = checked(core)
        self._pools: dict[str, PoolInfo] = {}
        if like is not None:
            self._pools = like._pools
        else:
            infos = [pool_info(pool) for pool in core.pools()]
            self._pools = {info.table.lower(): info for info in infos}
        self._codes = {info.code: info for info in self._pools.values()}
        self._listeners: list[Callable[[Event], None]] = []
        self.notes: list[str] = []

    # ---- the whole ------------------------------------------------------------------------------

    def __enter__(self) -> Model:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def close(self) -> None:
        """Rolls back an open step and lets go of the file. Steps that were committed to a file
        opened for editing are in it; other changes since the last save are lost. May be called
        again."""
        self._core.close()

    @property
    def closed(self) -> bool:
        """Whether the model was closed."""
        return self._core.closed

    @property
    def read_only(self) -> bool:
        """Whether it was opened to be read."""
        return self._core.read_only

    @property
    def path(self) -> str:
        """The model file; "" for a model that was never saved."""
        return self._core.path

    @property
    def modified(self) -> bool:
        """Whether the model differs from what was last opened or saved."""
        return self._core.is_modified()

    @contextmanager
    def _telling(self, progress: Progress, what: str) -> Iterator[None]:
        """Shows how far the module's work in the block is."""
        with shown(progress, what) as tell:
            self._core.set_progress(tell, _progress.PAUSE)
            try:
                yield
            finally:
                self._core.set_progress(None, _progress.PAUSE)

    def save(self, path: Optional[Path] = None, progress: Progress = None) -> None:
        """Saves the model with its history; to another file, which becomes its own. From then on
        every step is in the file when it is committed.

        progress: called with the part done, 0 to 1; False for silence
        """
        with self._telling(progress, "Saving"):
            self._core.save(None if path is None else os.fspath(path))

    def snapshot(self, progress: Progress = None) -> Model:
        """A copy of the model as it is now, without its history, for another thread or to try
        things. It belongs to the first thread that uses it."""
        with self._telling(progress, "Copying"):
            return Model(self._core.snapshot(), like=self)

    @property
    def state(self) -> int:
        """A 64-bit hash of the whole content: equal for models that a file would not tell apart."""
        return self._core.state_hash()

    def validate(self, progress: Progress = None) -> str:
        """"" or the first broken invariant of the database itself."""
        with self._telling(progress, "Validating"):
            return self._core.validate()

    @property
    def file_report(self) -> dict[str, Any]:
        """What opening found in the file: its bytes, saves, steps since, and who else writes it."""
        return self._core.report()

    @property
    def units(self) -> Units:
        """The units that all numbers of the model are in."""
        return Units(self)

    # ---- tables ---------------------------------------------------------------------------------

    @property
    def pools(self) -> Pools:
        """Every pool by name."""
        return Pools(self)

    def _table(self, info: PoolInfo) -> Table:
        return _CLASSES.get(info.code, Table)(self, info)

    def _table_of_code(self, code: int) -> Table:
        return self._table(self._codes[code])

    def _record(self, code: int, key: int) -> Record:
        return Record(self._table_of_code(code), key)

    @property
    def nodes(self) -> Nodes:
        """The nodes."""
        return Nodes(self, self._codes[3])

    @property
    def elements(self) -> Elements:
        """The elements."""
        return Elements(self, self._codes[4])

    @property
    def systems(self) -> Systems:
        """The coordinate systems."""
        return Systems(self, self._codes[2])

    @property
    def materials(self) -> Table:
        """The materials."""
        return self._table_of_code(7)

    @property
    def properties(self) -> Table:
        """The properties of elements."""
        return self._table_of_code(8)

    @property
    def sets(self) -> MeshSets:
        """The mesh sets."""
        from ._sets import MeshSets

        return MeshSets(self)

    # ---- steps and history ----------------------------------------------------------------------

    @contextmanager
    def step(self, name: str) -> Iterator[None]:
        """Everything in the block is one step of the history: `with model.step("raise tip"): ...`.
        An exception rolls it back. A step inside another joins it; its exception takes back only
        its own part. Raises RefusedError, with everything rolled back, where the model refuses."""
        self._core.begin_step(name)
        depth = self._core.open_steps()
        try:
            yield
        except BaseException:
            if not self._core.closed and self._core.open_steps() >= depth:
                self._core.roll_back_step()
            raise
        self._core.commit_step()

    @property
    def history(self) -> list[Step]:
        """The steps, oldest first; those that were undone last."""
        return [step_of(step) for step in self._core.history()]

    def undo(self, count: int = 1) -> None:
        """Takes back the last steps."""
        self._core.undo(count)

    def redo(self, count: int = 1) -> None:
        """Does steps again that were undone."""
        self._core.redo(count)

    def checkout(self, number: int) -> None:
        """Goes back or forth to the state after the step of that number; 0 is before the first."""
        self._core.checkout(number)

    def forget_history(self) -> None:
        """Drops all steps; the state stays."""
        self._core.forget_history()

    def blame(self, table: Table, keys: Any = None) -> list[Blamed]:
        """The last step that changed each record; also of records that were removed."""
        taken = table.keys if keys is None else as_keys(keys)
        found = self._core.blame(table.info.code, taken.tolist())
        return [Blamed(key, step_of(step) if step else None, gone) for key, step, gone in found]

    def diff(self, other: Model, progress: Progress = None) -> list[Difference]:
        """What distinguishes this model (the first) from another (the second), record by record."""
        if not isinstance(other, Model):
            raise TypeFault(
                f"was given a {type(other).__name__}",
                place="diff",
                remedy="give a model: an open one, or a snapshot",
            )
        with self._telling(progress, "Comparing"):
            found = self._core.diff(native(other._core))
        return [
            Difference(kind, self._codes[code].table.lower(), key, members)
            for kind, code, key, members in found
        ]

    def listen(self, function: Callable[[Event], None]) -> Callable[[], None]:
        """Has the function called after each step that is committed, undone or redone. It may read
        the model, not edit it. What it raises reaches the caller of the step, which stays done.
        Returns a function that ends the listening."""
        if not callable(function):
            raise TypeFault(
                f"was given a {type(function).__name__}",
                place="listen",
                remedy="give a function of one event",
            )
        if not self._listeners:
            me = weakref.ref(self)

            def tell(kind: str, step: str, pools: Keys, operations: Keys, keys: Keys) -> None:
                model = me()
                if model is not None:
                    model._tell(kind, step, pools, operations, keys)

            self._core.set_listener(tell)
        self._listeners.append(function)
        return lambda: self._stop(function)

    def _stop(self, function: Callable[[Event], None]) -> None:
        if function in self._listeners:
            self._listeners.remove(function)
        if not self._listeners and not self.closed:
            self._core.set_listener(None)

    def _tell(self, kind: str, step: str, pools: Keys, operations: Keys, keys: Keys) -> None:
        changes = np.empty(
            len(keys), dtype=[("pool", np.int32), ("operation", np.int32), ("key", np.int32)]
        )
        changes["pool"], changes["operation"], changes["key"] = pools, operations, keys
        failed: Optional[BaseException] = None
        for function in list(self._listeners):
            try:
                function(Event(kind, step, changes))
            except BaseException as error:
                failed = failed or error
        if failed is not None:
            raise failed

    # ---- the mesh -------------------------------------------------------------------------------

    def default_tolerance(self) -> float:
        """A tenth of a billionth of the mesh's extent, so that rounding is no difference."""
        xyz = self.nodes.xyz[:]
        xyz = xyz[np.isfinite(xyz).all(axis=1)]
        return 1e-10 * float(np.linalg.norm(np.ptp(xyz, axis=0))) if len(xyz) else 0.0

    def select(self, text: str, kind: Optional[str] = None) -> NDArray[np.int32]:
        """The keys that a selection picks, in the order of the pool: `model.select("tet10 and
        min-angle < 25")`, `model.select("nodes surface and z = 0")`. Of faces an array (n, 2) of
        elements' keys and face numbers. Lengths without a unit are in `model.units`.
        docs/selecting.md has the language.

        kind: "nodes", "elements" or "faces" settles of what a text selects that fits several.
        Raises ValueError for a text that cannot be read, naming the column, and MissingError where
        it names what the model does not have."""
        kinds = ("nodes", "elements", "faces")
        if not isinstance(text, str):
            raise TypeError(
                f"a selection is a text such as 'tet10 and min-angle < 25', not {text!r}; "
                "for records by key see model.elements[key]"
            )
        if kind is not None and kind not in kinds:
            raise ValueError(f"kind {kind!r} is none of {', '.join(kinds)}")
        found, keys, faces = self._core.select(text, None if kind is None else kinds.index(kind))
        return np.column_stack([keys, faces]) if found == "faces" else keys

    def findings(
        self, tolerance: Optional[float] = None, progress: Progress = None
    ) -> dict[str, Finding]:
        """What is wrong, or worth knowing, of the mesh, by name; also kinds that were not found,
        without keys. Nodes within `tolerance` (model units) of each other count as duplicates."""
        if tolerance is None:
            tolerance = self.default_tolerance()
        with self._telling(progress, "Checking"):
            found = [Finding(*finding) for finding in self._core.findings(tolerance)]
        return {finding.name: finding for finding in found}

    def repair(
        self,
        merge_nodes: Union[float, bool, None] = None,
        duplicate_elements: bool = False,
        inverted_solids: bool = False,
        misoriented_shells: bool = False,
        unreferenced_nodes: bool = False,
        progress: Progress = None,
    ) -> Repairs:
        """Mends what is asked for as one step, and tells how much was done.

        merge_nodes: distance (model units) within which nodes become one; True for the default
        """
        if merge_nodes is True:
            merge_nodes = self.default_tolerance()
        distance = None if merge_nodes is None or merge_nodes is False else merge_nodes
        with self._telling(progress, "Repairing"):
            done, left_behind = self._core.repair(
                distance,
                duplicate_elements,
                inverted_solids,
                misoriented_shells,
                unreferenced_nodes,
            )
        left = [
            LeftBehind(duplicate, stays, self._codes[code].table)
            for duplicate, stays, code in left_behind
        ]
        return cast(Repairs, {**done, "left_behind": left})

    def free_faces(self, progress: Progress = None) -> Sides:
        """The faces of solids that one element alone has."""
        with self._telling(progress, "Matching faces"):
            return Sides(*self._core.loose_sides(True, False))

    def free_edges(self, progress: Progress = None) -> Sides:
        """The edges of surface elements that one element alone has."""
        with self._telling(progress, "Matching edges"):
            return Sides(*self._core.loose_sides(False, False))

    def parts(self, progress: Progress = None) -> NDArray[np.int32]:
        """Which part of the mesh each element belongs to, (n,), from 0; -1 for none. Parts hang
        together by nodes."""
        with self._telling(progress, "Looking for parts"):
            return self._core.parts()

    def mass(
        self,
        density: Optional[float] = None,
        thickness: Optional[float] = None,
        section_area: Optional[float] = None,
        progress: Progress = None,
    ) -> MassReport:
        """Mass, centre and inertia by property; the arguments (model units) stand in where
        materials and properties tell nothing."""
        with self._telling(progress, "Weighing"):
            total, by_property, no_density, no_section = self._core.mass(
                density, thickness, section_area
            )
        return MassReport(body_of(total), [body_of(b) for b in by_property], no_density, no_section)

    # ---- in and out -----------------------------------------------------------------------------

    def read(self, path: Path, *units: str, progress: Progress = None) -> list[str]:
        """Brings a file of another program into the model as one step; returns what was changed or
        left out, a line each.

        units: that the file's numbers are in ("mm", ...); otherwise those that the file names, or
            else the current ones
        progress: called with the part done, 0 to 1; False for silence
        """
        return self._read(path, units, False, progress)

    def _read(
        self, path: Path, units: Sequence[str], keep_units: bool, progress: Progress
    ) -> list[str]:
        system_indices(units, self.units)  # whether they are units
        with self._telling(progress, f"Reading {os.fspath(path)}"):
            self.notes = self._core.read(os.fspath(path), ",".join(units), keep_units)
        return self.notes

    def write(self, path: Path, progress: Progress = None) -> list[str]:
        """Writes the model for another program, by the extension of the path (qxdb.formats()), in
        current units; returns what was left out, a line each."""
        target = os.fspath(path)
        if self.path and os.path.exists(target) and os.path.samefile(target, self.path):
            raise FileError(
                "is the model itself", file=target, remedy="write to a file of another name"
            )
        with self._telling(progress, f"Writing {target}"):
            return self._core.write_file(target)

    def import_model(
        self,
        path: Path,
        choices: Union[Sequence[str], Mapping[str, Any]] = (),
        *,
        keep_keys: bool = False,
        with_references: bool = True,
        link_existing: bool = False,
        as_part: bool = False,
        dry_run: bool = False,
        progress: Progress = None,
    ) -> Imported:
        """Brings records of another model file in as one step, in this model's units.

        choices: names of tables, or keys by name of table (None for all of it); everything where
            it is left out
        keep_keys: whether they keep their keys and overwrite; otherwise each receives a new one
        with_references: whether what they refer to, and what belongs to them, comes along
        link_existing: whether references to what does not come lead to this model's own records of
            the same keys; otherwise they are cleared
        as_part: whether the chosen mesh sets come as a part of a mesh, to be added to this one
        dry_run: whether all is done and told, and taken back
        """
        chosen = choices if isinstance(choices, Mapping) else dict.fromkeys(choices)
        wanted = [
            (self.pools[name].info.code, [] if keys is None else as_keys(keys).tolist())
            for name, keys in chosen.items()
            if keys is None or len(as_keys(keys))
        ]
        if chosen and not wanted:
            return Imported({}, [])
        with self._telling(progress, f"Importing {os.fspath(path)}"):
            pools, notes = self._core.import_model(
                os.fspath(path), wanted, keep_keys, with_references, link_existing, as_part, dry_run
            )
        keys = {
            self._codes[code].table.lower(): dict(zip(there.tolist(), here.tolist()))
            for code, there, here in pools
        }
        return Imported(keys, notes)

    def to_dict(self, *pools: Union[str, Table], progress: Progress = None) -> dict[str, Any]:
        """The gateway document of the pools (of all that are not empty): tables of records of named
        fields, by key as text; in current units."""
        codes = [(p if isinstance(p, Table) else self.pools[p]).info.code for p in pools]
        with self._telling(progress, "Telling"):
            text = self._core.gateway_text(codes)
        out: dict[str, Any] = json.loads(text)
        return out

    def update(
        self, document: Mapping[str, Any], strict: bool = False, progress: Progress = None
    ) -> list[str]:
        """Reads a gateway document as one step: adds records and replaces those that are there.
        Returns what was told, a line each; with `strict`, any of it refuses the whole."""
        with self._telling(progress, "Reading a document"):
            return self._core.read_gateway(_json(document), False, strict, "Read a document")

    def apply_deletions(
        self, document: Mapping[str, Any], strict: bool = False, progress: Progress = None
    ) -> list[str]:
        """Applies the deletion tables of a gateway document as one step."""
        with self._telling(progress, "Deleting"):
            return self._core.read_gateway(_json(document), True, strict, "Delete by a document")

    def json_schema(self) -> dict[str, Any]:
        """The JSON Schema (draft 4) of the model's gateway documents."""
        out: dict[str, Any] = json.loads(self._core.gateway_schema())
        return out

    def add_materials(self, *materials: Material) -> Keys:
        """Adds materials of a library (qxdb.materials) to the model as one step; returns their
        keys. Values are converted to model units."""
        from ._materials import add

        return add(self, materials)

    def to_meshio(self) -> Any:
        """The mesh as a meshio.Mesh, in model units: points, cells of the ordinary types, keys as
        point and cell data, mesh sets as cell sets."""
        from ._interchange import to_meshio

        return to_meshio(self)

    def to_vtk(self) -> Any:
        """The mesh as a vtkUnstructuredGrid, in model units, with keys as point and cell data."""
        from ._interchange import to_vtk

        return to_vtk(self)

    # ---- showing itself -------------------------------------------------------------------------

    def picture(self, width: int = 640, height: int = 480) -> NDArray[np.uint8]:
        """The mesh seen from the right, front and above: (height, width, 3), red green blue."""
        return self._core.picture(width, height)

    def view(self, command: str = "qxdb", height: int = 600) -> Any:
        """The viewer's page of the model as it is now, to be turned and picked in, for a notebook:
        what it returns shows itself there; its `page` is the page, which needs no network. Made by
        the command line, `command`; FileError where that, or its viewer, is not installed."""
        from ._display import viewer_page

        return viewer_page(self, command, height)

    def __repr__(self) -> str:
        if self.closed:
            return "<model, closed>"
        name = self.path or "not saved"
        counts = f"{len(self.nodes)} nodes, {len(self.elements)} elements, {len(self.sets)} sets"
        return f"<model {name}: {counts}>"

    def _repr_html_(self) -> str:
        from ._display import model_html

        return model_html(self)


def _json(document: Mapping[str, Any]) -> str:
    def plain(value: Any) -> Any:
        if isinstance(value, (np.generic, np.ndarray)):
            return value.tolist()
        raise TypeError(f"{type(value).__name__} has no form in JSON")

    try:
        return json.dumps(document, allow_nan=False, default=plain)
    except (TypeError, ValueError) as error:
        raise ValueFault(
            str(error), place="gateway document", remedy="use dicts, lists, numbers and texts"
        ) from None


def open(  # noqa: A001 - it is qxdb.open
    path: Path, mode: str = "edit", progress: Progress = None
) -> Model:
    """Opens a model file.

    mode "edit": every step is in the file when it is committed, as with the command line; refused
        while another process has the file. "read": as the file is now, beside a writer; refuses
        edits.
    progress: called with the part done, 0 to 1; False for silence
    """
    if mode not in ("edit", "read"):
        raise ValueFault("is no mode", place=repr(mode), remedy='use "edit" or "read"')
    with shown(progress, f"Opening {os.fspath(path)}") as tell:
        return Model(_core.open(os.fspath(path), mode == "edit", tell, _progress.PAUSE))


def new(*units: str) -> Model:
    """An empty model, in m, N, kg, sec, C, J and deg save for the units named: new("mm")."""
    model = Model(_core.new())
    if units:
        model._core.set_model_units(system_indices(units, model.units))
    return model


def read(path: Path, units: Union[str, tuple[str, ...]] = (), progress: Progress = None) -> Model:
    """A new model with the content of a file of another program (qxdb.formats()).

    units: that the file's numbers are in, "mm" or ("mm", "N"); otherwise those that the file
        names, or else m, N, kg, sec, C, J and deg. The model is stored in them
    progress: called with the part done, 0 to 1; False for silence

    `model.notes` tells what was changed or left out.
    """
    model = new()
    model._read(path, (units,) if isinstance(units, str) else units, True, progress)
    model.forget_history()
    return model
