// The operations of the mesh utilities: tables of cases, laws, and bad input.

#include "qx_db/app/mesh_util.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

#include "qx_db/callback/callbacks.h"
#include "qx_db/core/transaction.h"
#include "qx_db/mesh/element_volume.h"
#include "qx_db/record/control_records.h"
#include "qx_db/record/geometry_records.h"

#include "tests/mesh/mesh_builder.h"

namespace qx {
namespace {

using testing::IdealCorners;
using testing::Model;

constexpr std::int32_t kMeshTypes[] = {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

std::vector<Point3> CornersOf(std::int32_t type) {
  const topology::SpecialForm* const form = topology::FormOf(type);
  return IdealCorners(form ? form->shape : topology::ShapeOf(type));
}

std::vector<ITR> ToVector(const TArray<ITR>& list) { return {list.begin(), list.end()}; }

// ---- orientation --------------------------------------------------------------------------------

TEST(FlipElement, TwiceIsNothingAndOnceNegatesTheVolume) {
  for (const std::int32_t type : kMeshTypes) {
    Model model;
    const ITR element = model.Element(type, CornersOf(type));
    const TArray<ITR> before = model.At(element).nodes;
    const double volume = model.util.GetElemQuantity(element);
    ASSERT_EQ(model.util.FlipElement(element), 1) << type;
    const bool is_solid = CQXMeshUtil::GetElemDim(type) == 3;
    EXPECT_NEAR(model.util.GetElemQuantity(element), is_solid ? -volume : volume, 1e-15) << type;
    EXPECT_EQ(model.At(element).nodes == before, type <= 3) << type;
    // Middles stay between the corners they were between.
    const ElementTopology topology(type);
    for (std::int32_t e = 0; e < topology.Edges(); ++e) {
      TArray<ITR> nodes;
      if (model.util.GetEdgeNodeList({element, e}, nodes, 1) < 3) continue;
      EXPECT_NEAR(model.util.GetNodeDist(nodes[0], nodes[2]),
                  model.util.GetNodeDist(nodes[2], nodes[1]), 1e-15);
      EXPECT_NEAR(model.util.GetNodeDist(nodes[0], nodes[2]) * 2,
                  model.util.GetNodeDist(nodes[0], nodes[1]), 1e-15)
          << type << " edge " << e;
    }
    ASSERT_EQ(model.util.FlipElement(element), 1);
    EXPECT_EQ(model.At(element).nodes, before) << type;
  }
}

TEST(FlipElement, LeavesOtherCodesAlone) {
  Model model;
  const ITR hex = model.Element(14, CornersOf(14));
  for (const std::int32_t type : {0, 16, 30, 81, 87, -1}) {
    tagTElem changed = model.At(hex);
    changed.type = type;
    Pool<tagTElem>(model.session).SetAtNU(hex, changed);
    const std::size_t steps = model.session.History().Done().size();
    EXPECT_EQ(model.util.FlipElement(hex), 0) << type;
    EXPECT_EQ(model.session.History().Done().size(), steps);
  }
}

TEST(IsValidNormalSolid, MendsAndStillSaysNo) {
  for (const std::int32_t type : kMeshTypes) {
    Model model;
    std::vector<Point3> corners = CornersOf(type);
    const bool is_solid = CQXMeshUtil::GetElemDim(type) == 3;
    EXPECT_EQ(model.util.IsValidNormalSolid(model.Element(type, corners), 1), 1) << type;
    for (Point3& p : corners) p.z = -p.z;
    const ITR inverted = model.Element(type, corners);
    const TArray<ITR> before = model.At(inverted).nodes;
    EXPECT_EQ(model.util.IsValidNormalSolid(inverted, 0), is_solid ? 0 : 1) << type;
    EXPECT_EQ(model.At(inverted).nodes, before) << "asked only";
    EXPECT_EQ(model.util.IsValidNormalSolid(inverted, 1), is_solid ? 0 : 1) << type;
    EXPECT_EQ(model.util.IsValidNormalSolid(inverted, 0), 1) << type;
  }
}

TEST(IsValidNormalSolid, ExchangesTheListedNodesOfAHexahedron) {
  Model model;
  std::vector<Point3> corners = CornersOf(14);
  for (Point3& p : corners) p.z = -p.z;
  const ITR hex = model.Element(14, corners);
  const TArray<ITR> n = model.At(hex).nodes;
  EXPECT_EQ(model.util.IsValidNormalSolid(hex, 1), 0);
  EXPECT_EQ(model.At(hex).nodes, (TArray<ITR>{n[0], n[3], n[2], n[1], n[4], n[7], n[6], n[5]}));
}

TEST(CalcCollapseTetra, IsOneForARegularAndNothingForAFlatOne) {
  Model model;
  int face = -1;
  EXPECT_NEAR(model.util.CalcCollapseTetra(model.Element(8, CornersOf(8)), &face), 1, 1e-7);
  EXPECT_EQ(face, 0);
  const ITR flat =
      model.Element(8, std::vector<Point3>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}});
  EXPECT_EQ(model.util.CalcCollapseTetra(flat, nullptr), 0);
  // Low over one face: the corner above it is named.
  for (int low = 0; low < 4; ++low) {
    std::vector<Point3> p = CornersOf(8);
    Point3 foot;
    for (int i = 0; i < 4; ++i) {
      if (i != low) foot += (1.0 / 3) * p[static_cast<std::size_t>(i)];
    }
    p[static_cast<std::size_t>(low)] = foot + 0.1 * (p[static_cast<std::size_t>(low)] - foot);
    const double quality = model.util.CalcCollapseTetra(model.Element(8, p), &face);
    EXPECT_EQ(face, low);
    EXPECT_NEAR(quality, 0.1, 1e-7);
  }
}

// ---- measures -----------------------------------------------------------------------------------

TEST(Measures, FacesOfAClosedSolidSumToNothing) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> move(-0.2, 0.2);
  for (const std::int32_t type : {8, 9, 10, 11, 12, 13, 14, 15}) {
    Model model;
    std::vector<Point3> corners = CornersOf(type);
    // A linear map keeps faces plane, for which normal times area is the vector area.
    const double a = move(random), b = move(random), c = move(random);
    for (Point3& p : corners) p = {p.x + a * p.y, p.y + b * p.z, p.z + c * p.x};
    const ITR element = model.Element(type, corners);
    Point3 sum;
    double flux = 0;
    for (std::int32_t f = 0; f < ElementTopology(type).Faces(); ++f) {
      double n[3], center[3];
      ASSERT_EQ(model.util.GetElemSideNormal({element, f}, n), 1);
      ASSERT_EQ(model.util.GetElemCenter(3, {element, f}, center), 1);
      const Point3 area =
          model.util.GetFaceArea(tagTElemSide{element, f}) * Point3(n[0], n[1], n[2]);
      sum += area;
      TArray<ITR> nodes;
      model.util.GetFaceNodeList({element, f}, nodes, 0);
      flux += Dot(area, Pool<tagTNode>(model.session).GetAtNU(nodes[0]).position) / 3;
    }
    EXPECT_LT(Length(sum), 1e-14) << type;
    EXPECT_NEAR(flux, model.util.GetElemQuantity(element), 1e-14) << "outwards, " << type;
  }
}

