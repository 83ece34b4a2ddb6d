// What follows from an edit by the rows: keys that follow, records that go or are reset, and a
// preview that leaves no trace.

#include <gtest/gtest.h>
#include <set>

#include "qx_db/bulk/model_import.h"
#include "qx_db/core/belongings.h"
#include "qx_db/core/document.h"
#include "qx_db/core/model_file.h"
#include "qx_db/core/read_snapshot.h"
#include "qx_db/model/deletion.h"
#include "qx_db/platform/file.h"

#include "tests/model/mesh_model.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

template <class P>
void GiveKey(P& pool, ITR item, Key key) {
  auto record = pool.GetAtNU(item);
  record.key = key;
  ASSERT_EQ(pool.SetAtNU(item, record), 1);
}

/// Lines with orientations by the angle of their first key, and with special properties.
struct Turned : MeshModel {
  explicit Turned(Key count) {
    Node(1, 0, 0, 0);
    Node(2, 1, 0, 0);
    for (Key key = 1; key <= count; ++key) {
      items.push_back(Element(key, 2, {1, 2}));
      tagTEcrd record;
      record.key = key;
      record.method = tagTEcrd::kByBetaAngle;
      record.beta_angle_deg = key;
      orientations.InsertNU(record);
    }
  }
  double AngleOf(std::size_t i) {
    tagTEcrd record;
    EXPECT_EQ(elements.GetElemCSys(items[i], record), 1);
    return record.beta_angle_deg;
  }
  std::vector<ITR> items;
};

TEST(Following, ExchangedKeysKeepWhatBelongsToThemWhateverComesBetween) {
  for (const bool second_goes : {false, true}) {
    Turned m(3);
    const std::uint64_t before = m.session.StateHash();
    ASSERT_EQ(m.Step([&] {
      GiveKey(m.elements, m.items[0], 2);
      EXPECT_EQ(m.AngleOf(0), 1);
      EXPECT_EQ(m.AngleOf(1), 2) << "both have key 2 now";
      m.Node(9, 5, 5, 5);  // something else
      tagTElem other = m.elements.GetAtNU(m.items[2]);
      other.flags = 7;
      m.elements.SetAtNU(m.items[2], other);
      tagTEcrd turned = m.orientations.GetAtNU(m.orientations.Find(3));
      m.orientations.SetAtNU(m.orientations.Find(3), turned);
      if (second_goes) {
        m.elements.Remove(m.items[1]);
      } else {
        GiveKey(m.elements, m.items[1], 1);
      }
    }),
              1);
    EXPECT_EQ(m.AngleOf(0), 1);
    EXPECT_EQ(m.orientations.GetSize(), second_goes ? 2 : 3);
    if (!second_goes) {
      EXPECT_EQ(m.AngleOf(1), 2);
    }
    EXPECT_EQ(m.AngleOf(2), 3);
    EXPECT_EQ(m.session.Validate(), "");
    const std::uint64_t after = m.session.StateHash();
    m.session.Undo();
    EXPECT_EQ(m.session.StateHash(), before);
    m.session.Redo();
    EXPECT_EQ(m.session.StateHash(), after);
  }
}

TEST(Following, ARingOfKeysTurnsWithAllThatBelongsToIt) {
  constexpr Key kElements = 200;
  Turned m(kElements);
  ASSERT_EQ(m.Step([&] {
    for (Key key = 1; key <= kElements; ++key) {
      GiveKey(m.elements, m.items[static_cast<std::size_t>(key - 1)], key % kElements + 1);
      if (key % 3 == 0) m.Node(1000 + key, 0, 0, 0);
    }
  }),
            1);
  for (std::size_t i = 0; i < kElements; ++i) {
    EXPECT_EQ(m.AngleOf(i), static_cast<double>(i + 1));
    EXPECT_EQ(KeyOf(m.session.Owned().Find(code::kEcrd, m.items[i])), KeyOf(m.items[i]));
  }
  EXPECT_EQ(m.session.Validate(), "");
}

