"""Units: what numbers of a model are in, and quantities that bring their own."""

from __future__ import annotations

import re
from collections.abc import Iterator, Mapping, Sequence
from typing import TYPE_CHECKING, Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._errors import ValueFault

if TYPE_CHECKING:
    from ._model import Model

_TABLES = _core.unit_tables()
BASES = tuple(name for name, _ in _TABLES)
_UNITS = {name: [unit for unit, *_ in units] for name, units in _TABLES}
_CATEGORIES = {code: (name, tuple(powers)) for code, name, powers in _core.unit_categories()}
_TEMPERATURE = BASES.index("temperature")


def unit_names(base: str | None = None) -> dict[str, list[str]] | list[str]:
    """The units of a base ("length", "force", "mass", "time", "temperature", "heat", "angle"), or
    those of all bases by name."""
    if base is None:
        return {name: list(units) for name, units in _UNITS.items()}
    if base not in _UNITS:
        raise ValueFault("is no base of units", place=repr(base), remedy=f"use {', '.join(BASES)}")
    return list(_UNITS[base])


def _find(unit: str) -> tuple[int, int]:
    """Base and index of a unit; the case of letters counts only where it must."""
    for exact in (True, False):
        for base, name in enumerate(BASES):
            for index, known in enumerate(_UNITS[name]):
                if known == unit or (not exact and known.lower() == unit.lower()):
                    return base, index
    raise ValueFault("is no unit", place=repr(unit), remedy="see qxdb.unit_names()")


def _parse(text: str) -> list[tuple[int, int, int]]:
    """ "N/mm^2" or "W/(m*C)" as (base, index, power) of each factor."""
    factors: list[tuple[int, int, int]] = []
    sign, group, below = 1, False, False
    for token in re.findall(r"[*/.()]|[^*/.()\s^]+(?:\s*\^\s*-?\d+)?|\S", text):
        if token in "*.":
            sign = -1 if group and below else 1
        elif token == "/":
            sign = -1
        elif token == "(":
            group, below = True, sign < 0
        elif token == ")":
            group = below = False
        elif token != "1":
            match = re.fullmatch(r"([^\s^\d][^\s^]*)(?:\s*\^\s*(-?\d+))?", token)
            if not match:
                raise ValueFault("is no unit", place=repr(text), remedy='write units as "N/mm^2"')
            factors.append((*_find(match[1]), sign * int(match[2] or 1)))
    return factors


def _powers(factors: list[tuple[int, int, int]]) -> tuple[int, ...]:
    powers = [0] * len(BASES)
    for base, _, power in factors:
        powers[base] += power
    return tuple(powers)


def _size(factors: list[tuple[int, int, int]]) -> float:
    """The size of a unit in SI."""
    size = 1.0
    for base, index, power in factors:
        _, numerator, denominator = _TABLES[base][1][index]
        size *= (numerator / denominator) ** power
    return size


def _is_absolute_temperature(powers: tuple[int, ...]) -> bool:
    return all(p == (1 if i == _TEMPERATURE else 0) for i, p in enumerate(powers))


def convert(values: ArrayLike, from_unit: str, to_unit: str) -> NDArray[np.float64]:
    """Values of one unit in another, such as "N/mm^2" in "psi"-like "lbf/in^2". Single temperatures
    convert with their offset. Raises ValueFault where the units measure different things."""
    source, target = _parse(from_unit), _parse(to_unit)
    if _powers(source) != _powers(target):
        raise ValueFault(
            f'"{from_unit}" and "{to_unit}" measure different things', remedy="check the units"
        )
    array = np.asarray(values, dtype=float)
    if _is_absolute_temperature(_powers(source)):
        return np.asarray(_core.temperatures(array, source[0][1], target[0][1]))
    return np.asarray(array * (_size(source) / _size(target)))


