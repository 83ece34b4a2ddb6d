#include <algorithm>
#include <charconv>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <span>
#include <sstream>
#include <thread>

#include "qx_db/qx_db.h"
#include "qx_db/record/deck_records.h"

#include "tests/record/golden_table.h"

namespace qx {
namespace {

struct ExpectedRecord {
  std::uint16_t code = 0;
  std::int32_t size = 0;
  std::vector<std::string> members;
};

/// By name; element structures by "+" and their name.
std::map<std::string, ExpectedRecord> ExpectedRecords() {
  std::map<std::string, ExpectedRecord> records;
  std::string current;
  for (const std::string& line : GoldenLines("layouts.txt")) {
    std::istringstream words(line);
    if (line.starts_with("tag")) {
      words >> current;
      words >> records[current].code >> records[current].size;
    } else if (line.starts_with('+')) {
      words >> current;
      words >> records[current].size;
    } else {
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
    EXPECT_EQ(var->reserved, 0);
  }
  EXPECT_EQ(var->kind, 0);
  EXPECT_EQ(var->size, 0);
  return members;
}

/// The numbers of a member with commas between them, in their shortest form.
template <class T>
std::string Numbers(const char* member, std::int32_t size) {
  std::string text;
  for (std::size_t at = 0; at < static_cast<std::size_t>(size); at += sizeof(T)) {
    char digits[32];
    const auto end = std::to_chars(digits, std::end(digits), LoadAt<T>(member + at)).ptr;
    text += (at ? "," : "") + std::string(digits, end);
  }
  return text;
}

/// What a member of a fresh record holds, as the table of layouts writes it.
std::string DefaultOf(const TStructBase& record, const Row& row) {
  const char* member = reinterpret_cast<const char*>(&record) + row.offset;
  if (row.IsArray()) return LoadAt<ArrayStorage>(member).count ? "not empty" : "-";
  if (row.kind == MemberKind::kReference) return LoadAt<ITR>(member) ? "not null" : "-";
  switch (row.number) {
    case Row::Number::kInt32:
      return Numbers<std::int32_t>(member, row.size);
    case Row::Number::kInt64:
      return Numbers<std::int64_t>(member, row.size);
    case Row::Number::kDouble:
      return Numbers<double>(member, row.size);
    case Row::Number::kText: {
      std::u16string units(static_cast<std::size_t>(row.size) / 2, u'\0');
      std::memcpy(units.data(), member, static_cast<std::size_t>(row.size));
      return '"' + Utf8(units.substr(0, units.find(u'\0'))) + '"';
    }
    case Row::Number::kBytes:
      break;
  }
  return std::count(member, member + row.size, '\0') == row.size ? "-" : "not zero";
}

/// The members of a pool's records with what a fresh one holds.
std::vector<std::string> MembersAndDefaults(DPoolBase& pool) {
  std::vector<std::string> members = MembersOf(pool.GetVarIOInfo());
  const std::span<const Row> rows = pool.GetSchema().Rows();
  EXPECT_EQ(members.size(), rows.size());
  TStructBase* fresh = pool.GetDataPtrForUndoRedo();
  fresh->Init();
  for (std::size_t i = 0; i < std::min(members.size(), rows.size()); ++i) {
    members[i] += ' ' + DefaultOf(*fresh, rows[i]);
  }
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
    EXPECT_EQ(MembersAndDefaults(*pool), record.members);
    EXPECT_EQ(pool->GetVarIOInfo(), pool->GetVarIOInfo());
    seen.insert(schema.Name());
  }
  for (const auto& [name, record] : expected) {
    EXPECT_TRUE(name[0] == '+' || seen.contains(name)) << "no pool holds " << name;
  }
}

TEST(Layout, ElementStructuresLieInTheirArraysAsWrittenDown) {
  auto expected = ExpectedRecords();
  const ElementSchema* const schemas[] = {
      &tagTElemSide::GetSchema(),     &tagTWeightDOF::GetSchema(),
      &tagTFuncValue::GetSchema(),    &tagTFunc3DSet::GetSchema(),
      &tagTGaugingThick::GetSchema(), &tagTSelectedResult::GetSchema(),
      &tagTNodeValue::GetSchema(),    &tagTElemValue::GetSchema(),
      &tagTTextPlace::GetSchema(),    &tagTNodeInText::GetSchema(),
      &tagTElemInText::GetSchema(),   &tagTCordInText::GetSchema()};
  for (const ElementSchema* schema : schemas) {
    const auto record = expected.extract(std::string("+") + schema->Name());
    ASSERT_FALSE(record.empty()) << schema->Name();
    EXPECT_EQ(schema->Validate(), "");
    EXPECT_EQ(MembersOf(schema->IoVars()), record.mapped().members) << schema->Name();
    const Row& last = schema->Rows().back();
    EXPECT_EQ(last.offset + last.size, record.mapped().size);
  }
  for (const auto& [name, record] : expected) EXPECT_NE(name[0], '+') << name;
  EXPECT_EQ(tagTFunc3DSet::GetVarIOInfo(), tagTFunc3DSet::GetVarIOInfo());

  // One member of all carries the schema of its elements.
  CQXDBSession session(AddStandardPools);
  std::vector<std::string> carriers;
  for (DPoolBase* pool : session.Pools()) {
    for (const IO_VAR* var = pool->GetVarIOInfo(); var->name[0]; ++var) {
      if (!var->element_schema) continue;
      carriers.push_back(pool->GetSchema().Name() + Utf8(var->name));
      EXPECT_EQ(var->element_schema, tagTSelectedResult::GetVarIOInfo());
    }
  }
  EXPECT_EQ(carriers, std::vector<std::string>{"tagTRtcb_SELRST"});
}

/// The names of members whose default is not as written down, with that default.
std::set<std::string> OtherDefaults() {
  const auto expected = ExpectedRecords();
  CQXDBSession session(AddStandardPools);
  std::set<std::string> other;
  for (DPoolBase* pool : session.Pools()) {
    const std::string name = pool->GetSchema().Name();
    const std::vector<std::string>& usual = expected.at(name).members;
    const std::vector<std::string> members = MembersAndDefaults(*pool);
    for (std::size_t i = 0; i < std::min(usual.size(), members.size()); ++i) {
      if (members[i] == usual[i]) continue;
      const std::string& line = members[i];
      other.insert(name + line.substr(0, line.find(' ')) + line.substr(line.rfind(' ')));
    }
  }
  return other;
}

TEST(Layout, EditionsChangeTheseDefaultsOnly) {
  const std::set<std::string> none;
  const std::set<std::string> by_angle = {"tagTEcrd_ITYPE 2", "tagTEcrd_BETAANGLE 90"};
  const std::set<std::string> by_angle_on_fine_grid = {"tagTEcrd_ITYPE 2", "tagTEcrd_BETAANGLE 90",
                                                       "tagTGrid_WIDTH 1"};
  for (const auto& [edition, other] : {std::pair(Edition::kA, by_angle),
                                       {Edition::kB, none},
                                       {Edition::kC, by_angle_on_fine_grid},
                                       {Edition::kD, none},
                                       {Edition::kGeneral, none}}) {
    SetEdition(edition);
    EXPECT_EQ(OtherDefaults(), other) << "edition " << static_cast<int>(edition);
  }
}

TEST(Layout, InitResetsAllButThePositionOfADatum) {
  CQXDBSession session(AddStandardPools);
  std::vector<std::string> kept;
  for (DPoolBase* pool : session.Pools()) {
    const std::vector<std::string> fresh = MembersAndDefaults(*pool);
    const std::span<const Row> rows = pool->GetSchema().Rows();
    char* bytes = reinterpret_cast<char*>(pool->GetDataPtrForUndoRedo());
    for (const Row& row : rows) {
      if (row.IsArray()) {
        reinterpret_cast<ArrayStorage*>(bytes + row.offset)
            ->Resize(3, static_cast<std::size_t>(row.element_size));
      } else {
        std::memset(bytes + row.offset, 0x11, static_cast<std::size_t>(row.size));
      }
    }
    const std::vector<std::string> after = MembersAndDefaults(*pool);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (after.at(i) != fresh.at(i)) kept.push_back(pool->GetSchema().Name() + Utf8(rows[i].name));
    }
  }
  EXPECT_EQ(kept, std::vector<std::string>{"tagTDatum_POSITION"});
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

/// A descriptor's codes, read where its vptr ends; and whether its record's rows name those groups.
template <class Descriptor, class Record>
std::string UnitCodes(std::set<std::uint16_t>& types) {
  types.insert(Record::kType);
  const Descriptor& units = Descriptor::Instance();
  EXPECT_EQ(&units, &Descriptor::Instance());
  std::set<int> groups;
  for (const Row* row : Record::GetSchema().UnitRows()) groups.insert(row->unit.group);
  EXPECT_EQ(groups.size(), static_cast<std::size_t>(Descriptor::GroupCount()));
  return Numbers<std::int32_t>(reinterpret_cast<const char*>(&units) + 8,
                               4 * Descriptor::GroupCount());
}

TEST(Layout, UnitDescriptorsHoldACodeAGroup) {
  std::set<std::uint16_t> types;
  EXPECT_EQ((UnitCodes<CQXNodeUnit, tagTNode>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXCordUnit, tagTCord>(types)), "1,1,1,4");
  EXPECT_EQ((UnitCodes<CQXEcrdUnit, tagTEcrd>(types)), "4");
  EXPECT_EQ((UnitCodes<CQXE1DOffsetUnit, tagTE1DOffset>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXE1DReleaseUnit, tagTE1DRelease>(types)), "24,25");
  EXPECT_EQ((UnitCodes<CQXE2DThickUnit, tagTE2DThick>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXE2DOffsetUnit, tagTE2DOffset>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXE2DMatlCsysUnit, tagTE2DMatlCsys>(types)), "4");
  EXPECT_EQ((UnitCodes<CQXE2DAutoTempUnit, tagTE2DAutoTemp>(types)), "21");
  EXPECT_EQ((UnitCodes<CQXE3DAutoTempUnit, tagTE3DAutoTemp>(types)), "21");
  EXPECT_EQ((UnitCodes<CQXGridUnit, tagTGrid>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXWrkPlUnit, tagTWrkPl>(types)), "1,4");
  EXPECT_EQ((UnitCodes<CQXDatumUnit, tagTDatum>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXSzctUnit, tagTSzct>(types)), "1,1");
  EXPECT_EQ((UnitCodes<CQXDefSizeUnit, tagTDefSize>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXLyctUnit, tagTLyct>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXSpropUnit, tagTSprop>(types)), "8,20,1");
  EXPECT_EQ((UnitCodes<CQXFuncUnit, tagTFunc>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXFunc3DUnit, tagTFunc3D>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXCurveUnit, tagTCurve>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXLdfsUnit, tagTLdfs>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXPFlowUnit, tagTPFlow>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXStlzUnit, tagTStlz>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXFQuanUnit, tagTFQuan>(types)), "1");
  EXPECT_EQ((UnitCodes<CQXMGInfoUnit, tagMGInfo>(types)), "1,4");
  EXPECT_EQ((UnitCodes<CQXFieldUnit, tagTField>(types)), "-1,-1");
  // Every type with units has one.
  const CQXDBSession session(AddStandardPools);
  for (const DPoolBase* pool : session.Pools()) {
    EXPECT_EQ(types.contains(pool->GetTypeCode()), !pool->GetSchema().UnitRows().empty())
        << pool->GetSchema().Name();
  }
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
