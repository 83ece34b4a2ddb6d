// Laws of conversion between coordinate systems.

#include "qx_db/app/app_util.h"

#include <cmath>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "qx_db/qx_db.h"

namespace qx {
namespace {

/// Systems of every type: one given in the global system, and of each type one given in the one
/// before, turned and moved.
class Systems {
 public:
  Systems() : session_(AddStandardPools) {
    auto& pool = *session_.GetPool<DPoolCord>(code::kCord);
    ITR outer = 0;
    for (const std::int32_t type :
         {tagTCord::kRectangular, tagTCord::kCylindrical, tagTCord::kSpherical,
          tagTCord::kCylindrical, tagTCord::kRectangular}) {
      tagTCord system;
      system.key = pool.GetNewKey();
      system.type = type;
      system.reference = outer;
      system.method = tagTCord::kByAngles;
      system.origin = {2, 30, -1};
      system.rotation_deg = {20, -50, 110};
      all_.push_back(outer = pool.InsertNU(system));
    }
  }
  CQXDBSession& Session() { return session_; }
  const std::vector<ITR>& All() const { return all_; }

 private:
  CQXDBSession session_;
  std::vector<ITR> all_;
};

double Number() { return *rc::gen::inRange(-80000, 80000) / 8192.0; }
Vector3 RandomVector() { return {Number(), Number(), Number()}; }
Tensor3 RandomTensor() {
  Tensor3 tensor;
  for (auto& row : tensor.at) {
    for (double& value : row) value = Number();
  }
  return tensor;
}

double Apart(const Tensor3& a, const Tensor3& b) {
  double most = 0;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) most = std::max(most, std::abs(a.at[i][j] - b.at[i][j]));
  }
  return most;
}

Vector3 Times(const Tensor3& t, const Vector3& v) {
  return {Dot(Vector3(t.at[0]), v), Dot(Vector3(t.at[1]), v), Dot(Vector3(t.at[2]), v)};
}

RC_GTEST_PROP(Conversion, EverySystemGivesBackWhatItWasGiven, ()) {
  Systems systems;
  const CQXAppUtil convert(systems.Session());
  const Vector3 point = RandomVector();
  const Vector3 direction = RandomVector();
  const Tensor3 tensor = RandomTensor();
  for (const ITR system : systems.All()) {
    Vector3 there, back;
    RC_ASSERT(convert.PointFromGlobal(system, point, there) == 1);
    RC_ASSERT(convert.PointToGlobal(system, there, back) == 1);
    RC_ASSERT(Distance(point, back) < 1e-11);
    RC_ASSERT(convert.DirectionFromGlobal(system, point, direction, there) == 1);
    RC_ASSERT(std::abs(Length(there) - Length(direction)) < 1e-11);
    RC_ASSERT(convert.DirectionToGlobal(system, point, there, back) == 1);
    RC_ASSERT(Distance(direction, back) < 1e-11);
    Tensor3 local, again;
    RC_ASSERT(convert.TensorFromGlobal(system, point, tensor, local) == 1);
    RC_ASSERT(convert.TensorToGlobal(system, point, local, again) == 1);
    RC_ASSERT(Apart(tensor, again) < 1e-10);
    // What a tensor makes of a direction does not depend on where it is seen from.
    Vector3 seen;
    RC_ASSERT(convert.DirectionFromGlobal(system, point, direction, there) == 1);
    RC_ASSERT(convert.DirectionFromGlobal(system, point, Times(tensor, direction), seen) == 1);
    RC_ASSERT(Distance(Times(local, there), seen) < 1e-9);
    const double trace = tensor.at[0][0] + tensor.at[1][1] + tensor.at[2][2];
    RC_ASSERT(std::abs(local.at[0][0] + local.at[1][1] + local.at[2][2] - trace) < 1e-10);
  }
}

RC_GTEST_PROP(Conversion, FromOneSystemToAnotherIsByWayOfTheGlobalOne, ()) {
  Systems systems;
  const CQXAppUtil convert(systems.Session());
  const Vector3 point = RandomVector();
  for (const ITR from : systems.All()) {
    for (const ITR to : systems.All()) {
      Vector3 first, second, straight;
      RC_ASSERT(convert.PointFromGlobal(from, point, first) == 1);
      RC_ASSERT(convert.PointFromGlobal(to, point, second) == 1);
      RC_ASSERT(convert.ConvertPoint(from, to, first, straight) == 1);
      // Near the axis angles say little: the places are compared.
      Vector3 a, b;
      RC_ASSERT(convert.PointToGlobal(to, second, a) == 1);
      RC_ASSERT(convert.PointToGlobal(to, straight, b) == 1);
      RC_ASSERT(Distance(a, b) < 1e-10);
    }
  }
}

