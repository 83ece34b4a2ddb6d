"""Questions about the mesh, mesh sets, systems, materials, gateway, seeding, probe, units."""

from __future__ import annotations

from operator import attrgetter
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import qxdb
from conftest import SOURCE


def test_selections_are_keys_of_what_the_text_says(cube: qxdb.Model) -> None:
    low = cube.select("z < 1.5")
    assert low.dtype == np.int32 and low.tolist() == [1, 3, 5, 7]
    nodes = cube.select("x = 0", kind="nodes")
    assert sorted(nodes.tolist()) == sorted(
        cube.nodes.keys[np.asarray(cube.nodes.xyz)[:, 0] == 0].tolist()
    )
    assert cube.select("nodes unused").shape == (0,)
    faces = cube.select("faces surface and facing 0,0,-1 5deg")
    assert faces.shape == (4, 2) and set(faces[:, 0].tolist()) == {1, 3, 5, 7}
    with pytest.raises(ValueError, match="column 5: .*did you mean box"):
        cube.select("not bx 0,0,0 1,1,1")
    with pytest.raises(qxdb.MissingError, match='no mesh set "roof"'):
        cube.select("set roof")
    with pytest.raises(ValueError, match="none of"):
        cube.select("all", kind="edges")


def test_measures_of_a_block(cube: qxdb.Model) -> None:
    np.testing.assert_allclose(cube.elements.sizes, 1)
    np.testing.assert_allclose(cube.elements.volumes, 1)
    corner = cube.nodes.xyz[:][cube.elements["hex8"].nodes.rows].mean(axis=1)
    np.testing.assert_allclose(cube.elements.centers, corner)
    np.testing.assert_allclose(cube.elements["hex8"].axes(), np.broadcast_to(np.eye(3), (8, 3, 3)))
    for measure in qxdb.measures():
        values = cube.elements.quality(measure.name)
        assert values.shape == (8,)
        if measure.acceptable is not None and not np.isnan(values).all():
            good = values <= measure.acceptable + 1e-9 if measure.high_is_bad else values >= 0
            assert good.all(), measure.name
    assert len(cube.free_faces().elements) == 24 and cube.parts().max() == 0
    report = cube.mass(density=2.0)
    assert report.total.mass == pytest.approx(16) and report.without_density == 0
    np.testing.assert_allclose(report.total.center, 1)
    np.testing.assert_allclose(report.total.inertia, np.eye(3) * 16 * 8 / 12, atol=1e-12)
    assert cube.mass().without_density == 8
    some = cube.elements[[3, 1]]
    np.testing.assert_array_equal(some.centers, cube.elements.centers[[2, 0]])
    with pytest.raises(qxdb.ValueFault):
        cube.elements.quality("beauty")


def test_a_summary_tells_of_its_own_elements(bracket: qxdb.Model) -> None:
    for elements in (bracket.elements, bracket.elements["tet10"], bracket.elements[[1, 5, 9]]):
        values = elements.quality("aspect-ratio")
        rated = values[~np.isnan(values)]
        summary = elements.quality_summary("aspect-ratio", bins=5, worst=3)
        assert (summary.elements, summary.unbounded) == (len(rated), 0)
        assert summary.outside == (rated > 4 * (1 + 1e-9)).sum()
        assert summary.best == rated.min() and summary.mean == pytest.approx(rated.mean())
        bars = summary.histogram
        assert 1 <= len(bars) <= 5 and bars["count"].sum() == len(rated)
        for low, high, count, _ in bars[1:-1]:
            assert count == ((rated >= low) & (rated < high)).sum()
        assert [value for value, _ in summary.worst] == sorted(rated, reverse=True)[:3]
        for value, key in summary.worst:
            assert elements[[key]].quality("aspect-ratio") == [value]
    for bins, worst in ((0, 1), (1, -1)):
        with pytest.raises(qxdb.ValueFault):
            bracket.elements.quality_summary("shape", bins, worst)


