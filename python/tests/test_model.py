"""Files, steps, history, listeners, threads, closed models."""

from __future__ import annotations

import gc
import os
import pickle
import subprocess
import sys
import threading
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import qxdb
from conftest import block


def test_life_of_a_file(tmp_path: Path) -> None:
    path = tmp_path / "block.qxm"
    with block() as model:
        model.save(path)
        assert model.path == str(path) and not model.modified
    with qxdb.open(path) as model:
        with model.step("lift"):
            model.nodes.xyz[:, 2] += 1
        state = model.state
        with qxdb.open(path, mode="read") as reader:  # beside the writer
            assert reader.state == state and reader.file_report["writer"]
            with pytest.raises(qxdb.RefusedError, match="opened to be read"):
                reader.nodes.xyz[0] = 0
            mine = reader.snapshot()
            mine.nodes.xyz[0] = 5
            assert mine.state != state == reader.state
        with pytest.raises(qxdb.FileError) as caught:
            qxdb.open(path)
        assert caught.value.file == str(path) and caught.value.remedy
    with qxdb.open(path) as model:  # each step was there when it was committed
        assert model.state == state
        assert [s.name for s in model.history] == ["Make a block", "lift"]
        model.undo()
    with qxdb.open(path, "read") as model:
        assert [s.done for s in model.history] == [True, False]


def test_files_that_are_none(tmp_path: Path) -> None:
    bad = tmp_path / "bad.qxm"
    bad.write_bytes(b"not a model" * 1000)
    for act in (
        lambda: qxdb.open(tmp_path / "none.qxm"),
        lambda: qxdb.open(bad),
        lambda: qxdb.open(bad, "read"),
        lambda: qxdb.read(tmp_path / "none.msh"),
        lambda: qxdb.read(bad),
        lambda: block().write(tmp_path / "block.unknown"),
        lambda: block().save(tmp_path / "no folder" / "block.qxm"),
    ):
        with pytest.raises(qxdb.FileError) as caught:
            act()
        assert caught.value.file and caught.value.fault and caught.value.remedy
    copy = pickle.loads(pickle.dumps(caught.value))
    assert str(copy) == str(caught.value) and copy.remedy == caught.value.remedy


def test_steps_roll_back_and_nest(cube: qxdb.Model) -> None:
    state, steps = cube.state, len(cube.history)
    with pytest.raises(ZeroDivisionError):
        with cube.step("fails"):
            cube.nodes.xyz[:] = 0
            cube.elements.remove([1])
            1 / 0
    assert (cube.state, len(cube.history)) == (state, steps)
    with cube.step("outer"):
        cube.nodes.xyz[0] = [0, 0, -1]
        with pytest.raises(KeyError):
            with cube.step("inner"):
                cube.nodes.xyz[1] = [0, 0, -2]
                cube.nodes[99]
        cube.nodes.xyz[2] = [0, 0, -3]
        with pytest.raises(qxdb.RefusedError, match="step is open"):
            cube.undo()
    assert [s.name for s in cube.history[steps:]] == ["outer"]
    np.testing.assert_array_equal(cube.nodes.xyz[:3, 2], [-1, 0, -3])
    cube.undo()
    assert cube.state == state


def test_history_back_and_forth(cube: qxdb.Model) -> None:
    states = [cube.state]
    for i in range(4):
        with cube.step(f"step {i}"):
            cube.nodes.xyz[i, 0] = 10 + i
        states.append(cube.state)
    numbers = [s.number for s in cube.history]
    assert numbers == sorted(set(numbers)) and all(s.time for s in cube.history)
    for i in (2, 0, 4, 1):
        cube.checkout(numbers[i])
        assert cube.state == states[i]
    cube.redo(3)
    assert cube.state == states[4]
    last = {b.key: b.step and b.step.name for b in cube.blame(cube.nodes, [1, 4, 20])}
    assert last == {1: "step 0", 4: "step 3", 20: "Make a block"}
    for act in (lambda: cube.undo(9), lambda: cube.redo(), lambda: cube.undo(0)):
        with pytest.raises(qxdb.RefusedError):
            act()
    with pytest.raises(qxdb.MissingError):
        cube.checkout(999)
    other = cube.snapshot()
    other.nodes.xyz[0] = 0
    other.elements.remove([1])
    kinds = {(d.kind, d.pool, d.key) for d in cube.diff(other)}
    assert {("changed", "node", 1), ("only in first", "elem", 1)} <= kinds
    assert cube.diff(cube.snapshot()) == []


def test_listeners_hear_and_cannot_edit(cube: qxdb.Model) -> None:
    heard: list[qxdb.Event] = []
    stop = cube.listen(heard.append)
    with cube.step("two things"):
        cube.nodes.xyz[:2, 0] = 5
        cube.elements.remove([8])
    cube.undo()
    assert [(e.kind, e.step) for e in heard] == [("committed", "two things"), ("undone", "two things")]
    changed = heard[0].changes
    assert changed[changed["operation"] == 101]["key"].tolist() == [8]
    assert set(changed[changed["pool"] == 3]["key"]) == {1, 2}
    refused: list[str] = []

    def edits(event: qxdb.Event) -> None:
        acts: list[Any] = [lambda: cube.nodes.insert([[0, 0, 0]]), cube.close, cube.redo]
        for act in acts:
            with pytest.raises(qxdb.RefusedError) as caught:
                act()
            refused.append(str(caught.value))
        raise LookupError("from a listener")

    stop_editing = cube.listen(edits)
    with pytest.raises(LookupError, match="from a listener"):
        cube.nodes.xyz[0, 0] = 9
    assert len(refused) == 3 and cube.nodes.xyz[0, 0] == 9 and len(heard) == 3
    stop_editing()
    stop()
    cube.nodes.xyz[0, 0] = 8
    assert len(heard) == 3


