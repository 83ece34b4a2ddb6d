"""Whatever is given to whatever: an exception that says something, and the model as it was, or a
step that can be undone."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest
import qxdb
from conftest import block
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

JUNK: list[Any] = [
    None, True, 0, 1, 2, -1, 2**31, 2**70, 1.5, float("nan"), float("inf"), 1j, "", "x", "hex8", "node",
    "\ud800", "a\0b", b"x", (), [], [1], [1, 1], [1, "x"], [[1]], [[1, 2], [3]], {}, {1: 2}, {"NODE": 3},
    {"NODE": {"1": {"POS": ["a", None]}}}, np.arange(3), np.zeros((2, 3)), np.zeros(0),
    np.full((27, 3), np.nan), np.array(["a"]), np.array([True] * 27), np.array(3),
    np.arange(24).reshape(3, 8)[:, ::-2], np.array([object()]), np.float32(2), slice(None), slice(5, 1),
    Ellipsis, object(), print, qxdb.Quantity([1, 2, 3], "mm"), qxdb.Ragged(np.array([0]), np.array([1])),
]  # fmt: skip

# By path from the model; those that close it, or go to files and the network, have their own tests.
METHODS = [
    "nodes.insert", "nodes.remove", "nodes.renumber", "nodes.where_used", "nodes.preview_removal",
    "nodes.rows_of", "nodes.__getitem__", "nodes.xyz.__getitem__", "nodes.xyz.to", "nodes.set",
    "nodes.to_structured", "elements.insert", "elements.__getitem__", "elements.nodes.__getitem__",
    "elements.quality", "elements.axes", "elements.remove", "materials.insert", "sets.add",
    "sets.__getitem__", "systems.frame", "systems.to_global", "systems.from_global", "undo", "redo",
    "checkout", "diff", "findings", "repair", "mass", "update", "apply_deletions", "to_dict", "picture",
    "listen", "add_materials", "units.set_current", "units.of", "pools.__getitem__", "snapshot",
]  # fmt: skip
TWO = [
    "nodes.xyz.__setitem__", "elements.nodes.__setitem__", "nodes.__setattr__", "materials.__setattr__",
    "systems.to_global", "elements.insert", "blame", "sets.add", "update", "mass",
]  # fmt: skip
NAMED = {
    "nodes.insert": ["keys", "xyz", "flags"],
    "elements.insert": ["nodes", "node_rows", "keys", "property", "type"],
    "materials.insert": ["name", "density", "keys", "type"],
    "nodes.set": ["xyz", "flags", "step"],
    "sets.add": ["nodes", "elements", "parent"],
    "nodes.remove": ["turns", "progress"],
    "repair": ["merge_nodes"],
}
# What the interpreter and numpy say of a call that nobody could mean, and the package's own.
TOLD = (qxdb.Error, TypeError, ValueError, IndexError, KeyError, AttributeError, OverflowError)


@pytest.fixture(scope="module")
def model() -> Any:
    with block() as model:
        yield model


calls = st.one_of(
    st.tuples(st.sampled_from(METHODS), st.lists(st.sampled_from(JUNK), max_size=1), st.just({})),
    st.tuples(st.sampled_from(TWO), st.lists(st.sampled_from(JUNK), min_size=2, max_size=2), st.just({})),
    st.sampled_from(sorted(NAMED)).flatmap(
        lambda name: st.tuples(
            st.just(name),
            st.lists(st.sampled_from(["hex8", [1], None]), max_size=1),
            st.dictionaries(st.sampled_from(NAMED[name]), st.sampled_from(JUNK), max_size=3),
        )
    ),
)


@settings(
    max_examples=1500,
    database=None,
    deadline=None,
    suppress_health_check=[HealthCheck.function_scoped_fixture, HealthCheck.too_slow],
)
@given(call=calls)
def test_junk(model: qxdb.Model, call: tuple[str, list[Any], dict[str, Any]]) -> None:
    path, given_, named = call
    what: Any = model
    for name in path.split("."):
        what = getattr(what, name)
    state, steps = model.state, len(model.history)
    try:
        what(*given_, **named)
    except TOLD as error:
        text = str(error)
        assert text and "Unable to cast" not in text and "incompatible function" not in text
        assert model.state == state and len(model.history) == steps, "refused, and yet done"
        if isinstance(error, qxdb.Error):
            assert error.fault and error.remedy and "\n" not in text, text
    done = [step for step in model.history if step.done]
    if len(done) > steps or model.state != state:
        assert len(done) == steps + 1, "a call is one step"
        model.undo()
        assert model.state == state
    assert model.validate() == ""
    if path == "listen" and model._listeners:
        model._stop(model._listeners[0])
    model.forget_history()
