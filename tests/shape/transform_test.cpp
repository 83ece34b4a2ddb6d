// Moving, turning, scaling and reflecting: laws over meshes of every kind of element.

#include "qx_db/shape/transform.h"

#include "qx_db/model/mesh_pools.h"

#include "tests/shape/shape_model.h"

namespace qx {
namespace {

using namespace testing;

struct NamedMap {
  const char* name;
  AffineMap map;
};

std::vector<NamedMap> Maps() {
  Vector3 axis(1, 2, -0.5), normal(0.3, -1, 2);
  Normalize(axis);
  Normalize(normal);
  Triad to{Rotated({1, 0, 0}, axis, 33), Rotated({0, 1, 0}, axis, 33),
           Rotated({0, 0, 1}, axis, 33)};
  return {{"translation", AffineMap::Translation({3, -2, 0.5})},
          {"rotation", AffineMap::Rotation({1, 2, 3}, axis, 70)},
          {"half turn", AffineMap::Rotation({}, {0, 0, 1}, 180)},
          {"scaling", AffineMap::Scaling({1, 0, 2}, {}, {2.5, 2.5, 2.5})},
          {"stretching", AffineMap::Scaling({1, 0, 2}, to, {2, 0.5, 3})},
          {"reflection", AffineMap::Mirror({0, 1, 0}, normal)},
          {"from system to system", AffineMap::Between({1, 2, 3}, {}, {-1, 0, 4}, to)}};
}

Triad AxesOf(const CQXDBSession& session, ITR element) {
  double axes[3][3];
  EXPECT_EQ(Pool<tagTElem>(session).GetElemLocalVector(element, axes), 1) << KeyOf(element);
  return Triad::From(axes);
}

/// Gives the first elements of each kind orientations of every method, offsets and material axes.
void Attach(Model& model) {
  auto& session = model.session;
  auto& elements = Pool<tagTElem>(session);
  const ITR frame = [&] {  // x along the line that it orients
    tagTCord system;
    system.key = 7;
    system.axis_point = {0, 1, 0.4};
    system.plane_point = {-1, 0.5, 0};
    return Pool<tagTCord>(session).InsertNU(system);
  }();
  const ITR far = model.nodes[static_cast<std::size_t>(model.Node({5, 50, 20}))];
  const std::int32_t methods[] = {tagTEcrd::kByNode, tagTEcrd::kByVector, tagTEcrd::kByBetaAngle,
                                  tagTEcrd::kByCoordinateSystem};
  for (const std::int32_t method : methods) {
    const ITR line = model.Element(element::kLine2, {{1.0 * method, 4, 0}, {1.0 * method, 5, 0.4}});
    tagTElem copy = elements.GetAtNU(line);
    tagTEcrd record;
    record.method = method;
    record.reference_node = far;
    record.reference_vector = {0.2, 0.1, 1};
    record.beta_angle_deg = 25;
    record.coordinate_system = frame;
    ASSERT_EQ(elements.SetAtNUwCsys(line, copy, record, 0), 1);
  }
  tagTE1DOffset offset;
  offset.key = 1;
  offset.csys_type = 0;
  offset.offset_a[0] = 3;
  offset.offset_b[1] = 4;
  tagTE2DMatlCsys by_angle;
  by_angle.key = 1;
  by_angle.angle_deg = 20;
  tagTE2DOffset upper;
  upper.key = 1;
  upper.offset = 0.25;
  for (const ITR at : model.elements) {
    const tagTElem& element = elements.GetAtNU(at);
    const int dimension = topology::DimensionOf(element.type);
    if (dimension == 1) offset.elements.Add(at);
    if (dimension == 2) by_angle.elements.Add(at);
    if (dimension == 2) upper.elements.Add(at);
    if (dimension != 3) continue;
    tagTE3DMatlCsys axes;
    axes.key = element.key;
    axes.x_axis = {0, 1, 0};
    axes.y_axis = {0, 0, 1};
    axes.z_axis = {1, 0, 0};
    Pool<tagTE3DMatlCsys>(session).InsertNU(axes);
  }
  Pool<tagTE1DOffset>(session).InsertNU(offset);
  Pool<tagTE2DMatlCsys>(session).InsertNU(by_angle);
  Pool<tagTE2DOffset>(session).InsertNU(upper);
}

/// Where the records say the material axis of a plate points; of length 0 where they do not.
Vector3 MaterialDirection(const CQXDBSession& session, ITR element) {
  for (const ITR at : All<tagTE2DMatlCsys>(session)) {
    const auto& record = Pool<tagTE2DMatlCsys>(session).GetAtNU(at);
    for (const ITR each : record.elements) {
      if (each != element) continue;
      const Triad axes = AxesOf(session, element);
      return Rotated(axes.x, axes.z, record.angle_deg);
    }
  }
  return {};
}

class Transforming : public ::testing::TestWithParam<std::size_t> {};

TEST_P(Transforming, KeepsTheLawsOfItsMap) {
  const NamedMap chosen = Maps()[GetParam()];
  const AffineMap& map = chosen.map;
  SCOPED_TRACE(chosen.name);
  std::mt19937 random(11);
  Model model;
  Zoo(model, random);
  Attach(model);
  CQXDBSession& session = model.session;
  const std::uint64_t before = session.StateHash();
  const Sizes sizes = SizesOf(session);
  std::map<ITR, Point3> was;
  for (const ITR node : model.nodes) was[node] = Point3(NodeAt(node)->position);
  std::map<ITR, Triad> axes;
  std::map<ITR, Vector3> material;
  for (const ITR element : model.elements) {
    const int dimension = topology::DimensionOf(ElementAt(element)->type);
    if (dimension < 3) axes[element] = AxesOf(session, element);
    if (dimension == 2) material[element] = MaterialDirection(session, element);
  }

  ShapeReport report;
  const Outcome done = AsStep(session, [&] {
    return Transform(session, {{}, model.elements}, map, report);
  });
  ASSERT_TRUE(done) << done.Line();

  for (const auto& [node, p] : was) {
    const bool is_reference = Length(p - Point3(5, 50, 20)) == 0;  // of no element: stays
    const Point3 wanted = is_reference ? p : map(p);
    EXPECT_LT(Distance(Point3(NodeAt(node)->position), wanted), 1e-12);
  }
  const Sizes now = SizesOf(session);
  EXPECT_EQ(now.count, sizes.count);
  EXPECT_GT(now.least_volume, 0) << "inside out";
  const double factor = std::abs(map.Determinant());
  EXPECT_NEAR(now.total[3], factor * sizes.total[3], 1e-11 * now.total[3]);
  const bool is_rigid = !map.ChangesLengths();
  if (is_rigid) {
    EXPECT_NEAR(now.total[2], sizes.total[2], 1e-11);
    EXPECT_NEAR(now.total[1], sizes.total[1], 1e-11);
    for (const auto& [element, triad] : axes) {
      const bool is_line = topology::DimensionOf(ElementAt(element)->type) == 1;
      const Triad turned = AxesOf(session, element);
      // Lines: x and y are images. Plates: the upper side is, and the material axis.
      if (is_line) {
        EXPECT_LT(Distance(turned.x, map.Direction(triad.x)), 1e-9) << KeyOf(element);
        EXPECT_LT(Distance(turned.y, map.Direction(triad.y)), 1e-9) << KeyOf(element);
        continue;
      }
      EXPECT_LT(Distance(turned.z, map.Direction(triad.z)), 1e-9) << KeyOf(element);
      EXPECT_LT(Distance(MaterialDirection(session, element), map.Direction(material[element])),
                1e-8)
          << KeyOf(element);
    }
    const auto& upper = Pool<tagTE2DOffset>(session);
    for (const ITR at : All<tagTE2DOffset>(session)) {
      EXPECT_EQ(+upper.GetAtNU(at).offset, 0.25) << "the upper side is the image of what it was";
    }
    const auto& offset = Pool<tagTE1DOffset>(session).GetAtNU(All<tagTE1DOffset>(session)[0]);
    const Vector3 end(offset.offset_b[0], offset.offset_b[1], offset.offset_b[2]);
    EXPECT_LT(Distance(end, map.Direction({0, 4, 0})), 1e-12);
    for (const ITR at : All<tagTE3DMatlCsys>(session)) {
      const auto& record = Pool<tagTE3DMatlCsys>(session).GetAtNU(at);
      EXPECT_LT(Distance(Vector3(record.x_axis), map.Direction({0, 1, 0})), 1e-12);
      EXPECT_LT(Distance(Vector3(record.y_axis), map.Direction({0, 0, 1})), 1e-12);
      EXPECT_NEAR(Triple(Vector3(record.x_axis), Vector3(record.y_axis), Vector3(record.z_axis)), 1,
                  1e-12);
    }
  }
  ASSERT_TRUE(session.Undo());
  EXPECT_EQ(session.StateHash(), before);
}

std::string NameOf(const ::testing::TestParamInfo<std::size_t>& info) {
  std::string name = Maps()[info.param].name;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}
INSTANTIATE_TEST_SUITE_P(Maps, Transforming, ::testing::Range<std::size_t>(0, 7), NameOf);

TEST(Transforming, TellsOfWhatDoesNotGoAlong) {
  Model model;
  model.Block(2, 1, 1);
  ShapeReport report;
  const Outcome done = AsStep(model.session, [&] {
    return Transform(model.session, {{}, {&model.elements[0], 1}},
                     AffineMap::Translation({0, 0, 0.1}), report);
  });
  ASSERT_TRUE(done);
  ASSERT_EQ(report.notes.size(), 1u);
  EXPECT_EQ(report.notes[0].count, 1) << report.notes[0].what;

  const std::uint64_t before = model.session.StateHash();
  const Outcome flat = AsStep(model.session, [&] {
    return Transform(model.session, {model.nodes, {}}, AffineMap::Scaling({}, {}, {1, 1, 0}),
                     report);
  });
  EXPECT_FALSE(flat);
  EXPECT_EQ(model.session.StateHash(), before);
}

// ---- copies -------------------------------------------------------------------------------------

TEST(Copies, HaveTheKeysAndTheDataOfTheRule) {
  std::mt19937 random(3);
  Model model;
  Zoo(model, random);
  Attach(model);
  CQXDBSession& session = model.session;
  const ITR set = AddSet(model, u"all", model.elements);
  tagTSetTag tag;
  tag.key = 1;
  tag.set = set;
  tag.kind = tagTSetTag::kSides;
  for (const ITR element : model.elements) tag.sides.Add({element, 0});
  if (auto* tags = session.GetPool<DPool<tagTSetTag>>(tagTSetTag::kType)) tags->InsertNU(tag);
  const std::uint64_t before = session.StateHash();
  const auto nodes = All<tagTNode>(session), elements = All<tagTElem>(session);
  const Sizes sizes = SizesOf(session);
  const AffineMap map = AffineMap::Mirror({0, 10, 0}, {0, 1, 0});
  constexpr int kCopies = 3;

  for (const SetsOfMade sets : {SetsOfMade::kSame, SetsOfMade::kNew, SetsOfMade::kNone}) {
    ShapeReport report;
    const Outcome done = AsStep(session, [&] {
      return TransformCopies(session, {{}, model.elements}, map, kCopies, sets, report);
    });
    ASSERT_TRUE(done) << done.Line();
    const auto count = static_cast<std::int32_t>(elements.size());
    ASSERT_EQ(Pool<tagTElem>(session).GetSize(), (kCopies + 1) * count);
    // The reference node, which no element has, is no part of the copies.
    const auto copied = static_cast<std::int32_t>(nodes.size()) - 1;
    EXPECT_EQ(Pool<tagTNode>(session).GetSize(), copied * (kCopies + 1) + 1);
    const Sizes now = SizesOf(session);
    EXPECT_GT(now.least_volume, 0);
    EXPECT_NEAR(now.total[3], (kCopies + 1) * sizes.total[3], 1e-10);
    std::map<Key, std::vector<Key>> made;
    for (const MadeKey& each : report.made) {
      if (each.type == code::kElem) made[each.of].push_back(each.made);
    }
    const Key first = KeyOf(elements.back()) + 1;
    for (const ITR element : elements) {
      const Key key = KeyOf(element);
      ASSERT_EQ(made[key].size(), static_cast<std::size_t>(kCopies));
      for (int c = 0; c < kCopies; ++c) {
        const Key copy_key = made[key][static_cast<std::size_t>(c)];
        EXPECT_EQ(copy_key, first + c * count + (key - KeyOf(elements.front())));
        const ITR copy = Pool<tagTElem>(session).Find(copy_key);
        const int dimension = topology::DimensionOf(ElementAt(element)->type);
        if (dimension == 3) {
          EXPECT_TRUE(Pool<tagTE3DMatlCsys>(session).Find(copy_key));
        }
        if (dimension == 1) {
          const Triad of = AxesOf(session, element), is = AxesOf(session, copy);
          const bool mirrored = c % 2 == 0;
          EXPECT_LT(Distance(is.y, mirrored ? map.Direction(of.y) : of.y), 1e-9);
        }
      }
    }
    const auto all_sets = All<tagTMset>(session);
    const auto& own = Pool<tagTMset>(session).GetAtNU(set);
    const std::int32_t listed = own.elements.GetSize();
    EXPECT_EQ(listed, sets == SetsOfMade::kSame ? (kCopies + 1) * count : count);
    const auto& last = Pool<tagTMset>(session).GetAtNU(all_sets.back());
    if (sets == SetsOfMade::kNew) {
      EXPECT_EQ(last.name.Text().ToUtf8(), "all-1");
      EXPECT_EQ(last.elements.GetSize(), kCopies * count);
      EXPECT_EQ(last.nodes.GetSize(), kCopies * copied);
    }
    ASSERT_TRUE(session.Undo());
    EXPECT_EQ(session.StateHash(), before);
  }
}

}  // namespace
}  // namespace qx
