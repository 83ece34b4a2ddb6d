#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <rapidcheck/gtest.h>

#include "qx_db/model/element_axes.h"

#include "tests/corpus.h"
#include "tests/model/deck.h"
#include "tests/model/mesh_model.h"

namespace qx {
namespace {

using Axes = double[3][3];
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::string Text(const Axes& axes) {
  std::string text;
  for (const auto& row : axes) {
    for (const double c : row) text += std::to_string(c) + " ";
  }
  return text;
}

void ExpectAxes(const Axes& axes, const Triad& expected, const std::string& what) {
  Axes wanted;
  expected.CopyTo(wanted);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      EXPECT_NEAR(axes[i][j], wanted[i][j], 1e-12) << what << ": " << Text(axes);
    }
  }
}

void ExpectOrthonormal(const Axes& axes) {
  const Triad t = Triad::From(axes);
  RC_ASSERT(std::abs(Dot(t.x, t.y)) < 1e-12);
  RC_ASSERT(std::abs(Length(t.x) - 1) < 1e-12);
  RC_ASSERT(std::abs(Length(t.y) - 1) < 1e-12);
  RC_ASSERT(Distance(Cross(t.x, t.y), t.z) < 1e-12);
}

const Vector3 kX(1, 0, 0);
const Vector3 kY(0, 1, 0);
const Vector3 kZ(0, 0, 1);
const double kS = std::sqrt(0.5);
const double kSteep = std::sqrt(0.9999);
const double kLong = std::sqrt(40001.0);

// ---- line elements ------------------------------------------------------------------------------

enum Oriented { kDefault, kNode, kVector, kBeta };

struct LineCase {
  const char* what;
  Edition edition;
  Vector3 end;  // the element starts at the origin
  Oriented how;
  Vector3 reference;  // node or vector; x is the angle for beta
  bool fails;
  Triad expected;
};

const LineCase kLines[] = {
    {"horizontal, default", Edition::kGeneral, {2, 0, 0}, kDefault, {}, false, {kX, kZ, -kY}},
    {"horizontal, default in A", Edition::kA, {2, 0, 0}, kDefault, {}, false, {kX, kZ, -kY}},
    {"vertical, default", Edition::kGeneral, {0, 0, 2}, kDefault, {}, true, {}},
    {"vertical, default in C", Edition::kC, {0, 0, 2}, kDefault, {}, false, {kZ, kX, kY}},
    {"vector shows y", Edition::kGeneral, {2, 0, 0}, kVector, {5, 3, 0}, false, {kX, kY, kZ}},
    {"vector shows z in A", Edition::kA, {2, 0, 0}, kVector, {5, 3, 0}, false, {kX, -kZ, kY}},
    {"vector shows z in C", Edition::kC, {2, 0, 0}, kVector, {0, 0, 9}, false, {kX, kY, kZ}},
    {"vector shows y in B", Edition::kB, {0, 0, 1}, kVector, {0, 2, 0}, false, {kZ, kY, -kX}},
    {"vector along", Edition::kGeneral, {1, 2, 3}, kVector, {-2, -4, -6}, true, {}},
    {"vector of no length", Edition::kGeneral, {1, 2, 3}, kVector, {0, 0, 0}, true, {}},
    {"vector not a number", Edition::kGeneral, {1, 2, 3}, kVector, {kNaN, 0, 1}, true, {}},
    {"node shows y", Edition::kGeneral, {0, 2, 0}, kNode, {0, 9, 4}, false, {kY, kZ, kX}},
    {"node shows z in A", Edition::kA, {0, 2, 0}, kNode, {0, 9, 4}, false, {kY, -kX, kZ}},
    {"node on the line", Edition::kGeneral, {0, 2, 0}, kNode, {0, 9, 0}, true, {}},
    {"beam, no angle", Edition::kGeneral, {3, 0, 0}, kBeta, {0, 0, 0}, false, {kX, kY, kZ}},
    {"column, no angle", Edition::kGeneral, {0, 0, 3}, kBeta, {0, 0, 0}, false, {kZ, -kY, kX}},
    {"column down", Edition::kGeneral, {0, 0, -3}, kBeta, {0, 0, 0}, false, {-kZ, kY, kX}},
    {"beam, 90", Edition::kGeneral, {3, 0, 0}, kBeta, {90, 0, 0}, false, {kX, kZ, -kY}},
    {"column, 90", Edition::kGeneral, {0, 0, 3}, kBeta, {90, 0, 0}, false, {kZ, kX, kY}},
    {"leaning by exactly 1 to 100",
     Edition::kGeneral,
     {1, 0, std::sqrt(9999.0)},
     kBeta,
     {},
     false,
     {{0.01, 0, kSteep}, kY, {-kSteep, 0, 0.01}}},
    {"steeper",
     Edition::kGeneral,
     {1, 0, 200},
     kBeta,
     {},
     false,
     {{1 / kLong, 0, 200 / kLong}, -kY, {200 / kLong, 0, -1 / kLong}}},
    {"beam, 45",
     Edition::kGeneral,
     {3, 0, 0},
     kBeta,
     {45, 0, 0},
     false,
     {kX, {0, kS, kS}, {0, -kS, kS}}},
    {"angle not a number", Edition::kGeneral, {3, 0, 0}, kBeta, {kNaN, 0, 0}, true, {}},
    {"no length", Edition::kGeneral, {0, 0, 0}, kBeta, {0, 0, 0}, true, {}},
    {"too short", Edition::kGeneral, {9e-9, 0, 0}, kBeta, {0, 0, 0}, true, {}},
    {"end not a number", Edition::kGeneral, {kNaN, 0, 0}, kVector, {0, 1, 0}, true, {}},
    {"end at infinity",
     Edition::kGeneral,
     {std::numeric_limits<double>::infinity(), 0, 0},
     kVector,
     {0, 1, 0},
     true,
     {}},
};

