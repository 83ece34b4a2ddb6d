"""Pools as tables, members as columns, records as objects."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping, Sequence
from typing import TYPE_CHECKING, Any, NamedTuple, Optional, Union, cast

import numpy as np
from numpy.lib.mixins import NDArrayOperatorsMixin
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._errors import MissingError, RefusedError, TypeFault, ValueFault
from ._schema import ColumnInfo, PoolInfo
from ._units import Quantity, convert, to_model, unit_of_category

if TYPE_CHECKING:
    import pandas

    from ._model import Model

Keys = NDArray[np.int32]
Rows = NDArray[np.int64]
# None for all records, a type code of elements, or keys.
Selection = Union[None, int, Keys]

_MAX_KEY = 2**31 - 1
_STRUCTURES = {  # array elements of several members, by their bytes
    12: [("element", "<i8"), ("side", "<i4")],
    16: [("variable", "<f8"), ("function", "<i8")],
    264: [("analysis", "V128"), ("step", "V128"), ("factor", "<f8")],
}


class Ragged(NamedTuple):
    """An array of arrays: record i has values[offsets[i]:offsets[i + 1]].

    offsets: int64, one more than there are records, from 0
    values: of all records, one after the other
    """

    offsets: NDArray[np.int64]
    values: NDArray[Any]


def as_keys(keys: Any, place: str = "keys") -> Keys:
    """Keys from an integer, a record, a table, or any array or sequence of these."""
    if isinstance(keys, Table):
        return keys.keys
    if isinstance(keys, Record):
        keys = [keys.key]
    elif isinstance(keys, (list, tuple)):
        keys = [k.key if isinstance(k, Record) else k for k in keys]
    array = np.atleast_1d(np.asarray(keys))
    if array.size == 0:
        return np.empty(0, np.int32)
    if array.dtype.kind not in "iu":
        raise TypeFault("are no whole numbers", place=place, remedy="give keys as integers")
    if array.ndim != 1:
        raise ValueFault("are not in one row", place=place, remedy="give one dimension")
    if array.min() < 0 or array.max() > _MAX_KEY:
        raise ValueFault(
            "lie outside 1 to 2147483647", place=place, remedy="give keys of the pool"
        )
    return np.ascontiguousarray(array, dtype=np.int32)


def _numbers(info: ColumnInfo, value: Any, place: str) -> NDArray[Any]:
    """Checked values of a number column, in its type; any shape."""
    if info.is_reference:
        if isinstance(value, (Record, Table, list, tuple)) or value is None:
            value = _reference_keys(value)
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
        low, high = (0, _MAX_KEY) if info.is_reference else (-(2**31), 2**31 - 1)
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


def _reference_keys(value: Any) -> Any:
    if value is None:
        return 0
    if isinstance(value, Table):
        return value.keys
    if isinstance(value, Record):
        return value.key
    if isinstance(value, (list, tuple)):
        return [_reference_keys(v) for v in value]
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
                full[index] = _numbers(self.info, value, self._place)
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
        self._write(keys, values.tolist() if self.info.number == "text" else values)

    def _assign(self, value: Any) -> None:
        """Every record's value at once."""
        shape = self.shape
        if self.info.number == "text":
            texts = [value] * shape[0] if isinstance(value, str) else [str(v) for v in value]
            self._write(self._table._selection, texts)
            return
        values = _numbers(self.info, value, self._place)
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
            fields = _STRUCTURES.get(info.bytes, [("bytes", f"V{info.bytes}")])
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
        array = _numbers(info, values, self._place)
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