TEST(Following, TwoRecordsOfOneKeyAreRefusedByName) {
  Turned m(3);
  const std::uint64_t before = m.session.StateHash();
  const Listening sink;
  EXPECT_EQ(m.Step([&] { GiveKey(m.elements, m.items[0], 2); }), 0);
  ASSERT_EQ(sink.heard.size(), 1u);
  EXPECT_TRUE(sink.heard[0] == "IDS_QX_DB_KEY_SHARED ELEM 1 2 2" ||
              sink.heard[0] == "IDS_QX_DB_KEY_SHARED ELEM 2 1 2")
      << sink.heard[0];
  EXPECT_EQ(m.session.StateHash(), before);
}

/// What lies under a key without an owner is not taken for that of who takes the key; who is made
/// under it has what was stored for it.
TEST(Following, WhoTakesAKeyTakesNoOrphan) {
  for (const bool with_own : {false, true}) {
    for (const int how : {0, 1, 2}) {  // renumbered, new, new with what the step brings for it
      Turned m(3);
      tagTEcrd orphan;
      orphan.key = 50;
      orphan.method = tagTEcrd::kByBetaAngle;
      orphan.beta_angle_deg = 77;
      const ITR there = m.orientations.InsertNU(orphan);
      m.Keyed<tagTSprop>(50);
      if (!with_own) m.Step([&] { m.orientations.Remove(m.orientations.Find(1)); });
      const std::uint64_t before = m.session.StateHash();
      ITR element = m.items[0];
      ASSERT_EQ(m.Step([&] {
        if (how == 0) GiveKey(m.elements, element, 50);
        if (how == 1) element = m.Element(50, 2, {1, 2});
        if (how != 2) return;
        orphan.beta_angle_deg = 5;
        m.orientations.SetAtNU(there, orphan);
        element = m.Element(50, 2, {1, 2});
      }),
                1);
      tagTEcrd found;
      const bool has = how != 0 || with_own;
      ASSERT_EQ(m.elements.GetElemCSys(element, found), has) << with_own << how;
      const double beta[] = {1, 77, 5};
      if (has) {
        EXPECT_EQ(+found.beta_angle_deg, beta[how]);
      }
      EXPECT_EQ(Pool<tagTSprop>(m.session).IsEmpty(), how == 0);
      EXPECT_EQ(m.session.Validate(), "");
      m.session.Undo();
      EXPECT_EQ(m.session.StateHash(), before);
    }
  }
}

TEST(Following, TheDefaultMeshSetKeepsItsKey) {
  MeshModel m;
  auto& sets = Pool<tagTMset>(m.session);
  sets.AddDefault();
  const ITR set = sets.DefaultItr();
  const Listening sink;
  EXPECT_EQ(m.Step([&] { GiveKey(sets, set, 7); }), 0);
  EXPECT_EQ(sink.heard, std::vector<std::string>{"IDS_QX_DB_MSET_DEFAULT 1"});
  EXPECT_EQ(sets.TR_Del_EmptyMset(), 1);
  EXPECT_EQ(sets.DefaultItr(), set);
  // It goes when that is what is asked for, and a new one can be made.
  for (const bool under_another_key : {false, true}) {
    ASSERT_EQ(m.Step([&] {
      if (under_another_key) GiveKey(sets, sets.DefaultItr(), 7);
      EXPECT_EQ(sets.Private_Del(TArray<ITR>{sets.GetHeadPosition()}), 1);
    }),
              1);
    EXPECT_TRUE(sets.IsEmpty());
    EXPECT_EQ(sets.RebuildMeshset(1), 1);
    EXPECT_NE(sets.DefaultItr(), 0u);
  }
}

// ---- coordinate systems -------------------------------------------------------------------------

