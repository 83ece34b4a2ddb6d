"""Showing how far a long call is."""

from __future__ import annotations

import sys
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Any, Optional

Progress = Optional[Callable[[float], None]]


@contextmanager
def shown(progress: Any, what: str) -> Iterator[Progress]:
    """What a long call tells its progress to: the function given (called with 0 to 1); nothing for
    False; for None a bar of tqdm, where that is installed and someone may be watching."""
    if progress is False:
        yield None
        return
    if callable(progress):
        yield progress
        return
    if progress is None and not (sys.stderr.isatty() or "ipykernel" in sys.modules):
        yield None
        return
    try:
        from tqdm.auto import tqdm
    except ImportError:
        yield None
        return
    with tqdm(total=100, desc=what, unit="%", leave=False, delay=0.5) as bar:

        def tell(done: float) -> None:
            bar.update(round(100 * done) - bar.n)

        yield tell