TEST(Measures, QuantityByCode) {
  struct Row {
    std::vector<std::int32_t> codes;
    double size;
  };
  const Row rows[] = {
      {{2, 3, 37, 46, 47, 54, 56, 57, 71, 72, 79, 80, 82, 83}, 1},
      {{4, 5, 48, 49, 60, 61, 73, 74, 84, 85}, std::sqrt(3.0) / 4},
      {{6, 7, 50, 51, 62, 63, 65, 66, 75, 76, 86, 87}, 1},
      {{8, 9}, std::sqrt(2.0) / 12},
      {{10, 11}, std::sqrt(2.0) / 6},
      {{12, 13, 67, 68}, std::sqrt(3.0) / 4},
      {{14, 15, 69, 70}, 1},
  };
  std::set<std::int32_t> measured;
  for (const Row& row : rows) {
    for (const std::int32_t code : row.codes) {
      Model model;
      const ITR element = model.Element(code, CornersOf(code));
      EXPECT_NEAR(model.util.GetElemQuantity(element), row.size, 1e-15) << code;
      measured.insert(code);
    }
  }
  for (std::int32_t code = -1; code < 90; ++code) {
    if (measured.contains(code)) continue;
    Model model;
    std::vector<int> places;
    for (int i = 0; i < 20; ++i)
      places.push_back(model.Node({1.0 * i * i, 2.0 * i, 1.0 * (i % 3)}));
    EXPECT_EQ(model.util.GetElemQuantity(model.Element(code, places)), 0) << code;
  }
}