TEST(Following, ABeamWhoseSystemGoesStaysOnItsLine) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 1, 2, 3);
  const ITR element = m.Element(1, 2, {1, 2});
  tagTCord system;
  system.key = 8;
  system.method = tagTCord::kByPoints;
  system.axis_point = {1, 2, 3};
  system.plane_point = {0, 1, 0};
  const ITR turned = m.systems.InsertNU(system);
  tagTEcrd record;
  record.key = 1;
  record.element_type = 2;
  record.method = tagTEcrd::kByCoordinateSystem;
  record.coordinate_system = turned;
  const ITR orientation = m.orientations.InsertNU(record);
  const std::vector<ITR> asked = {turned};
  const DeletionPreview preview = PreviewDeletion(m.session, code::kCord, asked);
  ASSERT_EQ(preview.consequences.size(), 2u);
  EXPECT_EQ(preview.consequences[1].effect, Effect::kReset);
  EXPECT_EQ(preview.consequences[1].item, orientation);
  EXPECT_EQ(preview.consequences[1].cause, turned);
  ASSERT_EQ(preview.turns.size(), 1u);
  EXPECT_EQ(preview.turns[0].element, element);
  double axes[3][3];
  ASSERT_EQ(m.elements.GetElemLocalVector(element, axes), 1);
  EXPECT_TRUE(std::equal(&axes[0][0], &axes[0][0] + 9, &preview.turns[0].before[0][0]));
  ASSERT_EQ(DeleteRecords(m.session, code::kCord, asked), 1);
  ASSERT_EQ(m.elements.GetElemLocalVector(element, axes), 1);
  EXPECT_TRUE(std::equal(&axes[0][0], &axes[0][0] + 9, &preview.turns[0].after[0][0]));
  EXPECT_NEAR(axes[0][1], 2 / std::sqrt(14.0), 1e-15) << "local x is along the beam";
}

// ---- parts of another model ---------------------------------------------------------------------

/// A mesh whose property 1 and system 5 are named after it; property 2 and system 6 are the same
/// everywhere.
struct Ship : MeshModel {
  explicit Ship(const char16_t* name) {
    for (Key key = 1; key <= 4; ++key) Node(key, key, key * key, 0);
    systems.AddDefault();
    tagTDatum property;
    property.key = 1;
    property.name.Set(name);
    properties.InsertNU(property);
    property.key = 2;
    property.name.Set(u"steel");
    properties.InsertNU(property);
    tagTCord system;
    system.key = 5;
    system.name.Set(name);
    system.axis_point = {1, static_cast<double>(std::u16string_view(name).size()), 0};
    system.plane_point = {0, 1, 0};
    systems.InsertNU(system);
    system.key = 6;
    system.name.Set(u"slip");
    system.axis_point = {0, 0, 1};
    systems.InsertNU(system);
    for (Key key = 1; key <= 3; ++key) {
      Element(key, 2, {key, key + 1}, properties.Find(key == 2 ? 2 : 1));
    }
    tagTEcrd turned;
    turned.key = 1;
    turned.element_type = 2;
    turned.method = tagTEcrd::kByCoordinateSystem;
    turned.coordinate_system = systems.Find(5);
    orientations.InsertNU(turned);
    tagTGeom geometry;
    geometry.key = 1;
    geometry.name.Set(name);
    const ITR solid = Pool<tagTGeom>(session).InsertNU(geometry);
    tagTGKey edge;
    for (edge.key = 1; edge.key <= 2; ++edge.key) {
      edge.geometry = edge.key == 1 ? solid : 0;
      Pool<tagTGKey>(session).InsertNU(edge);
    }
    tagTSzct control;
    control.key = 2;
    control.edges = {Pool<tagTGKey>(session).Find(1), Pool<tagTGKey>(session).Find(2)};
    control.locked = {1, 0};
    Pool<tagTSzct>(session).InsertNU(control);
    tagTMset set;
    set.key = 7;
    set.name.Set(name);
    set.geometry = solid;
    set.parent_key = 8;
    set.elements = {elements.Find(1), elements.Find(2)};
    set.nodes = {nodes.Find(1), nodes.Find(2), nodes.Find(3)};
    Pool<tagTMset>(session).InsertNU(set);
    set.key = 8;
    set.name.Set(u"above");
    set.geometry = 0;
    set.parent_key = 0;
    set.elements = {elements.Find(3)};
    Pool<tagTMset>(session).InsertNU(set);
    tagTE2DThick thickness;
    thickness.key = 3;
    thickness.elements = {elements.Find(3), elements.Find(1)};
    Pool<tagTE2DThick>(session).InsertNU(thickness);
    thickness.key = 4;
    thickness.elements = {elements.Find(3)};
    Pool<tagTE2DThick>(session).InsertNU(thickness);
    tagTMeshCsys assignment;
    for (const Key of : {7, 8}) {
      assignment.key = of;
      assignment.mesh_set = Pool<tagTMset>(session).Find(of);
      assignment.coordinate_system = systems.Find(6);
      Pool<tagTMeshCsys>(session).InsertNU(assignment);
    }
  }
};

