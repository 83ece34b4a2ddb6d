// The interfaces against what hosts rely on: slots, defaults, registration.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "qx_db/qx_db.h"

#include "tests/callback/interface_text.h"

namespace qx {
namespace {

// ---- hosts that supply what they must, and nothing else -----------------------------------------

struct PlainAppDB : IAppDB {
  int QueryMode(CQXDBSession*, int) override { return 42; }
  Key GetMatlKey(CQXDBSession*, ITR) override { return 42; }
  Key GetMatlNewKey(CQXDBSession*) override { return 42; }
  ITR MatlFindItr(CQXDBSession*, Key) override { return 42; }
  ITR GetMatlByName(CQXDBSession*, const CString&) override { return 42; }
  int SetMatlName(CQXDBSession*, ITR, const CString&) override { return 42; }
  int GetMatlType(CQXDBSession*, ITR) override { return 42; }
  int IsMatlUsed(CQXDBSession*, ITR) override { return 42; }
  int RemoveMatlW(CQXDBSession*, ITR) override { return 42; }
};
struct PlainUpdateDB : IUpdateDB {
  void UpdateView(CQXDBSession*) override {}
};
struct PlainFuncDB : IFuncDB {};
struct PlainPostDB : ICustomPostDB {};
struct PlainMcas : ICustomMcas {
  int GetMcasList(CQXDBSession*, TArray<ITR>&) override { return 42; }
  ITR McasFindItr(CQXDBSession*, Key) override { return 42; }
  int GetMcasName(CQXDBSession*, ITR, TString<64>&) override { return 42; }
  int GetMcasType(CQXDBSession*, ITR) override { return 42; }
  int GetScasList(CQXDBSession*, ITR, TArray<ITR>&) override { return 42; }
  int IsNonlinear(CQXDBSession*, ITR) override { return 42; }
  int IsTransient(CQXDBSession*, ITR) override { return 42; }
  int IsFatigue(CQXDBSession*, ITR) override { return 42; }
};
struct PlainRender : IRenderConnect {};
struct PlainProcess : IQXDbInterface {
  int NeedSplitMergedTendonNode(CQXDBSession*) override { return 42; }
  CQXDBSession* GetActiveSession() override { return nullptr; }
  CString GetMaterialFolder() override { return u"42"; }
  int IsReadOnly(CQXDBSession*) override { return 42; }
  void ShowProgress(CQXDBSession*, double) override {}
  int IsCancelled(CQXDBSession*) override { return 42; }
};

// ---- calling any operation with nothing in its hands --------------------------------------------

std::string Text(int value) { return std::to_string(value); }
std::string Text(ITR value) { return std::to_string(value); }
std::string Text(double value) { return value == 0 ? "0.0" : std::to_string(value); }
std::string Text(const void* value) { return value ? "not null" : "null"; }
std::string Text(const CString& value) { return '"' + value.ToUtf8() + '"'; }

/// A value to pass where an operation takes one; what is passed by reference has this life.
template <class A>
struct Argument {
  std::remove_cvref_t<A> value{};
};
/// A double by reference shows whether it was set.
template <>
struct Argument<double&> {
  double value = 7;
};

template <class T>
bool IsZeroed(const T&) {
  return false;
}
bool IsZeroed(const Argument<double&>& argument) { return argument.value == 0; }

template <class I, class R, class... A>
std::string Call(I& object, R (I::*operation)(A...)) {
  std::tuple<Argument<A>...> arguments;
  const auto call = [&](auto&... argument) -> std::string {
    if constexpr (std::is_void_v<R>) {
      (object.*operation)(argument.value...);
      const int zeroed = (0 + ... + (IsZeroed(argument) ? 1 : 0));
      return zeroed == 3 ? "zeroes the masses" : zeroed == 0 ? "nothing" : "zeroes some";
    } else {
      return Text((object.*operation)(argument.value...));
    }
  };
  return std::apply(call, arguments);
}

/// Index of a virtual operation in the table, as the Itanium C++ ABI encodes a member pointer;
/// the destructor takes the first two places there.
template <class F>
int SlotOf(F member) {
  static_assert(sizeof(F) == 16);
  return static_cast<int>((LoadAt<std::intptr_t>(&member) - 1) / 8) - 1;
}

struct Expected {
  std::string name;
  std::string answer;  // as Call gives it, of an object that overrides what it must
  int slot;
  std::string given;
};

template <class I, class F>
Expected Row(I& object, const char* name, const char* answer, F member) {
  return {name, answer, SlotOf(member), Call(object, member)};
}

#define QX_OP(name, answer) Row<I>(object, #name, answer, &I::name)
#define QX_OP_OF(name, answer, ...) \
  Row<I>(object, #name, answer, static_cast<__VA_ARGS__>(&I::name))

#define QX_ZERO(name) QX_OP(name, "0")
#define QX_REAL(name) QX_OP(name, "0.0")
#define QX_TEXT(name) QX_OP(name, "\"\"")
#define QX_NONE(name) QX_OP(name, "nothing")
#define QX_MUST(name) QX_OP(name, "42")

using S = CQXDBSession*;

std::vector<Expected> AppDBTable() {
  PlainAppDB host;
  using I = IAppDB;
  I& object = host;
  return {
      // Supplied by the host.
      QX_MUST(QueryMode),
      QX_MUST(GetMatlKey),
      QX_MUST(GetMatlNewKey),
      QX_MUST(MatlFindItr),
      QX_MUST(GetMatlByName),
      QX_MUST(SetMatlName),
      QX_MUST(GetMatlType),
      QX_MUST(IsMatlUsed),
      QX_MUST(RemoveMatlW),
      // Neither 0 nor nothing.
      QX_OP(GetGravityDir, "1"),
      QX_OP(RigidBodyAdd, "1"),
      QX_OP(GetDefaultDiagramDir, "1"),
      QX_OP(GetNearestBody, "-1"),
      // 0.0
      QX_REAL(GetBeamVolume),
      QX_REAL(GetElemMatlDensity),
      QX_REAL(GetFaceThickAvg),
      QX_REAL(GetFaceThickAvgFromProp),
      QX_REAL(GetMatlMass),
      QX_REAL(GetMatlDensity),
      QX_OP_OF(GetFaceVolume, "0.0", double(I::*)(S, ITR)),
      QX_OP_OF(GetFaceVolume, "0.0", double(I::*)(S, ITR, double)),
      QX_OP_OF(GetMSetMass, "0.0", double(I::*)(S, const TArray<ITR>&)),
      QX_OP_OF(GetSpecialElemMass, "0.0", double(I::*)(S, ITR)),
      // Three zeros.
      QX_OP_OF(GetMSetMass, "zeroes the masses",
               void(I::*)(S, const TArray<ITR>&, double&, double&, double&)),
      QX_OP_OF(GetSpecialElemMass, "zeroes the masses",
               void(I::*)(S, ITR, double&, double&, double&)),
      // An empty text.
      QX_OP_OF(GetPropName, "\"\"", CString(I::*)(S, ITR)),
      QX_OP_OF(GetPropName, "\"\"", CString(I::*)(S, Key)),
      QX_TEXT(GetPropNameIncludeType),
      QX_TEXT(GetSpecialElemAdditionalInfo),
      QX_TEXT(GetSpecialElemType),
      QX_TEXT(GetSpecialElemTypeName),
      QX_TEXT(GetFRsetName),
      QX_TEXT(GetSpecialElemQttStr),
      // Nothing.
      QX_NONE(CalculateInterfaceKnKtUpdate),
      QX_NONE(GenerateAllRigidInfo),
      QX_OP_OF(GetDefaultVresType, "nothing",
               void(I::*)(int, TArray<std::int32_t>&, TArray<TString<128>>&, CPOHCase*)),
      QX_NONE(GetPntPsprDampingValueOnSurf),
      QX_NONE(GetPntPsprValueOnSurf),
      QX_NONE(GetPropListNamebyCobxFilter),
      QX_NONE(GetPropNameColor),
      QX_NONE(MElemNext),
      QX_NONE(MElemSetParamIdx),
      QX_NONE(MakeNewNode),
      QX_NONE(MarkerNext),
      QX_NONE(MarkerSetParamIdx),
      QX_NONE(OnAfterActiveSprop),
      QX_NONE(SetMeshCfd2Stru),
      QX_NONE(SetPropertyType),
      QX_NONE(Transferto_extkey_2_dbitr),
      // 0, and what was passed by value is released.
      QX_ZERO(AddDisplace),
      QX_ZERO(AddGravity),
      QX_ZERO(AddMaterial),
      QX_ZERO(AddSubCase),
      QX_ZERO(MakeBoundaryCondition),
      QX_ZERO(MakePropSpring),
      QX_ZERO(AddMasterCase),
      QX_ZERO(GetGeomItr),
      QX_ZERO(AddProperty),
      QX_ZERO(CheckGBolt),
      QX_ZERO(MakeGBolt),
      QX_ZERO(MakeNodePsPrProp),
      QX_ZERO(IsSameMatl),
      QX_ZERO(IsSameProp),
      // 0: materials.
      QX_ZERO(AddCADMatl),
      QX_ZERO(ApplyMatl),
      QX_ZERO(CalculateInterfaceMaterial),
      QX_ZERO(GetElemMatlType),
      QX_ZERO(GetMatlColor),
      QX_ZERO(GetMatlItemInElem),
      QX_ZERO(GetMatlItrInElem),
      QX_ZERO(GetMatlItrInProp),
      QX_ZERO(GetMatlList),
      QX_ZERO(GetMatlMaxKey),
      QX_ZERO(GetMatlName),
      QX_ZERO(GetMatlTensilInElem),
      QX_ZERO(HasImpossibleMatlForAutoGRSurfSpring),
      QX_ZERO(IsSameMatlType),
      QX_ZERO(IsStructuralMatl),
      QX_ZERO(SetGaugingPropMatl),
      QX_ZERO(SetMatlColor),
      QX_ZERO(SetMatlInProp),
      QX_ZERO(UpdateInterfaceWizardMaterial),
      // 0: properties.
      QX_OP_OF(GetElemProp, "0", ITR(I::*)(S, int)),
      QX_OP_OF(GetElemProp, "0", ITR(I::*)(S, ITR)),
      QX_ZERO(GetExceptDimPropTypeList),
      QX_ZERO(GetPropByName),
      QX_ZERO(GetPropColor),
      QX_ZERO(GetPropCord),
      QX_ZERO(GetPropDim),
      QX_ZERO(GetPropElasticLink),
      QX_ZERO(GetPropKey),
      QX_OP_OF(GetPropList, "0", int(I::*)(S, TArray<ITR>&)),
      QX_OP_OF(GetPropList, "0", int(I::*)(S, const T_QX_PROP_FILTER&, TArray<ITR>&)),
      QX_OP_OF(GetPropList, "0", int(I::*)(S, int, TArray<ITR>&)),
      QX_ZERO(GetPropMaxKey),
      QX_ZERO(GetPropNewKey),
      QX_ZERO(GetPropRigidLink),
      QX_OP_OF(GetPropThickness, "0", int(I::*)(S, ITR, double&)),
      QX_OP_OF(GetPropThickness, "0", int(I::*)(S, const tagTElem&, double&)),
      QX_ZERO(Get2DPropPlstrnThickness),
      QX_ZERO(GetPropType),
      QX_ZERO(GetPropertyType),
      QX_ZERO(IsPropUndefined),
      QX_ZERO(IsUsedMotherElemProp),
      QX_ZERO(MakeElasticLinkProp),
      QX_ZERO(MakeInterfaceProp),
      QX_ZERO(MakePntSpringProp),
      QX_ZERO(MakePropPlate),
      QX_ZERO(MakePropSolid),
      QX_ZERO(MakeTaperSection),
      QX_OP_OF(MakeUndefinedProp, "0", ITR(I::*)(S, int)),
      QX_OP_OF(MakeUndefinedProp, "0", ITR(I::*)(S, int, Key)),
      QX_ZERO(PropFindItr),
      QX_ZERO(RemovePropW),
      QX_ZERO(SetPropColor),
      QX_ZERO(SetPropName),
      // 0: elements and geometry.
      QX_ZERO(Calc2DElemMatlVector),
      QX_ZERO(Calc2DElemVectorAngle),
      QX_OP_OF(Calc3DElemMatlVector, "0", int(I::*)(S, ITR, double(*)[3])),
      QX_OP_OF(Calc3DElemMatlVector, "0", int(I::*)(S, const tagTElem&, double(*)[3])),
      QX_ZERO(Get1DElemPerimeter),
      QX_ZERO(Get2DNormalVec),
      QX_ZERO(GetCADItemCenter),
      QX_ZERO(GetElemListByCommonNodeItr),
      QX_ZERO(GetElemListByNodeItr),
      QX_ZERO(GetElemListByNodeItrArray),
      QX_ZERO(GetGeomAll),
      QX_ZERO(GetInfiniteType),
      QX_ZERO(GetPileMotherElemType),
      QX_ZERO(GetTiedCtElemList),
      QX_ZERO(GetTiedCtElemSetList),
      QX_ZERO(IsE1DOffset),
      QX_ZERO(IsUsed),
      QX_ZERO(LoadExtDBMset),
      QX_ZERO(MakeCfd2StruFSIInterface),
      QX_ZERO(MakePntSpringElem),
      QX_ZERO(SelFilterInfinite),
      QX_ZERO(AddDelMarkerByGeomState),
      QX_ZERO(GetMassCenter),
      // 0: special elements, joints, markers and bodies.
      QX_ZERO(FindMElem),
      QX_ZERO(FindMarker),
      QX_ZERO(GetMElemJointItr),
      QX_ZERO(GetMElemJointList),
      QX_ZERO(GetMElemJointName),
      QX_ZERO(GetMElemSize),
      QX_ZERO(GetMarkerInfo),
      QX_ZERO(GetMarkerSize),
      QX_ZERO(MElemGetHeadPosition),
      QX_ZERO(MarkerGetHeadPosition),
      QX_ZERO(ExistRigidBody),
      QX_ZERO(IsFlexibleBody),
      QX_ZERO(IsThereRigidModel),
      QX_ZERO(AddPart),
      // 0: loads, cases and analysis.
      QX_ZERO(AddEnergy),
      QX_ZERO(AddInitVelocity),
      QX_ZERO(AddLsdynaGravity),
      QX_ZERO(PrivateFixedConstraint),
      QX_ZERO(GetCtppList),
      QX_ZERO(GetDefaultVresName),
      QX_OP_OF(GetDefaultVresType, "null", const std::vector<int>* (I::*)(int)),
      QX_ZERO(GetMcasResCsysInfo),
      QX_ZERO(GetParentItrByCaseItr),
      QX_ZERO(GetVcasItrByKey),
      QX_ZERO(GetStageCount),
      QX_ZERO(GetStageSetCount),
      // 0: the model and the application.
      QX_ZERO(AllowCommand),
      QX_ZERO(Is2DModel),
      QX_ZERO(Is3DModel),
      QX_ZERO(IsGravZ),
      QX_ZERO(GetDBItrByQXPostObj),
      QX_OP(GetNodePos, "null"),
      QX_OP(GetNodePosArr, "null"),
  };
}

std::vector<Expected> McasTable() {
  PlainMcas host;
  using I = ICustomMcas;
  I& object = host;
  return {QX_MUST(GetMcasList), QX_MUST(McasFindItr), QX_MUST(GetMcasName), QX_MUST(GetMcasType),
          QX_MUST(GetScasList), QX_MUST(IsNonlinear), QX_MUST(IsTransient), QX_ZERO(GetFatType),
          QX_MUST(IsFatigue),   QX_ZERO(IsDOEOpt),    QX_ZERO(IsOpt)};
}

std::vector<Expected> UpdateTable() {
  PlainUpdateDB host;
  using I = IUpdateDB;
  I& object = host;
  return {QX_NONE(UpdateView), QX_NONE(UpdateDB)};
}

std::vector<Expected> FuncTable() {
  PlainFuncDB host;
  using I = IFuncDB;
  I& object = host;
  return {QX_ZERO(AddDataTypeInCombo)};
}

std::vector<Expected> PostTable() {
  PlainPostDB host;
  using I = ICustomPostDB;
  I& object = host;
  return {QX_ZERO(MakeResultImageFile), QX_ZERO(MakeSaveResultImageFile)};
}

std::vector<Expected> RenderTable() {
  PlainRender host;
  using I = IRenderConnect;
  I& object = host;
  return {QX_ZERO(AddTempShape)};
}

std::vector<Expected> ProcessTable() {
  // Kept: the first object of the process stays in the slot.
  static auto* const host = new PlainProcess;
  using I = IQXDbInterface;
  I& object = *host;
  return {QX_MUST(NeedSplitMergedTendonNode),
          QX_OP(GetActiveSession, "null"),
          QX_OP(GetMaterialFolder, "\"42\""),
          QX_MUST(IsReadOnly),
          QX_NONE(ShowProgress),
          QX_MUST(IsCancelled)};
}

struct Interface {
  const char* name;
  std::vector<Expected> (*table)();
  std::size_t operations;
  int supplied;  // without a default
};

const Interface kInterfaces[] = {
    {"IAppDB", AppDBTable, 172, 9},         {"ICustomMcas", McasTable, 11, 8},
    {"ICustomPostDB", PostTable, 2, 0},     {"IFuncDB", FuncTable, 1, 0},
    {"IQXDbInterface", ProcessTable, 6, 6}, {"IRenderConnect", RenderTable, 1, 0},
    {"IUpdateDB", UpdateTable, 2, 1},
};

DeclaredInterface Declared(const std::string& name) {
  for (DeclaredInterface& interface : DeclaredInterfaces()) {
    if (interface.name == name) return std::move(interface);
  }
  return {};
}

TEST(Callbacks, DefaultsAnswerAsTabulated) {
  for (const Interface& interface : kInterfaces) {
    for (const Expected& row : interface.table()) {
      EXPECT_EQ(row.given, row.answer) << interface.name << "::" << row.name;
    }
  }
}

TEST(Callbacks, OperationsStandInTheSlotsOfTheirHeader) {
#ifndef __GXX_ABI_VERSION
  GTEST_SKIP() << "slots can be read under the Itanium ABI only";
#endif
  ASSERT_EQ(DeclaredInterfaces().size(), std::size(kInterfaces));
  for (const Interface& interface : kInterfaces) {
    SCOPED_TRACE(interface.name);
    const DeclaredInterface declared = Declared(interface.name);
    EXPECT_TRUE(declared.destructor_first);
    ASSERT_EQ(declared.operations.size(), interface.operations);
    // The overloads of a name may stand in the table in any order.
    std::map<int, std::string> tested;
    for (const Expected& row : interface.table()) tested[row.slot] = row.name;
    ASSERT_EQ(tested.size(), interface.operations);
    for (std::size_t i = 0; i < interface.operations; ++i) {
      EXPECT_EQ(tested[static_cast<int>(i) + 1], declared.operations[i].name);
    }
    const auto supplied =
        std::count_if(declared.operations.begin(), declared.operations.end(),
                      [](const auto& o) { return o.answer == "must be supplied"; });
    EXPECT_EQ(supplied, interface.supplied);
  }
}

TEST(Callbacks, TheHeaderTellsTheDefaultsThatTheCodeHas) {
  for (const Interface& interface : kInterfaces) {
    const DeclaredInterface declared = Declared(interface.name);
    for (const Expected& row : interface.table()) {
      const DeclaredOperation& operation =
          declared.operations.at(static_cast<std::size_t>(row.slot - 1));
      EXPECT_NE(operation.comment, "") << row.name << " tells a host author nothing";
      const std::string& told = operation.answer;
      if (told == "must be supplied" || told == "refreshes the selection lists") continue;
      EXPECT_EQ(told, row.given == "\"\"" ? "empty text" : row.given) << row.name;
    }
  }
}

TEST(Callbacks, PublishedPageIsCurrent) {
#ifndef QX_COMPILER
  GTEST_SKIP() << "the build without sanitizers asks the compiler";
#endif
  const std::string page = CallbackPage();
  const std::string path = QX_SOURCE_DIR "/docs/callbacks.md";
  if (std::getenv("QX_UPDATE_DOCS")) std::ofstream(path) << page;
  std::ifstream in(path);
  const std::string published{std::istreambuf_iterator<char>(in), {}};
  EXPECT_TRUE(page == published)
      << "docs/callbacks.md is stale; renew it with: QX_UPDATE_DOCS=1 test_callback";
}

// ---- registration -------------------------------------------------------------------------------

template <class Host>
class LastWins : public testing::Test {};
using LastWinsHosts =
    testing::Types<PlainAppDB, PlainUpdateDB, PlainFuncDB, PlainPostDB, PlainMcas, PlainRender>;
TYPED_TEST_SUITE(LastWins, LastWinsHosts);

TYPED_TEST(LastWins, HoldsTheLastMadeAndIsEmptiedByAnyEnd) {
  const auto instance = [] { return static_cast<void*>(TypeParam::Instance()); };
  ASSERT_EQ(instance(), nullptr);
  auto first = std::make_unique<TypeParam>();
  EXPECT_EQ(instance(), first.get());
  auto second = std::make_unique<TypeParam>();
  EXPECT_EQ(instance(), second.get());
  {
    TypeParam copy(*first);
    EXPECT_EQ(instance(), second.get()) << "a copy registered";
    copy = *first;
    EXPECT_EQ(instance(), second.get()) << "an assignment registered";
  }
  EXPECT_EQ(instance(), nullptr);
  TypeParam third;
  second.reset();
  EXPECT_EQ(instance(), nullptr) << "the end of an object that is not registered empties the slot";
  first.reset();
  const TypeParam fourth;
  EXPECT_EQ(instance(), &fourth);
}

TEST(FirstWins, HoldsTheFirstMadeForGood) {
  ProcessTable();  // makes the first
  IQXDbInterface* const first = IQXDbInterface::Instance();
  ASSERT_NE(first, nullptr);
  {
    PlainProcess second;
    PlainProcess third(second);
    EXPECT_EQ(IQXDbInterface::Instance(), first);
  }
  EXPECT_EQ(IQXDbInterface::Instance(), first);
}

static_assert(!std::is_default_constructible_v<IFuncDB> &&
              !std::is_default_constructible_v<ICustomPostDB> &&
              !std::is_default_constructible_v<IRenderConnect>);
static_assert(sizeof(IAppDB) == sizeof(void*) && sizeof(IQXDbInterface) == sizeof(void*));

// ---- the detector of element sides --------------------------------------------------------------

struct Detector : IElemSideDetect {
  using IElemSideDetect::IElemSideDetect;
  using IElemSideDetect::m_pDoc;
  using IElemSideDetect::m_pSession;
  using IElemSideDetect::m_pUnits;
};

TEST(ElemSideDetect, KeepsTheDocumentItsSessionAndItsUnits) {
  CQXDocBase document(AddStandardPools);
  const Detector detector(&document);
  EXPECT_EQ(detector.m_pDoc, &document);
  EXPECT_EQ(detector.m_pSession, document.GetDBSession());
  EXPECT_EQ(detector.m_pUnits, &document.GetDBSession()->Units());
  const Detector nothing(nullptr);
  EXPECT_EQ(nothing.m_pSession, nullptr);
  EXPECT_EQ(nothing.m_pUnits, nullptr);
}

}  // namespace
}  // namespace qx
