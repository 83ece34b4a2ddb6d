#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include "qx_db/qx_db.h"

#include "tests/record/expected_layouts.h"

namespace qx {
namespace {

struct ExpectedRecord {
  std::uint16_t code = 0;
  std::int32_t size = 0;
  std::vector<std::string> members;
};

std::map<std::string, ExpectedRecord> ExpectedRecords() {
  std::map<std::string, ExpectedRecord> records;
  std::istringstream lines(kExpectedLayouts);
  std::string current;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("tag")) {
      std::istringstream words(line);
      words >> current;
      words >> records[current].code >> records[current].size;
    } else if (!line.empty()) {
      records[current].members.push_back(line);
    }
  }
  return records;
}

std::vector<std::string> MembersOf(const IO_VAR* var) {
  std::vector<std::string> members;
  for (; var->name[0]; ++var) {
    std::ostringstream line;
    line << Utf8(var->name) << ' ' << var->kind << ' ' << var->offset << ' ' << var->size << ' '
         << var->element_size;
    members.push_back(line.str());
  }
  EXPECT_EQ(var->kind, 0);
  EXPECT_EQ(var->size, 0);
  return members;
}

TEST(Layout, EveryRecordLiesInMemoryAsWrittenDown) {
  const auto expected = ExpectedRecords();
  CQXDBSession session(AddStandardPools);
  std::set<std::string> seen;
  for (DPoolBase* pool : session.Pools()) {
    const Schema& schema = pool->GetSchema();
    SCOPED_TRACE(schema.Name());
    ASSERT_TRUE(expected.contains(schema.Name()));
    const ExpectedRecord& record = expected.at(schema.Name());
    EXPECT_EQ(schema.Validate(), "");
    EXPECT_EQ(pool->GetTypeCode(), record.code);
    EXPECT_EQ(pool->GetDataPtrForUndoRedo()->GetType(), record.code);
    EXPECT_EQ(pool->GetCheckSize(), static_cast<std::uint32_t>(record.size));
    EXPECT_EQ(MembersOf(pool->GetVarIOInfo()), record.members);
    EXPECT_EQ(pool->GetVarIOInfo(), pool->GetVarIOInfo());
    seen.insert(schema.Name());
  }
  EXPECT_EQ(seen.size(), expected.size());
}

TEST(Layout, FreshRecordsEqualTheDefaultInstance) {
  CQXDBSession session(AddStandardPools);
  for (DPoolBase* pool : session.Pools()) {
    TStructBase* record = pool->GetDataPtrForUndoRedo();
    record->Init();
    EXPECT_EQ(record->GetSizePlusVfptr(), pool->GetCheckSize()) << pool->GetSchema().Name();
  }
  EXPECT_TRUE(Differences(tagTNode::GetSchema(), tagTNode(), tagTNode::GTCD()).empty());
  EXPECT_TRUE(Differences(tagTEcrd::GetSchema(), tagTEcrd(), tagTEcrd::GTCD()).empty());
}

TEST(Layout, ConcurrentFirstCallsSeeOneSchema) {
  std::vector<const IO_VAR*> seen(8);
  std::vector<std::thread> threads;
  for (const IO_VAR*& slot : seen) {
    threads.emplace_back([&slot] { slot = tagTESid::GetVarIOInfo(); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::set<const IO_VAR*>(seen.begin(), seen.end()).size(), 1u);
}

/// Index of a virtual operation in the table, as the Itanium C++ ABI encodes a member pointer;
/// the destructor takes the first two places there.
template <class F>
int SlotOf(F member) {
  static_assert(sizeof(F) == 16);
  return static_cast<int>((LoadAt<std::intptr_t>(&member) - 1) / 8) - 1;
}

TEST(Layout, VirtualOperationsStandInTheirSlots) {
#ifndef __GXX_ABI_VERSION
  GTEST_SKIP() << "slots can be read under the Itanium ABI only";
#endif
  EXPECT_EQ(SlotOf(&TStructBase::GetType), 1);
  EXPECT_EQ(SlotOf(&TStructBase::GetSizePlusVfptr), 8);
  EXPECT_EQ(SlotOf(&TStructBase::Init), 11);
  EXPECT_EQ(SlotOf(&TStructBase::api_description), 14);
  EXPECT_EQ(SlotOf(&tagTNode::REad), 15);
  using Pool = DPool<tagTNode>;
  EXPECT_EQ(SlotOf(&DPoolBase::Find), 1);
  EXPECT_EQ(SlotOf(&DPoolBase::GetDeletor), 4);
  EXPECT_EQ(SlotOf(&DPoolBase::ProcessRelation), 6);
  EXPECT_EQ(SlotOf(&DPoolBase::InsertNUCustom), 8);
  EXPECT_EQ(SlotOf(&DPoolBase::GetDataPtrForUndoRedo), 12);
  EXPECT_EQ(SlotOf(&DPoolBase::GetIOName), 17);
  EXPECT_EQ(SlotOf(&DPoolBase::GetCheckSize), 24);
  EXPECT_EQ(SlotOf(&DPoolBase::NeedSaveNLoad), 31);
  EXPECT_EQ(SlotOf(&DPoolBase::GetExtDBIdName), 37);
  EXPECT_EQ(SlotOf(&DPoolBase::GetAPIName), 41);
  EXPECT_EQ(SlotOf(static_cast<ITR (Pool::*)(const tagTNode&)>(&Pool::InsertNU)), 42);
  EXPECT_EQ(SlotOf(static_cast<int (Pool::*)(ITR, const tagTNode&)>(&Pool::SetAtNU)), 43);
  EXPECT_EQ(SlotOf(&Pool::RemoveNext), 44);
  EXPECT_EQ(SlotOf(&Pool::GetNewKey), 46);
}

}  // namespace
}  // namespace qx
