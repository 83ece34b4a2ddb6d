// Sizes and quality measures: against exact integration, Verdict's own cases, and laws.

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <numbers>
#include <random>
#include <set>

#include "qx_db/app/mesh_mass.h"
#include "qx_db/gateway/document.h"
#include "qx_db/mesh/dense_mesh.h"
#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/lanes.h"
#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/mesh/quality_values.h"

#include "exchange/msh/msh_reader.h"
#include "tests/corpus.h"
#include "tests/exchange/mesh_measure.h"
#include "tests/mesh/mesh_builder.h"

namespace qx {
namespace {

constexpr CornerShape kShapes[] = {CornerShape::kTriangle,    CornerShape::kQuadrilateral,
                                   CornerShape::kTetrahedron, CornerShape::kPyramid,
                                   CornerShape::kWedge,       CornerShape::kHexahedron};

/// An ideal element with its corners moved at random, still the right way out.
std::vector<Point3> Distorted(CornerShape shape, std::mt19937& random, double by) {
  std::uniform_real_distribution<double> move(-by, by);
  std::vector<Point3> corners = testing::IdealCorners(shape);
  for (Point3& p : corners) p += Point3(move(random), move(random), move(random));
  return corners;
}

// ---- sizes --------------------------------------------------------------------------------------

TEST(ElementVolume, AgreesWithExactIntegration) {
  const std::pair<CornerShape, std::int32_t> cases[] = {{CornerShape::kLine, 2},
                                                        {CornerShape::kTriangle, 4},
                                                        {CornerShape::kTetrahedron, 8},
                                                        {CornerShape::kWedge, 12},
                                                        {CornerShape::kHexahedron, 14}};
  std::mt19937 random(1);
  for (const auto& [shape, code] : cases) {
    for (int trial = 0; trial < 50; ++trial) {
      const std::vector<Point3> p = Distorted(shape, random, 0.2);
      std::vector<sample::Point> nodes;
      for (const Point3& q : p) nodes.push_back({q.x, q.y, q.z});
      const double exact = measure::Size(code, nodes);
      EXPECT_NEAR(ShapeSize(shape, p.data()), exact, 1e-9) << code;
      EXPECT_NEAR(ShapeMoments(shape, p.data()).size, exact, 1e-9) << code;
    }
  }
}

TEST(ElementVolume, OfAPyramidIsThatOfTheTetrahedraAroundItsApex) {
  // The bilinear base lies halfway between its two pairs of triangles.
  std::mt19937 random(2);
  for (int trial = 0; trial < 50; ++trial) {
    const std::vector<Point3> p = Distorted(CornerShape::kPyramid, random, 0.3);
    const auto tetrahedron = [&](std::size_t a, std::size_t b, std::size_t c) {
      const Point3 corners[4] = {p[a], p[b], p[c], p[4]};
      return SolidVolume(4, corners);
    };
    const double one = tetrahedron(0, 1, 2) + tetrahedron(0, 2, 3);
    const double other = tetrahedron(0, 1, 3) + tetrahedron(1, 2, 3);
    EXPECT_NEAR(SolidVolume(5, p.data()), 0.5 * (one + other), 1e-14);
    EXPECT_NEAR(ShapeMoments(CornerShape::kPyramid, p.data()).size, 0.5 * (one + other), 1e-14);
  }
  for (const int corners : {0, 1, 3, 7, 9}) EXPECT_EQ(SolidVolume(corners, nullptr), 0);
}

TEST(ElementVolume, OfTwoElementsThatFillOneAddsUp) {
  // A hexahedron is two wedges across a plane through opposite edges, each of which is a pyramid
  // and a tetrahedron: exact for plane faces.
  const std::vector<Point3> h = testing::IdealCorners(CornerShape::kHexahedron);
  const Point3 wedge[6] = {h[0], h[1], h[2], h[4], h[5], h[6]};
  const Point3 pyramid[5] = {h[0], h[4], h[5], h[1], h[6]};
  EXPECT_NEAR(SolidVolume(6, wedge), 0.5, 1e-15);
  EXPECT_NEAR(std::abs(SolidVolume(5, pyramid)), 1.0 / 3, 1e-15);
}

// ---- Verdict's cases ----------------------------------------------------------------------------

struct VerdictName {
  const char* shape;
  CornerShape corners;
  std::size_t count;
};
constexpr VerdictName kVerdictShapes[] = {
    {"edge", CornerShape::kLine, 2},          {"tri", CornerShape::kTriangle, 3},
    {"quad", CornerShape::kQuadrilateral, 4}, {"tet", CornerShape::kTetrahedron, 4},
    {"wedge", CornerShape::kWedge, 6},        {"hex", CornerShape::kHexahedron, 8}};

const std::map<std::string, Measure> kVerdictMeasures = {
    {"length", Measure::kSize},
    {"area", Measure::kSize},
    {"volume", Measure::kSize},
    {"edge_ratio", Measure::kEdgeRatio},
    {"aspect_ratio", Measure::kAspectRatio},
    {"skew", Measure::kSkew},
    {"equiangle_skew", Measure::kEquiangleSkew},
    {"warpage", Measure::kWarpage},
    {"taper", Measure::kTaper},
    {"minimum_angle", Measure::kMinAngle},
    {"maximum_angle", Measure::kMaxAngle},
    {"jacobian", Measure::kJacobian},
    {"scaled_jacobian", Measure::kScaledJacobian},
    {"shape", Measure::kShape},
    {"condition", Measure::kCondition},
    {"stretch", Measure::kStretch},
    {"collapse_ratio", Measure::kCollapse},
    {"shear", Measure::kShear},
    {"radius_ratio", Measure::kRadiusRatio},
    {"aspect_frobenius", Measure::kAspectFrobenius},
    {"max_aspect_frobenius", Measure::kAspectFrobenius},
    {"med_aspect_frobenius", Measure::kMeanAspectFrobenius},
    {"mean_aspect_frobenius", Measure::kMeanAspectFrobenius},
    {"aspect_gamma", Measure::kAspectGamma},
    {"mean_ratio", Measure::kAspectGamma},
    {"oddy", Measure::kOddy},
    {"distortion", Measure::kDistortion},
    {"nodal_jacobian_ratio", Measure::kJacobianRatio},
    {"diagonal", Measure::kDiagonal},
    {"dimension", Measure::kDimension},
    {"equivolume_skew", Measure::kEquivolumeSkew},
    {"squish_index", Measure::kSquish},
    {"relative_size_squared", Measure::kRelativeSize},
    {"shape_and_size", Measure::kShapeAndSize},
    {"shear_and_size", Measure::kShearAndSize},
};

/// What the report's library measures and this one does not; its distortion of a warped
/// quadrilateral is taken along another normal, and that of simplices is 1 of itself.
const std::set<std::string> kBeyond = {"normalized_inradius", "tet_timestep",   "wedge_max_stretch",
                                       "wedge_distortion",    "tri_distortion", "tet_distortion"};

const std::set<std::string> kFromCorners = {"edge_length", "tri_scaled_jacobian", "tet_jacobian",
                                            "hex_jacobian"};

/// The radius of the sphere in a tetrahedron, which its aspect ratio is made of.
double Inradius(const std::vector<Point3>& p) {
  double longest = 0;
  for (const Point3& a : p) {
    for (const Point3& b : p) longest = std::max(longest, Distance(a, b));
  }
  const double aspect = Quality(Measure::kAspectRatio, CornerShape::kTetrahedron, p.data());
  return longest / (2 * std::sqrt(6.0) * aspect);
}

/// The area of a quadratic quadrilateral.
double AreaByTriangles(const std::vector<Point3>& p) {
  testing::Model model;
  std::vector<int> places;
  for (const Point3& q : p) places.push_back(model.Node(q));
  return model.util.GetFaceArea(model.Element(7, places));
}

bool QuadIsWarped(const std::vector<Point3>& p) {
  return Quality(Measure::kWarpage, CornerShape::kQuadrilateral, p.data()) > 0;
}

TEST(Verdict, GivesTheSameNumbers) {
  QX_REQUIRE_CORPUS(path, "expected/verdict_element_metrics.json");
  dbgateway::DataBase document;
  ASSERT_TRUE(document.ReadFile(path));
  int compared = 0, of_other_elements = 0, of_other_measures = 0;
  const auto cases = document.FindCollection("cases");
  ASSERT_TRUE(cases);
  cases->ForEachValue([&](const dbgateway::Field& one) {
    const auto coordinates = one.Member("coords");
    std::vector<Point3> p;
    for (std::size_t i = 0; i < coordinates.Size(); ++i) {
      const auto at = coordinates.At(i);
      p.push_back({at.At(0).Real(), at.At(1).Real(), at.At(2).Real()});
    }
    const auto metrics = one.Member("metrics");
    for (std::size_t m = 0; m < metrics.Size(); ++m) {
      const std::string name(metrics.At(m).Member("metric").Text());
      const std::string shape_name = name.substr(0, name.find('_'));
      const std::string measure = name.substr(name.find('_') + 1);
      const auto found = kVerdictMeasures.find(measure);
      const auto shape =
          std::find_if(std::begin(kVerdictShapes), std::end(kVerdictShapes),
                       [&](const VerdictName& known) { return known.shape == shape_name; });
      ASSERT_NE(shape, std::end(kVerdictShapes)) << shape_name;
      // Of curved elements and those with nodes on faces these, too, are taken from the corners;
      // of a quadratic quadrilateral the area of its triangles.
      const bool is_quad8_area = name == "quad_area" && p.size() == 8;
      if (p.size() < shape->count ||
          (p.size() > shape->count && !kFromCorners.contains(name) && !is_quad8_area)) {
        ++of_other_elements;
        continue;
      }
      const double size = Quality(Measure::kSize, shape->corners, p.data());
      const bool is_warped = name == "quad_distortion" && QuadIsWarped(p);
      if (kBeyond.contains(name) || kBeyond.contains(measure) || is_warped) {
        ++of_other_measures;
        continue;
      }
      const bool is_inradius = measure == "inradius";
      ASSERT_TRUE(is_inradius || found != kVerdictMeasures.end()) << name;
      const auto wanted = metrics.At(m).Member("expected");
      const double expected = wanted.IsText() ? kUnbounded : wanted.Real();
      // The mean ratio is 1 over the aspect gamma, with the sign of the volume.
      const bool is_mean_ratio = measure == "mean_ratio";
      if (is_mean_ratio && size < 0) std::swap(p[0], p[1]);
      const auto mean_size = metrics.At(m).Member("extra_args");
      double value = is_inradius ? Inradius(p)
                                 : Quality(found->second, shape->corners, p.data(),
                                           mean_size ? mean_size.At(0).Real() : size);
      if (is_mean_ratio) value = std::copysign(1 / value, size);
      if (is_quad8_area) value = AreaByTriangles(p);
      // The report's warpage is 0 for a plane element; its tests expect the cube of the cosine,
      // which is 1 minus that.
      if (name == "quad_warpage" && value > 0) value = 1 - value;
      EXPECT_NEAR(value, expected, std::abs(expected) * 1e-5 + 1e-5)
          << one.Member("name").Text() << ": " << name;
      ++compared;
    }
  });
  // Every number of the file is accounted for.
  EXPECT_EQ(compared, 116);
  EXPECT_EQ(of_other_elements, 14);
  EXPECT_EQ(of_other_measures, 8);
}

// ---- laws ---------------------------------------------------------------------------------------

TEST(Quality, IsIdealForIdealElements) {
  const std::pair<Measure, double> ideal[] = {{Measure::kEdgeRatio, 1},
                                              {Measure::kAspectRatio, 1},
                                              {Measure::kSkew, 0},
                                              {Measure::kEquiangleSkew, 0},
                                              {Measure::kWarpage, 0},
                                              {Measure::kTaper, 0},
                                              {Measure::kScaledJacobian, 1},
                                              {Measure::kShape, 1},
                                              {Measure::kCondition, 1},
                                              {Measure::kStretch, 1},
                                              {Measure::kShear, 1},
                                              {Measure::kRadiusRatio, 1},
                                              {Measure::kAspectFrobenius, 1},
                                              {Measure::kMeanAspectFrobenius, 1},
                                              {Measure::kAspectGamma, 1},
                                              {Measure::kOddy, 0},
                                              {Measure::kDistortion, 1},
                                              {Measure::kJacobianRatio, 1},
                                              {Measure::kDiagonal, 1},
                                              {Measure::kEquivolumeSkew, 0},
                                              {Measure::kSquish, 0}};
  for (const CornerShape shape : kShapes) {
    const std::vector<Point3> p = testing::IdealCorners(shape);
    for (const auto& [measure, value] : ideal) {
      const double found = Quality(measure, shape, p.data());
      if (!std::isnan(found)) {
        EXPECT_NEAR(found, value, 1e-12) << int(measure) << ' ' << int(shape);
      }
    }
  }
}

TEST(Quality, IsUnchangedByRotationAndScaling) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (const CornerShape shape : kShapes) {
    for (int trial = 0; trial < 40; ++trial) {
      const std::vector<Point3> p = Distorted(shape, random, 0.25);
      Point3 a(unit(random), unit(random), unit(random));
      Point3 b = Cross(a, {unit(random), unit(random), unit(random)});
      ASSERT_TRUE(Normalize(a) && Normalize(b));
      const Point3 c = Cross(a, b);
      const double scale = std::exp2(10 * unit(random));
      const Point3 shift(unit(random), unit(random), unit(random));
      std::vector<Point3> moved;
      for (const Point3& q : p) {
        moved.push_back(scale * (Point3(Dot(a, q), Dot(b, q), Dot(c, q)) + shift));
      }
      for (const MeasureInfo& info : Measures()) {
        const double before = Quality(info.measure, shape, p.data());
        double after = Quality(info.measure, shape, moved.data());
        if (std::isnan(before)) {
          EXPECT_TRUE(std::isnan(after)) << info.name;
          continue;
        }
        if (info.measure == Measure::kSize || info.measure == Measure::kJacobian) {
          after /= std::pow(scale, shape < CornerShape::kTetrahedron ? 2 : 3);
        }
        if (info.measure == Measure::kDimension) after /= scale;
        if (before == kUnbounded && after == kUnbounded) continue;
        EXPECT_NEAR(after, before, 1e-9 * (1 + std::abs(before))) << info.name << int(shape);
      }
    }
  }
}

TEST(Quality, OfWholeMeshesIsThatOfTheirElements) {
  // Two at a time or by itself, in whatever company: odd numbers of every shape, in random order.
  std::mt19937 random(6);
  testing::Model model;
  std::vector<std::pair<CornerShape, std::vector<Point3>>> elements;
  for (std::int32_t code : {4, 6, 8, 10, 12, 14, 5, 7, 9, 11, 13, 15}) {
    const CornerShape shape = topology::ShapeOf(code);
    for (int trial = 0; trial < 7; ++trial)
      elements.push_back({shape, Distorted(shape, random, 0.4)});
    elements.push_back(
        {shape, std::vector<Point3>(elements.back().second.size(), Point3(1, 2, 3))});
  }
  std::shuffle(elements.begin(), elements.end(), random);
  const std::map<CornerShape, std::int32_t> codes = {
      {CornerShape::kTriangle, 4},    {CornerShape::kQuadrilateral, 6},
      {CornerShape::kTetrahedron, 8}, {CornerShape::kPyramid, 10},
      {CornerShape::kWedge, 12},      {CornerShape::kHexahedron, 14}};
  for (const auto& [shape, p] : elements) model.Element(codes.at(shape), p);
  for (const MeasureInfo& info : Measures()) {
    if (info.is_relative) continue;
    const std::vector<double> values = ValuesOf(model.session, info, 1);
    ASSERT_EQ(values.size(), elements.size());
    for (std::size_t e = 0; e < values.size(); ++e) {
      const double alone = Quality(info.measure, elements[e].first, elements[e].second.data());
      if (std::isnan(alone)) {
        EXPECT_TRUE(std::isnan(values[e])) << info.name;
      } else {
        EXPECT_NEAR(values[e], alone, 1e-14 * (1 + std::abs(alone))) << info.name;
      }
    }
  }
}

TEST(Quality, AnglesLoseNothingNearTheirEnds) {
  constexpr double kDegrees = 180 / std::numbers::pi;
  for (double height = 1; height > 1e-12; height *= 0.37) {
    const Point3 sharp[3] = {{0, 0, 0}, {1, 0, 0}, {1, height, 0}};
    const double least = std::atan(height) * kDegrees;
    EXPECT_NEAR(Quality(Measure::kMinAngle, CornerShape::kTriangle, sharp), least, 1e-15 * least);
    const Point3 flat[3] = {{-1, 0, 0}, {1, 0, 0}, {0, height, 0}};
    EXPECT_NEAR(Quality(Measure::kMaxAngle, CornerShape::kTriangle, flat), 180 - 2 * least, 1e-13);
    // An arrow, whose angle in the notch is above 180 degrees.
    const Point3 arrow[4] = {{-1, 0, 0}, {0, height, 0}, {1, 0, 0}, {0, 2, 0}};
    if (height < 1) {
      EXPECT_NEAR(Quality(Measure::kMaxAngle, CornerShape::kQuadrilateral, arrow), 180 + 2 * least,
                  1e-13);
    }
  }
}

TEST(Lanes, HaveTheFunctionsOfTheirNumbers) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> exponent(-300, 300);
  for (int trial = 0; trial < 10000; ++trial) {
    const double a = std::pow(10, exponent(random)), b = -std::pow(10, exponent(random) / 20);
    const Lanes roots = CubeRoot(Lanes{a, 0});
    EXPECT_NEAR(roots[0] / std::cbrt(a), 1, 1e-15) << a;
    EXPECT_EQ(roots[1], 0);
    const Lanes angles = ArcCotangent(Lanes{b, -b});
    for (int i = 0; i < kLanes; ++i) {
      const double wanted = std::atan2(1, i == 0 ? b : -b) * 180 / std::numbers::pi;
      EXPECT_NEAR(angles[i], wanted, 1e-15 * wanted) << b;
    }
  }
  for (const double right : {0.0, 1.0, -1.0}) EXPECT_EQ(ArcCotangent(right), 90 - 45 * right);
}

