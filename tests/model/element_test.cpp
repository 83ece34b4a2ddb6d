#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <rapidcheck/gtest.h>
#include <set>

#include "qx_db/model/temp_mesh_pools.h"

#include "tests/model/mesh_model.h"

namespace qx {
namespace {

// ---- what goes with an element, and what stays --------------------------------------------------

TEST(Element, TakesAlongWhatIsKeyedByIt) {
  const std::set<std::int32_t> oriented = {2, 3, 46, 47, 54, 77, 79, 80, 81};
  for (std::int32_t type = 0; type <= 90; ++type) {
    MeshModel m;
    m.Node(1, 0, 0, 0);
    m.Node(2, 1, 0, 0);
    const auto fill = [&](Key key) {
      m.Element(key, type, {1, 2});
      m.Keyed<tagTEcrd>(key);
      m.Keyed<tagTSprop>(key);
      m.Keyed<tagTE3DMatlCsys>(key);
      m.Keyed<tagTE3DScaleFac>(key);
    };
    for (const Key key : {1, 2, 3}) fill(key);
    const std::uint64_t before = m.session.StateHash();
    const auto expect_left = [&](std::int32_t gone) {
      EXPECT_EQ(m.orientations.GetSize(), oriented.contains(type) ? 3 - gone : 3) << type;
      EXPECT_EQ(Pool<tagTSprop>(m.session).GetSize(), type >= 30 ? 3 - gone : 3) << type;
      EXPECT_EQ(Pool<tagTE3DMatlCsys>(m.session).GetSize(), 3 - gone) << type;
      EXPECT_EQ(Pool<tagTE3DScaleFac>(m.session).GetSize(), 3 - gone) << type;
    };
    m.Step([&] { m.elements.Remove(m.elements.Find(2)); });
    expect_left(1);
    m.session.Undo();
    m.Step([&] {
      ITR pos = m.elements.Find(1);
      m.elements.RemoveNext(pos);
      EXPECT_EQ(pos, m.elements.Find(2));
    });
    expect_left(1);
    m.session.Undo();
    m.Step([&] { m.elements.RemoveAll(); });
    expect_left(3);
    m.session.Undo();
    EXPECT_EQ(m.session.StateHash(), before);
    EXPECT_EQ(m.session.Validate(), "");
  }
}

TEST(Element, KeepsItsDataWhenOverwritten) {
  const std::set<std::int32_t> keeps = {2, 3, 46, 47, 54};
  for (std::int32_t type = -1; type <= 90; ++type) {
    for (const bool has_data : {false, true}) {
      MeshModel m;
      m.Node(1, 0, 0, 0);
      m.Node(2, 1, 0, 0);
      const ITR pos = m.Element(5, 4, {1, 2});
      tagTEcrd orientation;
      orientation.key = 5;
      orientation.method = tagTEcrd::kByVector;
      orientation.reference_vector = {1, 2, 3};
      if (has_data) m.orientations.InsertNU(orientation);
      tagTSprop property;
      property.key = 5;
      property.mass = 77;
      if (has_data) Pool<tagTSprop>(m.session).InsertNU(property);
      tagTElem element = m.elements.GetAtNU(pos);
      element.type = type;
      EXPECT_EQ(m.elements.SetAtWithKeepData(pos, element), 1);
      // Deliberate: of a negative type nothing is stored.
      EXPECT_EQ(m.elements.GetAtNU(pos).type, type < 0 ? 4 : type);

      tagTEcrd kept;
      const bool oriented = keeps.contains(type);
      EXPECT_EQ(m.elements.GetElemCSys(pos, kept), oriented || has_data) << type;
      if (oriented) {
        EXPECT_EQ(kept.element_type, type);
        const auto wanted = has_data ? orientation.reference_vector : tagTEcrd().reference_vector;
        EXPECT_TRUE(kept.reference_vector == wanted);
      }
      tagTSprop kept_property;
      const bool special = type >= 30 && type != 46 && type != 47;
      EXPECT_EQ(m.elements.GetElemNUSprop(pos, kept_property), special || has_data) << type;
      if (special) {
        EXPECT_EQ(+kept_property.mass, has_data ? 77 : 0);
      }
    }
  }
}

TEST(Element, IsStoredWithACheckedOrientation) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 1, 0, 0);
  const ITR pos = m.Element(5, 2, {1, 2});
  const tagTElem element = m.elements.GetAtNU(pos);
  tagTEcrd along;
  along.method = tagTEcrd::kByVector;
  along.reference_vector = {1, 0, 0};
  const Listening sink;
  EXPECT_EQ(m.elements.SetAtNUwCsys(pos, element, along, 1), 0);
  EXPECT_EQ(m.orientations.GetSize(), 0);
  EXPECT_EQ(m.elements.SetAtNUwCsys(pos, element, along, 0), 1) << "unchecked";
  EXPECT_EQ(along.key, 5);
  const ITR stored = m.orientations.Find(5);
  EXPECT_EQ(m.orientations.SetAt(stored, along), 0) << "the pool checks on its own";
  along.reference_vector = {0, 1, 0};
  EXPECT_EQ(m.orientations.SetAt(stored, along), 1);
}

