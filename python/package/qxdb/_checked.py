"""The compiled module's objects, whose refusals of arguments are made readable."""

from __future__ import annotations

import re
from typing import Any, Callable, TypeVar, cast

from ._errors import TypeFault

T = TypeVar("T")


def _refusal(name: str, signature: str, given: tuple[Any, ...]) -> TypeFault:
    """What is wrong with arguments that the module does not take, by its own signature of a
    function: "name(self: ..., key: int, axes: bool) -> ...". """
    inner = signature[signature.find("(") + 1 : signature.rfind(") ->")]
    wanted = re.split(r", (?=[a-z_]+: )", inner)
    if wanted and wanted[0].startswith("self:"):
        del wanted[0]
    types = ", ".join(type(value).__name__ for value in given)
    return TypeFault(
        f"was given ({types})",
        place=name.replace("_", " "),
        remedy=f"give ({', '.join(w.replace('numpy.ndarray', 'array') for w in wanted)})",
    )


class _Checked:
    """Stands for an object of the module. A method is wrapped at its first use."""

    def __init__(self, native: Any) -> None:
        self.native = native

    def __getattr__(self, name: str) -> Any:
        if name == "native":  # of one that was made without its object, as copying does
            raise AttributeError(name)
        found = getattr(self.native, name)
        if not callable(found):
            return found

        def call(*given: Any) -> Any:
            try:
                return found(*given)
            except TypeError as error:
                text = str(error)
                if isinstance(error, TypeFault) or "incompatible function arg" not in text:
                    raise
                raise _refusal(name, found.__doc__ or "", given) from None

        self.__dict__[name] = call
        return call

    def __len__(self) -> int:
        return len(self.native)


def checked(native: T) -> T:
    """The object, with readable refusals."""
    return cast(T, _Checked(native))


def native(core: T) -> T:
    """The object itself, for where the module takes it as an argument."""
    return cast(T, cast(Any, core).native)


