"""What a model tells besides tables and columns: steps, findings, masses and the like."""

from __future__ import annotations

from datetime import datetime, timezone
from typing import Any, NamedTuple, Optional, TypedDict

import numpy as np
from numpy.typing import NDArray

from ._columns import Keys

_UTC = timezone.utc


class Step(NamedTuple):
    """One step of the history.

    number: by which checkout knows it; time: of its commit; done: false for one that was undone
    """

    number: int
    time: Optional[datetime]
    name: str
    inserted: int
    removed: int
    modified: int
    done: bool


def step_of(step: tuple[int, int, str, int, int, int, bool]) -> Step:
    number, ms, name, inserted, removed, modified, done = step
    time = datetime.fromtimestamp(ms / 1000, _UTC) if ms else None
    return Step(number, time, name, inserted, removed, modified, done)


class Blamed(NamedTuple):
    """The last step that changed a record; None for before the history. `gone`: it was removed."""

    key: int
    step: Optional[Step]
    gone: bool


class Difference(NamedTuple):
    """One difference of two models: "only in first", "only in second", "changed" (then `members`
    tells in what), or "order" (of the whole pool, with key 0)."""

    kind: str
    pool: str
    key: int
    members: list[str]


class Event(NamedTuple):
    """What a listener hears: "committed", "undone", "redone", "rolled back" or "loaded", the step's
    name, and what changed: a table of pool codes, operations and keys in the order of the edit.

    changes: structured array with the fields pool (int32), operation (100 inserted, 101 removed,
        102 modified) and key (int32); a row for each change of a record
    """

    kind: str
    step: str
    changes: NDArray[np.void]


class Finding(NamedTuple):
    """One kind of finding: what it is, what mends it, whether it is wrong in every mesh, and the
    keys of the elements (or nodes) concerned; int32."""

    name: str
    label: str
    remedy: str
    is_fault: bool
    of_nodes: bool
    keys: Keys


class LeftBehind(NamedTuple):
    """What a duplicate had and the element that stays could not take over, having one of its own or
    listing its nodes otherwise: keys of both, and the table of the record that tells of it."""

    duplicate: int
    stays: int
    table: str


class Repairs(TypedDict):
    """What a repair did. merges_refused: nodes whose merging would have collapsed an element;
    one_sided_patches: of shells, in which no choice makes all agree; nodes_kept: without elements,
    but some record points at them."""

    nodes_merged: int
    merges_refused: int
    elements_removed: int
    left_behind: list[LeftBehind]
    solids_turned: int
    shells_turned: int
    one_sided_patches: int
    nodes_removed: int
    nodes_kept: int


class QualitySummary(NamedTuple):
    """A measure of shape over many elements.

    elements: that have the measure; outside: worse than acceptable; unbounded: at 1e30, in neither
        mean nor histogram
    histogram: structured array with the fields low, high (float64), count and outside (int64), a row
        a bar
    worst: (value, key), worst first
    """

    elements: int
    outside: int
    unbounded: int
    best: float
    mean: float
    histogram: NDArray[np.void]
    worst: list[tuple[float, int]]


class Body(NamedTuple):
    """The elements of one property, or all, as a rigid body; model units.

    center: (3,); inertia: (3, 3) about the centre, products as negative integrals
    """

    property: int
    elements: int
    length: float
    area: float
    volume: float
    mass: float
    center: NDArray[np.float64]
    inertia: NDArray[np.float64]


class MassReport(NamedTuple):
    """Masses by property and in total, and how many elements count for nothing because their
    density, or their thickness or section, is not known."""

    total: Body
    by_property: list[Body]
    without_density: int
    without_section: int


class Imported(NamedTuple):
    """What came from another model: by table, keys in this model by keys in the other; and what is
    worth knowing, a line each."""

    keys: dict[str, dict[int, int]]
    notes: list[str]


class Sides(NamedTuple):
    """Sides of elements: keys of the elements and numbers of the sides; int32, (n,) each."""

    elements: Keys
    sides: NDArray[np.int32]


class Frame(NamedTuple):
    """Where a coordinate system is: origin (3,) and unit axes as rows (3, 3), global."""

    origin: NDArray[np.float64]
    axes: NDArray[np.float64]


def body_of(mass: dict[str, Any]) -> Body:
    xx, yy, zz, xy, yz, zx = mass["inertia"]
    inertia = np.array([[xx, xy, zx], [xy, yy, yz], [zx, yz, zz]])
    rest = {k: v for k, v in mass.items() if k not in ("center", "inertia")}
    return Body(center=np.array(mass["center"]), inertia=inertia, **rest)