TEST(Element, AndItsKinAreNotTouchedOnceRemoved) {
  MeshModel m;
  const ITR node = m.Node(1, 0, 0, 0);
  m.Node(2, 1, 0, 0);
  const ITR pos = m.Element(5, 2, {1, 2}, m.Property(1));
  const ITR stored = m.Keyed<tagTEcrd>(5);
  const ITR system = m.Keyed<tagTCord>(3);
  const ITR set = m.Keyed<tagTMset>(4);
  CTransaction step(&m.session);
  step.Begin(u"remove");
  m.elements.Remove(pos);
  m.nodes.Remove(node);
  m.systems.Remove(system);
  Pool<tagTMset>(m.session).Remove(set);
  const std::uint64_t before = m.session.StateHash();
  const std::size_t changes = m.session.History().Current().changes.size();
  tagTEcrd orientation;
  tagTSprop property;
  tagTCord cord;
  double v[9];
  double(*axes)[3] = reinterpret_cast<double(*)[3]>(v);
  for (const bool null : {false, true}) {
    const auto at = [&](ITR itr) { return null ? 0 : itr; };
    const tagTElem element = m.elements.GetAtNU(pos);
    const std::pair<const char*, int> results[] = {
        {"SetAtNU", m.elements.SetAtNU(at(pos), element)},
        {"SetAtWithKeepData", m.elements.SetAtWithKeepData(at(pos), element)},
        {"SetAtNUwCsys", m.elements.SetAtNUwCsys(at(pos), element, orientation, 0)},
        {"SetAtNUwSprop", m.elements.SetAtNUwSprop(at(pos), element, property, 0)},
        {"SetAtSprop", m.elements.SetAtSprop(at(pos), property)},
        {"GetElemCSys", m.elements.GetElemCSys(at(pos), orientation)},
        {"GetElemSprop", m.elements.GetElemSprop(at(pos), property)},
        {"Get1DElemCord", m.elements.Get1DElemCord(at(pos), cord)},
        {"Remove", m.elements.Remove(at(pos))},
        {"Private_ApplyProp", m.elements.Private_ApplyProp({at(pos)}, 0)},
        {"Is1DParamExist", m.elements.Is1DParamExist(at(pos))},
        {"Is2DParamExist", m.elements.Is2DParamExist(at(pos))},
        {"GetElemLocalVector", m.elements.GetElemLocalVector(at(pos), axes)},
        {"GetElemMatlVector", m.elements.GetElemMatlVector(at(pos), axes)},
        {"GetElemCenter", m.elements.GetElemCenter(at(pos), v)},
        {"GetElemAxisByNodalCSys", m.elements.GetElemAxisByNodalCSys(at(node), v)},
        {"node SetAtNU", m.nodes.SetAtNU(at(node), m.nodes.GetAtNU(node))},
        {"node SetAt", m.nodes.SetAt(at(node), m.nodes.GetAtNU(node))},
        {"orientation SetAtNU", m.orientations.SetAtNU(at(stored), orientation)},
        {"orientation SetAt", m.orientations.SetAt(at(stored), orientation)},
        {"system SetAtNU", m.systems.SetAtNU(at(system), cord)},
        {"set SetAtNU", Pool<tagTMset>(m.session).SetAtNU(at(set), tagTMset())},
    };
    for (const auto& [what, result] : results) EXPECT_EQ(result, 0) << what << null;
  }
  EXPECT_EQ(m.session.History().Current().changes.size(), changes) << "nor is a change noted";
  EXPECT_EQ(m.session.StateHash(), before);
}

TEST(Element, AttachedRecordsFollowNewKeys) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 1, 0, 0);
  std::vector<ITR> items;
  for (Key key = 1; key <= 4; ++key) {
    items.push_back(m.Element(key, 2, {1, 2}));
    tagTEcrd record;
    record.key = key;
    record.beta_angle_deg = key;
    m.orientations.InsertNU(record);
  }
  // Each new key is still that of the next element: the ranges overlap.
  m.Step([&] {
    for (const ITR item : items) {
      tagTElem element = m.elements.GetAtNU(item);
      ++element.key;
      m.elements.SetAtNU(item, element);
    }
  });
  for (std::size_t i = 0; i < items.size(); ++i) {
    tagTEcrd record;
    ASSERT_EQ(m.elements.GetElemCSys(items[i], record), 1);
    EXPECT_EQ(+record.beta_angle_deg, static_cast<double>(i + 1));
  }
  m.session.Undo();
  EXPECT_EQ(+m.orientations.GetAtNU(m.orientations.Find(1)).beta_angle_deg, 1);
  EXPECT_EQ(m.session.Validate(), "");
}