def test_findings_and_repair(cube: qxdb.Model) -> None:
    assert not any(f.is_fault and len(f.keys) for f in cube.findings().values())
    with cube.step("spoil"):
        keys = cube.nodes.insert(cube.nodes.xyz[:3] + 1e-7)
        cube.elements["hex8"].nodes[0] = cube.elements["hex8"].nodes[0][[4, 5, 6, 7, 0, 1, 2, 3]]
    found = cube.findings(tolerance=1e-6)
    assert found["inverted-solids"].keys.tolist() == [1]
    assert set(found["duplicate-nodes"].keys.tolist()) == set(keys.tolist())
    done = cube.repair(merge_nodes=1e-6, inverted_solids=True)
    assert (done["nodes_merged"], done["solids_turned"]) == (3, 1)
    assert len(cube.nodes) == 27 and (cube.elements.sizes > 0).all()
    assert done["left_behind"] == []
    # Both the element and its duplicate have factors, of which one pair can stay.
    twin = cube.elements.insert("hex8", nodes=cube.elements["hex8"].nodes[2:3])
    cube.pools["e3dscalefac"].insert(2, keys=[3, twin[0]], rho=[3, 9])
    done = cube.repair(duplicate_elements=True)
    assert done["elements_removed"] == 1
    assert [(a, b, c.lower()) for a, b, c in done["left_behind"]] == [(twin[0], 3, "e3dscalefac")]


def test_mesh_sets_are_sets(bracket: qxdb.Model) -> None:
    sets = bracket.sets
    foot, whole = sets["foot"], sets["bracket"]
    assert foot.elements <= whole.elements or foot.elements.isdisjoint(whole.elements)
    both, rest = foot | whole, whole - foot
    assert both.elements == foot.elements | whole.elements
    assert set(rest.elements) == set(whole.elements) - set(foot.elements)
    upper = sets.add("rest", rest, parent="bracket")
    assert upper.elements == rest.elements and upper.parent == whole
    assert upper in whole.children
    used = bracket.elements[upper.elements.keys].nodes[:].values
    assert upper.nodes >= qxdb.KeySet(used)
    upper.name = "the rest"
    assert "the rest" in sets and "rest" not in sets
    first = upper.elements.keys[:5]
    upper.discard(elements=first)
    assert not set(first) & set(upper.elements)
    upper |= qxdb.Members(elements=first)
    assert set(first) <= set(upper.elements)
    steps = len(bracket.history)
    for act in (
        lambda: sets.add("the rest"),
        lambda: sets.add(""),
        lambda: setattr(whole, "parent", upper),
        lambda: sets["nobody"],
        lambda: sets.add("x", elements=[10**9]),
    ):
        state = bracket.state
        with pytest.raises(qxdb.Error) as caught:
            act()
        assert bracket.state == state and caught.value.remedy
    assert len(bracket.history) == steps
    nodes = len(bracket.nodes)
    sets.delete(upper)
    assert "the rest" not in sets and len(bracket.nodes) == nodes


def test_coordinate_systems() -> None:
    model = qxdb.new()
    (key,) = model.systems.insert(
        name="hub", type=1, origin=[1, 0, 0], pt_axis=[1, 0, 1], pt_plain=[2, 0, 0]
    )
    frame = model.systems.frame(key)
    np.testing.assert_allclose(frame.origin, [1, 0, 0])
    points = np.array([[2.0, 0, 5], [1, 3, 0]])
    there = model.systems.from_global(key, points)
    np.testing.assert_allclose(model.systems.to_global(key, there), points, atol=1e-12)
    np.testing.assert_allclose(model.systems.from_global(0, points), points)
    with pytest.raises(qxdb.MissingError):
        model.systems.frame(77)
    with pytest.raises(qxdb.ValueFault):
        model.systems.to_global(key, [1, 2, 3])


def test_a_preview_tells_what_turns() -> None:
    model = qxdb.new()
    model.update(
        {
            "NODE": {"1": {"POS": [0, 0, 0]}, "2": {"POS": [1, 0, 0]}},
            "ELEM": {"7": {"TYPE": 2, "NODE_KEY_ARRAY": [1, 2]}},
            "ECRD": {"7": {"ELEM_TYPE": 2, "TYPE": 1, "REF": [0, 3, 4]}},
        }
    )
    (turn,) = model.pools["ECRD"].preview_removal(7).turns
    assert turn.element == model.elements[7]
    assert turn.before is not None and turn.after is not None
    assert turn.before.shape == turn.after.shape == (3, 3)
    assert abs(turn.before - turn.after).max() > 0.1
    with pytest.raises(qxdb.RefusedError, match="would turn 1 elements: 7; orient them first"):
        model.pools["ECRD"].remove(7, turns=False)
    assert len(model.pools["ECRD"]) == 1
    model.pools["ECRD"].remove(7)
    assert len(model.pools["ECRD"]) == 0


