// What the reference application answers, and that it answers anything at all.

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <optional>

#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "host/application.h"
#include "tests/silent_app_db.h"

namespace qx::host {
namespace {

using Point = tagTVector3<double>;

/// A session with the host's answers, and short ways to fill it.
class AppDB : public testing::Test {
 protected:
  ITR Node(const Point& position) {
    DPoolNode& pool = Pool<tagTNode>(session_);
    tagTNode node;
    node.key = pool.GetNewKey();
    node.position = position;
    return pool.InsertNU(node);
  }
  ITR Element(int type, const std::vector<Point>& corners, ITR property) {
    auto& pool = Pool<tagTElem>(session_);
    tagTElem element;
    element.key = pool.GetNewKey();
    element.type = type;
    for (const Point& corner : corners) element.nodes.Add(Node(corner));
    element.property = property;
    return pool.InsertNU(element);
  }
  ITR Steel() {
    MATERIAL_PARAM steel;
    steel.name.Set(u"Steel");
    steel.elastic_modulus = 2.1e11;
    steel.density = 7850;
    return host_.AddMaterial(&session_, steel);
  }

  CQXDBSession session_{SetUpModel};
  HostAppDB host_;
};

const std::vector<Point> kLine = {{1, 0, 0}, {3, 0, 0}};
const std::vector<Point> kTriangle = {{0, 0, 0}, {3, 0, 0}, {0, 3, 0}};
const std::vector<Point> kSquare = {{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}};
const std::vector<Point> kBox = {{0, 0, 0}, {1, 0, 0}, {1, 2, 0}, {0, 2, 0},
                                 {0, 0, 4}, {1, 0, 4}, {1, 2, 4}, {0, 2, 4}};
const std::vector<Point> kInsideOut = {{0, 0, 4}, {1, 0, 4}, {1, 2, 4}, {0, 2, 4},
                                       {0, 0, 0}, {1, 0, 0}, {1, 2, 0}, {0, 2, 0}};

TEST_F(AppDB, MassesFollowFromShapePropertyAndMaterial) {
  const ITR steel = Steel();
  const ITR beam = host_.AddProperty(&session_, tagTProp::kBeam, u"beam", {0.01, 0, 0, 0, 3});
  host_.SetMatlInProp(&session_, beam, steel);
  const ITR plate = host_.MakePropPlate(&session_, steel, 0.02);
  const ITR solid = host_.MakePropSolid(&session_, steel);
  const ITR point = host_.AddProperty(&session_, tagTProp::kPointMass, u"point", {12});
  struct Case {
    const char* what;
    int type;
    std::vector<Point> corners;
    ITR property;
    double mass;
    Point center;
  };
  const Case cases[] = {
      {"beam of 2 m", element::kLine2, kLine, beam, 2 * (78.5 + 3), {2, 0, 0}},
      {"triangle of 4.5 m2", element::kTri3, kTriangle, plate, 4.5 * 157, {1, 1, 0}},
      {"square of 4 m2", element::kQuad4, kSquare, plate, 4 * 157, {1, 1, 0}},
      {"box of 8 m3", element::kHex8, kBox, solid, 8 * 7850, {0.5, 1, 2}},
      {"box inside out", element::kHex8, kInsideOut, solid, 8 * 7850, {0.5, 1, 2}},
      {"point", element::kPoint, {{5, 6, 7}}, point, 12, {5, 6, 7}},
  };
  TArray<ITR> all;
  double total = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const ITR elem = Element(c.type, c.corners, c.property);
    EXPECT_NEAR(host_.GetMSetMass(&session_, {elem}), c.mass, 1e-9 * c.mass);
    double center[3];
    ASSERT_EQ(host_.GetMassCenter(&session_, {elem}, center), 1);
    EXPECT_NEAR(center[0], c.center.x + 0, 1e-12);
    EXPECT_NEAR(center[1], c.center.y + 0, 1e-12);
    EXPECT_NEAR(center[2], c.center.z + 0, 1e-12);
    all.Add(elem);
    total += c.mass;
  }
  EXPECT_NEAR(host_.GetMSetMass(&session_, all), total, 1e-9 * total);
  EXPECT_NEAR(host_.GetBeamVolume(&session_, all[0]), 0.02, 1e-15);
  EXPECT_EQ(host_.GetBeamVolume(&session_, all[1]), 0);
  EXPECT_NEAR(host_.GetFaceVolume(&session_, all[2]), 0.08, 1e-15);
  EXPECT_NEAR(host_.GetFaceVolume(&session_, all[2], 10.0), 0.2, 1e-15);
  EXPECT_EQ(host_.GetFaceVolume(&session_, all[3]), 0);
  EXPECT_EQ(host_.GetElemMatlDensity(&session_, all[3]), 7850);
  EXPECT_NEAR(host_.GetMatlMass(&session_, steel), total - 12, 1e-6);
}

TEST_F(AppDB, SpecialElementsWeighWhatTheirSpecialPropertySays) {
  const ITR steel = Steel();
  const ITR beam = host_.AddProperty(&session_, tagTProp::kBeam, u"beam", {0.01, 0, 0, 0, 3});
  host_.SetMatlInProp(&session_, beam, steel);
  const ITR plate = host_.MakePropPlate(&session_, steel, 0.02);
  const ITR solid = host_.MakePropSolid(&session_, steel);
  for (const auto& [type, corners, property] :
       {std::tuple{46, kLine, beam}, std::tuple{82, kLine, beam}, std::tuple{50, kSquare, plate},
        std::tuple{87, kSquare, plate}, std::tuple{69, kBox, solid}}) {
    SCOPED_TRACE(type);
    const ITR elem = Element(type, corners, property);
    EXPECT_EQ(host_.GetMSetMass(&session_, {elem}), 0);
    EXPECT_EQ(host_.GetBeamVolume(&session_, elem) + host_.GetFaceVolume(&session_, elem), 0);
    tagTSprop special;
    special.key = KeyOf(elem);
    special.mass = 7;
    Pool<tagTSprop>(session_).InsertNU(special);
    EXPECT_EQ(host_.GetMSetMass(&session_, {elem}), 7);
    EXPECT_EQ(host_.GetSpecialElemMass(&session_, elem), 7);
  }
}

TEST_F(AppDB, PointMassesMayDifferByAxis) {
  const ITR elem = Element(element::kPoint, {{1, 0, 0}}, 0);
  tagTSprop special;
  special.key = KeyOf(elem);
  special.mass = 1;
  special.mass_by_axis[0] = 2;
  special.mass_by_axis[2] = 4;
  special.has_offset = 1;
  special.offset = {1, 0, 0};
  Pool<tagTSprop>(session_).InsertNU(special);
  double x, y, z;
  host_.GetSpecialElemMass(&session_, elem, x, y, z);
  EXPECT_EQ((std::vector{x, y, z}), (std::vector{3.0, 1.0, 5.0}));
  EXPECT_EQ(host_.GetSpecialElemMass(&session_, elem), 3);
  host_.GetMSetMass(&session_, {elem, elem}, x, y, z);
  EXPECT_EQ((std::vector{x, y, z}), (std::vector{6.0, 2.0, 10.0}));
  double center[3];
  EXPECT_EQ(host_.GetMassCenter(&session_, {elem}, center), 1);
  EXPECT_EQ(center[0], 2);
}

TEST_F(AppDB, AThicknessOfItsOwnGoesBeforeTheProperty) {
  const ITR plate = host_.MakePropPlate(&session_, 0, 0.5);
  const ITR quad = Element(element::kQuad4, kSquare, plate);
  const ITR tria = Element(element::kTri3, kTriangle, plate);
  EXPECT_EQ(host_.GetFaceThickAvg(&session_, quad), 0.5);
  const ITR strained = host_.AddProperty(&session_, tagTProp::kPlaneStrain, u"", {0.75});
  double thickness = 9;
  EXPECT_EQ(host_.Get2DPropPlstrnThickness(&session_, quad, thickness), 0) << "a plate's";
  EXPECT_EQ(thickness, 9);
  EXPECT_EQ(host_.Get2DPropPlstrnThickness(&session_, Element(element::kTri3, kTriangle, strained),
                                           thickness),
            1);
  EXPECT_EQ(thickness, 0.75);
  tagTE2DThick own;
  own.key = 1;
  own.elements = {quad, tria};
  own.uniform = 0;
  for (int i = 0; i < 4; ++i) own.thickness[i] = i + 1;
  auto& pool = Pool<tagTE2DThick>(session_);
  CTransaction transaction(&session_);
  transaction.Begin(u"thickness");
  const ITR record = pool.InsertNU(own);
  ASSERT_TRUE(transaction.Commit());
  EXPECT_EQ(host_.GetFaceThickAvg(&session_, quad), 2.5);
  EXPECT_EQ(host_.GetFaceThickAvg(&session_, tria), 2.0) << "of three corners";
  EXPECT_EQ(host_.GetFaceThickAvgFromProp(&session_, quad), 0.5);
  EXPECT_EQ(host_.GetFaceVolume(&session_, quad), 10);
  own.uniform = 1;
  pool.SetAtNU(record, own);
  EXPECT_EQ(host_.GetFaceThickAvg(&session_, quad), 1) << "after a change";
  pool.Remove(record);
  EXPECT_EQ(host_.GetFaceThickAvg(&session_, quad), 0.5) << "after a removal";
}

TEST_F(AppDB, ListsFilterAndNamesFind) {
  const ITR steel = Steel();
  MATERIAL_PARAM water;
  water.name.Set(u"Water");
  const ITR liquid = host_.AddMaterial(&session_, water);
  auto& pool = *session_.GetPool<DPoolMatl>(code::kMatl);
  tagTMatl record = pool.GetAtNU(liquid);
  record.type = tagTMatl::kFluid;
  pool.SetAtNU(liquid, record);
  const ITR plate = host_.MakePropPlate(&session_, steel, 1);
  const ITR beam = host_.AddProperty(&session_, tagTProp::kBeam, u"IPE 200", {1, 2, 3, 4, 5});
  const ITR flow = host_.MakePropSolid(&session_, liquid);
  const ITR any = host_.MakeUndefinedProp(&session_, 2, 77);

  const auto materials = [&](const T_QX_MATL_FILTER& filter) {
    TArray<ITR> out{1, 2, 3};
    const int count = host_.GetMatlList(&session_, filter, out);
    EXPECT_EQ(count, out.GetSize());
    return out;
  };
  EXPECT_EQ(materials({}), (TArray<ITR>{steel, liquid}));
  EXPECT_EQ(materials({{tagTMatl::kFluid}, {}, 0, 0}), TArray<ITR>{liquid});
  EXPECT_EQ(materials({{tagTMatl::kFluid}, {}, 1, 0}), (TArray<ITR>{steel, liquid}));
  EXPECT_EQ(materials({{}, {}, 0, 1}), TArray<ITR>{steel});
  EXPECT_EQ(materials({{}, {5}, 0, 0}), TArray<ITR>{});

  TArray<ITR> out;
  EXPECT_EQ(host_.GetPropList(&session_, out), 4);
  EXPECT_EQ(host_.GetPropList(&session_, {{}, 1, 0}, out), 1);
  EXPECT_EQ(out, TArray<ITR>{beam});
  EXPECT_EQ(host_.GetPropList(&session_, {{}, 0, 1}, out), 1);
  EXPECT_EQ(out, TArray<ITR>{flow});
  EXPECT_EQ(host_.GetPropList(&session_, 2, out), 2);
  EXPECT_EQ(out, (TArray<ITR>{plate, any}));
  EXPECT_EQ(host_.GetElemProp(&session_, element::kHex20), flow);
  EXPECT_EQ(host_.GetElemProp(&session_, 9999), 0u);

  EXPECT_EQ(host_.GetMatlByName(&session_, u"Water"), liquid);
  EXPECT_EQ(host_.GetMatlByName(&session_, u"water"), 0u);
  EXPECT_EQ(host_.GetPropByName(&session_, u"IPE 200"), beam);
  EXPECT_EQ(host_.GetPropNameIncludeType(&session_, beam), CString(u"IPE 200 (beam)"));
  EXPECT_EQ(host_.GetPropName(&session_, Key{77}), CString(u"undefined"));
  EXPECT_EQ(host_.PropFindItr(&session_, 77), any);
  EXPECT_EQ(host_.GetPropNewKey(&session_), 78);
  EXPECT_EQ(host_.MakeUndefinedProp(&session_, 2, 77), 0u) << "the key is taken";
  EXPECT_EQ(host_.IsSameProp(&session_, beam, tagTProp::kBeam, {1, 2, 3, 4, 5}), 1);
  EXPECT_EQ(host_.IsSameProp(&session_, beam, tagTProp::kBeam, {1, 2, 3, 4, 6}), 0);
  EXPECT_EQ(host_.IsSameProp(&session_, beam, tagTProp::kTruss, {1, 2, 3, 4, 5}), 0);
  water.density = 1;
  EXPECT_EQ(host_.IsSameMatl(&session_, liquid, water), 0);
  double item = 0;
  const ITR elem = Element(element::kQuad4, kSquare, plate);
  EXPECT_EQ(host_.GetMatlItemInElem(&session_, elem, 0, item), 1);
  EXPECT_EQ(item, 2.1e11);
  EXPECT_EQ(host_.GetMatlItemInElem(&session_, elem, 99, item), 0);
}

TEST_F(AppDB, EditsAreUndoableStepsAndWhatIsUsedStays) {
  const std::uint64_t before = session_.StateHash();
  const ITR steel = Steel();
  const ITR plate = host_.MakePropPlate(&session_, steel, 1);
  EXPECT_EQ(host_.RemoveMatlW(&session_, steel), 0);
  EXPECT_EQ(host_.IsMatlUsed(&session_, steel), 1);
  EXPECT_EQ(host_.IsUsed(&session_, code::kMatl, steel), 1);
  CTransaction transaction(&session_);
  transaction.Begin(u"element");
  Element(element::kQuad4, kSquare, plate);
  ASSERT_TRUE(transaction.Commit());
  EXPECT_EQ(host_.RemovePropW(&session_, plate), 0);
  EXPECT_EQ(host_.SetMatlInProp(&session_, plate, 0), 1);
  EXPECT_EQ(host_.IsMatlUsed(&session_, steel), 0);
  EXPECT_EQ(host_.SetMatlColor(&session_, steel, 0x123456), 1);
  EXPECT_EQ(host_.SetMatlName(&session_, steel, u"S355"), 1);
  EXPECT_EQ(host_.GetMatlColor(&session_, steel), 0x123456);
  EXPECT_EQ(host_.RemoveMatlW(&session_, steel), 1);
  EXPECT_EQ(host_.GetMatlKey(&session_, steel), 0);
  while (session_.Undo()) {
  }
  EXPECT_EQ(session_.Validate(), "");
  EXPECT_EQ(session_.StateHash(), before);
  EXPECT_EQ(session_.RedoName(), CString(qxLoadText("IDS_QX_TRANS_Add_Material")).View());

  std::vector<MATERIAL_PARAM> cad(3);
  EXPECT_EQ(host_.AddCADMatl(&session_, cad), 3);
  EXPECT_EQ(session_.Undo(), 1);
  EXPECT_EQ(session_.GetDataPool(code::kMatl)->GetSize(), 0) << "three materials are one step";
  EXPECT_EQ(host_.AddProperty(&session_, 12345, u"", {}), 0u);
  EXPECT_EQ(host_.AddProperty(&session_, tagTProp::kPlate, u"", {1, 2, 3}), 0u);
}

TEST_F(AppDB, ElementsAreFoundByTheirNodes) {
  const ITR a = Element(element::kLine2, kLine, 0);
  auto& pool = Pool<tagTElem>(session_);
  tagTElem next = pool.GetAtNU(a);
  next.key = 50;
  next.nodes[0] = Node({9, 9, 9});
  const ITR b = pool.InsertNU(next);
  const ITR shared = pool.GetAtNU(a).nodes[1];
  const ITR end = pool.GetAtNU(a).nodes[0];
  TArray<ITR> out;
  EXPECT_EQ(host_.GetElemListByNodeItr(&session_, shared, out), 2);
  EXPECT_EQ(host_.GetElemListByNodeItrArray(&session_, {end, 0}, out), 1);
  EXPECT_EQ(host_.GetElemListByCommonNodeItr(&session_, {end, shared}, out), 1);
  EXPECT_EQ(out, TArray<ITR>{a});
  EXPECT_EQ(host_.GetElemListByCommonNodeItr(&session_, {end, next.nodes[0]}, out), 0);
  EXPECT_EQ(host_.GetElemListByCommonNodeItr(&session_, {shared, 0}, out), 0);
  EXPECT_EQ(host_.GetElemListByCommonNodeItr(&session_, {}, out), 0);
  tagTE1DOffset offset;
  offset.key = 1;
  offset.elements = {b};
  Pool<tagTE1DOffset>(session_).InsertNU(offset);
  EXPECT_EQ(host_.IsE1DOffset(&session_, b), 1);
  EXPECT_EQ(host_.IsE1DOffset(&session_, a), 0);
  EXPECT_EQ(host_.Is3DModel(&session_), 1);
  EXPECT_EQ(host_.Is2DModel(&session_), 0);
}

/// Every question that takes a record, asked about `itr`; each must answer like the default.
void ExpectDefaults(HostAppDB& host, CQXDBSession* session, ITR itr) {
  using I = IAppDB;
  // What a question returns when it is asked of an interface, as text.
  using Question = std::string (*)(I&, CQXDBSession*, ITR);
#define QX_ASK(call) [](I& i, CQXDBSession* s, ITR r) { return testing::PrintToString(i.call); }
  const Question questions[] = {
      QX_ASK(GetElemMatlDensity(s, r)),
      QX_ASK(GetElemMatlType(s, r)),
      QX_ASK(GetMatlColor(s, r)),
      QX_ASK(SetMatlColor(s, r, 1)),
      QX_ASK(GetMatlDensity(s, r)),
      QX_ASK(GetMatlItrInElem(s, r)),
      QX_ASK(GetMatlItrInProp(s, r)),
      QX_ASK(GetMatlMass(s, r)),
      QX_ASK(IsSameMatl(s, r, {})),
      QX_ASK(IsSameMatlType(s, r, r)),
      QX_ASK(IsStructuralMatl(s, r)),
      QX_ASK(SetMatlInProp(s, r, r)),
      QX_ASK(GetElemProp(s, r)),
      QX_ASK(GetPropKey(s, r)),
      QX_ASK(IsPropUndefined(s, r)),
      QX_ASK(IsSameProp(s, r, 0, {})),
      QX_ASK(GetPropName(s, r).ToUtf8()),
      QX_ASK(GetPropNameIncludeType(s, r).ToUtf8()),
      QX_ASK(SetPropName(s, r, u"x")),
      QX_ASK(GetPropColor(s, r)),
      QX_ASK(SetPropColor(s, r, 1)),
      QX_ASK(GetPropCord(s, r)),
      QX_ASK(GetPropDim(s, r)),
      QX_ASK(GetPropElasticLink(s, r)),
      QX_ASK(GetPropRigidLink(s, r)),
      QX_ASK(GetPropType(s, r)),
      QX_ASK(GetPropertyType(s, r)),
      QX_ASK(MakePropSolid(r ? s : nullptr, r)),
      QX_ASK(RemovePropW(s, r)),
      QX_ASK(GetFaceThickAvg(s, r)),
      QX_ASK(GetFaceThickAvgFromProp(s, r)),
      QX_ASK(GetBeamVolume(s, r)),
      QX_ASK(GetFaceVolume(s, r)),
      QX_ASK(GetFaceVolume(s, r, 1)),
      QX_ASK(GetMSetMass(s, {r})),
      QX_ASK(GetSpecialElemMass(s, r)),
      QX_ASK(GetMassCenter(s, {r}, nullptr)),
      QX_ASK(IsE1DOffset(s, r)),
      QX_ASK(IsUsed(s, code::kMatl, r)),
      QX_ASK(GetFRsetName(s, r).ToUtf8()),
      QX_ASK(GetMatlKey(s, r)),
      QX_ASK(GetMatlType(s, r)),
      QX_ASK(IsMatlUsed(s, r)),
      QX_ASK(RemoveMatlW(s, r)),
      QX_ASK(SetMatlName(s, r, u"x")),
  };
#undef QX_ASK
  SilentAppDB silent;
  for (std::size_t i = 0; i < std::size(questions); ++i) {
    EXPECT_EQ(questions[i](host, session, itr), questions[i](silent, session, itr))
        << "question " << i;
  }
}

TEST_F(AppDB, UnknownRecordsAndSessionsGetTheDefaultAnswer) {
  const ITR steel = Steel();
  const ITR plate = host_.MakePropPlate(&session_, steel, 1);
  const ITR freed = Node({0, 0, 0});
  const ITR node = Node({0, 0, 0});
  ASSERT_TRUE(Pool<tagTNode>(session_).Remove(freed));
  const ITR removed = host_.MakePropSolid(&session_, steel);
  ASSERT_TRUE(host_.RemovePropW(&session_, removed));  // lives on in the history
  CQXDBSession without(AddStandardPools);
  CQXDBSession empty;
  for (const ITR itr : {ITR{0}, freed, node, removed}) {
    SCOPED_TRACE(itr == 0 ? "null" : itr == freed ? "freed" : itr == node ? "a node" : "removed");
    ExpectDefaults(host_, &session_, itr);
  }
  for (const ITR itr : {steel, plate, node}) {
    ExpectDefaults(host_, nullptr, itr);
    ExpectDefaults(host_, &without, itr);
    ExpectDefaults(host_, &empty, itr);
  }
  session_.ForgetHistory();
  ExpectDefaults(host_, &session_, removed);
  TArray<ITR> out{1};
  EXPECT_EQ(host_.GetMatlList(nullptr, {}, out), 0);
  EXPECT_EQ(host_.GetPropList(&empty, out), 0);
  EXPECT_EQ(host_.MatlFindItr(&without, 1), 0u);
  EXPECT_EQ(host_.GetMatlNewKey(nullptr), 0);
  EXPECT_EQ(host_.Is2DModel(nullptr) + host_.Is3DModel(nullptr), 0);
}

TEST_F(AppDB, FaultyElementsHaveNoMassButDoNoHarm) {
  const ITR solid = host_.MakePropSolid(&session_, Steel());
  const ITR few = Element(element::kHex8, kSquare, solid);
  const ITR flat = Element(element::kQuad4, {{1, 1, 1}, {1, 1, 1}, {1, 1, 1}, {1, 1, 1}}, solid);
  const ITR unknown = Element(-7, kBox, solid);
  const ITR special = Element(87, {}, solid);
  for (const ITR elem : {few, flat, unknown, special}) {
    EXPECT_EQ(host_.GetMSetMass(&session_, {elem}), 0);
    double center[3]{5, 5, 5};
    EXPECT_EQ(host_.GetMassCenter(&session_, {elem}, center), 0);
    EXPECT_EQ(center[0], 5);
  }
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const ITR undefined =
      Element(element::kTet4, {{nan, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, solid);
  double center[3];
  EXPECT_TRUE(std::isnan(host_.GetMSetMass(&session_, {undefined})));
  EXPECT_EQ(host_.GetMassCenter(&session_, {undefined}, center), 0);
}

// Models at one address, with records at the same addresses, that differ in a value only.
TEST(HostAppDB, KeepsNothingOfAModelThatIsGone) {
  HostAppDB host;
  std::optional<CQXDBSession> session;
  for (const double thickness : {1.0, 2.0, 3.0}) {
    session.emplace(SetUpModel);
    tagTElem element;
    element.key = 1;
    element.type = element::kQuad4;
    const ITR elem = Pool<tagTElem>(*session).InsertNU(element);
    tagTE2DThick own;
    own.key = 1;
    own.elements = {elem};
    own.uniform = 1;
    own.thickness[0] = thickness;
    Pool<tagTE2DThick>(*session).InsertNU(own);
    EXPECT_EQ(host.GetFaceThickAvg(&*session, elem), thickness);
  }
}

TEST(HostApplication, RegistersItsObjectsAndRefreshesListsAfterSteps) {
  static std::vector<CQXDBSession*> refreshed;
  refreshed.clear();
  {
    const Application application;
    EXPECT_NE(IAppDB::Instance(), nullptr);
    EXPECT_NE(IUpdateDB::Instance(), nullptr);
    ASSERT_NE(IQXDbInterface::Instance(), nullptr);
    EXPECT_EQ(IQXDbInterface::Instance()->NeedSplitMergedTendonNode(nullptr), 0);
    const ComboRefresh former = SetComboRefresh(
        ComboFamily::kMatl, [](CQXDBSession* session) { refreshed.push_back(session); });
    CQXDBSession session(SetUpModel);
    ASSERT_NE(IAppDB::Instance()->AddCADMatl(&session, std::vector<MATERIAL_PARAM>(2)), 0);
    EXPECT_EQ(refreshed, std::vector{&session});
    IAppDB::Instance()->MakeUndefinedProp(&session, 3);
    EXPECT_EQ(refreshed.size(), 1u) << "a property changes no material list";
    session.Undo();
    session.Undo();
    EXPECT_EQ(refreshed.size(), 2u);
    SetComboRefresh(ComboFamily::kMatl, former);
  }
  EXPECT_EQ(IAppDB::Instance(), nullptr);
  EXPECT_EQ(IUpdateDB::Instance(), nullptr);
  EXPECT_NE(IQXDbInterface::Instance(), nullptr);
}

}  // namespace
}  // namespace qx::host