/// The axes at a point are the directions in which it moves when one of its coordinates grows.
TEST(Conversion, AxesPointWhereCoordinatesGrow) {
  Systems systems;
  const CQXAppUtil convert(systems.Session());
  constexpr double kStep = 1e-6;
  for (const ITR system : systems.All()) {
    const Vector3 at(2.5, 40, 70);
    Vector3 here;
    ASSERT_EQ(convert.PointToGlobal(system, at, here), 1);
    Triad axes;
    ASSERT_EQ(convert.AxesAt(system, here, axes), 1);
    const Vector3* axis[] = {&axes.x, &axes.y, &axes.z};
    for (int i = 0; i < 3; ++i) {
      Vector3 next = at;
      next[i] += kStep;
      Vector3 there;
      ASSERT_EQ(convert.PointToGlobal(system, next, there), 1);
      Vector3 moved = there - here;
      ASSERT_TRUE(Normalize(moved));
      EXPECT_LT(Distance(moved, *axis[i]), 1e-6) << "coordinate " << i;
    }
  }
}

TEST(Conversion, AUniaxialStressAlongTheHoopIsOneInACylindricalSystem) {
  Systems systems;
  const CQXAppUtil convert(systems.Session());
  const ITR cylinder = systems.All()[1];
  Vector3 at;
  ASSERT_EQ(convert.PointToGlobal(cylinder, {3, 25, 1}, at), 1);
  Tensor3 hoop, global, back;
  hoop.at[1][1] = 7;
  ASSERT_EQ(convert.TensorToGlobal(cylinder, at, hoop, global), 1);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < i; ++j) EXPECT_NEAR(global.at[i][j], global.at[j][i], 1e-12);
  }
  ASSERT_EQ(convert.TensorFromGlobal(cylinder, at, global, back), 1);
  EXPECT_LT(Apart(hoop, back), 1e-12);
}

TEST(Conversion, CountsInTheUnitsThatTheCallerChose) {
  Systems systems;
  CQXDBSession& session = systems.Session();
  UnitSystem mm;
  mm[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  session.Units().SetCurrent(mm);
  const CQXAppUtil in_model(session);
  const CQXAppUtil in_current(session, CQXAppUtil::Units::kCurrent);
  struct Case {
    std::size_t system;
    Vector3 lengths;  // 1000 for a length, 1 for an angle
  };
  for (const Case& c : {Case{0, {1000, 1000, 1000}}, {1, {1000, 1, 1000}}, {2, {1000, 1, 1}}}) {
    const ITR system = systems.All()[c.system];
    Vector3 model, current;
    ASSERT_EQ(in_model.PointFromGlobal(system, {3, -4, 5}, model), 1);
    ASSERT_EQ(in_current.PointFromGlobal(system, {3000, -4000, 5000}, current), 1);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(current[i], model[i] * c.lengths[i], 1e-9);
    Vector3 back;
    ASSERT_EQ(in_current.PointToGlobal(system, current, back), 1);
    EXPECT_LT(Distance(back, {3000, -4000, 5000}), 1e-8);
  }
  // Components have the unit of what they measure: none for a direction, the category's otherwise.
  Vector3 plain, displacement;
  const Vector3 at(3000, -4000, 5000);
  ASSERT_EQ(in_current.DirectionFromGlobal(0, at, {1, 2, 3}, plain), 1);
  EXPECT_EQ(plain, Vector3(1, 2, 3));
  ASSERT_EQ(in_current.DirectionFromGlobal(0, at, {1, 2, 3}, displacement, unit::kLength), 1);
  EXPECT_LT(Distance(displacement, {1000, 2000, 3000}), 1e-9);
}

TEST(Conversion, RefusesWhatHasNoAxesAndLeavesTheOutputAlone) {
  Systems systems;
  CQXDBSession& session = systems.Session();
  auto& pool = *session.GetPool<DPoolCord>(code::kCord);
  tagTCord flat;  // three points on a line
  flat.key = pool.GetNewKey();
  flat.plane_point = flat.axis_point;
  const ITR degenerate = pool.InsertNU(flat);
  tagTCord odd;
  odd.key = pool.GetNewKey();
  odd.type = 9;
  const ITR unknown = pool.InsertNU(odd);
  const CQXAppUtil convert(session);
  const Vector3 before(7, 8, 9);
  for (const ITR system : {degenerate, unknown}) {
    Vector3 out = before;
    Tensor3 tensor;
    EXPECT_EQ(convert.PointToGlobal(system, {1, 2, 3}, out), 0);
    EXPECT_EQ(convert.PointFromGlobal(system, {1, 2, 3}, out), 0);
    EXPECT_EQ(convert.DirectionToGlobal(system, {}, {1, 2, 3}, out), 0);
    EXPECT_EQ(convert.TensorToGlobal(system, {}, {}, tensor), 0);
    EXPECT_EQ(out, before);
  }
  Vector3 out = before;
  EXPECT_EQ(convert.PointToGlobal(systems.All()[0], {1, NAN, 3}, out), 0);
  EXPECT_EQ(convert.DirectionToGlobal(0, {INFINITY, 0, 0}, {1, 2, 3}, out), 0);
  EXPECT_EQ(out, before);
}

}  // namespace
}  // namespace qx