TEST(Quality, DimensionIsTheVolumeOverItsGradient) {
  std::mt19937 random(5);
  for (int trial = 0; trial < 20; ++trial) {
    const std::vector<Point3> p = Distorted(CornerShape::kHexahedron, random, 0.3);
    const double volume = SolidVolume(8, p.data());
    double squares = 0;
    for (std::size_t i = 0; i < 8; ++i) {
      for (const Point3& step : {Point3(1, 0, 0), Point3(0, 1, 0), Point3(0, 0, 1)}) {
        // Linear in each corner, so that the difference of a whole step is the derivative.
        std::vector<Point3> moved = p;
        moved[i] += step;
        const double slope = SolidVolume(8, moved.data()) - volume;
        squares += slope * slope;
      }
    }
    EXPECT_NEAR(Quality(Measure::kDimension, CornerShape::kHexahedron, p.data()),
                volume / std::sqrt(2 * squares), 1e-12);
  }
}

TEST(Quality, OfBrokenElementsIsDefined) {
  // All corners in one point, on one line, in one plane, and inverted: no trap, never no number.
  for (const CornerShape shape : kShapes) {
    const std::vector<Point3> ideal = testing::IdealCorners(shape);
    std::vector<Point3> broken[4] = {ideal, ideal, ideal, ideal};
    for (Point3& p : broken[0]) p = {1, 2, 3};
    for (Point3& p : broken[1]) p = {p.x + p.z, 0, 0};
    for (Point3& p : broken[2]) p = {p.x, p.y, 0};
    for (Point3& p : broken[3]) p = {p.x, p.y, -p.z};
    for (const auto& corners : broken) {
      for (const MeasureInfo& info : Measures()) {
        const bool has = !std::isnan(Quality(info.measure, shape, ideal.data()));
        const double value = Quality(info.measure, shape, corners.data());
        EXPECT_EQ(std::isnan(value), !has) << info.name << ' ' << int(shape);
        EXPECT_FALSE(std::isinf(value)) << info.name << ' ' << int(shape);
      }
    }
    if (shape >= CornerShape::kTetrahedron) {
      EXPECT_LT(Quality(Measure::kScaledJacobian, shape, broken[3].data()), 0);
    }
  }
}