TEST(Measures, MinimumLengthWalksTheListAsItStands) {
  Model model;
  // The list jumps from the last corner to the first middle, and closes from the last middle.
  const ITR quad = model.Element(7, CornersOf(7));
  const TArray<ITR> n = model.At(quad).nodes;
  double least = 1e20;
  for (std::int32_t i = 0; i < 8; ++i) {
    least = std::min(least, model.util.GetNodeDist(n[i], n[(i + 1) % 8]));
  }
  EXPECT_DOUBLE_EQ(model.util.GetElemMinLength({quad, 99}), least);
  EXPECT_NEAR(least, 0.5, 1e-15) << "from the last middle to the first corner";
  const ITR hex = model.Element(14, CornersOf(14));
  EXPECT_EQ(model.util.GetElemMinLength({hex, 0}), 1);
  EXPECT_EQ(model.util.GetElemMinLength({model.Element(1, std::vector<int>{0}), 0}), 0);
}

TEST(Measures, EdgesFaceOutOfTheElement) {
  Model model;
  const ITR quad = model.Element(6, CornersOf(6));
  const Point3 wanted[4] = {{0, -1, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}};
  for (std::int32_t e = 0; e < 4; ++e) {
    double n[3];
    ASSERT_EQ(model.util.GetElemEdgeSideOutward({quad, e}, n), 1);
    EXPECT_LT(Length(Point3(n[0], n[1], n[2]) - wanted[e]), 1e-15);
    EXPECT_EQ(model.util.GetEdgeLength({quad, e}), 1);
  }
  double n[3];
  const ITR hex = model.Element(14, CornersOf(14));
  EXPECT_EQ(model.util.GetElemEdgeSideOutward({hex, 0}, n), 0);
}

TEST(Measures, NormalsOfEdgesAreOfTheirOwnNodes) {
  Model model;
  double n[3] = {9, 9, 9};
  EXPECT_EQ(model.util.GetElemEdgeSideNormal({model.Element(6, CornersOf(6)), 0}, n), 0);
  EXPECT_EQ(n[2], 0) << "two nodes";
  const ITR quad = model.Element(7, CornersOf(7));
  EXPECT_EQ(model.util.GetElemEdgeSideNormal({quad, 0}, n), 0) << "three on a line";
  std::vector<int> places;
  for (const Point3& p :
       {Point3(0, 0, 0), Point3(1, 0, 0), Point3(1, 1, 0), Point3(0, 1, 0), Point3(0.5, -0.2, 0),
        Point3(1, 0.5, 0), Point3(0.5, 1, 0), Point3(0, 0.5, 0)}) {
    places.push_back(model.Node(p));
  }
  ASSERT_EQ(model.util.GetElemEdgeSideNormal({model.Element(7, places), 0}, n), 1);
  EXPECT_EQ(n[2], -1) << "from corner to corner to the middle";
}

