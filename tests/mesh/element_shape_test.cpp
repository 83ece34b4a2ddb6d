// Elements of second order as their nodes bend them: laws that hold for every kind.

#include "qx_db/mesh/element_shape.h"

#include <array>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <numbers>
#include <random>

#include "qx_db/app/mesh_mass.h"

#include "tests/mesh/mesh_builder.h"

namespace qx {
namespace {

using Corners = std::vector<Point3>;
constexpr CornerShape kSolids[] = {CornerShape::kTetrahedron, CornerShape::kPyramid,
                                   CornerShape::kWedge, CornerShape::kHexahedron};

/// The nodes of an element of second order: its corners, and the middles of its edges.
Corners WithMiddles(CornerShape shape, Corners p) {
  const ShapeTable& table = TableOf(shape);
  for (int e = 0; e < table.edges; ++e) {
    const auto from = static_cast<std::size_t>(table.edge[e][0]);
    const auto to = static_cast<std::size_t>(table.edge[e][1]);
    p.push_back(0.5 * (p[from] + p[to]));
  }
  return p;
}

std::array<double, 10> Numbers(const Moments& m) {
  return {m.size, m.first.x, m.first.y, m.first.z, m.xx, m.yy, m.zz, m.xy, m.yz, m.zx};
}

TEST(ElementShape, OfStraightSidesIsThatOfTheCorners) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> by(-0.2, 0.2);
  for (int s = static_cast<int>(CornerShape::kLine);
       s <= static_cast<int>(CornerShape::kHexahedron); ++s) {
    const auto shape = static_cast<CornerShape>(s);
    for (int trial = 0; trial < 20; ++trial) {
      Corners p = testing::IdealCorners(shape);
      // A warped surface has an area that no rule gives exactly: those stay parallelograms.
      const bool is_surface = topology::DimensionOf(shape) == 2;
      Point3 lean[3] = {{1, 0.3, by(random)}, {by(random), 1.2, 0.1}, {0.2, by(random), 0.9}};
      for (Point3& q : p) {
        q = Point3(4, 5, 6) + q.x * lean[0] + q.y * lean[1] + q.z * lean[2];
        if (!is_surface) q += Point3(by(random), by(random), by(random));
      }
      const auto expected = Numbers(ShapeMoments(shape, p.data()));
      const auto curved = Numbers(CurvedMoments(shape, WithMiddles(shape, p).data()));
      for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(curved[i], expected[i], 1e-12 * (1 + std::abs(expected[i]))) << s << ' ' << i;
      }
    }
  }
}

/// The unit cube in solids of one shape, each by its corners.
std::vector<Corners> CubeOf(CornerShape shape) {
  const Corners c = testing::IdealCorners(CornerShape::kHexahedron);
  const Point3 middle(0.5, 0.5, 0.5);
  std::vector<Corners> parts;
  if (shape == CornerShape::kHexahedron) return {c};
  if (shape == CornerShape::kWedge) {
    return {{c[0], c[1], c[2], c[4], c[5], c[6]}, {c[0], c[2], c[3], c[4], c[6], c[7]}};
  }
  for (const auto& face : TableOf(CornerShape::kHexahedron).face) {
    const auto at = [&](int i) { return c[static_cast<std::size_t>(face[i])]; };
    if (shape == CornerShape::kPyramid) {
      parts.push_back({at(3), at(2), at(1), at(0), middle});
    } else {
      parts.push_back({at(2), at(1), at(0), middle});
      parts.push_back({at(3), at(2), at(0), middle});
    }
  }
  return parts;
}

/// Cubes of one shape and order, n along each side, as a map bends them; each node by its place.
double BentVolume(CornerShape shape, int n, const std::function<Point3(const Point3&)>& bend) {
  double volume = 0;
  for (int i = 0; i < n * n * n; ++i) {
    const Point3 at(i % n, i / n % n, i / n / n);
    for (const Corners& part : CubeOf(shape)) {
      Corners p = WithMiddles(shape, part);
      for (Point3& q : p) q = bend((1.0 / n) * (q + at));
      volume += CurvedMoments(shape, p.data()).size;
    }
  }
  return volume;
}

