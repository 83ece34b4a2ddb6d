// The topology table against a transcription of its own, and against itself.

#include "qx_db/mesh/topology_table.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <vector>

#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/face_triangles.h"

#include "tests/mesh/mesh_builder.h"

namespace qx {
namespace {

using List = std::vector<std::int32_t>;

/// A quadratic type as it is listed: edges as corner, corner, middle; faces as corners, middles.
struct Listed {
  std::int32_t linear, quadratic;
  std::int32_t corners;
  std::vector<List> edges;
  std::vector<List> faces;
};

const std::vector<Listed>& ListedTypes() {
  static const std::vector<Listed> kTypes = {
      {2, 3, 2, {{0, 1, 2}}, {}},
      {4, 5, 3, {{0, 1, 3}, {1, 2, 4}, {2, 0, 5}}, {{0, 1, 2, 3, 4, 5}}},
      {6, 7, 4, {{0, 1, 4}, {1, 2, 5}, {2, 3, 6}, {3, 0, 7}}, {{0, 1, 2, 3, 4, 5, 6, 7}}},
      {8,
       9,
       4,
       {{0, 1, 4}, {1, 2, 5}, {2, 0, 6}, {0, 3, 7}, {1, 3, 8}, {2, 3, 9}},
       {{0, 2, 1, 6, 5, 4}, {0, 1, 3, 4, 8, 7}, {1, 2, 3, 5, 9, 8}, {2, 0, 3, 6, 7, 9}}},
      {10,
       11,
       5,
       {{0, 1, 5}, {1, 2, 6}, {2, 3, 7}, {3, 0, 8}, {0, 4, 9}, {1, 4, 10}, {2, 4, 11}, {3, 4, 12}},
       {{0, 3, 2, 1, 8, 7, 6, 5},
        {0, 1, 4, 5, 10, 9},
        {1, 2, 4, 6, 11, 10},
        {2, 3, 4, 7, 12, 11},
        {3, 0, 4, 8, 9, 12}}},
      {12,
       13,
       6,
       {{0, 1, 6},
        {1, 2, 7},
        {2, 0, 8},
        {3, 4, 9},
        {4, 5, 10},
        {5, 3, 11},
        {0, 3, 12},
        {1, 4, 13},
        {2, 5, 14}},
       {{0, 2, 1, 8, 7, 6},
        {3, 4, 5, 9, 10, 11},
        {0, 1, 4, 3, 6, 13, 9, 12},
        {1, 2, 5, 4, 7, 14, 10, 13},
        {2, 0, 3, 5, 8, 12, 11, 14}}},
      {14,
       15,
       8,
       {{0, 1, 8},
        {1, 2, 9},
        {2, 3, 10},
        {3, 0, 11},
        {4, 5, 12},
        {5, 6, 13},
        {6, 7, 14},
        {7, 4, 15},
        {0, 4, 16},
        {1, 5, 17},
        {2, 6, 18},
        {3, 7, 19}},
       {{0, 3, 2, 1, 11, 10, 9, 8},
        {4, 5, 6, 7, 12, 13, 14, 15},
        {0, 1, 5, 4, 8, 17, 12, 16},
        {1, 2, 6, 5, 9, 18, 13, 17},
        {2, 3, 7, 6, 10, 19, 14, 18},
        {3, 0, 4, 7, 11, 16, 15, 19}}},
  };
  return kTypes;
}

List Words(std::int32_t code, std::int32_t first, std::size_t count) {
  const std::int32_t* row = topology::RowOf(code);
  return List(row + first, row + first + count);
}

void ExpectRow(const Listed& listed, std::int32_t code, bool quadratic) {
  SCOPED_TRACE("code " + std::to_string(code));
  const auto edges = static_cast<std::int32_t>(listed.edges.size());
  EXPECT_EQ(Words(code, 2, 3),
            (List{listed.corners, listed.corners + (quadratic ? edges : 0), edges}));
  EXPECT_EQ(Words(code, 5, 2), (List{2, quadratic ? 3 : 2}));
  for (std::size_t e = 0; e < 12; ++e) {
    List wanted{0, 0, 0};
    if (e < listed.edges.size()) wanted = listed.edges[e];
    if (!quadratic) wanted[2] = 0;
    EXPECT_EQ(Words(code, 251 + 3 * static_cast<std::int32_t>(e), 3), wanted) << "edge " << e;
  }
  const bool mixed = listed.faces.size() == 5;
  for (std::size_t f = 0; f < 6; ++f) {
    const auto number = static_cast<std::int32_t>(f);
    List wanted(8, 0);
    std::int32_t corners = 0;
    if (f < listed.faces.size()) {
      const List& face = listed.faces[f];
      corners = static_cast<std::int32_t>(face.size() / 2);
      std::copy_n(face.begin(), quadratic ? face.size() : face.size() / 2, wanted.begin());
      if (mixed && corners == 3 && !quadratic) wanted[3] = -1;
    }
    EXPECT_EQ(Words(code, 239 + number, 1)[0], corners) << "face " << f;
    EXPECT_EQ(Words(code, 245 + number, 1)[0], quadratic ? 2 * corners : corners) << "face " << f;
    EXPECT_EQ(Words(code, 287 + 8 * number, 8), wanted) << "face " << f;
  }
}

TEST(TopologyTable, HoldsTheListedTypes) {
  for (const Listed& listed : ListedTypes()) {
    ExpectRow(listed, listed.linear, false);
    ExpectRow(listed, listed.quadratic, true);
  }
}

TEST(TopologyTable, CountsByCode) {
  struct Row {
    std::int32_t code, type_class, sides, corners, nodes, edges;
  };
  const Row rows[] = {
      {1, 1, 0, 1, 1, 0},   {2, 2, 2, 2, 2, 1},   {3, 2, 2, 2, 3, 1},      {4, 3, 3, 3, 3, 3},
      {5, 3, 3, 3, 6, 3},   {6, 3, 4, 4, 4, 4},   {7, 3, 4, 4, 8, 4},      {8, 4, 4, 4, 4, 6},
      {9, 4, 4, 4, 10, 6},  {10, 4, 5, 5, 5, 8},  {11, 4, 5, 5, 13, 8},    {12, 4, 5, 6, 6, 9},
      {13, 4, 5, 6, 15, 9}, {14, 4, 6, 8, 8, 12}, {15, 4, 6, 8, 20, 12},   {81, 5, 2, 2, 2, 1},
      {87, 5, 4, 4, 8, 4},  {0, 0, 0, 0, 0, 0},   {16, 0, 0, 0, 0, 0},     {29, 0, 0, 0, 0, 0},
      {88, 0, 0, 0, 0, 0},  {-1, 0, 0, 0, 0, 0},  {1 << 30, 0, 0, 0, 0, 0}};
  for (const Row& row : rows) {
    EXPECT_EQ(Words(row.code, 0, 5),
              (List{row.type_class, row.sides, row.corners, row.nodes, row.edges}))
        << row.code;
  }
  EXPECT_EQ(Words(1, 5, 2), (List{1, 1}));
  for (std::int32_t code : {0, 16, 29, 88}) {
    EXPECT_EQ(Words(code, 0, 337), List(337, 0)) << code;
  }
  // Two special types have nodes, edges and faces; what the others are is the application's.
  for (std::int32_t code = 30; code <= 87; ++code) {
    EXPECT_EQ(topology::ShapeOf(code), CornerShape::kNone) << code;
    const bool has_row = code == 81 || code == 87;
    EXPECT_EQ(Words(code, 0, 337) != List(337, 0), has_row) << code;
  }
  EXPECT_EQ(Words(81, 1, 336), Words(2, 1, 336));
  EXPECT_EQ(Words(87, 1, 336), Words(7, 1, 336));
}

TEST(TopologyTable, DimensionsByCode) {
  const std::pair<std::int32_t, int> cases[] = {
      {1, 0},  {2, 1},  {3, 1},  {4, 2},  {7, 2},  {8, 3},  {15, 3}, {16, 5}, {29, 5},
      {30, 4}, {80, 4}, {81, 1}, {82, 4}, {87, 4}, {88, 5}, {0, 5},  {-3, 5}};
  for (const auto& [code, dimension] : cases) {
    EXPECT_EQ(CQXMeshUtil::GetElemDim(code), dimension) << code;
    EXPECT_EQ(CQXMeshUtil::IsQuadratic(code), code >= 3 && code <= 15 && code % 2) << code;
  }
}

TEST(TopologyTable, OutlinesByCode) {
  using Lines = std::vector<std::pair<int, int>>;
  const Lines triangle{{0, 1}, {1, 2}, {2, 0}}, square{{0, 1}, {1, 2}, {2, 3}, {3, 0}};
  const struct {
    const char* what;
    std::int32_t code, nodes;
    Lines lines;
  } cases[] = {
      {"ordinary: its edges", 5, 6, triangle},
      {"too few nodes for the type", 6, 3, {{0, 1}, {0, 2}}},
      {"nothing known", 30, 4, {{0, 1}, {0, 2}, {0, 3}}},
      {"one node", 30, 1, {}},
      {"fluid boundary", 86, 4, square},
      {"interface of one side", 50, 4, square},
      {"interface line of two sides", 46, 4, {{0, 1}, {2, 3}, {0, 2}, {1, 3}}},
      {"quadratic interface line of two sides", 72, 6, {{0, 1}, {3, 4}, {0, 3}, {1, 4}}},
      {"interface plane of two sides",
       48,
       6,
       {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}}},
      {"quadratic interface plane of one side", 49, 6, triangle},
      {"special solid: its first face", 69, 8, square},
  };
  for (const auto& c : cases) {
    Lines found;
    for (const NodeLine& line : topology::OutlineOf(c.code, c.nodes)) {
      found.emplace_back(line.from, line.to);
    }
    EXPECT_EQ(found, c.lines) << c.what;
  }
  EXPECT_EQ(topology::OutlineOf(51, 16).size(), 12u);
  EXPECT_EQ(topology::OutlineOf(14, 8).size(), 12u);
}

/// Checks of every row against itself.
class TopologyRow : public ::testing::TestWithParam<std::int32_t> {};
class SolidRow : public TopologyRow {};
class QuadraticRow : public TopologyRow {};

TEST_P(SolidRow, FacesShareEdgesInOppositeDirections) {
  const ElementTopology type(GetParam());
  std::multiset<std::pair<std::int32_t, std::int32_t>> walked;
  for (std::int32_t f = 0; f < type.Faces(); ++f) {
    const auto corners = type.Face(f, false);
    for (std::size_t i = 0; i < corners.size(); ++i) {
      walked.insert({corners[i], corners[(i + 1) % corners.size()]});
    }
  }
  EXPECT_EQ(walked.size(), 2 * static_cast<std::size_t>(type.Edges()));
  for (const auto& [a, b] : walked) {
    EXPECT_EQ(walked.count({a, b}), 1u) << a << ' ' << b;
    EXPECT_EQ(walked.count({b, a}), 1u) << a << ' ' << b;
  }
}

TEST_P(QuadraticRow, MidNodesSitOnTheirEdges) {
  const ElementTopology type(GetParam());
  testing::Model model;
  const ITR element =
      model.Element(GetParam(), testing::IdealCorners(topology::ShapeOf(GetParam())));
  const auto position = [&](std::int32_t place) {
    return Point3(Pool<tagTNode>(model.session).GetAtNU(model.At(element).nodes[place]).position);
  };
  for (std::int32_t f = 0; f < type.Faces(); ++f) {
    const auto nodes = type.Face(f, true);
    const std::size_t corners = nodes.size() / 2;
    for (std::size_t i = 0; i < corners; ++i) {
      const Point3 middle = 0.5 * (position(nodes[i]) + position(nodes[(i + 1) % corners]));
      EXPECT_LT(Length(position(nodes[corners + i]) - middle), 1e-15) << "face " << f << ' ' << i;
    }
  }
}

/// A list of a block of the row, up to its end.
List Adjacent(std::int32_t code, std::int32_t block, std::int32_t number, std::int32_t room) {
  const std::int32_t* at = topology::RowOf(code) + block + number * room;
  const std::int32_t* end = std::find(at, at + room, -1);
  EXPECT_LT(end, at + room) << "a list without end";
  EXPECT_TRUE(std::all_of(end, at + room, [](std::int32_t w) { return w == -1; }));
  return List(at, end);
}

TEST_P(TopologyRow, AdjacencyFollowsFromTheLists) {
  const std::int32_t code = GetParam();
  const ElementTopology type(code);
  const auto as_set = [](std::span<const std::int32_t> list) {
    return std::set<std::int32_t>(list.begin(), list.end());
  };
  std::vector<std::set<std::int32_t>> faces, edges;
  for (std::int32_t f = 0; f < type.Faces(); ++f) faces.push_back(as_set(type.Face(f, false)));
  for (std::int32_t e = 0; e < type.Edges(); ++e) edges.push_back(as_set(type.Edge(e, false)));
  const auto shared = [](const std::set<std::int32_t>& a, const std::set<std::int32_t>& b) {
    return std::count_if(a.begin(), a.end(), [&](std::int32_t n) { return b.contains(n); });
  };
  for (std::size_t f = 0; f < 6; ++f) {
    const auto number = static_cast<std::int32_t>(f);
    std::set<std::int32_t> across, opposite, own;
    for (std::size_t other = 0; f < faces.size() && other < faces.size(); ++other) {
      if (other == f) continue;
      const auto common = shared(faces[f], faces[other]);
      if (common == 2) across.insert(static_cast<std::int32_t>(other));
      if (common == 0) opposite.insert(static_cast<std::int32_t>(other));
    }
    for (std::size_t e = 0; f < faces.size() && e < edges.size(); ++e) {
      if (shared(edges[e], faces[f]) == 2) own.insert(static_cast<std::int32_t>(e));
    }
    EXPECT_EQ(as_set(Adjacent(code, topology::kFacesOfFace, number, 5)), across) << f;
    EXPECT_EQ(as_set(Adjacent(code, topology::kOppositeFace, number, 2)), opposite) << f;
    const List listed = Adjacent(code, topology::kEdgesOfFace, number, 5);
    EXPECT_EQ(as_set(listed), own) << f;
    for (std::size_t i = 0; i < listed.size(); ++i) {
      EXPECT_TRUE(edges[static_cast<std::size_t>(listed[i])].contains(type.Face(number, false)[i]));
    }
  }
  for (std::size_t e = 0; e < 12; ++e) {
    std::set<std::int32_t> at;
    for (std::size_t f = 0; e < edges.size() && f < faces.size(); ++f) {
      if (shared(edges[e], faces[f]) == 2) at.insert(static_cast<std::int32_t>(f));
    }
    EXPECT_EQ(as_set(Adjacent(code, topology::kFacesOfEdge, static_cast<std::int32_t>(e), 3)), at);
  }
  for (std::int32_t c = 0; c < 8; ++c) {
    std::set<std::int32_t> ends, others, at;
    for (std::size_t e = 0; e < edges.size(); ++e) {
      if (!edges[e].contains(c)) continue;
      ends.insert(static_cast<std::int32_t>(e));
      for (const std::int32_t end : edges[e]) {
        if (end != c) others.insert(end);
      }
    }
    for (std::size_t f = 0; f < faces.size(); ++f) {
      if (faces[f].contains(c)) at.insert(static_cast<std::int32_t>(f));
    }
    EXPECT_EQ(as_set(Adjacent(code, topology::kEdgesOfCorner, c, 5)), ends) << c;
    EXPECT_EQ(as_set(Adjacent(code, topology::kCornersOfCorner, c, 5)), others) << c;
    EXPECT_EQ(as_set(Adjacent(code, topology::kFacesOfCorner, c, 5)), at) << c;
  }
  EXPECT_EQ(Words(code, topology::kAdjacencyEnd, 4), List(4, -1));
  EXPECT_EQ(Words(code, topology::kTail, 2), List(2, -1));
}

INSTANTIATE_TEST_SUITE_P(Codes, SolidRow, ::testing::Values(8, 9, 10, 11, 12, 13, 14, 15));
INSTANTIATE_TEST_SUITE_P(Codes, QuadraticRow, ::testing::Values(5, 7, 9, 11, 13, 15));
INSTANTIATE_TEST_SUITE_P(Codes, TopologyRow,
                         ::testing::Values(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 81,
                                           87));

// ---- triangles ----------------------------------------------------------------------------------

TEST(FaceTriangles, CoverTheirShapes) {
  // Over ideal shapes both ways to cut cover the whole, whatever the order of their corners.
  const auto area = [](std::span<const NodeTriangle> triangles, const std::vector<Point3>& p) {
    double sum = 0;
    for (const auto& t : triangles) {
      sum += 0.5 *
             Length(Cross(p[static_cast<std::size_t>(t[1])] - p[static_cast<std::size_t>(t[0])],
                          p[static_cast<std::size_t>(t[2])] - p[static_cast<std::size_t>(t[0])]));
    }
    return sum;
  };
  for (const std::int32_t code : {4, 5, 6, 7}) {
    std::vector<Point3> p = testing::IdealCorners(topology::ShapeOf(code));
    const std::size_t corners = p.size();
    const double whole = corners == 3 ? std::sqrt(3.0) / 4 : 1;
    if (code % 2) {
      for (std::size_t i = 0; i < corners; ++i) p.push_back(0.5 * (p[i] + p[(i + 1) % corners]));
    }
    EXPECT_NEAR(area(TrianglesOfElement(code), p), whole, 1e-15) << code;
    EXPECT_NEAR(area(TrianglesOfFace(static_cast<std::int32_t>(p.size())), p), whole, 1e-15)
        << code;
  }
  for (const std::int32_t other : {0, 1, 2, 5, 7, 9, -1}) {
    EXPECT_TRUE(TrianglesOfFace(other).empty()) << other;
  }
  for (const std::int32_t other : {0, 3, 8, 87}) EXPECT_TRUE(TrianglesOfElement(other).empty());
}

TEST(FaceTriangles, AreCutInTwoWays) {
  const std::vector<NodeTriangle> face6 = {{0, 3, 5}, {1, 4, 3}, {2, 5, 4}, {3, 4, 5}};
  const std::vector<NodeTriangle> face8 = {{0, 4, 7}, {1, 5, 4}, {2, 6, 5},
                                           {3, 7, 6}, {4, 5, 7}, {6, 7, 5}};
  const std::vector<NodeTriangle> element5 = {{0, 3, 5}, {3, 4, 5}, {3, 1, 4}, {5, 4, 2}};
  const std::vector<NodeTriangle> element7 = {{0, 4, 7}, {4, 1, 5}, {5, 2, 6},
                                              {6, 3, 7}, {4, 5, 7}, {5, 6, 7}};
  const auto same = [](std::span<const NodeTriangle> a, const std::vector<NodeTriangle>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
  };
  EXPECT_TRUE(same(TrianglesOfFace(6), face6));
  EXPECT_TRUE(same(TrianglesOfFace(8), face8));
  EXPECT_TRUE(same(TrianglesOfElement(5), element5));
  EXPECT_TRUE(same(TrianglesOfElement(7), element7));
}

}  // namespace
}  // namespace qx