TEST(Quality, OfElementsThatLackSomethingIsNoNumber) {
  testing::Model model;
  const ITR hex = model.Element(14, testing::IdealCorners(CornerShape::kHexahedron));
  EXPECT_EQ(Quality(Measure::kSize, model.At(hex)), 1);
  tagTElem element = model.At(hex);
  element.nodes.SetSize(7);
  EXPECT_TRUE(std::isnan(Quality(Measure::kSize, element)));
  element = model.At(hex);
  element.nodes[3] = 0;
  EXPECT_TRUE(std::isnan(Quality(Measure::kSize, element)));
  for (const std::int32_t type : {0, 16, 30, 87, 88, -1}) {
    element = model.At(hex);
    element.type = type;
    EXPECT_TRUE(std::isnan(Quality(Measure::kSize, element))) << type;
  }
  auto& nodes = Pool<tagTNode>(model.session);
  tagTNode node = nodes.GetAtNU(model.nodes[5]);
  node.position.y = std::nan("");
  nodes.SetAtNU(model.nodes[5], node);
  EXPECT_TRUE(std::isnan(Quality(Measure::kMinAngle, model.At(hex))));
}

// ---- moments ------------------------------------------------------------------------------------

TEST(Moments, OfABrickAreThoseOfTheTextbook) {
  // 2 x 3 x 4 about its centre, wherever it stands.
  std::vector<Point3> p = testing::IdealCorners(CornerShape::kHexahedron);
  for (Point3& q : p) q = Point3(2 * q.x, 3 * q.y, 4 * q.z) + Point3(10, -20, 30);
  const RigidBody body = ToRigidBody(ShapeMoments(CornerShape::kHexahedron, p.data()));
  const double m = 24;
  EXPECT_NEAR(body.mass, m, 1e-12);
  EXPECT_NEAR(Length(body.center - Point3(11, -18.5, 32)), 0, 1e-12);
  EXPECT_NEAR(body.xx, m / 12 * (9 + 16), 1e-9);
  EXPECT_NEAR(body.yy, m / 12 * (4 + 16), 1e-9);
  EXPECT_NEAR(body.zz, m / 12 * (4 + 9), 1e-9);
  for (const double product : {body.xy, body.yz, body.zx}) EXPECT_NEAR(product, 0, 1e-9);
}