TEST(LineAxes, FollowEditionAndMethod) {
  for (const LineCase& c : kLines) {
    const InEdition edition(c.edition);
    MeshModel m;
    m.Node(1, 0, 0, 0);
    m.Node(2, c.end.x, c.end.y, c.end.z);
    const ITR element = m.Element(7, 2, {1, 2});
    tagTEcrd record;
    record.key = 7;
    record.method = c.how == kNode     ? tagTEcrd::kByNode
                    : c.how == kVector ? tagTEcrd::kByVector
                                       : tagTEcrd::kByBetaAngle;
    record.reference_node = m.Node(3, c.reference.x, c.reference.y, c.reference.z);
    record.reference_vector = c.reference.As<tagTVector3<double>>();
    record.beta_angle_deg = c.reference.x;
    if (c.how != kDefault) m.orientations.InsertNU(record);
    Axes axes;
    EXPECT_EQ(m.elements.GetElemLocalVector(element, axes), c.fails ? 0 : 1) << c.what;
    ExpectAxes(axes, c.fails ? Triad{{}, {}, {}} : c.expected, c.what);
  }
}

TEST(LineAxes, FailForWhatIsNoLine) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  Axes axes;
  tagTElem element;
  element.type = 2;
  EXPECT_EQ(m.elements.Calc1DElemLocalVector(element, tagTEcrd(), axes), 0);  // no nodes
  element.nodes = {m.nodes.Find(1), 0};
  EXPECT_EQ(m.elements.Calc1DElemLocalVector(element, tagTEcrd(), axes), 0);  // a null one
  element.nodes = {m.nodes.Find(1), m.Node(2, 1, 0, 0)};
  tagTEcrd record;
  EXPECT_EQ(m.elements.Calc1DElemLocalVector(element, record, axes), 1);
  for (const int method : {4, -1, 99}) {
    record.method = method;
    EXPECT_EQ(m.elements.Calc1DElemLocalVector(element, record, axes), 0) << method;
  }
  record.method = tagTEcrd::kByNode;  // with no node
  EXPECT_EQ(m.elements.Calc1DElemLocalVector(element, record, axes), 0);
  record.method = tagTEcrd::kByVector;
  CTransaction transaction(&m.session);
  transaction.Begin(u"remove");
  m.nodes.Remove(element.nodes[1]);
  EXPECT_EQ(m.elements.Calc1DElemLocalVector(element, record, axes), 0);  // a dead one
  double center[3];
  EXPECT_EQ(m.elements.GetElemCenter(element, center), 0);
}