class Record:
    """One record, by its key: members as attributes, references as records.

    Values are read from the model at every use; assigning one is one recorded change. Vectors are
    arrays, in model units; a Quantity is converted. `record["_POSITION"]` takes a schema's name as
    well. A record that was removed, or got another key, raises MissingError when it is used.
    """

    __slots__ = ("_table", "_key")
    _table: Table
    _key: int

    def __init__(self, table: Table, key: int) -> None:
        object.__setattr__(self, "_table", table)
        object.__setattr__(self, "_key", int(key))

    @property
    def key(self) -> int:
        """The key, by which the record is known."""
        return self._key

    @property
    def exists(self) -> bool:
        """Whether the model still has it under this key."""
        return self._table._model._core.has(self._table.info.code, self._key)

    @property
    def columns(self) -> list[str]:
        """The names of its members."""
        return list(self._table.info.columns)

    def _one(self) -> Table:
        return self._table._of_keys(np.array([self._key], np.int32))

    def __getitem__(self, name: str) -> Any:
        column = self._one()._column(name)
        info = column.info
        if isinstance(column, RaggedColumn):
            values = column[:].values
            return self._records(info, values) if info.is_reference else values
        value = column[:][0]
        if info.is_reference:
            return self._records(info, [value])[0]
        if info.number == "text":
            return str(value)
        return value if info.width > 1 else value.item()

    def _records(self, info: ColumnInfo, keys: Any) -> list[Optional[Record]]:
        table = self._table._model._table_of_code(info.target)
        return [Record(table, key) if key else None for key in keys]

    def __setitem__(self, name: str, value: Any) -> None:
        column = self._one()._column(name)
        if isinstance(column, RaggedColumn):
            column[:] = [to_model(value, column.unit, column._place)]
        elif column.info.number == "text":
            if not isinstance(value, str):
                raise TypeFault("takes a text", place=column._place, remedy="give a str")
            column[:] = [value]
        elif column.info.width > 1:
            value = np.asarray(to_model(value, column.unit, column._place))
            if value.shape != (column.info.width,):
                raise ValueFault(
                    f"takes {column.info.width} numbers",
                    place=column._place,
                    remedy="check the shape",
                )
            column[:] = value
        else:
            column[:] = value

    def __getattr__(self, name: str) -> Any:
        if name.startswith("_") and self._table.info.find(name) is None:
            raise AttributeError(name)
        return self["position" if name == "xyz" else name]

    def __setattr__(self, name: str, value: Any) -> None:
        self["position" if name == "xyz" else name] = value

    def __dir__(self) -> list[str]:
        return [*object.__dir__(self), *self.columns]

    def to_dict(self) -> dict[str, Any]:
        """All members by readable name; references as keys."""
        one = self._one()
        out: dict[str, Any] = {}
        for name in self.columns:
            column = one._column(name)
            value = column[:].values if isinstance(column, RaggedColumn) else column[:][0]
            out[name] = value.item() if isinstance(value, np.generic) else value
        return out

    def remove(self) -> None:
        """Removes the record with what hangs on it, as one step; see Table.remove."""
        self._table.remove(self)

    def renumber(self, key: int) -> None:
        """Gives the record another key; references to it follow. This object follows too."""
        self._table.renumber({self._key: key})
        object.__setattr__(self, "_key", int(key))

    def where_used(self) -> list[Use]:
        """Every use of the record by others."""
        return self._table.where_used(self._key)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Record):
            return NotImplemented
        same = self._table._model is other._table._model
        return same and (self._table.info.code, self._key) == (other._table.info.code, other._key)

    def __hash__(self) -> int:
        return hash((id(self._table._model), self._table.info.code, self._key))

    def __repr__(self) -> str:
        label = f"{self._table.info.table.lower()} {self._key}"
        if not self.exists:
            return f"<{label}, not in the model>"
        values = [f"{name}={value!r}" for name, value in self.to_dict().items() if name != "key"]
        return f"<{label}: {', '.join(values)}>"


class Use(NamedTuple):
    """One use of a record: the record that names it, and by which member ("" for one that is keyed
    by it)."""

    record: Record
    member: str


class Consequence(NamedTuple):
    """What a removal would do to one record: "removed", "reset" or "changed", and by which member
    it refers to what goes ("" for what was asked for)."""

    record: Record
    effect: str
    member: str


class RemovalPreview(NamedTuple):
    """What a removal would do, and why it would be refused; nothing is changed."""

    consequences: list[Consequence]
    blockers: list[str]

    @property
    def allowed(self) -> bool:
        """Whether the removal would be done."""
        return not self.blockers