def test_records_of_another_model(tmp_path: Path, cube: qxdb.Model) -> None:
    (steel,) = cube.materials.insert(name="steel", density=7850.0)
    (plate,) = cube.properties.insert(name="plate", material=steel)
    cube.elements[3].property = plate
    cube.save(tmp_path / "cube.qxm")
    model = qxdb.new("mm")
    before = model.state
    would = model.import_model(tmp_path / "cube.qxm", ["elem"], dry_run=True)
    assert model.state == before and would.keys["elem"].keys() == set(range(1, 9))
    model.nodes.insert([[0, 0, 0]], keys=[7])
    came = model.import_model(tmp_path / "cube.qxm", {"elem": [3]})
    assert came.keys["elem"] == {3: 1} and len(came.keys["node"]) == 8
    np.testing.assert_allclose(
        model.nodes[list(came.keys["node"].values())].xyz,
        1000 * cube.nodes[list(came.keys["node"])].xyz[:],
    )
    (element,) = model.elements
    assert element.property.material.name == "steel"
    assert [s.name for s in model.history][-1].startswith("Import ")
    with pytest.raises(qxdb.Error, match="99"):
        model.import_model(tmp_path / "cube.qxm", {"elem": [99]})
    model.undo()
    assert len(model.elements) == 0 and model.validate() == ""


def test_gateway_as_dicts(cube: qxdb.Model) -> None:
    document = cube.to_dict("node")
    assert list(document) == ["NODE"] and len(document["NODE"]) == 27
    state = cube.state
    cube.update(document)
    assert cube.state == state
    cube.update({"NODE": {"5": {"POS": [9.0, 8.0, 7.0]}, "99": {"POS": np.array([1.0, 2, 3])}}})
    np.testing.assert_array_equal(cube.nodes[[5, 99]].xyz, [[9, 8, 7], [1, 2, 3]])
    assert cube.update({"NODE": {"5": {"COLOUR": 3}}})
    wrong: list[dict[str, Any]] = [
        {"NODE": {"5": {"POS": [float("nan")] * 3}}},
        {"NODE": {"5": {"POS": object()}}},
    ]
    for bad in wrong:
        with pytest.raises(qxdb.ValueFault):
            cube.update(bad)
    with pytest.raises(qxdb.RefusedError):
        cube.update({"NODE": {"5": {"COLOUR": 3}}}, strict=True)
    assert "NODE" in str(cube.json_schema())


def test_materials_go_into_a_model() -> None:
    folder = SOURCE / "examples" / "materials"
    file = next(f for f in sorted(folder.iterdir()) if f.suffix in (".gdbp", ".txt"))
    library = qxdb.materials(file)
    assert library and library[0].values
    model = qxdb.new("mm")
    keys = model.add_materials(*library)
    assert len(keys) == len(library) and len(model.history) == 1
    steel = max(library, key=lambda m: m.values["elastic modulus"].values)
    stored = model.materials[int(keys[library.index(steel)])]
    assert stored.name == steel.name
    in_model = steel["elastic modulus"].to("N/mm^2").values
    assert stored.elastic_modulus == pytest.approx(float(in_model))
    with pytest.raises(qxdb.MissingError):
        library.named("unobtainium")


def test_units_and_quantities(bracket: qxdb.Model) -> None:
    assert bracket.units["length"] == "mm" and bracket.nodes.xyz.unit == "mm"
    np.testing.assert_allclose(bracket.nodes.xyz.to("in") * 25.4, bracket.nodes.xyz)
    assert float(qxdb.convert(1, "N/mm^2", "N/m^2")) == pytest.approx(1e6)
    assert float(qxdb.convert(100, "C", "F")) == pytest.approx(212)
    assert qxdb.Quantity(1, "in") + qxdb.Quantity(25.4, "mm") == qxdb.Quantity(2, "in")
    assert bracket.units.of("stress") == "N/mm^2"
    for bad in (lambda: qxdb.convert(1, "mm", "N"), lambda: qxdb.Quantity(1, "furlong")):
        with pytest.raises(qxdb.ValueFault):
            bad()
    with pytest.raises(qxdb.ValueFault, match="second unit"):
        qxdb.new("mm", "in")
    with qxdb.read(SOURCE / "examples" / "bracket.msh", units="m") as metres:
        assert metres.nodes.xyz.max() == bracket.nodes.xyz.max()
    model = qxdb.new()
    model.read(SOURCE / "examples" / "bracket.msh", "mm")
    np.testing.assert_allclose(model.nodes.xyz * 1000, bracket.nodes.xyz)
    assert model.units.current["length"] == "m"