TEST(LineAxes, AreNeverMadeOfRounding) {
  MeshModel m;
  const ITR node = m.Node(3, 0, 0, 0);
  std::mt19937 random(11);
  std::uniform_real_distribution<double> coordinate(-1, 1), along(-2, 3), size(-3, 7);
  int accepted = 0;
  for (int i = 0; i < 2000; ++i) {
    const double scale = std::pow(10.0, size(random));
    const auto point = [&] {
      return scale * Vector3(coordinate(random), coordinate(random), coordinate(random));
    };
    const Vector3 p1 = point();
    const Vector3 p2 = point();
    const Vector3 on_line = p1 + along(random) * (p2 - p1);
    tagTNode moved;
    moved.key = 3;
    moved.position = on_line.As<tagTVector3<double>>();
    m.nodes.SetAtNU(node, moved);
    const double a[3] = {p1.x, p1.y, p1.z};
    const double b[3] = {p2.x, p2.y, p2.z};
    double axes[3][3];
    EXPECT_EQ(m.elements.Calc1DElemLocalVector(a, b, node, axes), 0) << "at a scale of " << scale;
    // What is accepted as an orientation gives axes.
    const Vector3 off = on_line + 2e-7 * Vector3(coordinate(random), coordinate(random), 1);
    if (DistanceToLine(off, p1, p2 - p1) < 1e-7) continue;
    ++accepted;
    moved.position = off.As<tagTVector3<double>>();
    m.nodes.SetAtNU(node, moved);
    EXPECT_EQ(m.elements.Calc1DElemLocalVector(a, b, node, axes), 1) << "at a scale of " << scale;
  }
  EXPECT_GT(accepted, 500);
}

TEST(LineAxes, ComeFromARectangularSystemOnly) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 1, 0, 0);
  const ITR element = m.Element(1, 2, {1, 2});
  tagTEcrd record;
  record.key = 1;
  record.method = tagTEcrd::kByCoordinateSystem;
  const ITR stored = m.orientations.InsertNU(record);
  Axes axes;
  EXPECT_EQ(m.elements.GetElemLocalVector(element, axes), 1);
  ExpectAxes(axes, {kX, kY, kZ}, "the default system, absent");
  tagTCord system;
  system.key = 5;
  system.axis_point = {0, 2, 0};
  system.plane_point = {0, 0, 2};
  record.coordinate_system = m.systems.InsertNU(system);
  m.orientations.SetAtNU(stored, record);
  EXPECT_EQ(m.elements.GetElemLocalVector(element, axes), 1);
  ExpectAxes(axes, {kY, kZ, kX}, "a system");
  for (const std::int32_t type : {tagTCord::kCylindrical, tagTCord::kSpherical}) {
    system.type = type;
    m.systems.SetAtNU(record.coordinate_system, system);
    EXPECT_EQ(m.elements.GetElemLocalVector(element, axes), 0) << type;
    ExpectAxes(axes, {{}, {}, {}}, "not rectangular");
  }
}

TEST(LineAxes, AreVerticalBelowARatioOfOneToAHundred) {
  const MeshModel m;
  const double origin[3] = {0, 0, 0};
  const auto is_vertical = [&](double x, double z) {
    const double p[3] = {x, 0, z};
    return m.elements.IsVerticalFrame(origin, p);
  };
  EXPECT_EQ(is_vertical(0, 5), 1);
  EXPECT_EQ(is_vertical(0, -5), 1);
  EXPECT_EQ(is_vertical(1, std::sqrt(9999.0)), 0) << "a ratio of exactly 0.01";
  EXPECT_EQ(is_vertical(0.9999, 100), 1);
  EXPECT_EQ(is_vertical(1.0002, 100), 0);
  EXPECT_EQ(is_vertical(0, 9e-9), 0) << "too short to be anything";
  EXPECT_EQ(is_vertical(0, 1.1e-8), 1);
}

TEST(LineAxes, TakeTheOverrideOfVertical) {
  const MeshModel m;
  const double a[3] = {0, 0, 0};
  const double beam[3] = {0, 2, 0};
  Axes axes;
  EXPECT_EQ(m.elements.Calc1DElemLocalVector(a, beam, 0.0, axes, -1), 1);
  ExpectAxes(axes, {kY, -kX, kZ}, "by geometry");
  EXPECT_EQ(m.elements.Calc1DElemLocalVector(a, beam, 0.0, axes, 1), 1);
  ExpectAxes(axes, {kY, kZ, kX}, "as if vertical");
  const double column[3] = {0, 0, 2};
  EXPECT_EQ(m.elements.Calc1DElemLocalVector(a, column, 0.0, axes, 0), 0) << "along its reference";
}

