"""Mesh sets: named groups of nodes and elements, in a hierarchy, with the algebra of sets."""

from __future__ import annotations

from collections.abc import Iterator, Set
from typing import TYPE_CHECKING, Any, Optional, Union

import numpy as np

from ._errors import MissingError
from ._columns import Keys, as_keys

if TYPE_CHECKING:
    from ._model import Model

_EMPTY = np.empty(0, np.int32)


class KeySet(Set):  # type: ignore[type-arg]
    """A set of keys that cannot be changed: ascending, each once. Behaves like a Python set of
    integers (|, &, -, ^, <=, in, len) and like an int32 array (np.asarray)."""

    def __init__(self, keys: Any = ()) -> None:
        self.keys: Keys = np.unique(as_keys(list(keys) if isinstance(keys, Set) else keys))

    @classmethod
    def _from_iterable(cls, it: Any) -> KeySet:
        return cls(list(it))

    def __contains__(self, key: object) -> bool:
        at = int(np.searchsorted(self.keys, key))  # type: ignore[call-overload]
        return at < len(self.keys) and bool(self.keys[at] == key)

    def __iter__(self) -> Iterator[int]:
        return iter(self.keys.tolist())

    def __len__(self) -> int:
        return len(self.keys)

    def __array__(self, dtype: Any = None, copy: Optional[bool] = None) -> Any:
        return self.keys.astype(dtype or np.int32)

    def __or__(self, other: Any) -> KeySet:
        return KeySet(np.union1d(self.keys, KeySet(other).keys))

    def __and__(self, other: Any) -> KeySet:
        return KeySet(np.intersect1d(self.keys, KeySet(other).keys))

    def __sub__(self, other: Any) -> KeySet:
        return KeySet(np.setdiff1d(self.keys, KeySet(other).keys))

    def __xor__(self, other: Any) -> KeySet:
        return KeySet(np.setxor1d(self.keys, KeySet(other).keys))

    def __eq__(self, other: object) -> bool:
        if isinstance(other, KeySet):
            return bool(np.array_equal(self.keys, other.keys))
        return Set.__eq__(self, other)

    def __hash__(self) -> int:
        return Set._hash(self)

    def __repr__(self) -> str:
        return f"KeySet({self.keys.tolist()!r})"


class Members:
    """Nodes and elements that belong together, of no set in particular: what the algebra of mesh
    sets gives. `model.sets.add(name, members)` makes a set of it."""

    def __init__(self, nodes: Any = (), elements: Any = ()) -> None:
        self._nodes = nodes if isinstance(nodes, KeySet) else KeySet(nodes)
        self._elements = elements if isinstance(elements, KeySet) else KeySet(elements)

    @property
    def nodes(self) -> KeySet:
        """Keys of the nodes."""
        return self._nodes

    @property
    def elements(self) -> KeySet:
        """Keys of the elements."""
        return self._elements

    def __or__(self, other: Members) -> Members:
        return Members(self.nodes | other.nodes, self.elements | other.elements)

    def __and__(self, other: Members) -> Members:
        return Members(self.nodes & other.nodes, self.elements & other.elements)

    def __sub__(self, other: Members) -> Members:
        return Members(self.nodes - other.nodes, self.elements - other.elements)

    def __xor__(self, other: Members) -> Members:
        return Members(self.nodes ^ other.nodes, self.elements ^ other.elements)

    def __repr__(self) -> str:
        return f"<{len(self.nodes)} nodes, {len(self.elements)} elements>"


