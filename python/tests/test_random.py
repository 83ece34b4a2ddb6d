"""Random edits of a model against plain numpy arrays, with undo by the hash of the state."""

from __future__ import annotations

import numpy as np
import qxdb
from hypothesis import HealthCheck, settings
from hypothesis import strategies as st
from hypothesis.stateful import (
    RuleBasedStateMachine,
    initialize,
    invariant,
    precondition,
    rule,
)

finite = st.floats(-1e6, 1e6, allow_nan=False)


class Plain:
    """Nodes and triangles as plain arrays: what the model is to hold."""

    def __init__(self) -> None:
        self.keys = np.empty(0, np.int64)
        self.xyz = np.empty((0, 3))
        self.element_keys = np.empty(0, np.int64)
        self.triangles = np.empty((0, 3), np.int64)

    def copy(self) -> Plain:
        other = Plain()
        other.keys, other.xyz = self.keys.copy(), self.xyz.copy()
        other.element_keys, other.triangles = self.element_keys.copy(), self.triangles.copy()
        return other


class Edits(RuleBasedStateMachine):
    @initialize()
    def begin(self) -> None:
        self.model = qxdb.new()
        self.plain = Plain()
        self.done = [(self.model.state, self.plain.copy())]
        self.undone: list[tuple[int, Plain]] = []

    def changed(self) -> None:
        """The last act was a step, if it changed anything."""
        if self.model.state != self.done[-1][0] or len(self.model.history) > len(self.done) - 1:
            self.undone.clear()
            self.done.append((self.model.state, self.plain.copy()))

    @rule(xyz=st.lists(st.tuples(finite, finite, finite), min_size=1, max_size=6))
    def insert_nodes(self, xyz: list[tuple[float, float, float]]) -> None:
        keys = self.model.nodes.insert(np.array(xyz))
        assert not set(keys.tolist()) & set(self.plain.keys.tolist())
        self.plain.keys = np.concatenate([self.plain.keys, keys])
        self.plain.xyz = np.concatenate([self.plain.xyz, np.array(xyz)])
        self.changed()

    @precondition(lambda self: len(self.plain.keys) >= 3)
    @rule(data=st.data())
    def insert_triangles(self, data: st.DataObject) -> None:
        n = len(self.plain.keys)
        rows = data.draw(
            st.lists(st.permutations(range(n)).map(lambda p: p[:3]), min_size=1, max_size=3)
        )
        keys = self.model.elements.insert("tri3", node_rows=np.array(rows))
        self.plain.element_keys = np.concatenate([self.plain.element_keys, keys])
        self.plain.triangles = np.concatenate([self.plain.triangles, self.plain.keys[rows]])
        self.changed()

    @precondition(lambda self: len(self.plain.keys) > 0)
    @rule(data=st.data())
    def assign(self, data: st.DataObject) -> None:
        n = len(self.plain.keys)
        mask = np.array(data.draw(st.lists(st.booleans(), min_size=n, max_size=n)))
        part = data.draw(st.sampled_from([slice(None), 0, 2, slice(1, 3), slice(0, 3, 2)]))
        value = data.draw(finite)
        with self.model.step("assign"):
            self.model.nodes.xyz[mask, part] = value
        self.plain.xyz[mask, part] = value
        if mask.any():  # the same values again are a change all the same
            self.undone.clear()
            self.done.append((self.model.state, self.plain.copy()))

    @precondition(lambda self: len(self.plain.keys) > 0)
    @rule(data=st.data())
    def fail(self, data: st.DataObject) -> None:
        """What an exception leaves is what was there."""
        try:
            with self.model.step("fails"):
                self.model.nodes.xyz[:] = 0
                self.model.nodes.remove()
                raise ArithmeticError
        except ArithmeticError:
            pass

    @precondition(lambda self: len(self.plain.keys) > 1)
    @rule(data=st.data())
    def remove(self, data: st.DataObject) -> None:
        key = data.draw(st.sampled_from(self.plain.keys.tolist()))
        self.model.nodes.remove(key)
        keep = self.plain.keys != key
        self.plain.keys, self.plain.xyz = self.plain.keys[keep], self.plain.xyz[keep]
        stays = (self.plain.triangles != key).all(axis=1)
        self.plain.triangles = self.plain.triangles[stays]
        self.plain.element_keys = self.plain.element_keys[stays]
        self.changed()

    @precondition(lambda self: len(self.plain.keys) > 1)
    @rule(data=st.data())
    def exchange_keys(self, data: st.DataObject) -> None:
        a, b = data.draw(st.permutations(self.plain.keys.tolist()))[:2]
        self.model.nodes.renumber({a: b, b: a})
        for array in (self.plain.keys, self.plain.triangles):
            is_a, is_b = array == a, array == b
            array[is_a], array[is_b] = b, a
        self.changed()

    @precondition(lambda self: len(self.done) > 1)
    @rule(data=st.data())
    def undo(self, data: st.DataObject) -> None:
        count = data.draw(st.integers(1, len(self.done) - 1))
        self.model.undo(count)
        for _ in range(count):
            self.undone.append(self.done.pop())
        self.plain = self.done[-1][1].copy()

    @precondition(lambda self: bool(self.undone))
    @rule()
    def redo(self) -> None:
        self.model.redo()
        self.done.append(self.undone.pop())
        self.plain = self.done[-1][1].copy()

    @invariant()
    def same(self) -> None:
        if not hasattr(self, "model"):
            return
        nodes, elements = self.model.nodes, self.model.elements["tri3"]
        np.testing.assert_array_equal(nodes.keys, self.plain.keys)
        np.testing.assert_array_equal(nodes.xyz, self.plain.xyz)
        np.testing.assert_array_equal(elements.keys, self.plain.element_keys)
        np.testing.assert_array_equal(elements.nodes, self.plain.triangles)
        np.testing.assert_array_equal(self.plain.keys[elements.nodes.rows], elements.nodes)
        assert self.model.state == self.done[-1][0]
        assert self.model.validate() == ""

    def teardown(self) -> None:
        if hasattr(self, "model"):
            self.model.close()


TestEdits = Edits.TestCase
TestEdits.settings = settings(
    max_examples=40,
    stateful_step_count=20,
    deadline=None,
    database=None,
    derandomize=True,
    suppress_health_check=list(HealthCheck),
)