TEST(Element, SpeaksCurrentUnitsToUsers) {
  MeshModel m;
  UnitSystem millimetres;
  millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  m.session.Units().SetCurrent(millimetres);
  const ITR node = m.Node(1, 2, 0, 0);
  tagTNode shown;
  ASSERT_EQ(m.nodes.Get(node, shown), 1);
  EXPECT_DOUBLE_EQ(shown.position.x, 2000);
  shown.position.x = 3000;
  ASSERT_EQ(m.nodes.SetAt(node, shown), 1);
  EXPECT_DOUBLE_EQ(+m.nodes.GetAtNU(node).position.x, 3);
  EXPECT_EQ(m.nodes.Get(0, shown), 0);
  const ITR element = m.Element(1, 31, {1});
  tagTSprop property;
  property.offset = {0, 500, 0};
  ASSERT_EQ(m.elements.SetAtSprop(element, property), 1);
  tagTSprop stored;
  ASSERT_EQ(m.elements.GetElemNUSprop(element, stored), 1);
  EXPECT_DOUBLE_EQ(stored.offset.y, 0.5);
  ASSERT_EQ(m.elements.GetElemSprop(element, stored), 1);
  EXPECT_DOUBLE_EQ(stored.offset.y, 500);
}

// ---- keys ---------------------------------------------------------------------------------------

RC_GTEST_PROP(Element, NewKeysUpwardsAreTheSmallestFree, ()) {
  MeshModel m;
  std::set<Key> used;
  const int first = *rc::gen::element(1, kMaxKey - 150);
  const bool recorded = *rc::gen::arbitrary<bool>();
  CTransaction transaction(&m.session);
  if (recorded) transaction.Begin(u"edit");
  const int steps = *rc::gen::inRange(1, 300);
  for (int i = 0; i < steps; ++i) {
    const Key key = first + *rc::gen::inRange(0, 150);
    const int what = *rc::gen::inRange(0, 10);
    if (what < 6) {
      m.Element(key, 1, {});
      used.insert(key);
    } else if (what < 8) {
      if (const ITR pos = m.elements.Find(key)) m.elements.Remove(pos);
      used.erase(key);
    } else if (const ITR pos = m.elements.Find(key)) {
      const Key other = first + *rc::gen::inRange(0, 150);
      if (used.contains(other)) continue;
      tagTElem element = m.elements.GetAtNU(pos);
      element.key = other;
      m.elements.SetAtNU(pos, element);
      used.erase(key);
      used.insert(other);
    }
    Key wanted = first + *rc::gen::inRange(0, 3);
    const Key start = wanted;
    while (used.contains(wanted)) ++wanted;
    RC_ASSERT(m.elements.GetNewKeyUp(start) == wanted);
  }
  if (recorded) {
    transaction.Rollback();
    RC_ASSERT(m.elements.GetNewKeyUp(first) == first);
  }
}

TEST(Element, NewKeysUpwardsRunOut) {
  MeshModel m;
  EXPECT_EQ(m.elements.GetNewKeyUp(kMaxKey), kMaxKey);
  m.Element(kMaxKey, 1, {});
  EXPECT_LT(m.elements.GetNewKeyUp(kMaxKey), 0);
  m.Element(kMaxKey - 2, 1, {});
  EXPECT_EQ(m.elements.GetNewKeyUp(kMaxKey - 2), kMaxKey - 1);
  m.Element(kMaxKey - 1, 1, {});
  EXPECT_LT(m.elements.GetNewKeyUp(kMaxKey - 1), 0);
  EXPECT_EQ(m.elements.GetNewKeyUp(-7), -7);
  EXPECT_EQ(m.elements.GetNewKeyUp(0), 0);
}

// ---- elements of nodes --------------------------------------------------------------------------