TEST(LineAxes, AreCleanedOfRoundingExceptByAngle) {
  const MeshModel m;
  const double a[3] = {0, 0, 0};
  const double b[3] = {1, 5e-14, 0};
  const double up[3] = {0, 0, 1};
  Axes axes;
  ASSERT_EQ(m.elements.Calc1DElemLocalVector(a, b, up, axes), 1);
  EXPECT_EQ(axes[0][1], 0.0);
  ASSERT_EQ(m.elements.Calc1DElemLocalVector(a, b, 0.0, axes, -1), 1);
  EXPECT_EQ(axes[0][1], 5e-14);
}

Vector3 RandomVector() {
  const auto component = [] { return *rc::gen::inRange(-1000, 1001) / 100.0; };
  return {component(), component(), component()};
}

RC_GTEST_PROP(LineAxes, TurnWithTheModel, ()) {
  const InEdition edition(*rc::gen::element(Edition::kGeneral, Edition::kA, Edition::kC));
  const Vector3 p1 = RandomVector();
  const Vector3 p2 = RandomVector();
  const Vector3 r = RandomVector();
  Vector3 axis = RandomVector();
  RC_PRE(Normalize(axis) && Distance(p1, p2) > 0.1 && DistanceToLine(r, p1, p2 - p1) > 0.1);
  const double angle = *rc::gen::inRange(-360, 361) + 0.5;
  const auto turned = [&](const Vector3& v) { return Rotated(v, axis, angle); };

  const auto axes_of = [](const Vector3& a, const Vector3& b, const Vector3& node, bool by_node,
                          const Vector3& vector, Axes& axes) {
    MeshModel m;
    m.Node(1, a.x, a.y, a.z);
    m.Node(2, b.x, b.y, b.z);
    m.Element(1, 2, {1, 2});
    tagTEcrd record;
    record.method = by_node ? tagTEcrd::kByNode : tagTEcrd::kByVector;
    record.reference_node = m.Node(3, node.x, node.y, node.z);
    record.reference_vector = vector.As<tagTVector3<double>>();
    return m.elements.Calc1DElemLocalVector(m.elements.GetAtNU(m.elements.Find(1)), record, axes);
  };
  const bool by_node = *rc::gen::arbitrary<bool>();
  Axes still;
  Axes moved;
  RC_ASSERT(axes_of(p1, p2, r, by_node, r - p1, still) == 1);
  RC_ASSERT(axes_of(turned(p1), turned(p2), turned(r), by_node, turned(r - p1), moved) == 1);
  ExpectOrthonormal(still);
  ExpectOrthonormal(moved);
  for (int i = 0; i < 3; ++i) {
    RC_ASSERT(Distance(turned(Vector3(still[i])), Vector3(moved[i])) < 1e-9);
  }
}

// ---- IsValidEcrd --------------------------------------------------------------------------------

TEST(Orientation, IsRefusedOnAndAlongTheElement) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 10, 0, 0);
  const tagTElem element = m.elements.GetAtNU(m.Element(1, 2, {1, 2}));
  const auto in_degrees = [](double angle) {
    double s = 0;
    double c = 0;
    SinCos(angle, s, c);
    return tagTVector3<double>{c, s, 0};
  };
  const struct {
    tagTVector3<double> vector;
    bool good;
  } vectors[] = {
      {in_degrees(90), true},         {in_degrees(0), false}, {in_degrees(5e-6), false},
      {in_degrees(2e-5), true},       {{-1, 0, 0}, false},    {in_degrees(180 - 1e-6), false},
      {in_degrees(180 - 2e-5), true}, {{0, 0, 0}, false},     {{kNaN, 0, 1}, false},
  };
  for (const auto& c : vectors) {
    const Listening sink;
    tagTEcrd record;
    record.method = tagTEcrd::kByVector;
    record.reference_vector = c.vector;
    EXPECT_EQ(m.elements.IsValidEcrd(element, record), c.good) << c.vector.x << " " << c.vector.y;
    const std::vector<std::string> refusal = {"IDS_QX_MESH_1D_PARALLEL_ERROR 1"};
    EXPECT_EQ(sink.heard, c.good ? std::vector<std::string>() : refusal);
  }
  const struct {
    double x;
    double y;
    bool good;
  } nodes[] = {{20, 0, false}, {5, 9e-8, false}, {5, 1.1e-7, true}, {kNaN, 1, false}};
  for (Key key = 10; const auto& c : nodes) {
    const Listening sink;
    tagTEcrd record;
    record.method = tagTEcrd::kByNode;
    record.reference_node = m.Node(key++, c.x, c.y, 0);
    EXPECT_EQ(m.elements.IsValidEcrd(element, record), c.good) << c.x << " " << c.y;
    const std::vector<std::string> refusal = {"IDS_QX_MESH_1D_ON_LINE 1"};
    EXPECT_EQ(sink.heard, c.good ? std::vector<std::string>() : refusal);
  }
  for (const int method : {2, 3, 17}) {
    tagTEcrd record;
    record.method = method;
    EXPECT_EQ(m.elements.IsValidEcrd(element, record), 1) << method;
  }
}

