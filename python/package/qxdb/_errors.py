"""What goes wrong, as exceptions that say where and what to do about it."""

from __future__ import annotations

from importlib import import_module
from typing import Any


def _line(text: str) -> str:
    """In one line, whatever was given where a name was wanted."""
    return " ".join(text.split()) if "\n" in text else text


class Error(Exception):
    """Any failure of this package; the model is then as it was.

    Attributes (texts, empty where there is none):
        file: the file concerned
        place: the place in it or in the model, as "node 7"
        fault: what is wrong
        remedy: what to do about it
    """

    def __init__(self, fault: str, *, file: str = "", place: str = "", remedy: str = "") -> None:
        self.file = file
        self.place = _line(place)
        self.fault = _line(fault)
        self.remedy = remedy
        before = "".join(f"{part}: " for part in (file, self.place) if part)
        super().__init__(before + self.fault + (f"; {remedy}" if remedy else ""))

    def __str__(self) -> str:
        return str(self.args[0])

    def __reduce__(self) -> tuple[object, ...]:
        return (_rebuild, (type(self), self.fault, self.file, self.place, self.remedy))


def _rebuild(kind: type[Error], fault: str, file: str, place: str, remedy: str) -> Error:
    return kind(fault, file=file, place=place, remedy=remedy)


class FileError(Error):
    """A file cannot be read, written or understood."""


class RefusedError(Error):
    """The model forbids the change."""


class ClosedError(Error):
    """The model was closed."""


class MissingError(Error, KeyError):
    """No such record, pool, column, step or set; also a record that was removed."""


class ValueFault(Error, ValueError):
    """A value that cannot be: a wrong shape, a number that is none, an unknown unit."""


class TypeFault(Error, TypeError):
    """A value of another type than is wanted."""


class ThreadError(Error, RuntimeError):
    """The model belongs to another thread."""


class PackageError(Error, ModuleNotFoundError):
    """A package is missing that only some calls need."""


def optional(module: str, package: str) -> Any:
    """The module, of a package that only some calls need; raises PackageError without it."""
    try:
        return import_module(module)
    except ModuleNotFoundError as missing:
        if (missing.name or "").partition(".")[0] != module.partition(".")[0]:
            raise
        name = module.partition(".")[0]
        raise PackageError(
            f"{name} is not installed", remedy=f"Debian's package {package} has it"
        ) from missing
