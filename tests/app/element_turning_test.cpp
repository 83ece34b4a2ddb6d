// What records tell of an element's sides stays true when the element is turned over.

#include "qx_db/app/element_turning.h"

#include <functional>
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

using testing::IdealCorners;
using testing::Model;

std::set<ITR> NodesOf(const Model& model, int kind, const tagTElemSide& side) {
  TArray<ITR> nodes;
  model.util.GetNodeListByElemSide(kind, side, nodes, 1);
  return {nodes.begin(), nodes.end()};
}

TEST(SideWhenTurned, HasTheNodesThatTheSideHad) {
  for (std::int32_t type = 4; type <= 15; ++type) {
    Model model;
    const ITR element = model.Element(type, IdealCorners(topology::ShapeOf(type)));
    for (const int kind : {3, 4}) {
      std::vector<std::set<ITR>> before;
      for (std::int32_t side = 0; side < 12; ++side) {
        before.push_back(NodesOf(model, kind, {element, side}));
      }
      ASSERT_EQ(model.util.FlipElement(element), 1);
      for (std::int32_t side = 0; side < 12; ++side) {
        SCOPED_TRACE(std::to_string(type) + " kind " + std::to_string(kind) + " side " +
                     std::to_string(side));
        const std::int32_t now = SideWhenTurned(type, kind, side);
        EXPECT_EQ(NodesOf(model, kind, {element, now}), before[static_cast<std::size_t>(side)]);
        EXPECT_EQ(SideWhenTurned(type, kind, now), side);
      }
      ASSERT_EQ(model.util.FlipElement(element), 1);
    }
  }
  for (const std::int32_t type : {-1, 0, 1, 2, 3, 16, 87, 200}) {
    EXPECT_EQ(SideWhenTurned(type, 3, 2), 2) << type;
  }
}

TEST(TurnElements, ALineKeepsTheThicknessesItShouldNotHave) {
  Model model;
  const ITR line = model.Element(2, IdealCorners(CornerShape::kLine));
  tagTE2DThick record;
  record.key = 1;
  record.elements = {line};
  record.uniform = 0;
  for (int i = 0; i < 4; ++i) record.thickness[i] = i + 1;
  auto& pool = Pool<tagTE2DThick>(model.session);
  const ITR itr = pool.InsertNU(record);
  ASSERT_TRUE(TurnElements(model.session, std::vector{line}));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(pool.GetAtNU(itr).thickness[i], i + 1);
}

/// Repairs in one step, and checks that undoing it gives back the same model.
void RepairAndCheckUndo(Model& model, const RepairPlan& plan, const std::function<void()>& check) {
  model.session.ForgetHistory();
  const std::uint64_t before = model.session.StateHash();
  RepairReport report;
  CTransaction transaction(&model.session);
  transaction.Begin(u"repair");
  ASSERT_TRUE(RepairMesh(model.session, plan, report) && transaction.Commit());
  ASSERT_TRUE(report.ChangedAnything());
  check();
  ASSERT_EQ(model.session.Undo(), 1);
  EXPECT_EQ(model.session.StateHash(), before);
}

TEST(Repair, KeepsSidesOfTurnedSolidsWhereTheyAre) {
  Model model;
  model.Block(2, 1, 1);
  ASSERT_EQ(model.util.FlipElement(model.elements[0]), 1);
  tagTGKey item;
  item.key = 1;
  item.SetItem(tagTGKey::kFace, 7);
  const ITR gkey = Pool<tagTGKey>(model.session).InsertNU(item);
  tagTGElem data;
  data.key = 1;
  data.elements[2] = {model.elements[0], model.elements[1]};
  tagTGElemHead head;
  head.key = 1;
  head.geometry_key = gkey;
  head.data = {Pool<tagTGElem>(model.session).InsertNU(data)};
  const ITR on_geometry = Pool<tagTGElemHead>(model.session).InsertNU(head);
  tagTOpti result;
  result.key = 1;
  result.sides = {{model.elements[1], 5}, {model.elements[0], 5}, {model.elements[0], 0}};
  const ITR opti = Pool<tagTOpti>(model.session).InsertNU(result);

  tagTSetTag tag;
  tag.key = 1;
  tag.sides = result.sides;
  tagTMset set;
  set.key = 1;
  tag.set = Pool<tagTMset>(model.session).InsertNU(set);
  const ITR tagged = Pool<tagTSetTag>(model.session).InsertNU(tag);

  const auto faces = [&](const TArray<tagTElemSide>& sides) {
    std::set<std::set<ITR>> found;
    for (const tagTElemSide& side : sides) found.insert(NodesOf(model, 3, side));
    return found;
  };
  const auto on_face = [&] {
    TArray<tagTElemSide> sides;
    model.util.GetElemSideListByGElemItr(on_geometry, sides);
    return faces(sides);
  };
  const auto geometry_before = on_face();
  const auto result_before = faces(result.sides);
  RepairPlan plan;
  plan.inverted_solids = true;
  RepairAndCheckUndo(model, plan, [&] {
    EXPECT_EQ(on_face(), geometry_before);
    const TArray<tagTElemSide> now = Pool<tagTOpti>(model.session).GetAtNU(opti).sides;
    EXPECT_EQ(faces(now), result_before);
    EXPECT_EQ(Pool<tagTSetTag>(model.session).GetAtNU(tagged).sides, now) << "sides of a deck too";
    EXPECT_EQ(now[0], result.sides[0]) << "of an element that was not turned";
    EXPECT_NE(now[1], result.sides[1]);
  });
}

TEST(Repair, KeepsThicknessesAndOffsetsOfTurnedPlatesWhereTheyAre) {
  Model model;
  model.Sheet(3, 1);
  ASSERT_EQ(model.util.FlipElement(model.elements[1]), 1);
  auto& thicknesses = Pool<tagTE2DThick>(model.session);
  auto& offsets = Pool<tagTE2DOffset>(model.session);
  tagTE2DThick varied, uniform;
  varied.key = 1;
  varied.uniform = 0;
  for (int i = 0; i < 4; ++i) varied.thickness[i] = i + 1;
  varied.elements = {model.elements[0], model.elements[1]};
  uniform = varied;
  uniform.key = 2;
  uniform.uniform = 1;
  const ITR varied_itr = thicknesses.InsertNU(varied), uniform_itr = thicknesses.InsertNU(uniform);
  tagTE2DOffset offset;
  offset.key = 5;
  offset.offset = 0.25;
  offset.elements = {model.elements[1]};
  const ITR offset_itr = offsets.InsertNU(offset);
  RepairPlan plan;
  plan.misoriented_shells = true;
  RepairAndCheckUndo(model, plan, [&] {
    EXPECT_EQ(thicknesses.GetAtNU(uniform_itr).elements, uniform.elements);
    EXPECT_EQ(thicknesses.GetAtNU(varied_itr).elements, TArray<ITR>{model.elements[0]});
    ASSERT_EQ(thicknesses.GetSize(), 3);
    const tagTE2DThick& own = thicknesses.GetAtNU(thicknesses.Find(3));
    EXPECT_EQ(own.elements, TArray<ITR>{model.elements[1]});
    EXPECT_EQ((std::vector<double>(own.thickness, own.thickness + 4)),
              (std::vector<double>{1, 4, 3, 2}));
    EXPECT_EQ(offsets.GetSize(), 1) << "no plate of it stays, so that it needs no second record";
    EXPECT_EQ(+offsets.GetAtNU(offset_itr).offset, -0.25);
  });
}

}  // namespace
}  // namespace qx