TEST(Measures, TypesOfSides) {
  const std::vector<int> faces[16] = {{},
                                      {},
                                      {},
                                      {},
                                      {4},
                                      {5},
                                      {6},
                                      {7},
                                      {4, 4, 4, 4},
                                      {5, 5, 5, 5},
                                      {6, 4, 4, 4, 4},
                                      {7, 5, 5, 5, 5},
                                      {4, 4, 6, 6, 6},
                                      {5, 5, 7, 7, 7},
                                      {6, 6, 6, 6, 6, 6},
                                      {7, 7, 7, 7, 7, 7}};
  for (const std::int32_t type : kMeshTypes) {
    Model model;
    const ITR element = model.Element(type, CornersOf(type));
    EXPECT_EQ(model.util.GetNodeCountByElem(element), model.At(element).nodes.GetSize());
    for (std::int32_t side = -1; side < 13; ++side) {
      const auto s = static_cast<std::size_t>(side);
      const bool has = side >= 0 && s < faces[type].size();
      EXPECT_EQ(model.util.GetFaceType({element, side}), has ? faces[type][s] : 0) << type << side;
      const bool has_edge = side >= 0 && side < ElementTopology(type).Edges();
      EXPECT_EQ(model.util.GetEdgeType({element, side}), has_edge ? 2 + type % 2 : 0) << type;
    }
  }
}

TEST(Measures, NormalsComeInDisplayUnitsAndCentersInModelUnits) {
  Model model;
  const ITR tri = model.Element(4, std::vector<Point3>{{0, 0, 0}, {2, 0, 0}, {0, 2, 0}});
  const TArray<ITR> n = model.At(tri).nodes;
  double normal[3], center[3];
  EXPECT_EQ(model.util.GetNormalVecByNodes(n[0], n[1], n[2], normal), 1);
  EXPECT_EQ(normal[2], 1);
  EXPECT_EQ(model.util.GetNormalVecByNodes(n[0], n[2], n[1], normal), 1);
  EXPECT_EQ(normal[2], -1);
  EXPECT_EQ(model.util.GetNormalVecByNodes(n[0], n[1], n[1], normal), 0) << "no plane";
  EXPECT_EQ(model.util.GetNormalVecByNodes(n[0], 0, n[1], normal), 0);
  EXPECT_EQ(model.util.GetElemCenter(tri, center), 1);
  EXPECT_NEAR(center[0], 2.0 / 3, 1e-15);
  double box[6];
  EXPECT_EQ(model.util.GetNodeBoundingBox(&model.session, {n[0], n[1], n[2], 0}, box), 1);
  EXPECT_EQ(std::vector<double>(box, box + 6), (std::vector<double>{0, 0, 0, 2, 2, 0}));
}

// ---- lists --------------------------------------------------------------------------------------

TEST(Lists, NodesOfElementsAndWhatTheyShare) {
  Model model;
  model.Block(2, 1, 1);
  const TArray<ITR> both{model.elements[0], model.elements[1]};
  TArray<ITR> nodes;
  EXPECT_EQ(model.util.GetNodeListByElemItrArray(both, nodes, 0), 12);
  std::vector<ITR> sorted = ToVector(nodes);
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(std::unique(sorted.begin(), sorted.end()), sorted.end());
  EXPECT_EQ(model.util.GetCommonNodeListByElemItrArray(both, nodes, 0), 4);
  for (const ITR node : nodes) {
    EXPECT_EQ(Point3(Pool<tagTNode>(model.session).GetAtNU(node).position).x, 1);
  }
  EXPECT_EQ(model.util.GetCommonNodeListByElemItrArray({model.elements[0], 0}, nodes, 0), 0);
  EXPECT_EQ(model.util.GetCommonNodeListByElemItrArray({}, nodes, 0), 0);
  TArray<ITR> in_place = both;
  EXPECT_EQ(model.util.GetCommonNodeListByElemItrArray(in_place, in_place, 0), 4);
  const ITR quadratic = model.Element(15, CornersOf(15));
  EXPECT_EQ(model.util.GetNodeListByElemItrArray({quadratic}, nodes, 0), 8);
  EXPECT_EQ(model.util.GetNodeListByElemItrArray({quadratic, 0}, nodes, 1), 20);
  const TArray<tagTElemSide> sides{{quadratic, 0}, {quadratic, 2}};
  EXPECT_EQ(model.util.GetNodeListByElemSideArray(3, sides, nodes, 0), 6);
  EXPECT_EQ(model.util.GetNodeListByElemSideArray(3, sides, nodes, 1), 13);
  EXPECT_EQ(model.util.GetSequenceNodeListByElemSideArray(3, sides, nodes, 1), 16);
  EXPECT_EQ(model.util.GetEdgeSequenceNodeListByElemSideArray(sides, nodes, 1), 6);
  EXPECT_EQ(model.util.GetNodeListByElemSideArray(5, sides, nodes, 1), 0);
}