TEST(Parts, BringWhatIsTheirsAndJoinOnlyWhatIsEqual) {
  for (const bool keep_keys : {false, true}) {
    const ScratchFolder folder;
    const std::string file = folder.Path("wing.qxm");
    {
      Ship wing(u"wing skin");
      ASSERT_TRUE(SaveModel(wing.session, file));
    }
    Ship hull(u"hull");
    if (keep_keys) {  // room for their mesh
      hull.Step([&] {
        for (const ITR item : {hull.elements.Find(1), hull.elements.Find(2)}) {
          hull.elements.Remove(item);
        }
        for (Key key = 1; key <= 3; ++key) GiveKey(hull.nodes, hull.nodes.Find(key), 100 + key);
      });
    }
    auto& sets = Pool<tagTMset>(hull.session);
    const std::uint64_t before = hull.session.StateHash();
    TArray<Key> keys;
    CStringArray names;
    ASSERT_EQ(sets.LoadExtDB(Utf16(file).c_str(), keys, names), 1);
    ASSERT_EQ(sets.TR_Import({7}, keep_keys, 0, 0), 1);
    const tagTMset& set = sets.GetAtNU(sets.GetItr(u"wing skin"));
    EXPECT_EQ(set.parent_key, 0) << "what is above a part stays where it is";
    EXPECT_EQ(sets.GetSize(), 3);
    ASSERT_EQ(set.elements.GetSize(), 2);
    EXPECT_EQ(KeyOf(set.elements[0]), keep_keys ? 1 : 4);
    const tagTElem& first = hull.elements.GetAtNU(set.elements[0]);
    const tagTElem& second = hull.elements.GetAtNU(set.elements[1]);
    EXPECT_EQ(KeyOf(first.property), 3) << "another property 1";
    EXPECT_EQ(Utf8(hull.properties.GetAtNU(first.property).name.View()), "wing skin");
    EXPECT_EQ(KeyOf(second.property), 2);
    tagTEcrd turned;
    ASSERT_EQ(hull.elements.GetElemCSys(set.elements[0], turned), 1);
    EXPECT_EQ(Utf8(hull.systems.GetAtNU(turned.coordinate_system).name.View()), "wing skin");
    // Attributes come with their part of the mesh, and no other.
    auto& thicknesses = Pool<tagTE2DThick>(hull.session);
    ASSERT_EQ(thicknesses.GetSize(), 3);
    ITR last = thicknesses.Set().GetTailPosition();
    EXPECT_EQ(KeyOf(last), 5);
    EXPECT_EQ(thicknesses.GetAtNU(last).elements, (TArray<ITR>{set.elements[0]}));
    auto& assignments = Pool<tagTMeshCsys>(hull.session);
    ASSERT_EQ(assignments.GetSize(), 3);
    last = assignments.Set().GetTailPosition();
    EXPECT_EQ(+assignments.GetAtNU(last).mesh_set, sets.GetItr(u"wing skin"));
    EXPECT_EQ(KeyOf(assignments.GetAtNU(last).coordinate_system), 6) << "the same here";
    // And so do the settings of its geometry.
    auto& controls = Pool<tagTSzct>(hull.session);
    ASSERT_EQ(controls.GetSize(), 2);
    const tagTSzct& control = controls.GetAtNU(controls.Set().GetTailPosition());
    ASSERT_EQ(control.edges.GetSize(), 1);
    EXPECT_EQ(control.locked, (TArray<std::int32_t>{1}));
    EXPECT_EQ(+Pool<tagTGKey>(hull.session).GetAtNU(control.edges[0]).geometry, +set.geometry);
    EXPECT_EQ(Utf8(Pool<tagTGeom>(hull.session).GetAtNU(set.geometry).name.View()), "wing skin");
    EXPECT_EQ(Pool<tagTGKey>(hull.session).GetSize(), 3);
    std::set<std::string> told;
    for (const auto& clash : sets.LastImport()->clashes) told.insert(clash.Line(hull.session));
    EXPECT_TRUE(told.contains("PROP 1: the model has another of this key; came as 3"));
    EXPECT_TRUE(told.contains("PROP 2: the model has the same and keeps that"));
    EXPECT_TRUE(told.contains("CORD 5: the model has another of this key; came as 7"));
    EXPECT_TRUE(told.contains("CORD 6: the model has the same and keeps that"));
    EXPECT_EQ(told.size(), 9u) << "and of the attributes and the geometry";
    EXPECT_EQ(hull.session.Validate(), "");
    hull.session.Undo();
    EXPECT_EQ(hull.session.StateHash(), before);
  }
}

