#include <cmath>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "qx_db/model/mesh_coordinate_pool.h"

#include "tests/corpus.h"
#include "tests/model/deck.h"
#include "tests/model/mesh_model.h"

namespace qx {
namespace {

const Vector3 kX(1, 0, 0);
const Vector3 kY(0, 1, 0);
const Vector3 kZ(0, 0, 1);

void ExpectNear(const Vector3& a, const Vector3& b, double tolerance, const std::string& what) {
  EXPECT_LT(Distance(a, b), tolerance) << what << ": " << a.x << " " << a.y << " " << a.z;
}

void ExpectFrame(const MeshModel& m, const tagTCord& system, const Triad& expected,
                 const std::string& what) {
  double origin[3];
  double axes[3][3];
  ASSERT_EQ(m.systems.GetCoord(system, origin, axes), 1) << what;
  ExpectNear(Vector3(axes[0]), expected.x, 1e-12, what + ", x");
  ExpectNear(Vector3(axes[1]), expected.y, 1e-12, what + ", y");
  ExpectNear(Vector3(axes[2]), expected.z, 1e-12, what + ", z");
}

TEST(CoordinateSystem, IsGivenByThreePointsInAnyPlane) {
  const MeshModel m;
  tagTCord system;
  system.origin = {1, 1, 1};
  system.axis_point = {1, 3, 1};
  system.plane_point = {1, 2, 9};
  const Triad expected[] = {{kY, kZ, kX}, {kX, kY, kZ}, {kZ, kX, kY}};
  for (system.plane = 0; system.plane < 3; ++system.plane) {
    ExpectFrame(m, system, expected[system.plane], "plane " + std::to_string(system.plane));
  }
  double origin[3] = {7, 7, 7};
  double axes[3][3];
  EXPECT_EQ(m.systems.GetCoord(system, origin, axes), 0) << "no such plane";
  system.plane = 0;
  for (const tagTVector3<double> bad : {tagTVector3<double>{1, 5, 1}, {1, 1, 1}, {NAN, 2, 9}}) {
    system.plane_point = bad;
    EXPECT_EQ(m.systems.GetCoord(system, origin, axes), 0) << bad.x << " " << bad.y;
  }
  EXPECT_EQ(origin[0], 7) << "a failure touches nothing";
}

TEST(CoordinateSystem, IsGivenByAnglesInAnyOrder) {
  const MeshModel m;
  tagTCord system;
  system.method = tagTCord::kByAngles;
  // One by hand: about x, y becomes Z and z becomes -Y; about y, now Z, x becomes Y and z becomes
  // X; about z, now X, x becomes Z and y becomes -Y.
  system.rotation_deg = {90, 90, 90};
  ExpectFrame(m, system, {kZ, -kY, kX}, "by hand");
  // The product of the three rotation matrices, in the order of the turns.
  const int orders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
  for (const tagTVector3<double> angles :
       {tagTVector3<double>{90, 90, 90}, {30, 0, 0}, {10, 20, 30}, {-45, 123, 270}}) {
    system.rotation_deg = angles;
    for (system.rotation_order = 0; system.rotation_order < 6; ++system.rotation_order) {
      Triad product;
      for (Vector3* v : {&product.x, &product.y, &product.z}) {
        // A rotation about moved axes is the product of rotations about fixed ones, last first.
        for (int i = 2; i >= 0; --i) {
          const int about = orders[system.rotation_order][i];
          const Vector3 axis = about == 0 ? kX : about == 1 ? kY : kZ;
          *v = Rotated(*v, axis, Vector3(angles)[about]);
        }
      }
      ExpectFrame(m, system, product, "order " + std::to_string(system.rotation_order));
    }
  }
  double origin[3];
  double axes[3][3];
  EXPECT_EQ(m.systems.GetCoord(system, origin, axes), 0) << "no such order";
  system.rotation_order = 0;
  system.rotation_deg.z = NAN;
  EXPECT_EQ(m.systems.GetCoord(system, origin, axes), 0) << "not a number";
  system.method = 2;
  EXPECT_EQ(m.systems.GetCoord(system, origin, axes), 0) << "no such method";
}

RC_GTEST_PROP(CoordinateSystem, PointsComeBackFromAnySystem, ()) {
  const auto number = [] { return *rc::gen::inRange(-5000, 5001) / 100.0; };
  MeshModel m;
  ITR system = 0;
  for (Key key = 1; key <= *rc::gen::inRange<Key>(1, 6); ++key) {
    tagTCord record;
    record.key = key;
    record.reference = system;
    record.type = *rc::gen::inRange(0, 3);
    record.method = tagTCord::kByAngles;
    record.rotation_order = *rc::gen::inRange(0, 6);
    record.rotation_deg = {number(), number(), number()};
    record.origin = {number(), number(), number()};
    system = m.systems.InsertNU(record);
  }
  const Vector3 point(number(), number(), number());
  Vector3 coordinates;
  Vector3 back;
  RC_ASSERT(m.systems.FromGlobal(system, point, coordinates));
  RC_ASSERT(m.systems.ToGlobal(system, coordinates, back));
  RC_ASSERT(Distance(point, back) < 1e-9);
  // Components count along the way the coordinates grow.
  const tagTCord& record = m.systems.GetAtNU(system);
  Triad axes;
  RC_ASSERT(m.systems.GetAxesAt(record, point, axes));
  RC_ASSERT(Distance(Cross(axes.x, axes.y), axes.z) < 1e-12);
  const Vector3* along[] = {&axes.x, &axes.y, &axes.z};
  for (int i = 0; i < 3; ++i) {
    const double step = i > 0 && record.type != tagTCord::kRectangular ? 1e-4 : 1e-6;
    Vector3 ahead = coordinates;
    ahead[i] += step;
    Vector3 there;
    RC_ASSERT(m.systems.ToGlobal(system, ahead, there));
    Vector3 way = there - point;
    if (Length(way) < 1e-7) continue;  // near an axis an angle hardly moves the point
    RC_ASSERT(Normalize(way));
    RC_ASSERT(Dot(way, *along[i]) > 0.99);
  }
}

TEST(CoordinateSystem, NeverFollowsItself) {
  MeshModel m;
  tagTCord record;
  std::vector<ITR> chain;
  for (Key key = 1; key <= 4; ++key) {
    record.key = key;
    record.reference = key == 1 ? 0 : chain.back();
    record.origin = {1, 0, 0};
    record.axis_point = {2, 0, 0};
    record.plane_point = {1, 1, 0};
    chain.push_back(m.systems.InsertNU(record));
  }
  Frame frame;
  ASSERT_TRUE(m.systems.GetFrame(chain[3], frame));
  EXPECT_EQ(frame.origin, Vector3(4, 0, 0));

  const std::uint64_t before = m.session.StateHash();
  for (const auto& [changed, to] : {std::pair(0, 3), std::pair(1, 1), std::pair(1, 2)}) {
    const Listening sink;
    record = m.systems.GetAtNU(chain[static_cast<std::size_t>(changed)]);
    record.reference = chain[static_cast<std::size_t>(to)];
    EXPECT_EQ(m.systems.SetAtNU(chain[static_cast<std::size_t>(changed)], record), 0);
    EXPECT_EQ(sink.heard,
              (std::vector<std::string>{"IDS_QX_DB_CORD_CYCLE " + std::to_string(changed + 1) +
                                        " " + std::to_string(to + 1)}));
  }
  EXPECT_EQ(m.session.StateHash(), before);
  // One that came in another way is found out by whoever asks.
  m.systems.GetAtNU(chain[0]).reference = chain[3];
  for (const ITR system : chain) EXPECT_FALSE(m.systems.GetFrame(system, frame));
  double origin[3];
  double axes[3][3];
  EXPECT_EQ(m.systems.GetCoord(chain[2], origin, axes), 0);
  m.systems.GetAtNU(chain[0]).reference = chain[0];
  EXPECT_FALSE(m.systems.GetFrame(chain[0], frame));
}

TEST(CoordinateSystem, IsKeptWhileAnotherIsGivenInIt) {
  MeshModel m;
  tagTCord record;
  record.key = 4;
  record.reference = m.Keyed<tagTCord>(3);
  const ITR inner = m.systems.InsertNU(record);
  const std::uint64_t before = m.session.StateHash();
  const Listening sink;
  EXPECT_EQ(m.Step([&] { m.systems.Remove(m.systems.Find(3)); }), 0);
  EXPECT_EQ(sink.heard, std::vector<std::string>{"IDS_QX_DB_CORD_REFERENCED 3 4"});
  EXPECT_EQ(m.session.StateHash(), before);
  EXPECT_EQ(m.session.Validate(), "");
  EXPECT_EQ(m.Step([&] {
    m.systems.Remove(m.systems.Find(3));
    m.systems.Remove(inner);
  }),
            1);
}

TEST(CoordinateSystem, HasADefault) {
  MeshModel m;
  EXPECT_EQ(m.systems.GetDefaultItr(), 0u);
  EXPECT_EQ(m.systems.AddDefault(), 1);
  const ITR made = m.systems.GetDefaultItr();
  ASSERT_NE(made, 0u);
  EXPECT_EQ(m.systems.AddDefault(), 1) << "once";
  EXPECT_EQ(m.systems.GetSize(), 1);
  Frame frame;
  ASSERT_TRUE(m.systems.GetFrame(made, frame));
  EXPECT_EQ(frame.axes.x, kX);
  EXPECT_EQ(frame.axes.z, kZ);
}

TEST(CoordinateSystem, KeepsTheDefaultAsItIs) {
  MeshModel m;
  EXPECT_EQ(m.Step([&] { m.Keyed<tagTCord>(9); }), 1) << "a model without one";
  m.systems.AddDefault();
  m.systems.GetAtNU(m.systems.GetDefaultItr()).origin.x = 1;  // as a file may bring it
  EXPECT_EQ(m.Step([&] { m.systems.Remove(m.systems.Find(9)); }), 1) << "blocks no other step";
  m.systems.GetAtNU(m.systems.GetDefaultItr()).origin.x = 0;
  const ITR global = m.systems.GetDefaultItr();
  const auto changed = [&](auto&& change) {
    tagTCord record = m.systems.GetAtNU(global);
    change(record);
    return [&m, global, record] { m.systems.SetAtNU(global, record); };
  };
  const struct {
    const char* what;
    std::function<void()> edit;
    bool good;
  } cases[] = {
      {"renamed", changed([](tagTCord& r) { r.name.Set(u"World"); }), true},
      {"the same by angles", changed([](tagTCord& r) { r.method = tagTCord::kByAngles; }), true},
      {"the same by other points", changed([](tagTCord& r) { r.axis_point.x = 7; }), true},
      {"moved", changed([](tagTCord& r) { r.origin.z = 1; }), false},
      {"turned", changed([](tagTCord& r) { r.plane = 1; }), false},
      {"degenerate", changed([](tagTCord& r) { r.axis_point.x = 0; }), false},
      {"cylindrical", changed([](tagTCord& r) { r.type = tagTCord::kCylindrical; }), false},
      {"renumbered", changed([](tagTCord& r) { r.key = 5; }), false},
      {"removed", [&] { m.systems.Remove(global); }, false},
      {"removed and made anew",
       [&] {
         m.systems.Remove(global);
         m.systems.AddDefault();
       },
       true},
  };
  const std::uint64_t before = m.session.StateHash();
  for (const auto& c : cases) {
    const Listening sink;
    EXPECT_EQ(m.Step(c.edit), c.good) << c.what;
    const std::vector<std::string> refusal = {"IDS_QX_DB_CORD_DEFAULT 1"};
    EXPECT_EQ(sink.heard, c.good ? std::vector<std::string>() : refusal) << c.what;
    if (c.good) m.session.Undo();
    EXPECT_EQ(m.session.StateHash(), before) << c.what;
  }
}

TEST(MeshCoordinateSystem, IsThatOfTheLastSetWithTheNode) {
  MeshModel m;
  auto& assignments = Pool<tagTMeshCsys>(m.session);
  tagTMset set;
  const ITR a = m.Node(1, 3, 4, 0);
  const ITR b = m.Node(2, 0, 1, 0);
  set.key = 10;
  set.nodes = {a};
  const ITR first = Pool<tagTMset>(m.session).InsertNU(set);
  set.key = 11;
  set.nodes = {a, b};
  const ITR both = Pool<tagTMset>(m.session).InsertNU(set);
  m.systems.AddDefault();
  tagTCord cylinder;
  cylinder.key = 2;
  cylinder.type = tagTCord::kCylindrical;
  const ITR global = m.systems.GetDefaultItr();
  const ITR round = m.systems.InsertNU(cylinder);
  EXPECT_EQ(assignments.GetNodeCSysItr(a), 0u);
  const auto assign = [&](Key key, ITR to, ITR system) {
    tagTMeshCsys record;
    record.key = key;
    record.mesh_set = to;
    record.coordinate_system = system;
    assignments.InsertNU(record);
  };
  assign(1, both, global);
  EXPECT_EQ(assignments.GetNodeCSysItr(a), global);
  assign(2, first, round);
  EXPECT_EQ(assignments.GetNodeCSysItr(a), round);
  EXPECT_EQ(assignments.GetNodeCSysItr(b), global);
  EXPECT_EQ(assignments.GetNodeCSysItr(0), 0u);

  double v[3] = {3, 4, 5};
  EXPECT_EQ(m.elements.GetElemAxisByNodalCSys(b, v), 1) << "global leaves it";
  EXPECT_EQ(Vector3(v), Vector3(3, 4, 5));
  EXPECT_EQ(m.elements.GetElemAxisByNodalCSys(a, v), 1);
  ExpectNear(Vector3(v), {5, 0, 5}, 1e-12, "radial, tangential, axial");
  EXPECT_EQ(m.elements.GetElemAxisByNodalCSys(m.Node(3, 0, 0, 0), v), 0) << "in no set";

  // An assignment dies with its system, and with its set; undo brings it back.
  EXPECT_EQ(m.Step([&] { m.systems.Remove(round); }), 1);
  EXPECT_EQ(assignments.GetSize(), 1);
  EXPECT_EQ(assignments.GetNodeCSysItr(a), global);
  m.session.Undo();
  EXPECT_EQ(assignments.GetNodeCSysItr(a), round);
  EXPECT_EQ(m.Step([&] { Pool<tagTMset>(m.session).Remove(first); }), 1);
  EXPECT_EQ(assignments.GetNodeCSysItr(a), global);
}

// ---- decks --------------------------------------------------------------------------------------

/// Takes the systems and points of a deck over. Systems may refer forward.
void ReadSystems(MeshModel& m, const std::vector<std::vector<std::string>>& cards) {
  const std::pair<const char*, std::int32_t> kinds[] = {{"CORD2R", tagTCord::kRectangular},
                                                        {"CORD2C", tagTCord::kCylindrical},
                                                        {"CORD2S", tagTCord::kSpherical}};
  std::vector<std::pair<Key, Key>> references;
  for (const auto& card : cards) {
    for (const auto& [name, type] : kinds) {
      if (card[0] != name) continue;
      tagTCord system;
      system.key = Integer(card, 1);
      system.type = type;
      system.plane = 2;  // the points give z and the zx plane
      // A deck in large fields has four values a line.
      std::vector<double> values;
      for (std::size_t i = 3; i < card.size() && values.size() < 9; ++i) {
        if (!card[i].empty() && card[i][0] != '+' && card[i][0] != '*') {
          values.push_back(Real(card, i));
        }
      }
      ASSERT_EQ(values.size(), 9u) << card[0] << " " << card[1];
      system.origin = {values[0], values[1], values[2]};
      system.axis_point = {values[3], values[4], values[5]};
      system.plane_point = {values[6], values[7], values[8]};
      m.systems.InsertNU(system);
      references.emplace_back(system.key, Integer(card, 2));
    }
  }
  for (const auto& [key, reference] : references) {
    const ITR pos = m.systems.Find(key);
    tagTCord system = m.systems.GetAtNU(pos);
    system.reference = m.systems.Find(reference);
    ASSERT_EQ(m.systems.SetAtNU(pos, system), 1);
  }
  for (const auto& card : cards) {
    if (card[0] != "GRID") continue;
    Vector3 p;
    ASSERT_TRUE(m.systems.ToGlobal(m.systems.Find(Integer(card, 2)),
                                   {Real(card, 3), Real(card, 4), Real(card, 5)}, p));
    m.Node(Integer(card, 1), p.x, p.y, p.z);
  }
}

TEST(CoordinateSystem, AgreesWithADeckInEachKindOfSystem) {
  QX_REQUIRE_CORPUS(path, "nastran/simple_case.dat");
  QX_REQUIRE_CORPUS(answer, "nastran/simple_case_basic.dat");
  MeshModel m;
  MeshModel basic;
  ReadSystems(m, ReadCards(path));
  ReadSystems(basic, ReadCards(answer));
  ASSERT_EQ(m.nodes.GetSize(), 3);
  for (Key key = 1; key <= 3; ++key) {
    const Vector3 expected = basic.nodes.Position(basic.nodes.Find(key));
    ExpectNear(m.nodes.Position(m.nodes.Find(key)), expected, 1e-6 * Length(expected),
               "point " + std::to_string(key));
  }
}

TEST(CoordinateSystem, AgreesWithADeckOfNestedSystems) {
  QX_REQUIRE_CORPUS(path, "nastran/truss_rand_coords.dat");
  const auto cards = ReadCards(path);
  MeshModel m;
  ReadSystems(m, cards);
  EXPECT_EQ(m.systems.GetSize(), 103);
  const std::pair<Key, Vector3> known[] = {
      {0, {-3.311129e-12, 120.0, 240.0}},      {3, {120.0, 90.0, 240.0}},
      {4, {268.3282, 26.56505, 90.0}},         {120, {209.2676, -154.5887, -74.69447}},
      {319, {234.6864, 90.48062, 41.28919}},   {1419, {221.4435, 72.45807, -126.0349}},
      {1270, {-188.6176, -30.08591, 220.797}}, {7547, {146.0503, -122.6481, -95.02941}},
      {1712, {180.9601, 30.36212, 155.6088}},  {1869, {205.0785, 177.0128, -76.73323}}};
  const Vector3 point = m.nodes.Position(m.nodes.Find(4));
  for (const auto& [key, expected] : known) {
    Vector3 coordinates;
    ASSERT_TRUE(m.systems.FromGlobal(m.systems.Find(key), point, coordinates)) << key;
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(coordinates[i], expected[i], 6e-5) << key;
  }
  double length = 0;
  int rods = 0;
  for (const auto& card : cards) {
    if (card[0] != "CROD") continue;
    length += Distance(m.nodes.Position(m.nodes.Find(Integer(card, 3))),
                       m.nodes.Position(m.nodes.Find(Integer(card, 4))));
    ++rods;
  }
  EXPECT_EQ(rods, 72);
  EXPECT_NEAR(length, 8530.895536678529, 1e-6);
}

}  // namespace
}  // namespace qx
