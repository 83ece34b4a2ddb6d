"""Members of records as columns."""

from __future__ import annotations

from collections.abc import Iterator
from typing import TYPE_CHECKING, Any, NamedTuple, Optional, Union, cast

import numpy as np
from numpy.lib.mixins import NDArrayOperatorsMixin
from numpy.typing import NDArray

from . import _core
from ._errors import TypeFault, ValueFault
from ._schema import ELEMENT_NODES, ColumnInfo
from ._units import Quantity, convert, to_model, unit_of_category

if TYPE_CHECKING:
    from ._table import Table

Keys = NDArray[np.int32]
Rows = NDArray[np.int64]
# None for all records, a type code of elements, or keys.
Selection = Union[None, int, Keys]

MAX_KEY = 2**31 - 1
STRUCTURES = {  # array elements of several members, by their bytes
    12: [("element", "<i8"), ("side", "<i4")],
    16: [("variable", "<f8"), ("function", "<i8")],
    264: [("analysis", "V128"), ("step", "V128"), ("factor", "<f8")],
}


class NamesOne:
    """What stands for one record where keys are wanted."""

    __slots__ = ()

    @property
    def key(self) -> int:
        raise NotImplementedError


class NamesMany:
    """What stands for several records where keys are wanted."""

    @property
    def keys(self) -> Keys:
        raise NotImplementedError


class Ragged(NamedTuple):
    """An array of arrays: record i has values[offsets[i]:offsets[i + 1]].

    offsets: int64, one more than there are records, from 0
    values: of all records, one after the other
    """

    offsets: NDArray[np.int64]
    values: NDArray[Any]


def as_keys(keys: Any, place: str = "keys") -> Keys:
    """Keys from an integer, a record, a table, or any array or sequence of these."""
    if isinstance(keys, NamesMany):
        return keys.keys
    if isinstance(keys, NamesOne):
        keys = [keys.key]
    elif isinstance(keys, (list, tuple)):
        keys = [k.key if isinstance(k, NamesOne) else k for k in keys]
    array = np.atleast_1d(np.asarray(keys))
    if array.size == 0:
        return np.empty(0, np.int32)
    if array.dtype.kind not in "iu":
        raise TypeFault("are no whole numbers", place=place, remedy="give keys as integers")
    if array.ndim != 1:
        raise ValueFault("are not in one row", place=place, remedy="give one dimension")
    if array.min() < 0 or array.max() > MAX_KEY:
        raise ValueFault(
            "lie outside 1 to 2147483647", place=place, remedy="give keys of the pool"
        )
    return np.ascontiguousarray(array, dtype=np.int32)


def numbers(info: ColumnInfo, value: Any, place: str) -> NDArray[Any]:
    """Checked values of a number column, in its type; any shape."""
    if info.is_reference:
        if isinstance(value, (NamesOne, NamesMany, list, tuple)) or value is None:
            value = reference_keys(value)
        array = np.asarray(value)
        wanted = "iu"
    else:
        array = np.asarray(value)
        wanted = "biuf" if info.number == "f8" else "biu"
    if array.size and array.dtype.kind not in wanted:
        what = "real numbers" if info.number == "f8" and not info.is_reference else "whole numbers"
        raise TypeFault(
            f"takes {what}, not {array.dtype}", place=place, remedy="convert the values first"
        )
    if info.is_reference or info.number == "i4":
        low, high = (0, MAX_KEY) if info.is_reference else (-(2**31), 2**31 - 1)
        if array.size and (array.min() < low or array.max() > high):
            raise ValueFault(
                f"takes numbers from {low} to {high}", place=place, remedy="check the values"
            )
        return array.astype(np.int32)
    if info.number == "i8":
        return array.astype(np.int64)
    array = array.astype(np.float64, copy=False)
    if not np.isfinite(array).all():
        raise ValueFault(
            "takes finite numbers only", place=place, remedy="leave NaN and infinity out"
        )
    return array