TEST(Parts, DoNotTakeTheirOwnForTheModels) {
  const ScratchFolder folder;
  const std::string file = folder.Path("wing.qxm");
  Ship wing(u"wing");
  wing.Step([&] {  // one content under the two keys that come, the second the next of the model
    auto property = wing.properties.GetAtNU(wing.properties.Find(1));
    property.key = 3;
    wing.properties.SetAtNU(wing.properties.Find(2), property);
  });
  ASSERT_TRUE(SaveModel(wing.session, file));
  Ship hull(u"hull");
  auto& sets = Pool<tagTMset>(hull.session);
  TArray<Key> keys;
  CStringArray names;
  ASSERT_EQ(sets.LoadExtDB(Utf16(file).c_str(), keys, names), 1);
  ASSERT_EQ(sets.TR_Import({7}, 0, 0, 0), 1);
  const tagTMset& set = sets.GetAtNU(sets.GetItr(u"wing"));
  EXPECT_EQ(KeyOf(hull.elements.GetAtNU(set.elements[0]).property), 4);
  EXPECT_EQ(KeyOf(hull.elements.GetAtNU(set.elements[1]).property), 3);
}

/// A system that counts from another is compared when that one has come.
TEST(Parts, JoinSystemsThatCountFromOthers) {
  const ScratchFolder folder;
  const std::string file = folder.Path("ship.qxm");
  Ship ship(u"ship");
  ship.Step([&] {
    tagTCord system = ship.systems.GetAtNU(ship.systems.Find(6));
    system.reference = ship.systems.Find(5);
    ship.systems.SetAtNU(ship.systems.Find(6), system);
  });
  ASSERT_TRUE(SaveModel(ship.session, file));
  const std::int32_t systems = ship.systems.GetSize();
  auto& sets = Pool<tagTMset>(ship.session);
  TArray<Key> keys;
  CStringArray names;
  ASSERT_EQ(sets.LoadExtDB(Utf16(file).c_str(), keys, names), 1);
  ASSERT_EQ(sets.TR_Import({7}, 0, 0, 0), 1);
  EXPECT_EQ(ship.systems.GetSize(), systems);
}

