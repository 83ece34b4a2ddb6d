// Masses, centres and inertias that others published, computed by host and library together.

#include <algorithm>
#include <gtest/gtest.h>

#include "qx_db/app/mesh_mass.h"
#include "qx_db/gateway/document.h"
#include "qx_db/mesh/dense_mesh.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "host/app_db_host.h"
#include "tests/corpus.h"

namespace qx::host {
namespace {

using Point = tagTVector3<double>;

class KnownAnswers : public testing::Test {
 protected:
  void SetUp() override {
    QX_REQUIRE_CORPUS(path, "expected/known_answers.json");
    ASSERT_TRUE(answers_.ReadFile(path));
  }
  /// A value of the answers to a deck.
  dbgateway::Field Answer(const char* deck, std::string_view name) {
    dbgateway::Field found;
    answers_.FindCollection(deck)->ForEachValue([&](const dbgateway::Field& field) {
      if (field.Name() == name) found = field;
    });
    EXPECT_TRUE(found) << name;
    return found;
  }
  ITR Element(Key key, int type, const std::vector<Point>& corners, ITR property) {
    tagTElem element;
    element.key = key;
    element.type = type;
    element.property = property;
    auto& nodes = Pool<tagTNode>(session_);
    for (const Point& corner : corners) {
      tagTNode node;
      node.key = nodes.GetNewKey();
      node.position = corner;
      element.nodes.Add(nodes.InsertNU(node));
    }
    return Pool<tagTElem>(session_).InsertNU(element);
  }
  RigidBody Body() {
    return ToRigidBody(ComputeMass(session_, DenseMesh(session_), {}).total.mass);
  }

  dbgateway::DataBase answers_;
  CQXDBSession session_{SetUpModel};
  HostAppDB host_;
};

TEST_F(KnownAnswers, OfOneElementOfEachKind) {
  MATERIAL_PARAM light, mean;
  light.density = 0.1;
  mean.density = 0.2;  // of the laminate: two plies of 0.1 at 0.1 around one of 0.2 at 0.5
  const ITR matl = host_.AddMaterial(&session_, light);
  const ITR laminate = host_.MakePropPlate(&session_, host_.AddMaterial(&session_, mean), 0.6);
  const ITR plate = host_.MakePropPlate(&session_, matl, 0.125);
  const ITR laden = host_.AddProperty(&session_, tagTProp::kPlate, u"laden", {0.125, 1});
  host_.SetMatlInProp(&session_, laden, matl);
  const ITR solid = host_.MakePropSolid(&session_, matl);
  const std::vector<Point> quad{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
  const std::vector<Point> tri{quad[0], quad[1], quad[2]};
  std::vector<Point> hex = quad, wedge = tri;
  for (const Point& p : quad) hex.push_back({p.x, p.y, 2});
  for (const Point& p : tri) wedge.push_back({p.x, p.y, 2});
  struct Row {
    const char* element;
    int type;
    std::vector<Point> corners;
    ITR property;
  };
  const Row rows[] = {{"1", element::kQuad4, quad, laminate},
                      {"2", element::kTri3, tri, laminate},
                      {"3", element::kQuad4, quad, plate},
                      {"4", element::kTri3, tri, plate},
                      {"5", element::kQuad4, quad, laden},
                      {"6", element::kTri3, tri, laden},
                      {"7", element::kHex8, hex, solid},
                      {"8", element::kTet4, {hex[0], hex[1], hex[2], hex[4]}, solid},
                      {"9", element::kWedge6, wedge, solid}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.element);
    const ITR elem = Element(std::stoi(row.element), row.type, row.corners, row.property);
    const auto wanted = Answer("test_mass.dat", "elements").Member(row.element);
    EXPECT_NEAR(host_.GetMSetMass(&session_, {elem}), wanted.Member("mass").Real(), 1e-12);
    double center[3];
    ASSERT_EQ(host_.GetMassCenter(&session_, {elem}, center), 1);
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_NEAR(center[i], wanted.Member("centroid").At(i).Real(), 1e-12);
    }
    const auto size = wanted.Member(row.type < element::kTet4 ? "area" : "volume");
    EXPECT_NEAR(CQXMeshUtil(&session_).GetElemQuantity(elem), size.Real(), 1e-12);
  }
  EXPECT_NEAR(Body().mass, Answer("test_mass.dat", "total_mass_with_WTMASS_1").Real(), 1e-9);
}

TEST_F(KnownAnswers, OfPointMassesWithInertiasOfTheirOwn) {
  const char* const deck = "rigid_point_mass.bdf";
  struct Row {
    Point position, offset;
    double mass;
    double inertia[6];
  };
  // The third stands beside its node.
  const Row rows[] = {{{4, -5, 6}, {}, 10, {1, 0.5, 1, 0, 0, 1}},
                      {{-1, 2, -3}, {}, 5, {5, 0, 0, -0.5, 0, 5}},
                      {{7, 9, 5}, {0, -1, 4}, 2.5, {}}};
  Key key = 0;
  for (const Row& row : rows) {
    Element(++key, element::kPoint, {row.position}, 0);
    tagTSprop special;
    special.key = key;
    special.mass = row.mass;
    for (int i = 0; i < 6; ++i) special.inertia[i] = row.inertia[i];
    special.has_offset = 1;
    special.offset = row.offset;
    Pool<tagTSprop>(session_).InsertNU(special);
  }
  const RigidBody body = Body();
  EXPECT_NEAR(body.mass, Answer(deck, "mass").Real(), 1e-12);
  const double center[3] = {body.center.x, body.center.y, body.center.z};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(center[i], Answer(deck, "cg").At(i).Real(), 1e-12);
  }
  const std::pair<const char*, double> inertia[] = {{"Ixx", body.xx}, {"Iyy", body.yy},
                                                    {"Izz", body.zz}, {"Ixy", body.xy},
                                                    {"Ixz", body.zx}, {"Iyz", body.yz}};
  const auto wanted = Answer(deck, "inertia_about_cg_upstream");
  for (const auto& [name, value] : inertia) {
    EXPECT_NEAR(value, wanted.Member(name).Real(), 1e-9) << name;
  }
}

}  // namespace
}  // namespace qx::host