TEST(Lists, KeepTheScratchNumbersOfOthers) {
  Model model;
  model.Block(2, 2, 1);
  auto& pool = Pool<tagTNode>(model.session);
  for (std::size_t i = 0; i < model.nodes.size(); ++i) {
    pool.SetParamIdx(model.nodes[i], static_cast<std::uint32_t>(7 * i));
  }
  TArray<ITR> nodes;
  const TArray<ITR> all{model.elements[0], model.elements[1], model.elements[3]};
  EXPECT_EQ(model.util.GetNodeListByElemItrArray(all, nodes, 1), 16);
  for (std::size_t i = 0; i < model.nodes.size(); ++i) {
    EXPECT_EQ(pool.GetParamIdx(model.nodes[i]), 7 * i);
  }
}

TEST(Lists, OnGeometry) {
  Model model;
  model.Block(2, 1, 1);
  tagTGKey face, vertex, elsewhere;
  face.key = 1;
  face.SetItem(tagTGKey::kFace, 5);
  vertex.key = 2;
  vertex.SetItem(tagTGKey::kVertex, 1);
  elsewhere.key = 3;
  elsewhere.body = 9;
  auto& gkeys = Pool<tagTGKey>(model.session);
  const ITR on_face = gkeys.InsertNU(face), on_vertex = gkeys.InsertNU(vertex);
  const ITR off = gkeys.InsertNU(elsewhere);
  const auto add = [&](Key key, ITR gkey, const tagTGElem& old_data, const tagTGElem& data) {
    auto& entries = Pool<tagTGElem>(model.session);
    tagTGElemHead head;
    head.key = key;
    head.geometry_key = gkey;
    head.data = {entries.InsertNU(old_data), entries.InsertNU(data)};
    return Pool<tagTGElemHead>(model.session).InsertNU(head);
  };
  tagTGElem old_data, data, at_vertex;
  old_data.key = 1;
  old_data.elements[0] = {model.elements[1]};
  data.key = 2;
  data.elements[0] = {model.elements[0]};
  data.elements[5] = {model.elements[0], model.elements[1]};
  const ITR head = add(1, on_face, old_data, data);
  old_data.key = 3;
  at_vertex.key = 4;
  at_vertex.node = model.nodes[3];
  add(2, on_vertex, old_data, at_vertex);

  const TArray<tagTElemSide> wanted{
      {model.elements[0], 0}, {model.elements[0], 5}, {model.elements[1], 5}};
  TArray<tagTElemSide> sides;
  EXPECT_EQ(model.util.GetElemSideListByGElemItr(head, sides), 3);
  EXPECT_EQ(sides, wanted);
  EXPECT_EQ(model.util.GetElemSideListByGKeyItr(on_face, sides, 7u), 3);
  EXPECT_EQ(sides, wanted);
  EXPECT_EQ(model.util.GetElemSideListByGKeyItrArray({on_face, off, 0, on_face}, sides), 6);
  // Many keys are looked up in another way.
  EXPECT_EQ(model.util.GetElemSideListByGKeyItrArray(
                {off, off, on_face, off, off, off, on_face, on_face, off}, sides),
            9);
  TArray<ITR> list;
  EXPECT_EQ(model.util.GetElemListByGKeyItr(on_face, list), 2) << "each once";
  EXPECT_EQ(model.util.GetNodeListByGKeyItr(on_face, list, 0), 8) << "of faces 0 and 5";
  EXPECT_EQ(model.util.GetNodeListByGKeyItr(on_vertex, list, 0), 1);
  EXPECT_EQ(list[0], model.nodes[3]);
  EXPECT_EQ(model.util.GetBodyElemListByGKeyItr(on_vertex, list), 2) << "the face is of its body";
  EXPECT_EQ(model.util.GetBodyElemListByGKeyItr(off, list), 0);
  tagTMset set;
  set.key = 1;
  set.nodes = {model.nodes[1], model.nodes[2]};
  set.elements = {model.elements[1]};
  const ITR mset = Pool<tagTMset>(model.session).InsertNU(set);
  EXPECT_EQ(model.util.GetNodeListByMsetItrArray({mset, mset}, list), 2);
  EXPECT_EQ(model.util.GetElemListByMsetItrArray({mset, 0}, list), 1);
}

