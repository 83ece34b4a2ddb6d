"""Pools as tables, records as objects."""

from __future__ import annotations

from collections.abc import Iterator, Mapping, Sequence
from typing import TYPE_CHECKING, Any, NamedTuple, Optional, Union

import numpy as np
from numpy.typing import NDArray

from . import _core
from ._columns import (
    MAX_KEY,
    Column,
    Keys,
    NamesMany,
    NamesOne,
    Ragged,
    RaggedColumn,
    Rows,
    Selection,
    as_keys,
    numbers,
    texts,
)
from ._errors import MissingError, RefusedError, TypeFault, ValueFault, optional
from ._progress import Progress
from ._schema import ColumnInfo, PoolInfo
from ._units import Quantity, to_model

if TYPE_CHECKING:
    import pandas

    from ._model import Model


class Record(NamesOne):
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

    def remove(self, *, turns: bool = True) -> None:
        """Removes the record with what hangs on it, as one step; see Table.remove."""
        self._table.remove(self, turns=turns)

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
    """One use of a record: the record that names it, by which member ("" for one that is keyed by
    it), and the key of the record that is used."""

    record: Record
    member: str
    used: int


class Consequence(NamedTuple):
    """What a removal would do to one record: "removed", "reset" or "changed", and by which member
    it refers to what goes ("" for what was asked for)."""

    record: Record
    effect: str
    member: str


class Turn(NamedTuple):
    """An element that a removal would turn. Axes are 3 by 3, rows the unit vectors of local x, y
    and z; None where the element has none."""

    element: Record
    before: Optional[NDArray[np.float64]]
    after: Optional[NDArray[np.float64]]


class RemovalPreview(NamedTuple):
    """What a removal would do, and why it would be refused; nothing is changed. `turns` are the
    elements that stay and would be turned; remove(..., turns=False) refuses to."""

    consequences: list[Consequence]
    blockers: list[str]
    turns: list[Turn]

    @property
    def allowed(self) -> bool:
        """Whether the removal would be done."""
        return not self.blockers


class Table(NamesMany):
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
        if isinstance(getattr(type(self), name, None), property):
            object.__setattr__(self, name, value)
        else:
            self._assign(name, value)

    def _assign(self, name: str, value: Any) -> None:
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
            return info, texts(value, count, place), None
        shape = (count,) if info.width == 1 else (count, info.width)
        values = numbers(info, value, place)
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
        if not isinstance(count, (int, np.integer)):
            raise TypeFault(
                f"is a {type(count).__name__}",
                place="count",
                remedy="give a whole number, and columns by name",
            )
        if not 0 <= count <= MAX_KEY:
            raise ValueFault(
                f"{count} is no number of records",
                place=self.info.table.lower(),
                remedy="give 0 to 2147483647",
            )
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

    def remove(self, keys: Any = None, *, turns: bool = True, progress: Progress = None) -> None:
        """Removes records, by default all of this table, with what hangs on them, as one step.
        Raises RefusedError, changing nothing, where a rule forbids it; preview_removal tells.

        turns: whether elements that stay may be turned by it, as by the removal of what orients
            them; with False such a removal is refused, and the exception names the elements
        progress: called with the part done, 0 to 1; False for silence
        """
        taken = self.keys if keys is None else as_keys(keys)
        what = f"Remove {self.info.table.lower()}"
        with self._model._telling(progress, what):
            if not turns:
                self._refuse_turns(taken)
            self._model._core.delete(self.info.code, taken.tolist(), what)

    def _refuse_turns(self, taken: Keys) -> None:
        turned = self._model._core.preview_delete(self.info.code, taken.tolist())[2]
        if turned:
            named = ", ".join(str(key) for key, *_ in turned[:10])
            raise RefusedError(
                f"would turn {len(turned)} elements: {named}{', ...' if len(turned) > 10 else ''}",
                place=f"removal from {self.info.table.lower()}",
                remedy="orient them first, or allow it with turns=True",
            )

    def preview_removal(self, keys: Any = None, progress: Progress = None) -> RemovalPreview:
        """What remove would do."""
        taken = self.keys if keys is None else as_keys(keys)
        with self._model._telling(progress, "Looking ahead"):
            done, blockers, turned = self._model._core.preview_delete(
                self.info.code, taken.tolist()
            )
        consequences = [
            Consequence(self._model._record(code, key), effect, member or "")
            for code, key, effect, member in done
        ]
        elements = self._model.elements
        turns = [Turn(elements[key], before, after) for key, before, after in turned]
        return RemovalPreview(consequences, blockers, turns)

    def where_used(self, keys: Any, progress: Progress = None) -> list[Use]:
        """Every use of records of this pool (one key, or several) by others."""
        with self._model._telling(progress, "Looking for uses"):
            uses = self._model._core.where_used(self.info.code, as_keys(keys).tolist())
        record = self._model._record
        return [Use(record(code, user), member or "", key) for code, user, member, key in uses]

    def renumber(
        self, keys: Union[Mapping[int, int], int] = 1, progress: Progress = None
    ) -> None:
        """Gives records new keys as one step, all at once; references follow.

        keys: new keys by old ones; or the first of consecutive ones for the records of this table
        """
        if isinstance(keys, Mapping):
            old_keys, new_keys = list(keys), list(keys.values())
            pairs = list(zip(as_keys(old_keys).tolist(), as_keys(new_keys, "new keys").tolist()))
        else:
            (first,) = as_keys(keys).tolist()
            pairs = [(old, first + i) for i, old in enumerate(self.keys.tolist())]
        for _, new in pairs:
            if not 1 <= new <= MAX_KEY:
                raise ValueFault(
                    "keys lie between 1 and 2147483647",
                    place=f"key {new}",
                    remedy="choose another key",
                )
        what = f"Renumber {self.info.table.lower()}"
        with self._model._telling(progress, what):
            self._model._core.renumber(self.info.code, pairs, what)

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
        frames = optional("pandas", "python3-pandas")
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
        frame: pandas.DataFrame = frames.DataFrame(
            data, index=frames.Index(self.keys, name="key")
        )
        return frame

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
            parts = [f"{stem}_{i}" for i in range(self.info.columns[stem].width)]
            missing = [part for part in parts if part not in frame.columns]
            if missing or name not in parts:
                raise MissingError(
                    f"a column {(missing or [name])[0]!r} is "
                    + ("missing" if missing else "one too many"),
                    place=self.info.table.lower(),
                    remedy=f"give all of {', '.join(parts)}",
                )
            columns[stem] = np.column_stack([frame[part].to_numpy() for part in parts])
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