class Quantity:
    """Numbers with their unit, to be given to a column or record in place of bare numbers:
    `model.nodes[7].position = Quantity([1, 0, 0], "in")`."""

    def __init__(self, values: ArrayLike, unit: str) -> None:
        self.values = np.asarray(values, dtype=float)
        self.unit = unit
        _parse(unit)

    def to(self, unit: str) -> Quantity:
        """The same in another unit."""
        return Quantity(convert(self.values, self.unit, unit), unit)

    def __repr__(self) -> str:
        return f"Quantity({self.values.tolist()!r}, {self.unit!r})"

    def __mul__(self, factor: float) -> Quantity:
        return Quantity(self.values * factor, self.unit)

    __rmul__ = __mul__

    def __add__(self, other: Quantity) -> Quantity:
        return Quantity(self.values + other.to(self.unit).values, self.unit)

    def __sub__(self, other: Quantity) -> Quantity:
        return Quantity(self.values - other.to(self.unit).values, self.unit)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Quantity):
            return NotImplemented
        if _powers(_parse(self.unit)) != _powers(_parse(other.unit)):
            return False
        return bool(np.array_equal(self.values, other.to(self.unit).values))

    __hash__ = None  # type: ignore[assignment]


def unit_of_category(category: int, system: Mapping[str, str]) -> str:
    """The unit of a category of quantity in a system, as "N/mm^2"; "" for plain numbers."""
    if category not in _CATEGORIES:
        return ""
    above: list[str] = []
    below: list[str] = []
    for base, power in zip(BASES, _CATEGORIES[category][1]):
        if power:
            text = system[base] + (f"^{abs(power)}" if abs(power) > 1 else "")
            (above if power > 0 else below).append(text)
    return "/".join(["*".join(above) or ("1" if below else ""), *below])


class Units(Mapping[str, str]):
    """The units of a model by base: `model.units["length"]`. Arrays, records and all results are in
    these, the units that the model is stored in; files of other programs and gateway documents are
    in the current ones (`model.units.current`)."""

    def __init__(self, model: Model) -> None:
        self._model = model

    def _names(self, which: int) -> dict[str, str]:
        indices = self._model._core.units()[which]
        return {base: _UNITS[base][index] for base, index in zip(BASES, indices)}

    def __getitem__(self, base: str) -> str:
        return self._names(0)[base]

    def __iter__(self) -> Iterator[str]:
        return iter(BASES)

    def __len__(self) -> int:
        return len(BASES)

    def __repr__(self) -> str:
        return f"Units({', '.join(f'{base}={unit!r}' for base, unit in self.items())})"

    @property
    def current(self) -> dict[str, str]:
        """The units that files of other programs and gateway documents are in."""
        return self._names(1)

    def set_current(self, *names: str) -> None:
        """Makes units current, as `model.units.set_current("mm", "N")`, as one step. Stored numbers
        stay."""
        self._model._core.change_units(system_indices(names, self.current))

    def of(self, category: str) -> str:
        """The unit of a category of quantity ("stress", "mass density", ...) in this model."""
        for code, (name, _) in _CATEGORIES.items():
            if name == category:
                return unit_of_category(code, self)
        raise ValueFault(
            "is no category of quantity", place=repr(category), remedy="see qxdb.categories()"
        )


def categories() -> list[str]:
    """The categories of quantity: "length", "stress", ..."""
    return [name for name, _ in _CATEGORIES.values()]


def system_indices(names: Sequence[str], start: Mapping[str, str]) -> list[int]:
    """A unit system from names in any order; other bases keep the unit of `start`."""
    indices = [_UNITS[base].index(start[base]) for base in BASES]
    given: dict[int, str] = {}
    for name in names:
        base, index = _find(name)
        if base in given:
            raise ValueFault(
                f"is a second unit of {BASES[base]}", place=repr(name), remedy="name one of each"
            )
        given[base] = name
        indices[base] = index
    return indices


def to_model(quantity: Any, unit: str, place: str) -> Any:
    """Bare numbers for a column in `unit`: those of a quantity converted, others as they are."""
    if not isinstance(quantity, Quantity):
        return quantity
    if not unit:
        raise ValueFault("has no unit", place=place, remedy="give bare numbers")
    try:
        return quantity.to(unit).values
    except ValueFault as error:
        raise ValueFault(error.fault, place=place, remedy=error.remedy) from None
