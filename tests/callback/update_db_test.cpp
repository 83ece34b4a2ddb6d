// The refresh of selection lists, with counters in their place.

#include <gtest/gtest.h>
#include <utility>

#include "qx_db/qx_db.h"

#include "host/session.h"

namespace qx {
namespace {

using enum ComboFamily;

struct UpdateDBForTests : IUpdateDB {
  void UpdateView(CQXDBSession*) override { ++views; }
  int views = 0;
};

/// Families refreshed, in order, with the session of each.
std::vector<std::pair<ComboFamily, CQXDBSession*>> g_refreshed;

template <int Family>
void Note(CQXDBSession* session) {
  g_refreshed.emplace_back(static_cast<ComboFamily>(Family), session);
}

/// Puts a counter in the place of every family's lists.
class UpdateDB : public testing::Test {
 protected:
  void SetUp() override {
    g_refreshed.clear();
    Hook(std::make_integer_sequence<int, kComboFamilyCount>());
  }
  void TearDown() override {
    for (int i = 0; i < kComboFamilyCount; ++i) {
      SetComboRefresh(static_cast<ComboFamily>(i), former_[static_cast<std::size_t>(i)]);
    }
  }
  template <int... Family>
  void Hook(std::integer_sequence<int, Family...>) {
    former_ = {SetComboRefresh(static_cast<ComboFamily>(Family), Note<Family>)...};
  }
  static std::vector<ComboFamily> Refreshed(CQXDBSession& session) {
    std::vector<ComboFamily> families;
    for (const auto& [family, of] : std::exchange(g_refreshed, {})) {
      EXPECT_EQ(of, &session);
      families.push_back(family);
    }
    return families;
  }

  CQXDBSession session_{host::SetUpModel};
  UpdateDBForTests update_;
  std::vector<ComboRefresh> former_;
};

/// Pool code and family, in the order of the refresh.
const std::pair<std::uint16_t, ComboFamily> kSteps[] = {
    {5, kMset},   {7, kMatl},  {21, kGset},  {22, kBset},      {23, kLset},    {24, kDset},
    {25, kTset},  {8, kProp},  {2, kCord},   {43, kCFDset},    {57, kCFDPset}, {29, kFRset},
    {42, kTTset}, {58, kEset}, {59, kTEset}, {52, kViewPoint}, {6, kFunc},     {6, kFuncQX},
};

TEST_F(UpdateDB, RefreshesAllFamiliesInTheirOrder) {
  std::vector<ComboFamily> expected;
  for (const auto& [pool, family] : kSteps) expected.push_back(family);
  for (DPoolBase* pool : session_.Pools()) pool->SetChangeFlags(DPoolBase::kModifiedFlag);
  update_.UpdateDB(&session_, 0);
  EXPECT_EQ(Refreshed(session_), expected);
  EXPECT_EQ(update_.views, 0);
}

TEST_F(UpdateDB, RefreshesTheFamiliesOfChangedPoolsOnly) {
  for (DPoolBase* changed : session_.Pools()) {
    for (const std::uint32_t flag :
         {DPoolBase::kInsertedFlag, DPoolBase::kRemovedFlag, DPoolBase::kModifiedFlag}) {
      std::vector<ComboFamily> expected;
      for (const auto& [pool, family] : kSteps) {
        if (pool == changed->GetTypeCode()) expected.push_back(family);
      }
      changed->SetChangeFlags(flag);
      update_.UpdateDB(&session_, 0);
      EXPECT_EQ(Refreshed(session_), expected) << "pool " << changed->GetTypeCode();
      changed->SetChangeFlags(0);
    }
  }
  update_.UpdateDB(&session_, 0);
  EXPECT_TRUE(Refreshed(session_).empty()) << "without a change";
}

TEST_F(UpdateDB, LeavesOtherSessionsNoSessionsAndMissingPoolsAlone) {
  CQXDBSession other(host::SetUpModel);
  other.GetDataPool(code::kFunc)->SetChangeFlags(1);
  update_.UpdateDB(&session_, 0);
  update_.UpdateDB(nullptr, 0);
  EXPECT_TRUE(Refreshed(session_).empty());
  update_.UpdateDB(&other, 12345);  // the item is not looked at
  EXPECT_EQ(Refreshed(other), (std::vector{kFunc, kFuncQX}));
  CQXDBSession empty;
  update_.UpdateDB(&empty, 0);
  SetComboRefresh(kFunc, nullptr);
  update_.UpdateDB(&other, 0);
  EXPECT_EQ(Refreshed(other), std::vector{kFuncQX});
}

}  // namespace
}  // namespace qx