def texts(value: Any, count: int, place: str) -> list[str]:
    """Checked values of a text column: one a record, or one for all."""
    out = [value] * count if isinstance(value, str) else value
    if not isinstance(out, (list, tuple, np.ndarray)) or np.ndim(cast(Any, out)) != 1:
        raise TypeFault(
            f"takes texts, not {type(value).__name__}", place=place, remedy="give str values"
        )
    if len(out) != count:
        raise ValueFault(
            f"takes {count} texts, not {len(out)}",
            place=place,
            remedy="give a value a record, or one for all",
        )
    for text in out:
        if not isinstance(text, str):
            raise TypeFault(
                f"takes texts, not {type(text).__name__}", place=place, remedy="give str values"
            )
        try:
            text.encode()
        except UnicodeEncodeError:
            raise ValueFault(
                "was given a text with half a character in it",
                place=place,
                remedy="decode it from bytes again",
            ) from None
    return [str(text) for text in out]


def reference_keys(value: Any) -> Any:
    if value is None:
        return 0
    if isinstance(value, NamesMany):
        return value.keys
    if isinstance(value, NamesOne):
        return value.key
    if isinstance(value, (list, tuple)):
        return [reference_keys(v) for v in value]
    return value


class _Bound:
    """A column of a table: what it is, and of which model."""

    def __init__(self, table: Table, info: ColumnInfo) -> None:
        self._table = table
        self.info = info

    @property
    def _place(self) -> str:
        return f"{self._table.info.table.lower()}.{self.info.name}"

    @property
    def _native(self) -> _core.Model:
        return self._table._model._core

    @property
    def unit(self) -> str:
        """The unit of the numbers, as "m" or "N/mm^2"; "" for plain numbers, and where it differs
        from record to record."""
        return unit_of_category(self.info.category, self._table._model.units)

    def _write(self, keys: Selection, values: Any, offsets: Any = None) -> None:
        self._table._write(keys, [(self.info, values, offsets)])


