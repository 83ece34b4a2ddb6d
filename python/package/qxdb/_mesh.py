"""Nodes and elements as tables."""

from __future__ import annotations

from typing import Any, cast

import numpy as np
from numpy.typing import NDArray

from ._columns import MAX_KEY, Column, Keys, NodesColumn, as_keys, numbers, reference_keys
from ._errors import TypeFault
from ._progress import Progress
from ._results import QualitySummary
from ._schema import ELEMENT_NAMES, element_type
from ._table import Table
from ._units import Quantity, to_model


class Nodes(Table):
    """The nodes: `xyz` (n x 3, model units), `keys`, `flags`."""

    @property
    def xyz(self) -> Column:
        """Positions, (n, 3), in model units. Assigning is one recorded change."""
        return cast(Column, self._column("position"))

    @xyz.setter
    def xyz(self, values: Any) -> None:
        self._assign("position", values)

    def insert(self, count: Any = None, *, keys: Any = None, **columns: Any) -> Keys:
        """Adds nodes at positions `insert(xyz)`, (n, 3), as one step; returns their keys."""
        if count is not None and np.ndim(count) > 0 or isinstance(count, Quantity):
            columns["position"] = count
            count = None
        if "xyz" in columns:
            columns["position"] = columns.pop("xyz")
        if set(columns) != {"position"} or count is not None:
            return super().insert(count, keys=keys, **columns)
        column = self.xyz
        xyz = numbers(
            column.info, to_model(columns["position"], column.unit, "nodes"), column._place
        )
        if xyz.ndim == 1 and xyz.shape == (3,):
            xyz = xyz.reshape(1, 3)
        given = None if keys is None else as_keys(keys)
        return self._model._core.insert_nodes(np.ascontiguousarray(xyz), given, "Insert nodes")


class Elements(Table):
    """The elements. Those of one type by its name: `model.elements["hex8"].nodes` is n x 8."""

    def __getitem__(self, index: Any) -> Any:
        if isinstance(index, str):
            return ElementsOfType(self._model, self.info, element_type(index))
        return super().__getitem__(index)

    def _of_keys(self, keys: Keys) -> Table:
        return Elements(self._model, self.info, keys)

    def counts(self) -> dict[str, int]:
        """The number of elements of each type that there is; a special type by its code."""
        codes, counts = np.unique(self._column("type")[:], return_counts=True)
        named = (ELEMENT_NAMES.get(code, str(code)) for code in codes.tolist())
        return dict(zip(named, counts.tolist()))

    def insert(self, count: Any = None, *, keys: Any = None, **columns: Any) -> Keys:
        """Adds elements of one type as one step: `insert("hex8", nodes=keys)`; returns their keys.

        nodes: (n, nodes of the type), keys of nodes; or `node_rows`: their row numbers
        property: key of a property, or a record
        """
        if not isinstance(count, str) and "type" in columns:
            return super().insert(count, keys=keys, **columns)
        if not isinstance(count, str):
            raise TypeFault(
                "needs the type of the elements",
                place="elements",
                remedy='name it: elements.insert("hex8", nodes=...), or elements["hex8"].insert(...)',
            )
        names = {"nodes", "node_rows", "property"}
        if set(columns) - names or len(columns.keys() & {"nodes", "node_rows"}) != 1:
            raise TypeFault(
                "takes nodes or node_rows, and property",
                place=f"elements {count}",
                remedy="assign other columns afterwards",
            )
        as_rows = "node_rows" in columns
        nodes = np.asarray(columns["node_rows" if as_rows else "nodes"])
        if nodes.dtype.kind not in "iu":
            raise TypeFault(
                f"takes whole numbers, not {nodes.dtype}",
                place=f"elements {count}",
                remedy="give keys or row numbers of nodes",
            )
        if nodes.ndim == 1:
            nodes = nodes.reshape(1, -1)
        given = None if keys is None else as_keys(keys)
        of = reference_keys(columns.get("property"))
        if not isinstance(of, (int, np.integer)) or not 0 <= of <= MAX_KEY:
            raise TypeFault(
                f"is a {type(of).__name__}",
                place=f"property of elements {count}",
                remedy="give the key of a property, or a record; 0 or None for none",
            )
        return self._model._core.insert_elements(
            element_type(count), nodes, as_rows, given, int(of), f"Insert {count} elements"
        )

    @property
    def centers(self) -> NDArray[np.float64]:
        """The mean of each element's nodes, (n, 3), model units; NaN without nodes."""
        return self._rows(self._model._core.centers())

    @property
    def sizes(self) -> NDArray[np.float64]:
        """Length, area or signed volume of each element from its corners, (n,), model units; 0 for
        types without one."""
        return self._rows(self._model._core.element_numbers("size"))

    @property
    def volumes(self) -> NDArray[np.float64]:
        """Volumes, (n,), model units: signed ones of solids; of surfaces and lines by thickness and
        section of their properties."""
        return self._rows(self._model._core.element_numbers("volume"))

    def axes(self, material: bool = False) -> NDArray[np.float64]:
        """Local axes, (n, 3, 3): unit vectors of local x, y and z as rows, in global coordinates;
        material axes where asked for; NaN where they are not determined."""
        return self._rows(self._model._core.axes(material))

    def quality(self, measure: str, progress: Progress = None) -> NDArray[np.float64]:
        """One value of a measure of shape an element, (n,); NaN where it has none; model units.
        qxdb.measures() lists them."""
        with self._model._telling(progress, measure):
            return self._rows(self._model._core.quality(measure))

    def quality_summary(
        self, measure: str, bins: int = 10, worst: int = 10, progress: Progress = None
    ) -> QualitySummary:
        """A measure of shape over the elements: how many have it and are worse than acceptable, the
        best value, the mean, a histogram of at most `bins` bars and the `worst` worst."""
        rows = None if self._selection is None else self.rows_of(self.keys)
        with self._model._telling(progress, measure):
            told = self._model._core.quality_summary(measure, rows, bins, worst)
        elements, outside, unbounded, best, mean, bars, last = told
        fields = [("low", "f8"), ("high", "f8"), ("count", "i8"), ("outside", "i8")]
        histogram = np.array(bars, dtype=fields)
        return QualitySummary(elements, outside, unbounded, best, mean, histogram, last)

    def _rows(self, values: NDArray[np.float64]) -> NDArray[np.float64]:
        """Of all elements, those of this table."""
        if self._selection is None:
            return values
        return values[self.rows_of(self.keys)]


class ElementsOfType(Elements):
    """The elements of one type; always those that there are now."""

    def insert(self, count: Any = None, *, keys: Any = None, **columns: Any) -> Keys:
        """As Elements.insert, of this type, which need not be named."""
        if count is not None and not (isinstance(count, str) and count == self.type_name):
            raise TypeFault(
                f"is not {self.type_name}",
                place=f"{count!r}",
                remedy="leave it out, or insert into the elements of its own type",
            )
        return super().insert(self.type_name, keys=keys, **columns)

    @property
    def nodes(self) -> NodesColumn:
        """Keys of the nodes, (n, nodes of the type); `.rows` gives row numbers."""
        return NodesColumn(self, self.info.columns["nodes"])

    @nodes.setter
    def nodes(self, values: Any) -> None:
        self.nodes[:] = values

    @property
    def type_name(self) -> str:
        """The type: "hex8"."""
        return ELEMENT_NAMES[cast(int, self._selection)]
