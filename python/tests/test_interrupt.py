"""Long calls tell how far they are, let others run, and can be ended: the model is as it was."""

from __future__ import annotations

import signal
import sys
import threading
import time
import types
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import qxdb
from conftest import block
from qxdb import _progress


class Stop(Exception):
    pass


class Stopping:
    """A progress that ends the call when it has been told that often."""

    def __init__(self, at: int) -> None:
        self.at = at
        self.told: list[float] = []

    def __call__(self, done: float) -> None:
        if len(self.told) == self.at:
            raise Stop
        self.told.append(done)
        assert self.told == sorted(self.told) and 0 <= done <= 1


def with_inverted_and_spare(model: qxdb.Model) -> None:
    """Something for every repair."""
    model.nodes.insert(np.concatenate([model.nodes.xyz[:500], np.full((500, 3), 1e3)]))
    model.elements.insert("hex8", nodes=model.elements["hex8"].nodes[:300])


OTHER = qxdb.new()

CALLS: dict[str, Callable[[qxdb.Model, Any, Path], Any]] = {
    "save": lambda m, p, d: m.save(progress=p),
    "save as": lambda m, p, d: m.save(d / "other.qxm", progress=p),
    "open": lambda m, p, d: qxdb.open(d / "kept.qxm", "read", progress=p).close(),
    "open to edit": lambda m, p, d: qxdb.open(d / "kept.qxm", progress=p).close(),
    "snapshot": lambda m, p, d: m.snapshot(progress=p),
    "validate": lambda m, p, d: m.validate(progress=p),
    "diff": lambda m, p, d: m.diff(OTHER, progress=p),
    "findings": lambda m, p, d: m.findings(progress=p),
    "quality": lambda m, p, d: m.elements.quality("shape", progress=p),
    "free faces": lambda m, p, d: m.free_faces(progress=p),
    "parts": lambda m, p, d: m.parts(progress=p),
    "mass": lambda m, p, d: m.mass(1, progress=p),
    "repair": lambda m, p, d: m.repair(True, True, True, True, True, progress=p),
    "remove": lambda m, p, d: m.nodes[1:2000].remove(progress=p),
    "remove, looking": lambda m, p, d: m.nodes[1:2000].remove(turns=False, progress=p),
    "preview": lambda m, p, d: m.nodes[1:2000].preview_removal(progress=p),
    "where used": lambda m, p, d: m.nodes.where_used(m.nodes.keys[:3000], progress=p),
    "renumber": lambda m, p, d: m.nodes.renumber(500000, progress=p),
    "write": lambda m, p, d: m.write(d / "mesh.msh", progress=p),
    "read": lambda m, p, d: m.read(d / "other.msh", progress=p),
    "import model": lambda m, p, d: m.import_model(d / "kept.qxm", progress=p),
    "dicts": lambda m, p, d: m.to_dict(progress=p),
    "update": lambda m, p, d: m.update(NEW_NODES, progress=p),
}
NEW_NODES: dict[str, Any] = {"NODE": {str(k): {"POS": [0, 0, k]} for k in range(600000, 604000)}}


