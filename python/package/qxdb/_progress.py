"""Showing how far a long call is."""

from __future__ import annotations

import sys
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Optional, Union

from ._errors import TypeFault

Tell = Optional[Callable[[float], None]]
# What calls take that may be long: a function that is called with the part done, 0 to 1; False for
# silence; None for a bar of tqdm where somebody may be watching.
Progress = Union[Callable[[float], object], bool, None]


PAUSE = 50  # milliseconds between two looks for an interrupt, and two calls of a progress


def _rising(tell: Callable[[float], object]) -> Callable[[float], None]:
    """A call may be several of the module, each of which begins anew."""
    most = 0.0

    def rise(done: float) -> None:
        nonlocal most
        most = max(most, done)
        tell(most)

    return rise


@contextmanager
def shown(progress: Progress, what: str) -> Iterator[Tell]:
    """What a long call tells its progress to: the function given (called with 0 to 1); nothing for
    False; for None a bar of tqdm, where that is installed and someone may be watching."""
    if progress is False:
        yield None
        return
    if callable(progress):
        yield _rising(progress)
        return
    if progress is not None and progress is not True:
        raise TypeFault(
            f"was given a value of type {type(progress).__name__}",
            place="progress",
            remedy="give a function of the part done, or False for silence",
        )
    if progress is None and not (sys.stderr.isatty() or "ipykernel" in sys.modules):
        yield None
        return
    try:
        from tqdm.auto import tqdm
    except ImportError:
        yield None
        return
    with tqdm(total=100, desc=what, unit="%", leave=False, delay=0.5) as bar:

        yield _rising(lambda done: bar.update(round(100 * done) - bar.n))
