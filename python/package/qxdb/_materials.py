"""Material libraries."""

from __future__ import annotations

import os
from typing import TYPE_CHECKING, NamedTuple, Optional, Union

import numpy as np

from . import _core
from ._errors import MissingError
from ._columns import Keys
from ._units import Quantity, convert, system_indices

if TYPE_CHECKING:
    from ._model import Model


class Material(NamedTuple):
    """One material of a library: quantities by property ("elastic modulus")."""

    name: str
    category: str
    values: dict[str, Quantity]

    def __getitem__(self, name: object) -> Quantity:  # type: ignore[override]
        """A value by property."""
        return self.values[str(name)]


class MaterialLibrary(list[Material]):
    """The materials of a file; by name as well as by place."""

    def named(self, name: str) -> Material:
        """The material of a name, whatever the case where none has it exactly."""
        for exact in (True, False):
            for material in self:
                own = material.name
                if own == name or (not exact and own.lower() == name.lower()):
                    return material
        raise MissingError(
            "is not in this library", place=f"material {name!r}", remedy="see the names of its list"
        )


def materials(
    path: Union[str, os.PathLike[str]],
    *units: str,
    form: Optional[str] = None,
    encoding: Optional[str] = None,
) -> MaterialLibrary:
    """Reads a material file.

    units: to have the values in ("mm", "N"); as the file has them where left out
    form: of the file ("text", "binary", "fluid", "particle", "gdb", "gdbp"); by its look otherwise
    encoding: of its texts ("utf-8", "1252"); UTF-8 where its bytes are that, else the locale's
    """
    system = None
    if units:
        default = {base: str(table[0][0]) for base, table in _core.unit_tables()}
        system = system_indices(units, default)
    columns, rows = _core.materials(os.fspath(path), form, encoding, system)
    out = MaterialLibrary()
    for category, name, values in rows:
        quantities = {
            prop: Quantity(value, unit or "1")
            for (prop, _, unit), value in zip(columns, values)
        }
        out.append(Material(name, category, quantities))
    return out


# Properties that the model's own material has under another name.
_NAMES = {
    "mass density": "density",
    "expansion coefficient": "thermal_expansion",
    "mass proportional damping": "mass_damping",
    "stiffness proportional damping": "stiffness_damping",
    "cycles at endurance": "endurance_cycles",
}


def add(model: Model, chosen: tuple[Material, ...]) -> Keys:
    """Adds materials to a model; see Model.add_materials."""
    table = model.materials
    keys = []
    with model.step("Add materials"):
        for material in chosen:
            values = {}
            for prop, quantity in material.values.items():
                name = _NAMES.get(prop, prop.replace("'s", "").replace(" ", "_").lower())
                column = table.info.columns.get(name)
                if column is None or column.number != "f8":
                    continue
                value = float(quantity.values)
                unit = getattr(table, name).unit
                if unit and quantity.unit != "1":
                    value = float(convert(value, quantity.unit, unit))
                values[name] = value
            keys.append(table.insert(1, name=material.name, **values)[0])
    return np.array(keys, np.int32)