TEST(Moments, OfPartsAddUpToThoseOfTheWhole) {
  // A cube cut into six pyramids over its faces, with the apex in the middle.
  const std::vector<Point3> h = testing::IdealCorners(CornerShape::kHexahedron);
  const ElementTopology cube(14);
  Moments sum;
  for (std::int32_t f = 0; f < 6; ++f) {
    Point3 pyramid[5];
    // Outwards for the cube is downwards for the pyramid on the face.
    for (std::size_t i = 0; i < 4; ++i) {
      pyramid[i] = h[static_cast<std::size_t>(cube.Face(f, false)[3 - i])];
    }
    pyramid[4] = {0.5, 0.5, 0.5};
    sum.Add(ShapeMoments(CornerShape::kPyramid, pyramid), 1);
  }
  const Moments whole = ShapeMoments(CornerShape::kHexahedron, h.data());
  EXPECT_NEAR(sum.size, whole.size, 1e-14);
  EXPECT_NEAR(sum.xx, whole.xx, 1e-14);
  EXPECT_NEAR(sum.xy, whole.xy, 1e-14);
  EXPECT_NEAR(sum.zx, whole.zx, 1e-14);
}

// ---- corpus -------------------------------------------------------------------------------------

// MSH is what meshes are read from. Files whose curved elements differ from their corners are left
// to the reader's own test, which integrates them.
TEST(Corpus, TotalsAgree) {
  QX_REQUIRE_CORPUS(totals_path, "expected/mesh_totals.json");
  dbgateway::DataBase document;
  ASSERT_TRUE(document.ReadFile(totals_path));
  struct Kind {
    const char* name;
    std::int32_t code;
    const char* total;
    double tolerance;
  };
  const Kind kinds[] = {
      {"triangle", 4, "total_area", 1e-9},      {"quad", 6, "total_area", 1e-6},
      {"line", 2, "total_length", 1e-9},        {"triangle6", 5, "total_area", 1e-9},
      {"tetra", 8, "total_volume", 1e-9},       {"tetra10", 9, "total_volume", 1e-9},
      {"hexahedron", 14, "total_volume", 1e-9}, {"hexahedron20", 15, "total_volume", 1e-9}};
  int compared = 0;
  for (const char* file :
       {"gmsh/compass.msh", "gmsh/quadhex_serendipity1.msh", "gmsh/grid_in_msh_01.3da.v4.msh",
        "gmsh/floquet_lumped.msh", "gmsh/bimetal.msh", "gmsh/demo.msh", "gmsh/couette-flow.msh",
        "gmsh/box.msh"}) {
    const std::string path = CorpusFile(file);
    if (path.empty()) GTEST_SKIP() << "no corpus file " << file;
    const auto read = exchange::ReadMsh(path);
    ASSERT_TRUE(read) << read.Error().Line();
    CQXDBSession session(AddStandardPools);
    ASSERT_TRUE(exchange::AddMesh(session, *read, path));
    const CQXMeshUtil util(&session);
    std::map<std::int32_t, double> sums;
    const DenseMesh dense(session);
    for (std::uint32_t e = 0; e < dense.ElementCount(); ++e) {
      Point3 p[8];
      dense.CornerPositions(e, p);
      // The totals are of bilinear surfaces, so warped ones are integrated.
      const bool is_quad = dense.Shape(e) == CornerShape::kQuadrilateral;
      sums[dense.Element(e).type] += is_quad ? ShapeMoments(dense.Shape(e), p).size
                                             : util.GetElemQuantity(dense.ElementItr(e));
    }
    dbgateway::Record expected;
    document.FindCollection("files")->ForEach(
        [&](Key, std::string_view name, const dbgateway::Record& record) {
          if (name == file) expected = record;
        });
    ASSERT_FALSE(expected.IsDetached());
    for (const Kind& kind : kinds) {
      const auto field = expected.Find("elements").Member(kind.name);
      if (!field) continue;
      const double total = field.Member(kind.total).Real();
      EXPECT_NEAR(sums[kind.code], total, kind.tolerance * std::abs(total)) << file << kind.name;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 17);
}

TEST(QualityValues, OfRecordsAreThoseOfTheMesh) {
  // Elements of all shapes on nodes of their own, each type also broken in one way or another.
  std::mt19937 random(5);
  testing::Model model;
  auto& nodes = Pool<tagTNode>(model.session);
  auto& elements = Pool<tagTElem>(model.session);
  for (int trial = 0; trial < 6; ++trial) {
    for (std::int32_t code = 1; code <= 15; ++code) {
      const CornerShape shape = topology::ShapeOf(code);
      const bool is_flat = shape < CornerShape::kTriangle;
      const ITR element = model.Element(
          code, is_flat ? testing::IdealCorners(shape) : Distorted(shape, random, 0.2));
      tagTElem broken = elements.GetAtNU(element);
      const ITR last = broken.nodes[broken.nodes.GetSize() - 1];
      if (trial == 1) broken.nodes.Add(broken.nodes[0]);
      if (trial == 2) broken.nodes[0] = 0;
      if (trial == 3) broken.type = code + 15;
      elements.SetAtNU(element, broken);
      tagTNode node = nodes.GetAtNU(last);
      if (trial == 4) node.position.y = std::numeric_limits<double>::infinity();
      nodes.SetAtNU(last, node);
    }
  }
  model.Element(46, testing::IdealCorners(CornerShape::kLine));
  const DenseMesh mesh(model.session);
  for (const MeasureInfo& info : Measures()) {
    const std::vector<double> wanted = ValuesOf(mesh, info, 10),
                              found = ValuesOf(model.session, info, 10);
    ASSERT_EQ(found.size(), wanted.size());
    std::size_t rated = 0;
    for (std::size_t e = 0; e < wanted.size(); ++e) {
      rated += !std::isnan(wanted[e]);
      EXPECT_TRUE(found[e] == wanted[e] || (std::isnan(found[e]) && std::isnan(wanted[e])))
          << info.name << " of element " << e + 1 << ": " << found[e] << ", " << wanted[e];
    }
    EXPECT_GE(rated, 4u) << info.name;
    EXPECT_LT(rated, 31u) << info.name << ": the broken ones have none";
  }
}

}  // namespace
}  // namespace qx