RC_GTEST_PROP(Element, ListOfANodeFollowsEdits, ()) {
  MeshModel m;
  constexpr Key kNodes = 6;
  for (Key key = 1; key <= kNodes; ++key) m.Node(key, key, 0, 0);
  const auto some_nodes = [&] {
    TArray<ITR> nodes;
    for (int i = *rc::gen::inRange(0, 4); i > 0; --i) {
      nodes.Add(m.nodes.Find(*rc::gen::inRange<Key>(1, kNodes + 1)));
    }
    return nodes;
  };
  const auto check = [&] {
    for (Key key = 1; key <= kNodes; ++key) {
      const ITR node = m.nodes.Find(key);
      if (!node) continue;
      std::set<ITR> wanted;
      for (ITR pos = m.elements.GetHeadPosition(); pos; m.elements.Next(pos)) {
        const TArray<ITR>& nodes = m.elements.GetAtNU(pos).nodes;
        if (std::find(nodes.begin(), nodes.end(), node) != nodes.end()) wanted.insert(pos);
      }
      TArray<ITR> got;
      m.elements.GetElemListByNodeItr(node, got);
      RC_ASSERT(got.size() == wanted.size());
      RC_ASSERT(std::set<ITR>(got.begin(), got.end()) == wanted);
    }
  };
  const int steps = *rc::gen::inRange(1, 40);
  for (int i = 0; i < steps; ++i) {
    const Key key = *rc::gen::inRange<Key>(1, 10);
    const ITR pos = m.elements.Find(key);
    switch (*rc::gen::inRange(0, 6)) {
      case 0:
        m.session.Undo();
        break;
      case 1:
        if (pos) m.Step([&] { m.elements.Remove(pos); });
        break;
      case 2: {
        CTransaction rolled_back(&m.session);
        rolled_back.Begin(u"no");
        if (pos) m.elements.Remove(pos);
        break;
      }
      default:
        m.Step([&] {
          tagTElem element;
          element.key = key;
          element.nodes = some_nodes();
          if (pos) {
            m.elements.SetAtNU(pos, element);
          } else {
            m.elements.InsertNU(element);
          }
        });
    }
    if (*rc::gen::arbitrary<bool>()) check();
  }
  check();
}

TEST(Element, IsFoundByItsPropertyAndParameters) {
  MeshModel m;
  const ITR a = m.Property(1);
  const ITR b = m.Property(2);
  for (Key key = 1; key <= 4; ++key) m.Element(key, 6, {}, key % 2 ? a : b);
  TArray<ITR> list;
  EXPECT_EQ(m.elements.GetItrPropList(a, list), 2);
  EXPECT_EQ(list, (TArray<ITR>{m.elements.Find(1), m.elements.Find(3)}));
  EXPECT_EQ(m.elements.Private_ApplyProp(list, b), 1);
  EXPECT_EQ(m.elements.IsUsedItrProp(a), 0);
  std::set<ITR> found;
  EXPECT_EQ(m.elements.GetItrSetByItrPropSet({a, b}, found), 1);
  EXPECT_EQ(found.size(), 4u);
  EXPECT_EQ(m.elements.Private_ApplyProp({m.elements.Find(1), 0}, a), 0);

  const ITR element = m.elements.Find(1);
  EXPECT_EQ(m.elements.Is1DParamExist(element), 0);
  EXPECT_EQ(m.elements.Is2DParamExist(element), 0);
  tagTE1DRelease release;
  release.key = 1;
  release.elements = {element};
  Pool<tagTE1DRelease>(m.session).InsertNU(release);
  EXPECT_EQ(m.elements.Is1DParamExist(element), 1);
  EXPECT_EQ(m.elements.Is2DParamExist(element), 0);
  tagTE2DThick thickness;
  thickness.key = 1;
  thickness.elements = {m.elements.Find(2), element};
  Pool<tagTE2DThick>(m.session).InsertNU(thickness);
  EXPECT_EQ(m.elements.Is2DParamExist(element), 1);
  EXPECT_EQ(m.elements.Is2DParamExist(m.elements.Find(3)), 0);
}

// ---- scratch pools ------------------------------------------------------------------------------

TEST(ScratchMesh, HoldsAMeshUntilItIsCleared) {
  DPoolTmpNode nodes;
  DPoolTmpElem elements;
  tagTNode node;
  tagTElem element;
  for (node.key = 1; node.key <= 3; ++node.key) element.nodes.Add(nodes.InsertNU(node));
  element.key = 1;
  elements.InsertNU(element);
  EXPECT_EQ(nodes.NeedSaveNLoad() + elements.NeedSaveNLoad(), 0);
  EXPECT_EQ(std::u16string(nodes.GetIOName()), u"_NODE");
  EXPECT_EQ(std::u16string(elements.GetIOName()), u"_ELEM");
  elements.Clear();
  nodes.Clear();
  EXPECT_EQ(nodes.GetSize() + elements.GetSize(), 0);
  EXPECT_EQ(nodes.InsertNU(node) != 0, true) << "and can be filled again";
}

}  // namespace
}  // namespace qx