// ---- bad input ----------------------------------------------------------------------------------

TEST(BadInput, GivesNothing) {
  Model model;
  model.Block(1, 1, 1);
  const ITR hex = model.elements[0];
  const ITR short_one = model.Element(14, std::vector<int>{0, 1, 2});
  const ITR unknown = model.Element(20, std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7});
  const ITR holed = model.Element(14, std::vector<int>{0, 1, 3, 2, 4, 5, 7, 6});
  tagTElem with_hole = model.At(holed);
  with_hole.nodes[0] = 0;
  Pool<tagTElem>(model.session).SetAtNU(holed, with_hole);
  // Removed, but alive in the history: what a careless caller may still hold.
  CTransaction transaction(&model.session);
  transaction.Begin(u"remove");
  const ITR stale = model.Element(14, std::vector<int>{0, 1, 3, 2, 4, 5, 7, 6});
  ASSERT_TRUE(Pool<tagTElem>(model.session).Remove(stale));
  ASSERT_TRUE(transaction.Commit());

  for (const ITR bad : {ITR{0}, short_one, unknown, holed, stale}) {
    double v[3];
    TArray<ITR> list{hex};
    EXPECT_EQ(model.util.GetElemQuantity(bad), 0.0);
    EXPECT_EQ(model.util.GetElemVolume(bad), 0.0);
    EXPECT_EQ(model.util.GetFaceArea(bad), 0.0);
    EXPECT_EQ(model.util.GetFaceArea(tagTElemSide{bad, 0}), 0.0);
    EXPECT_EQ(model.util.GetElemSideNormal({bad, 0}, v), 0);
    EXPECT_EQ(model.util.CalcCollapseTetra(bad, nullptr), 0.0);
    EXPECT_EQ(model.util.GetEdgeLength({bad, 0}), 0.0);
    EXPECT_EQ(model.util.Get1DElemPerimeter(bad), 0.0);
    if (bad == holed) continue;
    EXPECT_LE(model.util.GetCommonNodeListByElemItrArray({hex, bad}, list, 0), 3);
    EXPECT_EQ(model.util.GetFaceNodeList({bad, 0}, list, 1), 0);
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(model.util.FlipElement(bad), 0);
  }
  EXPECT_EQ(model.util.GetElemMinLength({holed, 0}), 0.0);
  EXPECT_EQ(model.util.GetElemMinLength({0, 0}), 0.0);
  std::list<std::list<int>> groups;
  EXPECT_EQ(model.util.GroupElemSide(3, {{hex, 0}, {0, 0}, {holed, 1}, {hex, 77}}, groups), 4);
  EXPECT_EQ(model.util.GroupElemSide(5, {{hex, 0}}, groups), 0) << "neither faces nor edges";
  TArray<tagTElemSide> start, end;
  EXPECT_EQ(model.util.ConvertStartEndElem(3, {}, start, end, nullptr), 0);
  EXPECT_EQ(model.util.ConvertStartEndElem(3, {{0, 0}}, start, end, nullptr), 0);
  const CQXMeshUtil nobody(nullptr);
  TArray<ITR> list;
  EXPECT_EQ(nobody.GetElemListByGKeyItr(0, list), 0);
  EXPECT_EQ(nobody.FlipElement(hex), 0);
  EXPECT_EQ(nobody.IsNodeQuadraticFor1D(model.nodes[0]), 0);
}