/// The same lengths in other units differ by rounding; numbers that no conversion touches are
/// compared bit for bit.
TEST(Parts, JoinWhatDiffersByTheRoundingOfUnitsOnly) {
  for (const int other : {0, 1, 2}) {  // nothing, a direction by one bit, a length beyond rounding
    const ScratchFolder folder;
    const std::string file = folder.Path("mm.qxm");
    const auto fill = [&](Ship& ship, double scale, bool changed) {
      ship.Step([&] {
        tagTCord system = ship.systems.GetAtNU(ship.systems.Find(6));
        system.axis_point = {12.3456 * scale, 45.678 * scale, 0.1 * scale};
        system.plane_point = {0, 0.3 * scale, 0};
        if (changed && other == 2) system.axis_point.x *= 1 + 1e-14;
        ship.systems.SetAtNU(ship.systems.Find(6), system);
        tagTDatum property = ship.properties.GetAtNU(ship.properties.Find(2));
        property.position = {0.1 * scale, 0.7 * scale, 1.3 * scale};
        property.direction = {0.3, 0, 1};
        if (changed && other == 1) property.direction.x = std::nextafter(0.3, 1);
        ship.properties.SetAtNU(ship.properties.Find(2), property);
      });
    };
    {
      Ship wing(u"wing");
      UnitSystem millimetres = wing.session.Units().Model();
      millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
      wing.session.Units().SetModel(millimetres);
      fill(wing, 1000, true);
      ASSERT_TRUE(SaveModel(wing.session, file));
    }
    Ship hull(u"hull");
    fill(hull, 1, false);
    auto& sets = Pool<tagTMset>(hull.session);
    TArray<Key> keys;
    CStringArray names;
    ASSERT_EQ(sets.LoadExtDB(Utf16(file).c_str(), keys, names), 1);
    ASSERT_EQ(sets.TR_Import({7}, 0, 0, 0), 1);
    const tagTMset& set = sets.GetAtNU(sets.GetItr(u"wing"));
    const ITR second = hull.elements.GetAtNU(set.elements[1]).property;
    EXPECT_EQ(KeyOf(second) == 2, other != 1);
    auto& assignments = Pool<tagTMeshCsys>(hull.session);
    const ITR last = assignments.Set().GetTailPosition();
    EXPECT_EQ(KeyOf(assignments.GetAtNU(last).coordinate_system) == 6, other != 2);
  }
}

TEST(Parts, FindRoomBelowTheLargestKey) {
  const ScratchFolder folder;
  const std::string file = folder.Path("wing.qxm");
  ASSERT_TRUE(SaveModel(Ship(u"wing").session, file));
  Ship hull(u"hull");
  hull.Node(2147483647, 0, 0, 0);
  auto& sets = Pool<tagTMset>(hull.session);
  TArray<Key> keys;
  CStringArray names;
  ASSERT_EQ(sets.LoadExtDB(Utf16(file).c_str(), keys, names), 1);
  ASSERT_EQ(sets.TR_Import({7}, 0, 0, 0), 1);
  EXPECT_EQ(KeyOf(sets.GetAtNU(sets.GetItr(u"wing")).nodes[0]), 5);
}

// ---- previews leave no trace --------------------------------------------------------------------

struct Ears final : ISessionListener, StepSink {
  int heard = 0;
  void OnSessionEvent(CQXDBSession&, SessionEvent, std::u16string_view,
                      std::span<const Change>) override {
    ++heard;
  }
  bool OnCommit(CQXDBSession&, Step&) override { return ++heard; }
  bool OnUndo(CQXDBSession&) override { return ++heard; }
  bool OnRedo(CQXDBSession&) override { return ++heard; }
  bool OnMoved(CQXDBSession&) override { return ++heard; }
  void OnUnrecordedChange() override { ++heard; }
};