class Table:
    """A pool of the model, or some of its records, as a table.

    Columns are attributes: `model.nodes.xyz`. Records by key: `model.nodes[12]`; several by keys or
    by a mask over the rows: `model.nodes[[3, 5]]`, `model.nodes[mask]`. A table of some records
    names them by key; it is no copy.
    """

    _model: Model
    info: PoolInfo
    _selection: Selection

    def __init__(self, model: Model, info: PoolInfo, selection: Selection = None) -> None:
        for name, value in (("_model", model), ("info", info), ("_selection", selection)):
            object.__setattr__(self, name, value)

    # ---- rows -----------------------------------------------------------------------------------

    @property
    def keys(self) -> Keys:
        """The keys of the records, in the order of the table; int32."""
        return self._model._core.keys(self.info.code, self._selection)

    def __len__(self) -> int:
        if self._selection is None:
            return self._model._core.size(self.info.code)
        if isinstance(self._selection, int):
            return len(self.keys)
        return len(self._selection)

    def __contains__(self, key: object) -> bool:
        if isinstance(key, Record):
            key = key.key
        if not isinstance(key, (int, np.integer)):
            return False
        if self._selection is None:
            return self._model._core.has(self.info.code, int(key))
        return bool((self.keys == key).any())

    def __iter__(self) -> Iterator[Record]:
        for key in self.keys.tolist():
            yield Record(self._whole(), key)

    def rows_of(self, keys: Any) -> Rows:
        """The row numbers of keys in the whole pool, -1 for one that is not there; int64."""
        return self._model._core.rows_of_keys(self.info.code, as_keys(keys))

    def _whole(self) -> Table:
        return self if self._selection is None else self._model._table_of_code(self.info.code)

    def _of_keys(self, keys: Keys) -> Table:
        return type(self)(self._model, self.info, keys)

    def __getitem__(self, index: Any) -> Any:
        if isinstance(index, (int, np.integer)):
            if index not in self:
                raise MissingError(
                    "is not in the model",
                    place=f"{self.info.table.lower()} {index}",
                    remedy="see the keys of the table",
                )
            return Record(self._whole(), int(index))
        if isinstance(index, slice):
            return self._of_keys(self.keys[index])
        array = np.asarray(index)
        if array.dtype == bool:
            if array.shape != (len(self),):
                raise ValueFault(
                    f"is a mask of {array.shape} for {len(self)} records",
                    place=self.info.table.lower(),
                    remedy="give one truth value a record",
                )
            return self._of_keys(self.keys[array])
        keys = as_keys(index)
        self._model._core.keys(self.info.code, keys)  # all there?
        return self._of_keys(keys)

    # ---- columns --------------------------------------------------------------------------------

    @property
    def columns(self) -> list[str]:
        """The names of the columns, the key first."""
        return list(self.info.columns)

    def _column(self, name: str) -> Union[Column, RaggedColumn]:
        info = self.info.find("position" if name == "xyz" else name)
        if info is None:
            raise MissingError(
                f'has no column "{name}"',
                place=self.info.table.lower(),
                remedy=f"it has {', '.join(self.columns)}",
            )
        return RaggedColumn(self, info) if info.array else Column(self, info)

    def __getattr__(self, name: str) -> Any:
        if name.startswith("_") and self.info.find(name) is None:
            raise AttributeError(name)
        try:
            return self._column(name)
        except MissingError as error:
            raise AttributeError(str(error)) from None

    def __setattr__(self, name: str, value: Any) -> None:
        column = self._column(name)
        if isinstance(value, Column) and value._table is self and value.info == column.info:
            return  # what an operation in place leaves, done already
        column[:] = value

    def __dir__(self) -> list[str]:
        return [*object.__dir__(self), *self.columns]

    def _write(
        self, selection: Selection, columns: Sequence[tuple[ColumnInfo, Any, Any]], step: str = ""
    ) -> None:
        names = ", ".join(info.name for info, *_ in columns)
        values = [(i.row, len(i.members), v, o) for i, v, o in columns]
        self._model._core.write(
            self.info.code, selection, values, step or f"Set {self.info.table.lower()} {names}"
        )

    def _prepared(self, name: str, value: Any, count: int) -> tuple[ColumnInfo, Any, Any]:
        """A column for `count` records, as the module takes it."""
        column = self._column(name)
        info, place = column.info, column._place
        value = to_model(value, column.unit, place)
        if isinstance(column, RaggedColumn):
            if isinstance(value, (Ragged, tuple)):
                return info, column._elements(value[1]), np.asarray(value[0])
            return (info, *column._flat(value))
        if info.number == "text":
            texts = [value] * count if isinstance(value, str) else [str(v) for v in value]
            return info, texts, None
        shape = (count,) if info.width == 1 else (count, info.width)
        values = _numbers(info, value, place)
        try:
            return info, np.ascontiguousarray(np.broadcast_to(values, shape)), None
        except ValueError:
            raise ValueFault(
                f"takes shape {shape}, not {values.shape}",
                place=place,
                remedy="give a value a record, or one for all",
            ) from None

    # ---- changing -------------------------------------------------------------------------------

    def insert(self, count: Optional[int] = None, *, keys: Any = None, **columns: Any) -> Keys:
        """Adds records as one step and returns their keys (int32).

        count: how many; by the first column where it is left out, 1 without columns
        keys: theirs; the next free ones where they are left out
        columns: their values by name, one a record or one for all; defaults otherwise
        """
        if keys is not None:
            keys = as_keys(keys)
            count = len(keys) if count is None else count
        if count is None:
            count = self._count_of(columns)
        values = [self._prepared(name, value, count) for name, value in columns.items()]
        return self._model._core.insert(
            self.info.code,
            count,
            keys,
            [(i.row, len(i.members), v, o) for i, v, o in values],
            f"Insert {self.info.table.lower()}",
        )

    def _count_of(self, columns: Mapping[str, Any]) -> int:
        for name, value in columns.items():
            column = self._column(name)
            if isinstance(value, (str, Quantity, Record)) or value is None:
                continue
            if isinstance(column, RaggedColumn):
                return len(value[0]) - 1 if isinstance(value, (Ragged, tuple)) else len(value)
            if np.ndim(value) == (2 if column.info.width > 1 else 1):
                return len(value)
        return 1

    def set(self, step: str = "", **columns: Any) -> None:
        """Assigns several columns of all records of the table as one step."""
        count = len(self)
        values = [self._prepared(name, value, count) for name, value in columns.items()]
        self._write(self._selection, values, step)

    def remove(self, keys: Any = None) -> None:
        """Removes records, by default all of this table, with what hangs on them, as one step.
        Raises RefusedError, changing nothing, where a rule forbids it; preview_removal tells."""
        taken = self.keys if keys is None else as_keys(keys)
        self._model._core.delete(
            self.info.code, taken.tolist(), f"Remove {self.info.table.lower()}"
        )

    def preview_removal(self, keys: Any = None) -> RemovalPreview:
        """What remove would do."""
        taken = self.keys if keys is None else as_keys(keys)
        done, blockers = self._model._core.preview_delete(self.info.code, taken.tolist())
        consequences = [
            Consequence(self._model._record(code, key), effect, member or "")
            for code, key, effect, member in done
        ]
        return RemovalPreview(consequences, blockers)

    def where_used(self, key: Union[int, Record]) -> list[Use]:
        """Every use of a record of this pool by others."""
        (one,) = as_keys(key).tolist()
        uses = self._model._core.where_used(self.info.code, one)
        return [Use(self._model._record(code, key), member or "") for code, key, member in uses]

    def renumber(self, keys: Union[Mapping[int, int], int] = 1) -> None:
        """Gives records new keys as one step, all at once; references follow.

        keys: new keys by old ones; or the first of consecutive ones for the records of this table
        """
        if isinstance(keys, Mapping):
            pairs = [(int(old), int(new)) for old, new in keys.items()]
        else:
            pairs = [(old, keys + i) for i, old in enumerate(self.keys.tolist())]
        for _, new in pairs:
            if not 1 <= new <= _MAX_KEY:
                raise ValueFault(
                    "keys lie between 1 and 2147483647",
                    place=f"key {new}",
                    remedy="choose another key",
                )
        self._model._core.renumber(self.info.code, pairs, f"Renumber {self.info.table.lower()}")

    # ---- other forms ----------------------------------------------------------------------------

    def to_structured(self, *names: str) -> NDArray[np.void]:
        """The plain columns (all, or those named) as one structured array: a copy."""
        chosen = [self._column(n) for n in names or self.columns]
        if any(isinstance(c, RaggedColumn) for c in chosen) and names:
            raise TypeFault(
                "has arrays of any length", place=self.info.table, remedy="leave them out"
            )
        arrays = {c.info.name: c[:] for c in chosen if isinstance(c, Column)}
        dtype = [(n, a.dtype, a.shape[1:]) for n, a in arrays.items()]
        out: NDArray[np.void] = np.empty(len(self), dtype=dtype)
        for name, array in arrays.items():
            out[name] = array
        return out

    def to_pandas(self) -> pandas.DataFrame:
        """A DataFrame indexed by key. A column of several numbers becomes several: position_0, ...;
        an array member becomes a column of arrays."""
        import pandas

        data: dict[str, Any] = {}
        for name in self.columns[1:]:
            column = self._column(name)
            if isinstance(column, RaggedColumn):
                offsets, values = column[:]
                data[name] = np.split(values, offsets[1:-1]) if len(offsets) > 1 else []
            elif column.info.width > 1:
                array = column[:]
                for i in range(column.info.width):
                    data[f"{name}_{i}"] = array[:, i]
            else:
                data[name] = column[:]
        return pandas.DataFrame(data, index=pandas.Index(self.keys, name="key"))

    def from_pandas(self, frame: pandas.DataFrame, insert: bool = False) -> None:
        """Sets the columns of a DataFrame, as to_pandas gives them, for the records that its index
        names; with `insert` adds such records. One step."""
        columns: dict[str, Any] = {}
        for name in frame.columns:
            if name in self.info.columns:
                columns[name] = frame[name].to_numpy()
                continue
            stem, _, number = str(name).rpartition("_")
            if stem not in self.info.columns or not number.isdigit():
                raise MissingError(
                    f'has no column "{name}"',
                    place=self.info.table.lower(),
                    remedy=f"it has {', '.join(self.columns)}",
                )
            width = self.info.columns[stem].width
            columns[stem] = np.column_stack(
                [frame[f"{stem}_{i}"].to_numpy() for i in range(width)]
            )
        for name, values in columns.items():
            if self.info.columns[name].array:
                columns[name] = list(values)
            elif self.info.columns[name].number == "text":
                columns[name] = [str(v) for v in values]
        keys = frame.index.to_numpy()
        if insert:
            self._whole().insert(keys=keys, **columns)
        else:
            self._whole()[keys].set(**columns)

    def __repr__(self) -> str:
        return f"<table {self.info.table.lower()}, {len(self)} records: {', '.join(self.columns)}>"

    def _repr_html_(self) -> str:
        from ._display import table_html

        return table_html(self)