class Column(_Bound, NDArrayOperatorsMixin):
    """A member of every record of a table, usable as a numpy array.

    Reading copies: `nodes.xyz[:]`, numpy functions and arithmetic give plain arrays of what is in
    the model now. Assigning to the column, or to part of it, is one recorded change. Numbers are in
    model units (`unit` names it); a Quantity is converted.

    Shape: (n,) for a number a record, (n, width) for several, such as (n, 3) for positions.
    """

    def _read(self, as_rows: bool = False) -> NDArray[Any]:
        info, table = self.info, self._table
        array = self._native.column(
            table.info.code, info.row, len(info.members), table._selection, as_rows
        )
        return cast("NDArray[Any]", array)

    @property
    def shape(self) -> tuple[int, ...]:
        """(n,) or (n, width)."""
        n = len(self._table)
        return (n,) if self.info.width == 1 else (n, self.info.width)

    @property
    def dtype(self) -> np.dtype[Any]:
        """float64, int32, int64, or a text of fixed width."""
        if self.info.number == "text":
            return np.dtype(f"U{self.info.bytes // 2 - 1}")
        if self.info.is_reference:
            return np.dtype(np.int32)
        return np.dtype({"i4": "i4", "i8": "i8", "f8": "f8", "bytes": "u1"}[self.info.number])

    @property
    def rows(self) -> Rows:
        """For references: the row numbers of the records named, -1 for none; int64."""
        if not self.info.is_reference:
            raise TypeFault("names no records", place=self._place, remedy="read it as it is")
        return self._read(as_rows=True)

    def to(self, unit: str) -> NDArray[np.float64]:
        """The numbers in another unit: `nodes.xyz.to("mm")`."""
        if not self.unit:
            raise ValueFault("has no unit", place=self._place, remedy="read it as it is")
        return convert(self._read(), self.unit, unit)

    def __len__(self) -> int:
        return len(self._table)

    def __array__(self, dtype: Any = None, copy: Optional[bool] = None) -> NDArray[Any]:
        array = self._read()
        return array if dtype is None else array.astype(dtype, copy=False)

    def __getitem__(self, index: Any) -> Any:
        array = self._read()
        return array if isinstance(index, slice) and index == slice(None) else array[index]

    def __iter__(self) -> Iterator[Any]:
        return iter(self._read())

    def __setitem__(self, index: Any, value: Any) -> None:
        value = to_model(value, self.unit, self._place)
        if index is Ellipsis or (isinstance(index, slice) and index == slice(None)):
            self._assign(value)
            return
        full = self._read()
        touched = np.zeros(full.shape, dtype=bool)
        try:
            if self.info.number == "text":
                full = full.astype(object)  # one of fixed width would cut a longer text
                full[index] = value
            else:
                full[index] = numbers(self.info, value, self._place)
            touched[index] = True
        except (ValueError, IndexError) as error:
            if isinstance(error, ValueFault):
                raise
            raise ValueFault(
                str(error), place=self._place, remedy=f"its shape is {full.shape}"
            ) from None
        rows = np.flatnonzero(touched if full.ndim == 1 else touched.any(axis=1))
        if rows.size == 0:
            return
        values = full[rows]
        keys = self._table.keys[rows]
        if self.info.number == "text":
            self._write(keys, texts(values.tolist(), len(keys), self._place))
        else:
            self._write(keys, values)

    def _assign(self, value: Any) -> None:
        """Every record's value at once."""
        shape = self.shape
        if self.info.number == "text":
            self._write(self._table._selection, texts(value, shape[0], self._place))
            return
        values = numbers(self.info, value, self._place)
        try:
            values = np.broadcast_to(values, shape)
        except ValueError:
            raise ValueFault(
                f"takes shape {shape}, not {values.shape}",
                place=self._place,
                remedy="give a value a record, or one for all",
            ) from None
        self._write(self._table._selection, np.ascontiguousarray(values))

    def __array_ufunc__(self, ufunc: Any, method: str, *inputs: Any, **kwargs: Any) -> Any:
        plain = [x._read() if isinstance(x, Column) else x for x in inputs]
        out = kwargs.pop("out", None)
        result = getattr(ufunc, method)(*plain, **kwargs)
        if out is None:
            return result
        (target,) = out
        target[...] = result
        return target

    def __array_function__(self, func: Any, types: Any, args: Any, kwargs: Any) -> Any:
        def plain(x: Any) -> Any:
            if isinstance(x, Column):
                return x._read()
            return type(x)(map(plain, x)) if type(x) in (list, tuple) else x

        return func(*plain(args), **{name: plain(x) for name, x in kwargs.items()})

    def __getattr__(self, name: str) -> Any:
        """Whatever numpy arrays have that leaves them as they are: mean, min, T, tolist, ..."""
        if name.startswith("_") or name in _IN_PLACE:
            raise AttributeError(
                f"a column has no {name}; assign to it: column[...] = values"
                if name in _IN_PLACE
                else name
            )
        return getattr(self._read(), name)

    def __repr__(self) -> str:
        unit = f" in {self.unit}" if self.unit else ""
        return f"<column {self._place}{unit}, shape {self.shape}>\n{self._read()!r}"


_IN_PLACE = frozenset("sort fill put itemset partition resize setflags byteswap setfield".split())


class NodesColumn(Column):
    """The nodes of elements of one type: (n, nodes), keys; `rows` gives row numbers."""

    def _read(self, as_rows: bool = False) -> NDArray[Any]:
        table = self._table
        return cast(
            "NDArray[Any]",
            self._native.uniform(
                table.info.code, self.info.row, table._selection, self._width, as_rows
            ),
        )

    @property
    def _width(self) -> int:
        return ELEMENT_NODES[cast(int, self._table._selection)]

    @property
    def shape(self) -> tuple[int, ...]:
        return (len(self._table), self._width)

    def _write(self, keys: Selection, values: Any, offsets: Any = None) -> None:
        values = np.asarray(values)
        offsets = np.arange(len(values) + 1, dtype=np.int64) * self._width
        super()._write(keys, values.reshape(-1), offsets)


