"""Seeding edges before meshing."""

from __future__ import annotations

from typing import Any, NamedTuple, Optional

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._checked import checked
from ._errors import TypeFault, ValueFault


class Seeds(NamedTuple):
    """The seeds of an edge from its start to its end, both included.

    fractions: of arc length, (n + 1,) for n divisions; parameters: of the curve, (n + 1,);
    points: (n + 1, 3), in the unit of the curve's points
    """

    fractions: NDArray[np.float64]
    parameters: NDArray[np.float64]
    points: NDArray[np.float64]


# By method: its code, and for each argument where it goes: a list, its place there.
_METHODS: dict[str, tuple[int, dict[str, tuple[str, int]]]] = {
    "size": (1, {"size": ("real", 0)}),
    "divisions": (2, {"divisions": ("int", 0)}),
    "linear": (
        3,
        {
            "first": ("real", 1),
            "last": ("real", 2),
            "divisions": ("int", 1),
            "uniform": ("real", 3),
            "symmetric": ("int", 2),
        },
    ),
    "geometric": (
        4,
        {
            "ratio": ("real", 6),
            "divisions": ("int", 5),
            "uniform": ("real", 7),
            "symmetric": ("int", 6),
        },
    ),
    "hyperbolic": (
        5,
        {"first": ("real", 4), "last": ("real", 5), "divisions": ("int", 3)},
    ),
    "positions": (8, {"at": ("ratios", 0)}),
}


class Curves:
    """Edges given by formulas, numbered from 1; each method adds one and returns its number."""

    def __init__(self) -> None:
        self._core = checked(_core.Curves())

    def line(self, start: ArrayLike, end: ArrayLike) -> int:
        """A straight edge."""
        return self._core.line(_reals(start), _reals(end))

    def arc(self, center: ArrayLike, axis: ArrayLike, start: ArrayLike, angle_deg: float) -> int:
        """From `start` about an axis at right angles to the radius, at most a full turn."""
        return self._core.arc(_reals(center), _reals(axis), _reals(start), angle_deg)

    def circle(self, center: ArrayLike, axis: ArrayLike, start: ArrayLike) -> int:
        """A full turn."""
        return self._core.circle(_reals(center), _reals(axis), _reals(start))

    def polyline(self, points: ArrayLike) -> int:
        """Straight pieces between points, (n, 3)."""
        return self._core.polyline(_reals(points))

    def spline(self, points: ArrayLike) -> int:
        """The natural cubic spline through points, (n, 3)."""
        return self._core.spline(_reals(points))

    def __len__(self) -> int:
        return len(self._core)

    def length(self, edge: int) -> float:
        """The length of an edge."""
        return self._core.length(edge)

    def kind(self, edge: int) -> str:
        """What curve an edge lies on: "line", "arc", ..."""
        return self._core.kind(edge)

    def seed(self, edge: int, method: str, *, reversed: bool = False, **values: Any) -> Seeds:
        """Seeds an edge.

        "size": size; "divisions": divisions; "linear": first and last size, or divisions with
        them, uniform, symmetric; "geometric": ratio of last to first and divisions, uniform,
        symmetric; "hyperbolic": first size, divisions, last size; "positions": at, fractions of the
        length. Lengths are in the unit of the points. Raises ValueFault for what cannot be.
        """
        if method not in _METHODS:
            raise ValueFault(
                "is no method", place=repr(method), remedy=f"use {', '.join(_METHODS)}"
            )
        code, takes = _METHODS[method]
        ints, reals, ratios = [0] * 10, [0.0] * 10, []
        for name, value in values.items():
            if name not in takes:
                raise TypeFault(
                    f"takes no {name}", place=f"method {method}", remedy=f"use {', '.join(takes)}"
                )
            kind, place = takes[name]
            if kind == "int":
                ints[place] = int(value)
            elif kind == "real":
                reals[place] = float(value)
            else:
                ratios = _reals(value).tolist()
        if method == "hyperbolic":
            ints[4] = int("last" in values)
        return Seeds(*self._core.seed(edge, code, ints, reals, ratios, reversed))


def _reals(values: ArrayLike) -> NDArray[np.float64]:
    try:
        return np.asarray(values, dtype=float)
    except (TypeError, ValueError):
        raise ValueFault(
            "are no numbers", place="coordinates", remedy="give x, y and z"
        ) from None