TEST(BadInput, CoordinatesThatAreNoNumbersReachMeasuresOnly) {
  const double nan = std::nan("");
  for (const std::int32_t type : kMeshTypes) {
    Model model;
    std::vector<Point3> corners = CornersOf(type);
    const ITR sound = model.Element(type, corners);
    corners[0] = {nan, 0, 0};
    const ITR element = model.Element(type, corners);
    double v[3], box[6];
    EXPECT_TRUE(std::isnan(model.util.GetElemQuantity(element))) << type;
    EXPECT_EQ(model.util.GetElemSideNormal({element, 0}, v), 0) << type;
    EXPECT_EQ(model.util.IsValidNormalSolid(element, 1), CQXMeshUtil::GetElemDim(type) < 3);
    EXPECT_EQ(model.util.CalcCollapseTetra(element, nullptr), 0);
    EXPECT_GT(model.util.GetElemMinLength({element, 0}), 0) << "of the other nodes";
    const auto& nodes = model.At(element).nodes;
    const std::set<ITR> all(nodes.begin(), nodes.end()), first{nodes[0]};
    EXPECT_EQ(model.util.GetNodeBoundingBox(&model.session, all, box), 1);
    EXPECT_TRUE(std::isfinite(box[0]) && std::isfinite(box[3])) << type;
    EXPECT_EQ(model.util.GetNodeBoundingBox(&model.session, first, box), 0);
    EXPECT_GT(model.util.GetElemMinLength({sound, 0}), 0);
  }
}

// ---- grouping -----------------------------------------------------------------------------------

TEST(GroupElemSide, AgreesWithSpreadingNumbersUntilNothingChanges) {
  std::mt19937 random(11);
  for (int trial = 0; trial < 20; ++trial) {
    Model model;
    model.Sheet(8, 8);
    TArray<tagTElemSide> sides;
    for (const ITR element : model.elements) {
      if (random() % 3 == 0) sides.Add({element, 0});
    }
    std::vector<int> group(sides.size());
    std::vector<TArray<ITR>> nodes(sides.size());
    for (std::size_t i = 0; i < sides.size(); ++i) {
      group[i] = static_cast<int>(i);
      model.util.GetFaceNodeList(sides[static_cast<std::ptrdiff_t>(i)], nodes[i], 0);
    }
    const auto meet = [&](std::size_t a, std::size_t b) {
      return std::any_of(nodes[a].begin(), nodes[a].end(), [&](ITR n) {
        return std::find(nodes[b].begin(), nodes[b].end(), n) != nodes[b].end();
      });
    };
    for (bool changed = true; changed;) {
      changed = false;
      for (std::size_t a = 0; a < group.size(); ++a) {
        for (std::size_t b = 0; b < group.size(); ++b) {
          if (group[b] < group[a] && meet(a, b)) group[a] = group[b], changed = true;
        }
      }
    }
    std::list<std::list<int>> groups;
    model.util.GroupElemSide(3, sides, groups);
    std::size_t placed = 0;
    int before = -1;
    for (const std::list<int>& members : groups) {
      EXPECT_GT(members.front(), before) << "in the order of first members";
      before = members.front();
      for (const int member : members) {
        EXPECT_EQ(group[static_cast<std::size_t>(member)], before);
        ++placed;
      }
    }
    EXPECT_EQ(placed, sides.size());
  }
}