TEST(LineAxes, BecomeASystemOfThreePoints) {
  MeshModel m;
  m.Node(1, 1, 1, 1);
  m.Node(2, 1, 4, 1);
  m.Node(3, 1, 2, 9);
  const ITR element = m.Element(5, 2, {1, 2});
  tagTCord system;
  EXPECT_EQ(m.elements.Get1DElemCord(element, system), 0) << "no orientation stored";
  tagTEcrd record;
  record.key = 5;
  record.method = tagTEcrd::kByNode;
  record.reference_node = m.nodes.Find(3);
  m.orientations.InsertNU(record);
  system.plane = 2;
  system.type = tagTCord::kCylindrical;
  system.reference = m.Keyed<tagTCord>(9);
  ASSERT_EQ(m.elements.Get1DElemCord(element, system), 1);
  EXPECT_EQ(system.plane, tagTCord().plane);
  EXPECT_EQ(system.type, tagTCord().type);
  EXPECT_EQ(+system.reference, 0u);
  Frame frame;
  ASSERT_TRUE(m.systems.GetFrame(system, frame));
  Axes axes;
  ASSERT_EQ(m.elements.GetElemLocalVector(element, axes), 1);
  ExpectAxes(axes, frame.axes, "as a system");
  EXPECT_EQ(frame.origin, Vector3(1, 1, 1));
  record.key = 6;
  m.orientations.InsertNU(record);
  EXPECT_EQ(m.elements.Get1DElemCord(m.Element(6, 54, {1, 2}), system), 0) << "not of type 2 or 3";
}

// ---- plane elements -----------------------------------------------------------------------------

TEST(PlaneAxes, FollowTheFirstEdgeAndTheDiagonals) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 0, 3, 0);
  m.Node(3, 0, 3, 4);
  m.Node(4, 0, 0, 4);
  m.Node(5, 0.5, 3, 4);  // out of the plane of 1, 2 and 4
  const struct {
    const char* what;
    std::int32_t type;
    std::initializer_list<Key> nodes;
    bool good;
  } cases[] = {
      {"triangle", 4, {1, 2, 3}, true},
      {"quadrilateral", 6, {1, 2, 3, 4}, true},
      {"of 8 nodes", 7, {1, 2, 3, 4, 1, 2, 3, 4}, true},
      {"base of a hexahedron", 14, {1, 2, 3, 4, 5, 5, 5, 5}, true},
      {"interface of two sides", 50, {1, 2, 3, 4, 1, 2, 3, 4}, true},
      {"fluid boundary", 84, {1, 2, 3}, true},
      {"collinear", 4, {1, 2, 2}, false},
      {"coincident", 6, {1, 1, 1, 1}, false},
      {"too few nodes", 6, {1, 2, 3}, false},
      {"a point", 1, {1}, false},
      {"no nodes", 6, {}, false},
  };
  Axes axes;
  for (Key key = 1; const auto& c : cases) {
    const ITR element = m.Element(key++, c.type, c.nodes);
    EXPECT_EQ(m.elements.GetElemLocalVector(element, axes), c.good) << c.what;
    ExpectAxes(axes, c.good ? Triad{kY, kZ, kX} : Triad{{}, {}, {}}, c.what);
  }
  // Warped: z across both diagonals, x in the plane across z.
  const ITR warped = m.Element(100, 6, {1, 2, 5, 4});
  ASSERT_EQ(m.elements.GetElemLocalVector(warped, axes), 1);
  const Triad t = Triad::From(axes);
  EXPECT_NEAR(Dot(t.z, {0.5, 3, 4}), 0, 1e-12);
  EXPECT_NEAR(Dot(t.z, {0, -3, 4}), 0, 1e-12);
  EXPECT_NEAR(Dot(Cross(t.x, t.y), t.z), 1, 1e-12);
  EXPECT_GT(t.x.y, 0.9);
}

