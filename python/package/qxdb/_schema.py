"""What columns a pool has: derived from the schema of its records.

The schema names every stored member ("_NODE_IDS"); the gateway names most of them for people
("NODE_KEY_ARRAY") and says which stand together (the three coordinates of an origin). Columns take
the gateway's names in lower case, without what they say of the form; the few exceptions are below.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

from . import _core
from ._errors import ValueFault

# Where the rule gives a poor name: by table and schema name of the (first) member.
_NAMES = {
    ("NODE", "_POSITION"): "position",
    ("ELEM", "_TYPE"): "type",
    ("MSET", "_PARENTMSETK"): "parent",
    ("MSET", "_GEOMITR"): "geometry",
}
_SHORT = {"elem": "element", "elems": "elements", "geom": "geometry", "prop": "property"}


@dataclass(frozen=True)
class ColumnInfo:
    """One column of a pool.

    Attributes:
        name: as an attribute of tables and records: "nodes"
        members: the schema's names: ("_NODE_IDS",)
        row: place of the first member in the schema
        number: what a number is: "i4", "i8", "f8", "text", "bytes"
        width: numbers a record, or an element of an array member
        array: whether each record has any number of elements
        target: type code of the pool that references point into; 0 for none
        category: code of the category of quantity; 0 for plain numbers, -1 where it depends
        inner_reference: offset of a reference inside each element; -1 for none
        bytes: of one record, or element
    """

    name: str
    members: tuple[str, ...]
    row: int
    number: str
    width: int
    array: bool
    target: int
    category: int
    inner_reference: int
    bytes: int

    @property
    def is_reference(self) -> bool:
        """Whether it names records of the pool `target`, by key."""
        return self.target != 0 and self.inner_reference < 0


@dataclass(frozen=True)
class PoolInfo:
    """What is known of a pool before any record: its code, table name, record type, columns."""

    code: int
    table: str
    record: str
    columns: dict[str, ColumnInfo]

    def find(self, name: str) -> ColumnInfo | None:
        """The column of a readable name, or of a schema's name."""
        column = self.columns.get(name)
        if column is None:
            column = next((c for c in self.columns.values() if c.members == (name,)), None)
        return column


_SIZES = {"i4": 4, "i8": 8, "f8": 8, "text": 2, "bytes": 1}


def _readable(table: str, member: str, field: str | None, row: dict[str, Any]) -> str:
    if (table, member) in _NAMES:
        return _NAMES[table, member]
    name = (field or member.strip("_")).lower()
    if name.endswith("_key_array"):
        name = name[: -len("_key_array")]
        name = _SHORT.get(name, name) + "s"
    elif row["reference"] and name.endswith("_key"):
        name = name[: -len("_key")]
    if not name.isidentifier():
        name = "_" + "".join(c if c.isalnum() else "_" for c in name)
    return _SHORT.get(name, name)


def pool_info(pool: dict[str, Any]) -> PoolInfo:
    """The columns of a pool, in the order of its members."""
    rows = pool["rows"]
    field_of: dict[int, tuple[str, int]] = {}
    for name, row, run, is_run in pool["fields"]:
        field_of.setdefault(row, (name, run if is_run else 1))
    columns: dict[str, ColumnInfo] = {}
    at = 0
    while at < len(rows):
        row = rows[at]
        field, run = field_of.get(at, (None, 1))
        same = all(
            (r["number"], r["size"], r["array"]) == (row["number"], row["size"], row["array"])
            for r in rows[at : at + run]
        )
        if row["array"] or not same:
            run = 1
        name = "key" if at == 0 else _readable(pool["table"], row["name"], field, row)
        while name in columns or (name in RESERVED and at):
            name += "_"
        size = row["element_size"] if row["array"] else row["size"] * run
        width = 1 if row["number"] == "text" else size // _SIZES[row["number"]]
        columns[name] = ColumnInfo(
            name=name,
            members=tuple(r["name"] for r in rows[at : at + run]),
            row=at,
            number=row["number"],
            width=width,
            array=row["array"],
            target=row["target"],
            category=row["category"],
            inner_reference=row["inner_reference"],
            bytes=size,
        )
        at += run
    return PoolInfo(pool["code"], pool["table"], pool["record"], columns)


# What tables and records have besides columns; a column of such a name gets a "_" behind it.
RESERVED = frozenset(
    "key keys columns info model table rows record records insert remove renumber where_used "
    "preview_removal to_pandas to_structured to_dict get set update exists xyz".split()
)


ELEMENT_TYPES = {name: code for code, name, *_ in _core.element_types()}
ELEMENT_NAMES = {code: name for name, code in ELEMENT_TYPES.items()}
ELEMENT_NODES = {code: nodes for code, _, _, nodes, *_ in _core.element_types()}
ELEMENT_DIMENSIONS = {code: dimension for code, *_, dimension in _core.element_types()}


def element_type(name: str) -> int:
    """The code of an element type by name; raises ValueFault for an unknown one."""
    if name not in ELEMENT_TYPES:
        raise ValueFault(
            "is no element type", place=repr(name), remedy=f"use {', '.join(ELEMENT_TYPES)}"
        )
    return ELEMENT_TYPES[name]