def test_other_threads_are_told(cube: qxdb.Model) -> None:
    snapshot = cube.snapshot()
    results: dict[str, object] = {}

    def work() -> None:
        results["own"] = snapshot.nodes.xyz[:].sum()
        try:
            cube.nodes.xyz[:]
        except qxdb.Error as error:
            results["other"] = error

    thread = threading.Thread(target=work)
    thread.start()
    thread.join()
    assert results["own"] == cube.nodes.xyz[:].sum()
    assert isinstance(results["other"], qxdb.ThreadError) and "snapshot" in results["other"].remedy
    with pytest.raises(qxdb.ThreadError):
        snapshot.nodes.xyz[:]


def test_threads_with_models_of_their_own() -> None:
    states: list[int] = []

    def work() -> None:
        model = block(4)
        for i in range(20):
            with model.step("move"):
                model.nodes.xyz[:, 0] += 1
            if i % 3 == 0:
                model.undo()
            model.findings(0.0)
        states.append(model.state)

    threads = [threading.Thread(target=work) for _ in range(3)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(states) == 3 and len(set(states)) == 1


def test_nothing_dangles() -> None:
    """What was read lives on; what refers to the model says that it is closed."""
    model = block()
    model.sets.add("some", elements=[1])
    held = [
        model.nodes, model.nodes.xyz, model.nodes[3], model.elements["hex8"].nodes,
        model.elements.nodes, model.sets["some"], model.pools["matl"], model.units,
        model.nodes[[1, 2]], model.elements[2].nodes[0], model.history, model.systems,
    ]  # fmt: skip
    copies = [model.nodes.xyz[:], model.elements.nodes[:].values, model.nodes.keys]
    sums = [c.sum() for c in copies]
    stop = model.listen(print)
    step = model.step("left open")
    step.__enter__()
    model.nodes.xyz[:] = 3
    model.nodes.remove([1])
    model.close()
    model.close()
    gc.collect()
    assert [c.sum() for c in copies] == sums
    uses = [
        lambda: held[0].keys, lambda: held[1][:], lambda: held[1].__setitem__(0, 1),
        lambda: held[2].position, lambda: held[2].exists, lambda: held[3].rows,
        lambda: held[4][:], lambda: held[5].nodes, lambda: held[6].insert(), lambda: held[7]["length"],
        lambda: held[8].xyz[:], lambda: held[9].key and held[9].position, lambda: held[11].frame(1),
        lambda: model.state, lambda: model.undo(), lambda: model.step("x").__enter__(),
        lambda: model.save("x.qxm"), lambda: model.picture(), lambda: model.findings(),
    ]  # fmt: skip
    for use in uses:
        with pytest.raises(qxdb.ClosedError, match="the model is closed; open it again"):
            use()
    stop()
    assert repr(model) == "<model, closed>" and "closed" in model._repr_html_()
    del model, held
    gc.collect()


def test_a_removed_record_never_names_another(cube: qxdb.Model) -> None:
    node = cube.nodes[27]
    element = cube.elements[8]
    with cube.step("remove"):
        cube.elements.remove([8])
        node.remove()
    cube.forget_history()  # its memory goes to the next node
    cube.nodes.insert(np.full((50, 3), 9.0))
    assert not node.exists and not element.exists
    with pytest.raises(qxdb.MissingError):
        node.position
    assert cube.validate() == ""


def test_reading_and_writing_tell_and_stop(tmp_path: Path, cube: qxdb.Model) -> None:
    told: list[float] = []
    cube.write(tmp_path / "cube.vtu", progress=told.append)
    assert told and told == [t for t in told if 0 <= t <= 1] and told[-1] == 1
    cube.write(tmp_path / "cube.msh")
    before = (tmp_path / "cube.msh").read_bytes()

    def stop(done: float) -> None:
        raise KeyboardInterrupt

    state = cube.state
    for act in (
        lambda: cube.write(tmp_path / "cube.msh", progress=stop),
        lambda: cube.read(tmp_path / "cube.msh", progress=stop),
    ):
        with pytest.raises(KeyboardInterrupt):
            act()
    assert (tmp_path / "cube.msh").read_bytes() == before and cube.state == state
    assert sorted(p.name for p in tmp_path.iterdir()) == ["cube.msh", "cube.vtu"]
    with pytest.raises(qxdb.Error, match="number already"):
        cube.read(tmp_path / "cube.msh")
    assert cube.state == state


def test_models_may_outlive_the_interpreter() -> None:
    code = "import qxdb; m = qxdb.new(); m.nodes.insert([[0, 0, 0]]); m.listen(print); m.me = m"
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr


def test_a_model_shows_itself(bracket: qxdb.Model) -> None:
    html = bracket._repr_html_()
    assert "9,210" in html and "bracket" in html and "data:image/png;base64," in html
    picture = bracket.picture(320, 200)
    drawn = (picture != 255).any(axis=2).mean()
    assert picture.shape == (200, 320, 3) and 0.05 < drawn < 0.95
    assert qxdb.new()._repr_html_() and "table" in bracket.nodes._repr_html_()


def test_the_viewers_page(cube: qxdb.Model) -> None:
    with pytest.raises(qxdb.FileError, match="cannot be run"):
        cube.view(command="/no/such/qxdb")
    command = os.environ.get("QX_QXDB", "qxdb")
    try:
        told = subprocess.run([command, "view", "--help"], capture_output=True, check=False)
    except OSError:
        pytest.skip("there is no command line beside the package")
    if told.returncode != 0:
        pytest.skip("the command line was built without the viewer")
    shown = cube.view(command)
    assert "<script" in shown.page and "srcdoc" in shown._repr_html_()