TEST(PlaneAxes, MeasureAnglesAgainstTheNormal) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 1, 0, 0);
  m.Node(3, 1, 1, 0);
  m.Node(4, 0, 1, 0);
  const tagTElem element = m.elements.GetAtNU(m.Element(1, 6, {1, 2, 3, 4}));
  const tagTElem flipped = m.elements.GetAtNU(m.Element(2, 6, {2, 1, 4, 3}));
  double angle = 0;
  const auto of = [&](const tagTElem& e, double x, double y, double z) {
    const double v[3] = {x, y, z};
    return m.elements.Calc2DElemVectorAngle(e, v, angle) ? angle : kNaN;
  };
  EXPECT_NEAR(of(element, 1, 1, 7), 45, 1e-12);
  EXPECT_NEAR(of(element, 0, -1, 0), -90, 1e-12);
  EXPECT_NEAR(of(element, -1, 0, 0), 180, 1e-12);
  EXPECT_NEAR(of(flipped, 1, 1, 0), 135, 1e-12);  // x is -X, z is -Z
  EXPECT_TRUE(std::isnan(of(element, 0, 0, 1))) << "along the normal";
  const double from[3] = {0, 1, 0};
  const double to[3] = {-1, 0, 3};
  ASSERT_EQ(m.elements.Calc2DElemVectorAngle(element, from, to, angle), 1);
  EXPECT_NEAR(angle, 90, 1e-12);
}

RC_GTEST_PROP(PlaneAxes, TurnWithTheElement, ()) {
  std::vector<Vector3> corners(*rc::gen::inRange<std::size_t>(3, 5));
  for (Vector3& p : corners) p = RandomVector();
  const Vector3 along = RandomVector();
  Vector3 axis = RandomVector();
  Triad still[2];
  RC_PRE(Normalize(axis) && PlaneAxes(corners, still[0]) && PlaneAxes(corners, along, still[1]));
  RC_PRE(std::abs(Dot(along, still[1].z)) < 0.99 * Length(along));
  const double angle = *rc::gen::inRange(-360, 361) + 0.5;
  std::vector<Vector3> moved;
  for (const Vector3& p : corners) moved.push_back(Rotated(p, axis, angle));
  Triad turned[2];
  RC_ASSERT(PlaneAxes(moved, turned[0]) &&
            PlaneAxes(moved, Rotated(along, axis, angle), turned[1]));
  for (int i = 0; i < 2; ++i) {
    Axes axes;
    still[i].CopyTo(axes);
    ExpectOrthonormal(axes);
    RC_ASSERT(Distance(Rotated(still[i].x, axis, angle), turned[i].x) < 1e-9);
    RC_ASSERT(Distance(Rotated(still[i].z, axis, angle), turned[i].z) < 1e-9);
  }
}

// ---- special elements ---------------------------------------------------------------------------

TEST(SpecialAxes, FollowTheSpecialPropertyElseTheLine) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 0, 0, 2);
  m.Node(3, 0, 0, 0);
  m.Node(4, 5, 0, 1);
  tagTCord cylinder;
  cylinder.key = 2;
  cylinder.type = tagTCord::kCylindrical;
  cylinder.origin = {0, -1, 0};  // nodes 1 to 3 lie at 90 degrees
  cylinder.axis_point = {1, -1, 0};
  cylinder.plane_point = {0, 0, 0};
  const ITR system = m.systems.InsertNU(cylinder);
  enum { kInSystem, kByVector, kByNode, kAlong };
  const struct {
    const char* what;
    std::initializer_list<Key> nodes;
    int csys_type;  // -1 without a property
    bool good;
    Triad expected;
  } cases[] = {
      {"spring without property", {1, 2}, -1, true, {kZ, kX, kY}},
      {"along the element", {1, 2}, kAlong, true, {kZ, kX, kY}},
      {"by vector", {1, 2}, kByVector, true, {kZ, kY, -kX}},
      {"by node", {1, 2}, kByNode, true, {kZ, kX, kY}},
      {"in a cylindrical system", {1, 2}, kInSystem, true, {kY, -kX, kZ}},
      {"mass", {1}, -1, true, {kX, kY, kZ}},
      {"mass in a system", {1}, kInSystem, true, {kY, -kX, kZ}},
      {"without length", {1, 3}, -1, false, {}},
      {"without length, in a system", {1, 3}, kInSystem, true, {kY, -kX, kZ}},
      {"without length, by vector", {1, 3}, kByVector, true, {kY, kZ, kX}},
      {"without nodes", {}, kInSystem, false, {}},
  };
  for (Key key = 1; const auto& c : cases) {
    const ITR element = m.Element(key, 31, c.nodes);
    tagTSprop property;
    property.key = key++;
    property.csys_type = c.csys_type;
    property.coordinate_system = system;
    property.reference_vector = {0, 3, 1};
    if (c.csys_type == kByVector && c.nodes.size() == 2) property.reference_vector = {0, 3, 0};
    property.reference_node = m.nodes.Find(4);
    if (c.csys_type >= 0) Pool<tagTSprop>(m.session).InsertNU(property);
    Axes axes;
    EXPECT_EQ(m.elements.GetElemLocalVector(element, axes), c.good) << c.what;
    ExpectAxes(axes, c.good ? c.expected : Triad{{}, {}, {}}, c.what);
  }
}