def test_seeding() -> None:
    curves = qxdb.Curves()
    line = curves.line([0, 0, 0], [10, 0, 0])
    arc = curves.arc([0, 0, 0], [0, 0, 1], [2, 0, 0], 90)
    assert len(curves) == 2 and curves.length(arc) == pytest.approx(np.pi)
    even = curves.seed(line, "divisions", divisions=5)
    np.testing.assert_allclose(even.points[:, 0], np.linspace(0, 10, 6))
    graded = curves.seed(line, "linear", first=0.5, last=2)
    steps = np.diff(graded.fractions)
    assert (np.diff(steps) > 0).all() and graded.fractions[-1] == pytest.approx(1)
    mirrored = curves.seed(line, "linear", first=0.5, last=2, reversed=True)
    np.testing.assert_allclose(np.diff(mirrored.fractions), steps[::-1], rtol=1e-9)
    at = curves.seed(arc, "positions", at=[0.25, 0.5])
    np.testing.assert_allclose(at.fractions, [0, 0.25, 0.5, 1], atol=1e-9)
    for bad in (
        lambda: curves.seed(line, "divisions", divisions=0),
        lambda: curves.seed(line, "size", size=-1),
        lambda: curves.seed(line, "size", divisions=3),
        lambda: curves.seed(line, "luck"),
        lambda: curves.seed(9, "divisions", divisions=2),
        lambda: curves.line([0, 0], [1, 1, 1]),
        lambda: curves.line([0, 0, np.nan], [1, 1, 1]),
    ):
        with pytest.raises(qxdb.Error) as caught:
            bad()
        assert caught.value.fault


def test_probe_says_why() -> None:
    with pytest.raises(qxdb.FileError) as caught:
        qxdb.probe("http://127.0.0.1:9/")
    assert caught.value.fault and caught.value.remedy


def test_units_are_those_named_or_those_of_the_file(tmp_path: Path, cube: qxdb.Model) -> None:
    cube.write(tmp_path / "cube.inp")
    assumed = "lengths were taken as"
    with qxdb.read(tmp_path / "cube.inp", units="mm") as model:
        assert model.units["length"] == "mm" and not any(assumed in n for n in model.notes)
        np.testing.assert_allclose(model.nodes.xyz, cube.nodes.xyz)
    with qxdb.read(tmp_path / "cube.inp") as model:
        assert model.units["length"] == "m" and any(assumed in n for n in model.notes)
    with qxdb.new("mm") as model:
        model.read(tmp_path / "cube.inp", "in")
        assert model.units["length"] == model.units.current["length"] == "mm"
        np.testing.assert_allclose(model.nodes.xyz, 25.4 * cube.nodes.xyz)


def test_files_of_others(tmp_path: Path, bracket: qxdb.Model) -> None:
    for kind in (f for f in qxdb.formats() if f.writes):
        target = tmp_path / f"bracket{kind.extension}"
        bracket.write(target)
        assert target.stat().st_size > 1000
        if kind.reads and "surface" not in kind.what:  # those have no nodes within
            with qxdb.read(target, units="mm") as again:
                # Bulk data has fields of 16 columns, and no place for mesh sets.
                bulk_data = kind.what.startswith("Nastran")
                np.testing.assert_allclose(
                    again.nodes.xyz, bracket.nodes.xyz, rtol=0, atol=1e-13 if bulk_data else 0
                )
                assert again.elements.counts() == bracket.elements.counts()
                if not bulk_data:
                    # The groups of a MED file stand in no order.
                    place = "name" if kind.what == "MED" else "key"
                    sets = [sorted(m.sets, key=attrgetter(place)) for m in (again, bracket)]
                    assert [s.elements for s in sets[0]] == [s.elements for s in sets[1]]