TEST(GroupElemSide, JoinsAFanAroundOneNode) {
  Model model;
  const int hub = model.Node({0, 0, 0});
  TArray<tagTElemSide> sides;
  for (int i = 0; i < 10000; ++i) {
    const double a = 2 * 3.14159265358979 * i / 10000;
    const int p = model.Node({std::cos(a), std::sin(a), 0});
    const int q = model.Node({std::cos(a + 1e-4), std::sin(a + 1e-4), 0});
    sides.Add({model.Element(4, std::vector<int>{hub, p, q}), 0});
  }
  std::list<std::list<int>> groups;
  EXPECT_EQ(model.util.GroupElemSide(3, sides, groups), 1);
  EXPECT_EQ(groups.front().size(), 10000u);
}

TEST(ConvertStartEndElem, SplitsTheFacesOfACubeByDirection) {
  Model model;
  model.Block(1, 1, 1);
  TArray<tagTElemSide> sides, start, end;
  for (std::int32_t f = 0; f < 6; ++f) sides.Add({model.elements[0], f});
  sides.Add({0, 0});
  EXPECT_EQ(model.util.ConvertStartEndElem(3, sides, start, end, nullptr), 1);
  EXPECT_EQ(end.GetSize(), 1) << "only the top is more than a right angle from the bottom";
  EXPECT_EQ(end[0].side, 1);
  EXPECT_EQ(start.GetSize(), 5);
  const double up[3] = {0, 0, 1};
  EXPECT_EQ(model.util.ConvertStartEndElem(3, sides, start, end, up), 1);
  EXPECT_EQ(end.GetSize(), 1);
  EXPECT_EQ(end[0].side, 0);
  EXPECT_EQ(model.util.ConvertStartEndElem(3, sides, sides, end, up), 1);
  EXPECT_EQ(sides, start) << "in place";
}

// ---- dividing -----------------------------------------------------------------------------------

TEST(GetPosListBtwManyNode, DividesIntoPartsOfOneLength) {
  using Points = TArray<tagTVector3<double>>;
  const Model model;
  const Points corner{{0, 0, 0}, {3, 0, 0}, {3, 4, 0}, {3, 4, 5}};
  for (const std::int32_t n : {1, 2, 3, 5, 11, 100}) {
    Points out;
    ASSERT_EQ(model.util.GetPosListBtwManyNode(corner, n, out), n);
    ASSERT_EQ(out.GetSize(), n);
    for (std::int32_t i = 0; i < n; ++i) {
      const double along = 12.0 * (i + 1) / (n + 1);
      const Point3 wanted = along <= 3   ? Point3(along, 0, 0)
                            : along <= 7 ? Point3(3, along - 3, 0)
                                         : Point3(3, 4, along - 7);
      EXPECT_LT(Length(Point3(out[i]) - wanted), 1e-12) << n << ' ' << i;
    }
    CArray<tagTVector3<double>> points, divided;
    for (const auto& p : corner) points.Add(p);
    ASSERT_EQ(model.util.GetPosListBtwManyNode(points, n, divided), n);
    for (std::int32_t i = 0; i < n; ++i) EXPECT_EQ(divided[i], out[i]);
  }
  Points out{{1, 1, 1}};
  EXPECT_EQ(model.util.GetPosListBtwManyNode({}, 3, out), 0);
  EXPECT_TRUE(out.IsEmpty());
  EXPECT_EQ(model.util.GetPosListBtwManyNode(corner, 0, out), 0);
  const double nan = std::nan("");
  EXPECT_EQ(model.util.GetPosListBtwManyNode({{0, 0, 0}, {nan, 0, 0}}, 2, out), 2);
  EXPECT_EQ(model.util.GetPosListBtwManyNode({{1, 0, 0}, {1, 0, 0}}, 2, out), 2);
  EXPECT_EQ(out[1], (tagTVector3<double>{}));
}

}  // namespace
}  // namespace qx