TEST(SpecialAxes, OfBoundariesKnowWhereUpIs) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 0, 0, -2);
  m.Node(3, 0, 2, -2);
  m.Node(4, 0, 2, 0);
  m.Node(5, 4, 0, 0);
  m.Node(6, 4, 2, 0);
  const struct {
    const char* what;
    std::int32_t type;
    std::initializer_list<Key> nodes;
    Triad expected;
  } cases[] = {
      {"interface line", 46, {5, 1}, {-kX, -kY, kZ}},
      {"fluid boundary line", 82, {1, 5}, {kX, kY, kZ}},
      {"free field line, drawn down", 56, {1, 2}, {kZ, -kY, kX}},
      {"free field line, drawn up", 56, {2, 1}, {kZ, -kY, kX}},
      {"free field plane", 65, {1, 2, 3, 4}, {kY, kZ, kX}},
      {"free field plane, other edge first", 65, {2, 3, 4, 1}, {kY, kZ, kX}},
      {"level free field plane", 65, {1, 5, 6, 4}, {kX, kY, kZ}},
  };
  for (Key key = 1; const auto& c : cases) {
    Axes axes;
    EXPECT_EQ(m.elements.GetElemLocalVector(m.Element(key++, c.type, c.nodes), axes), 1) << c.what;
    ExpectAxes(axes, c.expected, c.what);
  }
}

TEST(SpecialAxes, OfInterfaceLinesPointAlongTheirVector) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 2, 0, 0);
  for (const std::int32_t type : {46, 47, 71, 72}) {
    const ITR element = m.Element(type, type, {1, 2});
    tagTEcrd record;
    record.key = type;
    record.method = tagTEcrd::kByBetaAngle;
    record.beta_angle_deg = 0;
    record.intersection_x = {-1, 5, 0};
    m.orientations.InsertNU(record);
    Axes axes;
    ASSERT_EQ(m.elements.GetElemLocalVector(element, axes), 1) << type;
    ExpectAxes(axes, {-kX, -kY, kZ}, std::to_string(type));
  }
}

// ---- material axes ------------------------------------------------------------------------------