class Nodes(Table):
    """The nodes: `xyz` (n x 3, model units), `keys`, `flags`."""

    @property
    def xyz(self) -> Column:
        """Positions, (n, 3), in model units. Assigning is one recorded change."""
        return cast(Column, self._column("position"))

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
        xyz = _numbers(
            column.info, to_model(columns["position"], column.unit, "nodes"), column._place
        )
        if xyz.ndim == 1 and xyz.shape == (3,):
            xyz = xyz.reshape(1, 3)
        given = None if keys is None else as_keys(keys)
        return self._model._core.insert_nodes(np.ascontiguousarray(xyz), given, "Insert nodes")


ELEMENT_TYPES = {name: code for code, name, *_ in _core.element_types()}
ELEMENT_NAMES = {code: name for name, code in ELEMENT_TYPES.items()}
ELEMENT_NODES = {code: nodes for code, _, _, nodes, *_ in _core.element_types()}
ELEMENT_DIMENSIONS = {code: dimension for code, *_, dimension in _core.element_types()}


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
        if not isinstance(count, str):
            return super().insert(count, keys=keys, **columns)
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
        of = _reference_keys(columns.get("property"))
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

    def quality(self, measure: str, progress: Any = None) -> NDArray[np.float64]:
        """One value of a measure of shape an element, (n,); NaN where it has none; model units.
        qxdb.measures() lists them."""
        from ._progress import shown

        with shown(progress, measure) as tell:
            return self._rows(self._model._core.quality(measure, tell))

    def _rows(self, values: NDArray[np.float64]) -> NDArray[np.float64]:
        """Of all elements, those of this table."""
        if self._selection is None:
            return values
        return values[self.rows_of(self.keys)]


class ElementsOfType(Elements):
    """The elements of one type; always those that there are now."""

    @property
    def nodes(self) -> NodesColumn:
        """Keys of the nodes, (n, nodes of the type); `.rows` gives row numbers."""
        return NodesColumn(self, self.info.columns["nodes"])

    @property
    def type_name(self) -> str:
        """The type: "hex8"."""
        return ELEMENT_NAMES[cast(int, self._selection)]

    def __setattr__(self, name: str, value: Any) -> None:
        if name == "nodes":
            self.nodes[:] = value
        else:
            super().__setattr__(name, value)


def element_type(name: str) -> int:
    """The code of an element type by name; raises ValueFault for an unknown one."""
    if name not in ELEMENT_TYPES:
        raise ValueFault(
            "is no element type", place=repr(name), remedy=f"use {', '.join(ELEMENT_TYPES)}"
        )
    return ELEMENT_TYPES[name]
