// What told of a duplicate element tells of the one that stays, or is reported.

#include "qx_db/app/element_heritage.h"

#include <gtest/gtest.h>
#include <set>

#include "qx_db/app/mesh_repair.h"
#include "qx_db/core/transaction.h"
#include "qx_db/record/analysis_records.h"
#include "qx_db/record/attribute_records.h"
#include "qx_db/record/control_records.h"
#include "qx_db/record/deck_records.h"
#include "qx_db/record/geometry_records.h"

#include "tests/mesh/mesh_builder.h"

namespace qx {
namespace {

using testing::Model;

/// A sheet of two plates and a block of one solid, each with a duplicate on the same nodes: of the
/// first plate in the same order, of the others in another.
struct Doubled : Model {
  ITR plate, again, other, turned, solid, permuted;

  Doubled() {
    Sheet(2, 1);
    Block(1, 1, 1);
    plate = elements[0], other = elements[1], solid = elements[2];
    again = Element(6, std::vector<int>{0, 1, 4, 3});
    turned = Element(6, std::vector<int>{1, 4, 5, 2});
    permuted = Element(14, std::vector<int>{8, 6, 7, 9, 12, 10, 11, 13});
  }
  template <class T>
  ITR Insert(T record, std::initializer_list<ITR> listed) {
    auto& pool = Pool<T>(session);
    record.key = pool.GetSize() + 1;
    for (const ITR element : listed) record.elements.Add(element);
    return pool.InsertNU(record);
  }
  template <class T>
  const T& Get(ITR record) {
    return Pool<T>(session).GetAtNU(record);
  }
  RepairReport Repair() {
    session.ForgetHistory();
    const std::uint64_t before = session.StateHash();
    RepairPlan plan;
    plan.duplicate_elements = true;
    RepairReport report;
    CTransaction transaction(&session);
    transaction.Begin(u"repair");
    EXPECT_TRUE(RepairMesh(session, plan, report) && transaction.Commit());
    EXPECT_EQ(report.elements_removed, 3);
    const std::uint64_t after = session.StateHash();
    EXPECT_EQ(session.Undo(), 1);
    EXPECT_EQ(session.StateHash(), before);
    EXPECT_EQ(session.Redo(), 1);
    EXPECT_EQ(session.StateHash(), after);
    return report;
  }
  std::set<ITR> NodesOf(int kind, const tagTElemSide& side) const {
    TArray<ITR> found;
    util.GetNodeListByElemSide(kind, side, found, 1);
    return {found.begin(), found.end()};
  }
};

TEST(Heritage, AttributesGoToTheElementThatStaysOrAreReported) {
  Doubled model;
  const ITR taken = model.Insert(tagTE2DThick(), {model.again});
  const ITR own = model.Insert(tagTE2DOffset(), {model.plate});
  const ITR second = model.Insert(tagTE2DOffset(), {model.again, model.other});
  tagTE2DMatlCsys by_angle, by_vector;
  by_vector.type = tagTE2DMatlCsys::kByVector;
  const ITR angle = model.Insert(by_angle, {model.turned});
  const ITR vector = model.Insert(by_vector, {model.again});
  tagTE3DMatlCsys axes;
  axes.key = KeyOf(model.permuted);
  const ITR keyed = Pool<tagTE3DMatlCsys>(model.session).InsertNU(axes);
  tagTE3DScaleFac of_both;
  for (const ITR element : {model.solid, model.permuted}) {
    of_both.key = KeyOf(element);
    of_both.density = of_both.key;
    Pool<tagTE3DScaleFac>(model.session).InsertNU(of_both);
  }
  const std::pair<Key, Key> offset{KeyOf(model.again), KeyOf(model.plate)};
  const std::pair<Key, Key> system{KeyOf(model.turned), KeyOf(model.other)};
  const std::pair<Key, Key> factors{KeyOf(model.permuted), KeyOf(model.solid)};
  const RepairReport report = model.Repair();
  EXPECT_EQ(model.Get<tagTE2DThick>(taken).elements, TArray<ITR>{model.plate});
  EXPECT_EQ(model.Get<tagTE2DOffset>(own).elements, TArray<ITR>{model.plate});
  EXPECT_EQ(model.Get<tagTE2DOffset>(second).elements, TArray<ITR>{model.other});
  EXPECT_TRUE(KeyedSetBase::IsRemoved(angle)) << "it told of nothing else";
  EXPECT_EQ(model.Get<tagTE2DMatlCsys>(vector).elements, TArray<ITR>{model.plate});
  EXPECT_EQ(KeyOf(keyed), KeyOf(model.solid));
  ASSERT_EQ(Pool<tagTE3DScaleFac>(model.session).GetSize(), 1);
  EXPECT_EQ(+Pool<tagTE3DScaleFac>(model.session)
                 .GetAtNU(Pool<tagTE3DScaleFac>(model.session).Find(factors.second))
                 .density,
            factors.second);
  using Lost = std::set<std::tuple<Key, Key, std::uint16_t>>;
  Lost lost;
  for (const LeftBehind& loss : report.left_behind) {
    lost.insert({loss.duplicate, loss.stays, loss.type});
  }
  EXPECT_EQ(lost, (Lost{{offset.first, offset.second, code::kE2DOffset},
                        {system.first, system.second, code::kE2DMatlCsys},
                        {factors.first, factors.second, code::kE3DScaleFac}}));
}

TEST(Heritage, ElementsStayOnTheirItemOfGeometryWhateverItIs) {
  for (const int kind : {tagTGKey::kVertex, tagTGKey::kEdge, tagTGKey::kFace, tagTGKey::kBody}) {
    Doubled model;
    tagTGKey item;
    item.key = 1;
    item.SetItem(kind, 7);
    tagTGElem data;
    data.key = 1;
    data.elements[0] = {model.again};
    tagTGElemHead head;
    head.key = 1;
    head.geometry_key = Pool<tagTGKey>(model.session).InsertNU(item);
    const ITR listed = Pool<tagTGElem>(model.session).InsertNU(data);
    head.data = {listed};
    Pool<tagTGElemHead>(model.session).InsertNU(head);
    model.Repair();
    EXPECT_EQ(model.Get<tagTGElem>(listed).elements[0], TArray<ITR>{model.plate}) << kind;
  }
}

TEST(Heritage, SidesAreNamedByTheNodesThatTheyHave) {
  Doubled model;
  tagTOpti result;
  result.key = 1;
  for (std::int32_t face = 0; face < 6; ++face) result.sides.Add({model.permuted, face});
  result.sides.Add({model.other, 1});
  result.sides.Add({model.turned, 0});
  const ITR opti = Pool<tagTOpti>(model.session).InsertNU(result);
  tagTMset set;
  set.key = 1;
  set.elements = {model.permuted, model.plate, model.again};
  tagTSetTag tag;
  tag.key = 1;
  tag.set = Pool<tagTMset>(model.session).InsertNU(set);
  tag.sides = {{model.solid, 5}, {model.permuted, 0}};
  const ITR tagged = Pool<tagTSetTag>(model.session).InsertNU(tag);
  tagTGKey item;
  item.key = 1;
  item.SetItem(tagTGKey::kFace, 7);
  tagTGElem data;
  data.key = 1;
  data.elements[3] = {model.permuted};
  tagTGElemHead head;
  head.key = 1;
  head.geometry_key = Pool<tagTGKey>(model.session).InsertNU(item);
  head.data = {Pool<tagTGElem>(model.session).InsertNU(data)};
  const ITR on_geometry = Pool<tagTGElemHead>(model.session).InsertNU(head);

  std::vector<std::set<ITR>> before;
  for (const tagTElemSide& side : result.sides) {
    before.push_back(model.NodesOf(before.size() < 6 ? 3 : 4, side));
  }
  const std::set<ITR> geometry = before[3], deck = before[0];
  const RepairReport report = model.Repair();
  EXPECT_TRUE(report.left_behind.empty());
  const TArray<tagTElemSide> now = model.Get<tagTOpti>(opti).sides;
  ASSERT_EQ(now.size(), before.size());
  for (std::int32_t i = 0; i < now.GetSize(); ++i) {
    EXPECT_EQ(model.NodesOf(i < 6 ? 3 : 4, now[i]), before[static_cast<std::size_t>(i)]) << i;
    EXPECT_EQ(ITR{now[i].element}, i < 6 ? model.solid : model.other) << i;
  }
  TArray<tagTElemSide> sides;
  ASSERT_EQ(model.util.GetElemSideListByGElemItr(on_geometry, sides), 1);
  EXPECT_EQ(model.NodesOf(3, sides[0]), geometry);
  EXPECT_EQ(model.NodesOf(3, model.Get<tagTSetTag>(tagged).sides[1]), deck);
  EXPECT_EQ(model.Get<tagTMset>(tag.set).elements, (TArray<ITR>{model.solid, model.plate}));
}

}  // namespace
}  // namespace qx