TEST(MaterialAxes, OfPlatesFollowTheSystemThatListsThem) {
  MeshModel m;
  m.Node(1, 1, 0, 0);
  m.Node(2, 2, 0, 0);
  m.Node(3, 2, 1, 0);
  m.Node(4, 1, 1, 0);
  const ITR plate = m.Element(1, 6, {1, 2, 3, 4});
  Axes axes;
  ASSERT_EQ(m.elements.GetElemMatlVector(plate, axes), 1);
  ExpectAxes(axes, {kX, kY, kZ}, "its own");

  auto& pool = Pool<tagTE2DMatlCsys>(m.session);
  tagTE2DMatlCsys material;
  material.key = 1;
  material.elements = {plate};
  material.angle_deg = 90;
  const ITR stored = pool.InsertNU(material);
  ASSERT_EQ(m.elements.GetElemMatlVector(plate, axes), 1);
  ExpectAxes(axes, {kY, -kX, kZ}, "by angle");

  material.type = tagTE2DMatlCsys::kByVector;
  material.reference_vector = {-3, 0, 8};
  pool.SetAtNU(stored, material);
  ASSERT_EQ(m.elements.GetElemMatlVector(plate, axes), 1);
  ExpectAxes(axes, {-kX, -kY, kZ}, "by vector");
  material.reference_vector = {0, 0, 8};
  pool.SetAtNU(stored, material);
  EXPECT_EQ(m.elements.GetElemMatlVector(plate, axes), 0) << "along the normal";

  tagTCord cylinder;  // whose radial direction at the plate's centre is (1.5, 0.5)
  cylinder.key = 9;
  cylinder.type = tagTCord::kCylindrical;
  material.type = tagTE2DMatlCsys::kByCoordinateSystem;
  material.coordinate_system = m.systems.InsertNU(cylinder);
  const Vector3 radial = (1 / std::sqrt(2.5)) * Vector3(1.5, 0.5, 0);
  for (const auto& [axis, x] : {std::pair(0, radial), std::pair(1, Cross(kZ, radial))}) {
    material.csys_axis = axis;
    pool.SetAtNU(stored, material);
    ASSERT_EQ(m.elements.GetElemMatlVector(plate, axes), 1);
    ExpectAxes(axes, {x, Cross(kZ, x), kZ}, "by a cylindrical system");
  }
  for (const int axis : {2, 3, -1}) {
    material.csys_axis = axis;
    pool.SetAtNU(stored, material);
    EXPECT_EQ(m.elements.GetElemMatlVector(plate, axes), 0) << axis;
  }
}

TEST(MaterialAxes, OfSolidsFollowTheStoredTriad) {
  MeshModel m;
  tagTE3DMatlCsys triad;  // as new: no x, y along X, z along Y
  Axes axes;
  ASSERT_EQ(m.elements.Calc3DElemMatlVector(triad, axes), 1);
  ExpectAxes(axes, {kZ, kX, kY}, "as new");
  triad = tagTE3DMatlCsys();
  triad.x_axis = {0, 0, 5};
  triad.y_axis = {0, 1, 1};
  ASSERT_EQ(m.elements.Calc3DElemMatlVector(triad, axes), 1);
  ExpectAxes(axes, {kZ, kY, -kX}, "made orthogonal");
  triad.y_axis = {0, 0, -2};
  EXPECT_EQ(m.elements.Calc3DElemMatlVector(triad, axes), 0);
  for (Key key = 1; key <= 4; ++key) m.Node(key, key == 2, key == 3, key == 4);
  const ITR solid = m.Element(3, 8, {1, 2, 3, 4});
  ASSERT_EQ(m.elements.GetElemMatlVector(solid, axes), 1);
  ExpectAxes(axes, {kX, kY, kZ}, "without one: global");
  m.Keyed<tagTE3DMatlCsys>(3);
  ASSERT_EQ(m.elements.GetElemMatlVector(solid, axes), 1);
  ExpectAxes(axes, {kZ, kX, kY}, "stored");
  double center[3];
  ASSERT_EQ(m.elements.GetElemCenter(solid, center), 1);
  EXPECT_EQ(Vector3(center), Vector3(0.25, 0.25, 0.25));
}

// ---- a deck -------------------------------------------------------------------------------------

TEST(LineAxes, AgreeWithADeckOfBars) {
  QX_REQUIRE_CORPUS(path, "nastran/cbar_orientation.bdf");
  MeshModel m;
  int bars = 0;
  for (const auto& card : ReadCards(path)) {
    if (card[0] == "GRID") m.Node(Integer(card, 1), Real(card, 3), Real(card, 4), Real(card, 5));
    if (card[0] != "CBAR") continue;
    const Key key = Integer(card, 1);
    const ITR element = m.Element(key, 2, {Integer(card, 3), Integer(card, 4)});
    tagTEcrd record;
    record.key = key;
    record.method = tagTEcrd::kByVector;
    record.reference_vector = {Real(card, 5), Real(card, 6), Real(card, 7)};
    ASSERT_EQ(m.elements.IsValidEcrd(m.elements.GetAtNU(element), record), 1);
    m.orientations.InsertNU(record);
    Axes axes;
    ASSERT_EQ(m.elements.GetElemLocalVector(element, axes), 1);
    // The vector lies in the first bending plane, x-y.
    ExpectAxes(axes, {kX, kY, kZ}, "bar " + std::to_string(key));
    ++bars;
  }
  EXPECT_EQ(bars, 8);
}

}  // namespace
}  // namespace qx