class MeshSet(Members):
    """One mesh set. What it lists is read from the model at every use; each change is one step."""

    def __init__(self, model: Model, key: int) -> None:
        self._model = model
        self._key = int(key)

    @property
    def key(self) -> int:
        """Its key."""
        return self._key

    @property
    def _record(self) -> Any:
        return self._model.pools["mset"][self._key]

    @property
    def nodes(self) -> KeySet:
        """Keys of its nodes: those that it lists, and those that its rule selects."""
        return KeySet(self._model._core.set_keys(self._key, True))

    @property
    def elements(self) -> KeySet:
        """Keys of its elements: those that it lists, and those that its rule selects."""
        return KeySet(self._model._core.set_keys(self._key, False))

    @property
    def rule(self) -> str:
        """The selection that members follow from, besides those that it lists; "" for none. May be
        assigned: lengths without a unit are in `model.units`, and are kept with their unit. Raises
        ValueError, changing nothing, for a text that is no rule, and where sets would depend on
        themselves."""
        return str(self._model._core.set_rule_of(self._key))

    @rule.setter
    def rule(self, rule: str) -> None:
        self._model._core.set_rule(self._key, rule)

    def to_list(self) -> None:
        """Makes what it has by its rule now its list, and takes the rule away."""
        self._model._core.set_to_list(self._key)

    @property
    def name(self) -> str:
        """Its name, at most 63 characters, one of a kind. May be assigned."""
        return str(self._record.name)

    @name.setter
    def name(self, name: str) -> None:
        self._model._core.set_rename(self._key, name)

    @property
    def color(self) -> int:
        """Its colour, 0x00BBGGRR as all colours of a model. May be assigned."""
        return int(self._record.color)

    @color.setter
    def color(self, color: int) -> None:
        self._record.color = color

    @property
    def parent(self) -> Optional[MeshSet]:
        """The set above it; None at the top. May be assigned: a set, its name or key, or None."""
        key = int(self._record.parent)
        return MeshSet(self._model, key) if key in self._model.pools["mset"] else None

    @parent.setter
    def parent(self, parent: Union[MeshSet, str, int, None]) -> None:
        key = 0 if parent is None else self._model.sets._find(parent)._key
        self._model._core.set_parent(self._key, key)

    @property
    def children(self) -> list[MeshSet]:
        """The sets right below it."""
        pool = self._model.pools["mset"]
        keys = pool.keys[pool.parent[:] == self._key]
        return [MeshSet(self._model, key) for key in keys.tolist()]

    def add(self, members: Optional[Members] = None, *, nodes: Any = (), elements: Any = ()) -> None:
        """Adds members, or nodes and elements by key; elements bring their nodes."""
        more = Members(nodes, elements) if members is None else members
        own: Any = more.nodes
        if len(more.elements):
            used = self._model.elements[more.elements.keys].nodes[:].values
            own = more.nodes | used[used > 0]
        self._model._core.set_members(self._key, own.keys, more.elements.keys, True)

    def discard(
        self, members: Optional[Members] = None, *, nodes: Any = (), elements: Any = ()
    ) -> None:
        """Takes nodes and elements off its lists; what it does not list is passed over."""
        less = Members(nodes, elements) if members is None else members
        self._model._core.set_members(self._key, less.nodes.keys, less.elements.keys, False)

    def merge(self, *others: Union[MeshSet, str, int]) -> None:
        """Takes over the members and children of other sets, which go."""
        keys = [self._model.sets._find(other)._key for other in others]
        self._model._core.set_merge(self._key, as_keys(keys))

    def __ior__(self, other: Members) -> MeshSet:
        self.add(other)
        return self

    def __isub__(self, other: Members) -> MeshSet:
        self.discard(other)
        return self

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, MeshSet):
            return NotImplemented
        return self._model is other._model and self._key == other._key

    def __hash__(self) -> int:
        return hash((id(self._model), self._key))

    def __repr__(self) -> str:
        return f"<mesh set {self._key} {self.name!r}: {len(self.nodes)} nodes, {len(self.elements)} elements>"


class MeshSets:
    """The mesh sets of a model: `model.sets["rib"]` by name, `model.sets[3]` by key; iterating
    gives the sets."""

    def __init__(self, model: Model) -> None:
        self._model = model

    def _find(self, which: Union[MeshSet, str, int]) -> MeshSet:
        pool = self._model.pools["mset"]
        if isinstance(which, MeshSet):
            which = which._key
        if isinstance(which, str):
            keys = pool.keys[pool.name[:] == which]
            if len(keys):
                return MeshSet(self._model, int(keys[0]))
        elif which in pool:
            return MeshSet(self._model, int(which))
        raise MissingError(
            "is not in the model", place=f"mesh set {which!r}", remedy="see list(model.sets)"
        )

    def __getitem__(self, which: Union[str, int]) -> MeshSet:
        return self._find(which)

    def __contains__(self, which: object) -> bool:
        pool = self._model.pools["mset"]
        if isinstance(which, str):
            return bool((pool.name[:] == which).any())
        return which in pool

    def __iter__(self) -> Iterator[MeshSet]:
        for key in self._model.pools["mset"].keys.tolist():
            yield MeshSet(self._model, key)

    def __len__(self) -> int:
        return len(self._model.pools["mset"])

    @property
    def names(self) -> list[str]:
        """The names, in the order of the sets."""
        return [str(name) for name in self._model.pools["mset"].name[:]]

    @property
    def top(self) -> list[MeshSet]:
        """The sets without a set above them."""
        return [s for s in self if s.parent is None]

    def add(
        self,
        name: str,
        members: Optional[Members] = None,
        *,
        nodes: Any = (),
        elements: Any = (),
        parent: Union[MeshSet, str, int, None] = None,
    ) -> MeshSet:
        """Adds a set as one step, with members or with nodes and elements by key; elements bring
        their nodes. Refused for a name that is empty, too long or in use."""
        above = 0 if parent is None else self._find(parent)._key
        with self._model.step(f"Add mesh set {name}"):
            made = MeshSet(self._model, self._model._core.set_add(name, above))
            if members is not None or np.size(nodes) or np.size(elements):
                made.add(members, nodes=nodes, elements=elements)
        return made

    def delete(self, *sets: Union[MeshSet, str, int]) -> None:
        """Deletes sets with those of their nodes and elements that no remaining set lists."""
        self._model._core.set_delete(as_keys([self._find(s)._key for s in sets]))

    def rebuild(self, gather: bool = False) -> None:
        """Brings the lists in line with the mesh; with `gather`, what is in no set goes to the
        default one."""
        self._model._core.set_rebuild(gather)

    def __repr__(self) -> str:
        return f"<mesh sets: {', '.join(self.names)}>"