/// All that may tell of a preview, as numbers.
std::vector<std::uint64_t> TraceOf(CQXDBSession& session) {
  const Journal& history = session.History();
  std::vector<std::uint64_t> trace = {session.StateHash(),
                                      history.Done().size(),
                                      history.Undone().size(),
                                      history.Current().changes.size(),
                                      static_cast<std::uint64_t>(history.State()),
                                      history.Footprint(),
                                      session.IsBusy(),
                                      session.CanUndo(),
                                      session.CanRedo(),
                                      session.RecordingEnabled(),
                                      session.IsRecording(),
                                      session.MindsUnrecorded(),
                                      session.IsRehearsing(),
                                      static_cast<std::uint64_t>(session.RelationRound())};
  for (const DPoolBase* pool : session.Pools()) {
    const KeyedSetBase& set = pool->Set();
    trace.insert(trace.end(), {pool->ChangeFlags(), static_cast<std::uint64_t>(set.GetMaxKey()),
                               static_cast<std::uint64_t>(set.GetMinKey()), set.Revision(),
                               static_cast<std::uint64_t>(set.GetSize())});
    for (ITR pos = set.GetHeadPosition(); pos; set.Next(pos)) {
      trace.insert(trace.end(), {pos, KeyedSetBase::StateOf(pos)});
    }
  }
  return trace;
}

int g_hooked = 0;

TEST(Preview, LeavesNoTrace) {
  const StepHook former = SetStepHook([](CQXDBSession&) { ++g_hooked; });
  for (const int when : {0, 1, 2}) {
    Turned m(5);
    const ITR lone = m.Node(3, 1, 1, 1);
    tagTMset set;
    set.key = 4;
    set.elements = {m.items[0], m.items[3]};
    Pool<tagTMset>(m.session).InsertNU(set);
    m.Step([&] { m.Node(4, 4, 4, 4); });
    m.Step([&] { m.Node(5, 4, 4, 5); });
    if (when != 2) m.session.Undo();
    m.session.SetHistoryLimits({2, std::size_t{1} << 30});
    CTransaction open(&m.session);
    if (when == 1) {
      open.Begin(u"open");
      m.Node(6, 4, 4, 6);
      m.nodes.Remove(lone);
      GiveKey(m.elements, m.items[0], 70);
    }
    if (when == 2) m.session.EnableRecording(false);
    Ears ears;
    g_hooked = 0;
    m.session.AddListener(&ears);
    m.session.SetStepSink(&ears);
    const Listening sink;
    const auto before = TraceOf(m.session);
    const std::vector<ITR> nodes = {m.nodes.Find(2)};
    TArray<ITR> users;
    m.elements.GetElemListByNodeItr(nodes[0], users);
    for (const auto& [type, item] :
         {std::pair(code::kNode, nodes[0]), std::pair(code::kElem, m.items[3]),
          std::pair(code::kMset, Pool<tagTMset>(m.session).Find(4))}) {
      const std::vector<ITR> asked = {item};
      EXPECT_GT(PreviewDeletion(m.session, type, asked).consequences.size(), 1u);
      EXPECT_EQ(TraceOf(m.session), before) << when << " " << type;
    }
    TArray<ITR> users_after;
    m.elements.GetElemListByNodeItr(nodes[0], users_after);
    EXPECT_EQ(users, users_after);
    EXPECT_EQ(ears.heard + g_hooked, 0);
    EXPECT_TRUE(sink.heard.empty());
    EXPECT_EQ(m.session.Validate(), "");
    m.session.SetStepSink(nullptr);
    if (when == 1) {
      EXPECT_EQ(open.Commit(), 1);
    }
    if (when == 1) {
      EXPECT_EQ(m.AngleOf(0), 1);
    }
    if (when == 0) {
      EXPECT_EQ(m.session.Redo(), 1);
    }
  }
  SetStepHook(former);
}

