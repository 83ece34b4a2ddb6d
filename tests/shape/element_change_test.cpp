// Divided elements and elements of another order: laws over meshes of every kind of element.

#include "qx_db/shape/element_change.h"

#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/element_division.h"
#include "qx_db/mesh/mesh_adjacency.h"

#include "tests/shape/shape_model.h"

namespace qx {
namespace {

using namespace testing;

TEST(Division, OfOneElementFillsItWhateverTheOrder) {
  std::mt19937 random(5);
  const std::map<CornerShape, std::size_t> kParts = {{CornerShape::kQuadrilateral, 2},
                                                     {CornerShape::kPyramid, 2},
                                                     {CornerShape::kWedge, 3},
                                                     {CornerShape::kHexahedron, 6},
                                                     {CornerShape::kTetrahedron, 0}};
  for (const auto& [shape, count] : kParts) {
    const auto corners = IdealCorners(shape);
    const double whole = ShapeSize(shape, corners.data());
    std::vector<std::uint64_t> order(corners.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i + 1;
    for (int trial = 0; trial < 200; ++trial) {
      std::shuffle(order.begin(), order.end(), random);
      const auto parts = DivisionOf(shape, order);
      ASSERT_EQ(parts.size(), count);
      double sum = 0;
      for (const SimplexPlaces& part : parts) {
        Point3 p[4];
        for (std::size_t i = 0; i < 4 && part[i] >= 0; ++i) {
          p[i] = corners[static_cast<std::size_t>(part[i])];
        }
        const double size = part[3] < 0 ? Cross(p[1] - p[0], p[2] - p[0]).z / 2 : SolidVolume(4, p);
        EXPECT_GT(size, 0);
        sum += size;
      }
      if (count) {
        EXPECT_NEAR(sum, whole, 1e-14);
      }
    }
  }
}

class Splitting : public ::testing::TestWithParam<bool> {};

TEST_P(Splitting, KeepsVolumeSurfaceSetsAndSides) {
  const bool quadratic = GetParam();
  for (unsigned seed = 1; seed <= 5; ++seed) {
    std::mt19937 random(seed);
    Model model;
    MixedBlock(model, random, quadratic);
    CQXDBSession& session = model.session;
    const auto wholes = All<tagTElem>(session);
    const ITR some = AddSet(model, u"some", {wholes[0], wholes[1], wholes.back()});
    tagTE2DThick thick;
    thick.key = 1;
    thick.uniform = 0;
    thick.elements.Add(wholes.back());
    for (int i = 0; i < 4; ++i) thick.thickness[i] = 1 + i;
    Pool<tagTE2DThick>(session).InsertNU(thick);
    tagTOpti sides;  // lists every face of the first whole, by side
    sides.key = 1;
    for (std::int32_t f = 0; f < 6; ++f) sides.sides.Add({wholes[0], f});
    Pool<tagTOpti>(session).InsertNU(sides);
    const std::uint64_t before = session.StateHash();
    const Sizes sizes = SizesOf(session);
    int euler = 0;
    std::size_t outer = 0;
    {
      const DenseMesh mesh(session);
      euler = EulerOfSurface(mesh);
      for (const DenseSide& side : OuterFaces(mesh)) {
        const ElementTopology type(mesh.Element(side.element).type);
        outer += type.FaceCorners(static_cast<std::int32_t>(side.side)) == 4 ? 2 : 1;
      }
      EXPECT_EQ(euler, 2);
    }
    std::map<ITR, tagTElem> was;
    for (const ITR whole : wholes) was[whole] = *ElementAt(whole);
    std::map<Key, tagTElem> by_key;
    for (const auto& [itr, element] : was) by_key[element.key] = element;

    const ShapeReport report = Do(session, SplitElements, wholes);

    EXPECT_TRUE(report.notes.empty()) << report.notes[0].what;
    const Sizes now = SizesOf(session);
    EXPECT_GT(now.least_volume, 0);
    EXPECT_NEAR(now.total[3], sizes.total[3], 1e-12);
    EXPECT_NEAR(now.total[2], sizes.total[2], 1e-12);
    EXPECT_EQ(now.count[3], 9 * 6 + 4 * 3 + 6 * 2);
    EXPECT_EQ(now.count[2], 2);
    const DenseMesh mesh(session);
    EXPECT_EQ(EulerOfSurface(mesh), euler);
    EXPECT_EQ(OuterFaces(mesh).size(), outer) << "faces that do not fit are outer ones too";
    EXPECT_TRUE(LooseFaces(mesh).shared.empty());
    for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
      const std::int32_t type = mesh.Element(e).type;
      EXPECT_EQ(mesh.Faults(e), 0);
      EXPECT_TRUE(quadratic ? type == element::kTet10 || type == element::kTri6
                            : type == element::kTet4 || type == element::kTri3);
      if (!quadratic) continue;
      const ElementTopology topology(type);
      for (std::int32_t edge = 0; edge < topology.Edges(); ++edge) {
        const auto places = topology.Edge(edge, true);
        const auto p = [&](std::size_t i) {
          return mesh.Position(mesh.Nodes(e)[static_cast<std::size_t>(places[i])]);
        };
        EXPECT_LT(Distance(p(2), 0.5 * (p(0) + p(1))), 1e-14) << "straight edges stay straight";
      }
    }
    const auto& set = Pool<tagTMset>(session).GetAtNU(some);
    EXPECT_EQ(set.elements.GetSize(), 6 + 6 + 2) << "a set that held a whole holds its parts";
    const std::set<ITR> listed(set.nodes.begin(), set.nodes.end());
    for (const ITR element : set.elements) {
      for (const ITR node : ElementAt(element)->nodes) EXPECT_TRUE(listed.contains(node));
    }
    const auto& after = Pool<tagTOpti>(session).GetAtNU(All<tagTOpti>(session)[0]);
    EXPECT_EQ(after.sides.GetSize(), 12);
    double area = 0;
    const CQXMeshUtil util(&session);
    for (const tagTElemSide& side : after.sides) area += util.GetFaceArea(side);
    Model cube;
    cube.Block(1, 1, 1);
    EXPECT_NEAR(area, 2 + 2 + 2 * std::sqrt(1 + 0.2 * 0.2), 1e-12);
    std::map<Key, double> thickness;  // by corner node
    const auto& plate = by_key.at(KeyOf(wholes.back()));
    for (int i = 0; i < 4; ++i) thickness[KeyOf(plate.nodes[i])] = 1 + i;
    std::size_t plates = 0;
    for (const ITR at : All<tagTE2DThick>(session)) {
      const auto& record = Pool<tagTE2DThick>(session).GetAtNU(at);
      for (const ITR element : record.elements) {
        ++plates;
        for (int i = 0; i < 3; ++i) {
          EXPECT_EQ(+record.thickness[i], thickness[KeyOf(ElementAt(element)->nodes[i])]);
        }
      }
    }
    EXPECT_EQ(plates, 2u);
    ASSERT_TRUE(session.Undo());
    EXPECT_EQ(session.StateHash(), before);
  }
}
INSTANTIATE_TEST_SUITE_P(Orders, Splitting, ::testing::Bool());

TEST(Splitting, TellsOfNeighboursThatNoLongerFit) {
  Model model;
  model.Block(2, 1, 1);
  const ShapeReport report = Do(model.session, SplitElements, {model.elements[0]});
  ASSERT_EQ(report.notes.size(), 1u);
  EXPECT_EQ(report.notes[0].count, 1);
  ShapeReport none;
  EXPECT_FALSE(AsStep(model.session, [&] { return SplitElements(model.session, {}, none); }));
}

TEST(Splitting, PutsTheNodeOfADiagonalOntoTheCurvedElement) {
  // A hexahedron of 20 nodes with its corners on a sphere's shell: nodes within are where shape
  // functions have them, so that both elements at a face agree and a plane stays a plane.
  Model model;
  const ITR hex = model.Element(element::kHex20, IdealCorners(CornerShape::kHexahedron));
  auto& nodes = Pool<tagTNode>(model.session);
  const auto bend = [](const Point3& p) { return Point3(p.x, p.y, p.z + 0.3 * p.x * (1 - p.x)); };
  for (const ITR itr : model.nodes) {
    tagTNode node = nodes.GetAtNU(itr);
    const Point3 at = bend(Point3(node.position));
    node.position = {at.x, at.y, at.z};
    nodes.SetAtNU(itr, node);
  }
  Do(model.session, SplitElements, {hex});
  // The bend is quadratic in x alone, which the functions of 20 nodes hold exactly.
  std::size_t made = 0;
  for (const ITR itr : All<tagTNode>(model.session)) {
    if (KeyOf(itr) <= 20) continue;
    ++made;
    const Point3 p(NodeAt(itr)->position);
    EXPECT_NEAR(std::abs(p.x - 0.5) < 1e-12 ? p.x : 0.5 * std::round(2 * p.x), p.x, 1e-12);
    const Point3 flat(p.x, p.y, p.z - 0.3 * p.x * (1 - p.x));
    EXPECT_NEAR(flat.z, 0.5 * std::round(2 * flat.z), 1e-12);
  }
  EXPECT_EQ(made, 7u) << "six faces and the middle";
}

// ---- order --------------------------------------------------------------------------------------

TEST(Order, ThereAndBackIsWhereItWas) {
  std::mt19937 random(2);
  Model model;
  MixedBlock(model, random, false);
  Zoo(model, random);
  Do(model.session, ToLinear, All<tagTElem>(model.session));
  CQXDBSession& session = model.session;
  const ITR set = AddSet(model, u"set", {model.elements[0]});
  tagTMset nodes_only;
  nodes_only.key = 50;
  nodes_only.name.Set(u"edge");
  const ITR line = model.elements[0];
  nodes_only.nodes.Add(ElementAt(line)->nodes[0]);
  nodes_only.nodes.Add(ElementAt(line)->nodes[1]);
  const ITR edge = Pool<tagTMset>(session).InsertNU(nodes_only);
  const std::uint64_t before = session.StateHash();
  std::set<std::pair<ITR, ITR>> edges;
  for (const ITR at : All<tagTElem>(session)) {
    const tagTElem& element = *ElementAt(at);
    const ElementTopology type(element.type);
    for (std::int32_t e = 0; e < type.Edges(); ++e) {
      const auto places = type.Edge(e, false);
      edges.insert(std::minmax(+element.nodes[places[0]], +element.nodes[places[1]]));
    }
  }
  const std::int32_t nodes = Pool<tagTNode>(session).GetSize();
  const Sizes sizes = SizesOf(session);

  Do(session, ToQuadratic, All<tagTElem>(session));
  EXPECT_EQ(Pool<tagTNode>(session).GetSize(), nodes + static_cast<std::int32_t>(edges.size()))
      << "one for each edge, whoever shares it";
  EXPECT_EQ(SizesOf(session).total, sizes.total);
  for (const ITR at : All<tagTElem>(session)) {
    const tagTElem& element = *ElementAt(at);
    const ElementTopology type(element.type);
    ASSERT_EQ(element.nodes.GetSize(), type.Nodes());
    for (std::int32_t e = 0; e < type.Edges(); ++e) {
      const auto places = type.Edge(e, true);
      const auto p = [&](std::size_t i) {
        return Point3(NodeAt(element.nodes[places[i]])->position);
      };
      EXPECT_LT(Distance(p(2), 0.5 * (p(0) + p(1))), 1e-14);
    }
  }
  EXPECT_EQ(Pool<tagTMset>(session).GetAtNU(set).nodes.GetSize(), 20);
  EXPECT_EQ(Pool<tagTMset>(session).GetAtNU(edge).nodes.GetSize(), 3);
  const std::uint64_t quadratic = session.StateHash();
  Do(session, ToLinear, All<tagTElem>(session));
  EXPECT_EQ(session.StateHash(), before);
  ASSERT_TRUE(session.Undo());
  EXPECT_EQ(session.StateHash(), quadratic);
  ASSERT_TRUE(session.Undo());
  EXPECT_EQ(session.StateHash(), before);
}

TEST(Order, TakesTheNodesOfANeighbourAndTellsOfOthers) {
  Model model;
  model.Block(3, 1, 1);
  Do(model.session, ToQuadratic, {model.elements[0]});
  const std::int32_t before = Pool<tagTNode>(model.session).GetSize();
  const ShapeReport report = Do(model.session, ToQuadratic, {model.elements[1]});
  EXPECT_EQ(Pool<tagTNode>(model.session).GetSize(), before + 8);
  ASSERT_EQ(report.notes.size(), 1u);
  EXPECT_EQ(report.notes[0].count, 1) << report.notes[0].what;
  const ShapeReport back = Do(model.session, ToLinear, {model.elements[1]});
  ASSERT_EQ(back.notes.size(), 1u);
  EXPECT_EQ(back.notes[0].count, 4) << back.notes[0].what;
}

}  // namespace
}  // namespace qx