@pytest.fixture(scope="module")
def folder(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Files to open and to read."""
    folder = tmp_path_factory.mktemp("long")
    with block(16) as model:
        with_inverted_and_spare(model)
        model.save(folder / "kept.qxm")
    small = qxdb.new()
    small.nodes.insert(np.random.default_rng(1).random((20000, 3)), keys=np.arange(700000, 720000))
    small.write(folder / "other.msh")
    return folder


@pytest.mark.parametrize("what", CALLS)
def test_a_call_that_is_ended_leaves_all_as_it_was(
    folder: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch, what: str
) -> None:
    monkeypatch.setattr(_progress, "PAUSE", 0)
    call = CALLS[what]

    def told_of(model: qxdb.Model) -> tuple[Any, ...]:
        steps = [step[2:] for step in model.history]
        return (model.state, steps, model.path, model.modified, sorted(tmp_path.iterdir()))

    with block(16) as model:
        with_inverted_and_spare(model)
        model.save(tmp_path / "kept.qxm")
        (tmp_path / "other.msh").symlink_to(folder / "other.msh")
        if what == "open to edit":
            model.close()
        for at in (0, 1, 7, 40):
            before = None if model.closed else told_of(model)
            try:
                call(model, Stopping(at), tmp_path)
            except Stop:
                if before:
                    assert told_of(model) == before
                    assert model.validate(progress=False) == ""
                    model.nodes.xyz[0] = at + 0.5  # steps are kept as before
            else:
                assert at > 0, "it told nothing"
                break
        steps = None if model.closed else len(model.history)
    with qxdb.open(tmp_path / "kept.qxm", "read") as again:
        assert again.validate() == ""
        assert what == "save as" or steps is None or len(again.history) == steps


def test_a_signal_ends_a_call(monkeypatch: pytest.MonkeyPatch) -> None:
    """Ctrl-C, in every call, whether it tells its progress or not: long before its end, in time of
    the processor, which no other program's work adds to."""

    def taken(call: Callable[[], Any]) -> float:
        begin = time.process_time()
        call()
        return time.process_time() - begin

    def interrupt(number: int, frame: object) -> None:
        raise KeyboardInterrupt

    monkeypatch.setattr(_progress, "PAUSE", 1)
    with block(50) as model:
        state = model.state
        some = model.nodes.keys[:6000]
        calls: dict[str, Callable[[], Any]] = {
            "findings": lambda: model.findings(1e-9, progress=False),
            "axes": lambda: model.elements.axes(),
            "where used": lambda: model.nodes.where_used(some),
        }
        former = signal.signal(signal.SIGPROF, interrupt)
        try:
            for what, call in calls.items():
                whole = min(taken(call), taken(call))

                def ended(call: Callable[[], Any] = call) -> None:
                    signal.setitimer(signal.ITIMER_PROF, 0.002)
                    with pytest.raises(KeyboardInterrupt):
                        call()

                assert min(taken(ended), taken(ended)) < whole / 2, what
        finally:
            signal.setitimer(signal.ITIMER_PROF, 0)
            signal.signal(signal.SIGPROF, former)
        assert model.state == state and model.validate() == ""


def test_others_run_meanwhile() -> None:
    with block(40) as model:
        longest = 0.0
        done = threading.Event()

        def look() -> None:
            nonlocal longest
            last = time.perf_counter()
            while not done.is_set():
                time.sleep(0.001)
                now = time.perf_counter()
                longest, last = max(longest, now - last), now

        other = threading.Thread(target=look)
        begin = time.perf_counter()
        other.start()
        model.findings()
        model.parts()
        model.nodes.where_used(model.nodes.keys[:2000])
        model.nodes[1:500].preview_removal()
        model.nodes.renumber(10**6)
        model.undo()
        took = time.perf_counter() - begin
        done.set()
        other.join()
        assert longest < took / 2, "the interpreter was held"


def test_a_bar_is_shown(monkeypatch: pytest.MonkeyPatch, cube: qxdb.Model) -> None:
    """By tqdm, where it is installed; here by what looks like it."""
    moved: list[float] = []

    class Bar:
        def __init__(self, total: float, **rest: Any) -> None:
            self.n = 0.0

        def update(self, by: float) -> None:
            self.n += by
            moved.append(self.n)

        def __enter__(self) -> Bar:
            return self

        def __exit__(self, *rest: object) -> None:
            pass

    fake = types.ModuleType("tqdm.auto")
    fake.tqdm = Bar  # type: ignore[attr-defined]
    monkeypatch.setitem(sys.modules, "tqdm", types.ModuleType("tqdm"))
    monkeypatch.setitem(sys.modules, "tqdm.auto", fake)
    monkeypatch.setattr(_progress, "PAUSE", 0)
    cube.findings(progress=True)
    assert moved and moved == sorted(moved) and moved[-1] <= 100
    with pytest.raises(qxdb.TypeFault, match="progress: was given a value of type int"):
        cube.findings(progress=7)  # type: ignore[arg-type]