/// Neither in a model that may not be written, nor in the log of one that may.
TEST(Preview, WritesNothing) {
  const ScratchFolder folder;
  const std::string file = folder.Path("m.qxm");
  ASSERT_TRUE(SaveModel(Turned(3).session, file));
  const auto files = [&] {
    std::map<std::string, std::string> contents;
    for (const auto& one : std::filesystem::directory_iterator(folder.Path())) {
      contents[one.path().filename().string()] = *ReadWholeFile(one.path().string());
    }
    return contents;
  };
  for (const bool to_edit : {false, true}) {
    CQXDocBase document(SetUpWithProperties);
    if (!to_edit) std::filesystem::permissions(file, std::filesystem::perms::owner_read);
    ASSERT_TRUE(to_edit ? document.OpenForEditing(file) : document.Open(file));
    CQXDBSession& session = *document.GetDBSession();
    if (to_edit) {
      CTransaction step(&session);
      step.Begin(u"kept");
      Pool<tagTElem>(session).Remove(Pool<tagTElem>(session).Find(3));
      ASSERT_EQ(step.Commit(), 1);
      ASSERT_EQ(session.Undo(), 1);
    }
    const auto before = files();
    const auto trace = TraceOf(session);
    const std::vector<ITR> asked = {Pool<tagTNode>(session).Find(1)};
    EXPECT_EQ(PreviewDeletion(session, code::kNode, asked).consequences.size(), 7u);
    EXPECT_EQ(TraceOf(session), trace);
    EXPECT_FALSE(document.IsModified());
    EXPECT_EQ(files(), before) << "no frame of a log";
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    if (to_edit) {
      EXPECT_EQ(session.Redo(), 1);
    }
  }
}

TEST(Preview, WorksInSnapshotsAndWhileAStepIsToldOf) {
  Turned m(3);
  const std::vector<ITR> asked = {m.nodes.Find(1)};
  const std::size_t wanted = PreviewDeletion(m.session, code::kNode, asked).consequences.size();
  EXPECT_EQ(wanted, 7u);
  const auto copy = TakeSnapshot(m.session);
  const std::uint64_t before = copy->StateHash();
  const std::vector<ITR> there = {Pool<tagTNode>(*copy).Find(1)};
  EXPECT_EQ(PreviewDeletion(*copy, code::kNode, there).consequences.size(), wanted);
  EXPECT_EQ(copy->StateHash(), before);
  struct Asks final : ISessionListener {
    std::size_t found = 0;
    void OnSessionEvent(CQXDBSession& session, SessionEvent, std::u16string_view,
                        std::span<const Change>) override {
      const std::vector<ITR> one = {Pool<tagTNode>(session).Find(1)};
      found = PreviewDeletion(session, code::kNode, one).consequences.size();
      EXPECT_EQ(Pool<tagTNode>(session).Remove(one[0]), 0) << "still being told";
    }
  } asks;
  m.session.AddListener(&asks);
  m.Step([&] { m.Node(9, 0, 0, 9); });
  EXPECT_EQ(asks.found, wanted);
  asks.found = 0;
  m.session.Undo();
  EXPECT_EQ(asks.found, wanted);
  asks.found = 0;
  const std::uint64_t hash = m.session.StateHash();
  {
    CTransaction given_up(&m.session);
    given_up.Begin(u"given up");
    m.Node(10, 0, 0, 9);
    m.nodes.Remove(m.nodes.Find(2));
    m.elements.Remove(m.items[1]);
  }
  EXPECT_EQ(asks.found, wanted);
  EXPECT_EQ(m.session.StateHash(), hash);
  EXPECT_EQ(m.session.Validate(), "");
  EXPECT_EQ(m.session.Redo(), 1);
}

}  // namespace
}  // namespace qx