TEST(ElementShape, FillsABentBlockInEveryKind) {
  // A quarter of a tube, and a box whose map is quadratic, which every kind holds exactly.
  const auto tube = [](const Point3& p) {
    const double angle = p.y * std::numbers::pi / 2, radius = 1 + p.x;
    return Point3(radius * std::cos(angle), radius * std::sin(angle), p.z);
  };
  const auto bulged = [](const Point3& p) {
    return Point3(p.x + 0.2 * p.y * p.y, p.y + 0.3 * p.z * p.x, p.z + 0.1 * p.x * p.x);
  };
  const double exact = BentVolume(CornerShape::kHexahedron, 1, bulged);
  for (const CornerShape shape : kSolids) {
    const double quarter = std::numbers::pi / 4 * (4 - 1);
    EXPECT_NEAR(BentVolume(shape, 3, tube) / quarter, 1, 1e-3) << static_cast<int>(shape);
    for (const int n : {1, 2}) {
      EXPECT_NEAR(BentVolume(shape, n, bulged), exact, 1e-12) << static_cast<int>(shape) << n;
    }
  }
}

/// Triangles on the unit sphere: those of an octahedron, halved `times` over.
std::vector<std::array<Point3, 3>> Sphere(int times) {
  std::vector<std::array<Point3, 3>> faces;
  for (const double x : {1.0, -1.0}) {
    for (const double y : {1.0, -1.0}) {
      for (const double z : {1.0, -1.0}) {
        const Point3 a(x, 0, 0), b(0, y, 0), c(0, 0, z);
        faces.push_back(x * y * z > 0 ? std::array{a, b, c} : std::array{a, c, b});
      }
    }
  }
  const auto middle = [](const Point3& a, const Point3& b) {
    Point3 m = 0.5 * (a + b);
    Normalize(m);
    return m;
  };
  for (; times > 0; --times) {
    std::vector<std::array<Point3, 3>> halved;
    for (const auto& [a, b, c] : faces) {
      const Point3 ab = middle(a, b), bc = middle(b, c), ca = middle(c, a);
      for (const auto& part : {std::array{a, ab, ca}, {ab, b, bc}, {ca, bc, c}, {ab, bc, ca}}) {
        halved.push_back(part);
      }
    }
    faces = std::move(halved);
  }
  return faces;
}

TEST(ElementShape, OfASphereIsRoundInTheMassAndStraightInTheMeasures) {
  testing::Model m;
  double skin = 0;
  for (const auto& [a, b, c] : Sphere(3)) {
    const CornerShape shape = CornerShape::kTetrahedron;
    Corners p = WithMiddles(shape, {a, c, b, Point3(0, 0, 0)});
    for (std::size_t i = 4; i < 7; ++i) Normalize(p[i]);  // those on the sphere
    std::vector<int> places;
    for (const Point3& q : p) places.push_back(m.Node(q));
    m.Element(9, places);
    const Point3 face[6] = {p[0], p[1], p[2], p[4], p[5], p[6]};
    skin += CurvedMoments(CornerShape::kTriangle, face).size;
  }
  const double exact = 4 * std::numbers::pi / 3;
  MassAssumptions water;
  water.density = 1;
  const MassReport report = ComputeMass(m.session, DenseMesh(m.session), water);
  EXPECT_NEAR(report.total.volume / exact, 1, 1e-3);
  EXPECT_NEAR(ToRigidBody(report.total.mass).xx / (0.4 * exact), 1, 2e-3);
  EXPECT_EQ(report.total.curved, report.total.elements);
  EXPECT_NEAR(skin / (4 * std::numbers::pi), 1, 1e-3);
  double straight = 0, round = 0;
  for (const ITR element : m.elements) {
    straight += m.util.GetElemVolume(element);
    round += ElementSize(m.At(element));
    EXPECT_TRUE(MeasureShape(m.At(element)).is_curved);
  }
  EXPECT_LT(straight, 0.995 * exact) << "the corners alone";
  EXPECT_NEAR(round, report.total.volume, 1e-12);
}

}  // namespace
}  // namespace qx