class RaggedColumn(_Bound):
    """A member that is an array, with any number of elements a record.

    `column[:]` gives (offsets, values), `column[i]` the array of row i; assigning to either is one
    recorded change. References are keys; `rows` gives row numbers.
    """

    def _read(self, as_rows: bool = False, selection: Selection = None) -> Ragged:
        table, info = self._table, self.info
        offsets, values = self._native.ragged(
            table.info.code,
            info.row,
            table._selection if selection is None else selection,
            as_rows,
        )
        if info.number == "bytes" and not info.is_reference:
            fields = STRUCTURES.get(info.bytes, [("bytes", f"V{info.bytes}")])
            values = values.reshape(-1).view(np.dtype(fields))
        return Ragged(offsets, values)

    def __len__(self) -> int:
        return len(self._table)

    @property
    def rows(self) -> Ragged:
        """The row numbers of the records named, -1 for none, as (offsets, values)."""
        if not self.info.is_reference:
            raise TypeFault("names no records", place=self._place, remedy="read it as it is")
        return self._read(as_rows=True)

    @property
    def counts(self) -> NDArray[np.int64]:
        """The number of elements of each record."""
        return np.diff(self._read().offsets)

    def __array__(self, dtype: Any = None, copy: Optional[bool] = None) -> NDArray[Any]:
        offsets, values = self._read()
        counts = np.diff(offsets)
        if counts.size and (counts != counts[0]).any():
            raise ValueFault(
                "has records of different lengths",
                place=self._place,
                remedy="read it as (offsets, values): column[:]",
            )
        width = int(counts[0]) if counts.size else 0
        array = values.reshape((len(counts), width) + values.shape[1:])
        return array if dtype is None else array.astype(dtype, copy=False)

    def __getitem__(self, index: Any) -> Any:
        if isinstance(index, slice) and index == slice(None):
            return self._read()
        if not isinstance(index, (int, np.integer)):
            raise TypeFault(
                "takes one row, or [:]", place=self._place, remedy="select a table first"
            )
        key = self._table.keys[int(index)]
        return self._read(selection=np.array([key], np.int32)).values

    def __setitem__(self, index: Any, value: Any) -> None:
        value = to_model(value, self.unit, self._place)
        if isinstance(index, (int, np.integer)):
            keys: Selection = np.array([self._table.keys[int(index)]], np.int32)
            value = [value]
        elif isinstance(index, slice) and index == slice(None):
            keys = self._table._selection
        else:
            raise TypeFault(
                "takes one row, or [:]", place=self._place, remedy="select a table first"
            )
        self._write(keys, *self._flat(value))

    def _flat(self, value: Any) -> tuple[NDArray[Any], NDArray[np.int64]]:
        if isinstance(value, Ragged):
            return self._elements(value.values), np.asarray(value.offsets)
        if (
            isinstance(value, tuple)
            and len(value) == 2
            and np.ndim(value[0]) == 1
            and len(value[0]) == len(self) + 1
        ):
            return self._elements(value[1]), np.asarray(value[0])
        parts = [self._elements(part) for part in value]
        counts = [len(part) for part in parts]
        offsets = np.concatenate([[0], np.cumsum(counts)]).astype(np.int64)
        empty = self._elements([])
        return np.concatenate([empty, *parts]), offsets

    def _elements(self, values: Any) -> NDArray[Any]:
        info = self.info
        if info.number in ("bytes", "text") and not info.is_reference:
            array = np.ascontiguousarray(values)
            if array.size == 0:
                return np.empty((0, info.bytes), np.uint8)
            return array.view(np.uint8).reshape(-1, info.bytes)
        array = numbers(info, values, self._place)
        shape = (-1,) if info.width == 1 or info.is_reference else (-1, info.width)
        try:
            return array.reshape(shape)
        except ValueError:
            raise ValueFault(
                f"takes {info.width} numbers an element",
                place=self._place,
                remedy="check the shape",
            ) from None

    def __repr__(self) -> str:
        return f"<ragged column {self._place}, {len(self)} records>"
