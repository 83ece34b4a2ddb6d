// What every row says of the removal of its target, against what a step does.

#include <gtest/gtest.h>
#include <map>

#include "qx_db/model/deletion.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/verbs.h"

#include "host/session.h"
#include "tests/silent_app_db.h"

namespace qx {
namespace {

constexpr Key kHolder = 31;
constexpr Key kTarget = 32;
constexpr Key kOther = 33;

ITR AddFresh(DPoolBase& pool, Key key) {
  const auto record = pool.NewRecord();
  StoreAt(reinterpret_cast<char*>(record.get()) + 8, key);
  return pool.InsertNU(record.get());
}

/// Puts references to `targets` into a row of a stored record.
void Refer(const Row& row, ITR holder, std::initializer_list<ITR> targets) {
  char* bytes = detail::Bytes(*KeyedSetBase::RecordAt(holder));
  if (!row.IsArray()) return StoreAt(bytes + row.offset, *targets.begin());
  ArrayStorage& array = detail::ArrayAt(bytes, row);
  array.Resize(static_cast<std::int64_t>(targets.size()),
               static_cast<std::size_t>(row.element_size));
  char* slot = static_cast<char*>(array.data) + std::max(row.inner_reference, 0);
  for (const ITR target : targets) {
    StoreAt(slot, target);
    slot += row.element_size;
  }
}

/// What a step that removes the target makes of the record that refers to it.
std::string OutcomeOf(std::uint16_t type, std::u16string_view member, bool with_other) {
  CQXDBSession session(host::SetUpModel);
  DPoolBase& pool = *session.GetDataPool(type);
  const Row& row = *pool.GetSchema().Find(member);
  DPoolBase& targets = *session.GetDataPool(row.target);
  const ITR target = AddFresh(targets, kTarget);
  const ITR other = AddFresh(targets, kOther);
  const ITR holder = AddFresh(pool, kHolder);
  if (with_other) {
    Refer(row, holder, {target, other});
  } else {
    Refer(row, holder, {target});
  }
  CTransaction transaction(&session);
  transaction.Begin(u"remove");
  targets.Remove(target);
  if (!transaction.Commit()) {
    transaction.Rollback();
    return targets.Find(kTarget) == target ? "refused" : "lost";
  }
  if (!pool.Find(kHolder)) return "removed";
  std::string left;
  ForEachReference(pool.GetSchema(), *KeyedSetBase::RecordAt(holder),
                   [&](const Row& one, const char* slot) {
                     if (&one == &row) left += ' ' + std::to_string(KeyOf(LoadAt<ITR>(slot)));
                   });
  if (left == (row.IsArray() ? with_other ? " 33" : "" : " 0")) return "cleared";
  return "left" + left;
}

const char* Expected(OnRemoval rule, bool with_other) {
  switch (rule) {
    case OnRemoval::kClear:
      return "cleared";
    case OnRemoval::kDie:
      return "removed";
    case OnRemoval::kDieWithLast:
      return with_other ? "cleared" : "removed";
    case OnRemoval::kRefuse:
      return "refused";
    case OnRemoval::kReset:  // a new record's says nothing by it
    case OnRemoval::kPassUp:
      return "cleared";
  }
  return "";
}

TEST(RemovalRows, EveryRowTellsWhatAStepDoes) {
  SilentAppDB app;
  const CQXDBSession session(host::SetUpModel);
  int rows = 0;
  for (const DPoolBase* pool : session.Pools()) {
    for (const Row* row : pool->GetSchema().References()) {
      if (!session.GetDataPool(row->target)) continue;  // a pool of the host
      for (const bool with_other : {false, true}) {
        if (with_other && !row->IsArray()) continue;
        ++rows;
        EXPECT_EQ(OutcomeOf(pool->GetTypeCode(), row->name, with_other),
                  Expected(row->on_removal, with_other))
            << pool->GetSchema().Name() << " " << Utf8(row->name) << (with_other ? " of two" : "");
      }
    }
  }
  EXPECT_GT(rows, 80);
}

/// Each record that a step or a preview removes or changes, with what becomes of it.
using Fates = std::map<std::pair<std::uint16_t, Key>, bool>;  // removed?

TEST(RemovalRows, APreviewTellsWhatTheDeletionDoes) {
  struct Witness final : ISessionListener {
    Fates fates;
    void OnSessionEvent(CQXDBSession&, SessionEvent, std::u16string_view,
                        std::span<const Change> changes) override {
      for (const Change& change : changes) {
        fates[{change.type, KeyOf(change.item)}] |= change.operation == tagTRNotify::kRemoved;
      }
    }
  };
  SilentAppDB app;
  const CQXDBSession pattern(host::SetUpModel);
  int rows = 0;
  for (const DPoolBase* source : pattern.Pools()) {
    for (const Row& row : source->GetSchema().Rows()) {
      const std::uint16_t to = row.target ? row.target : row.key_of;
      if (!to || !pattern.GetDataPool(to)) continue;
      for (const bool with_other : {false, true}) {
        SCOPED_TRACE(std::string(source->GetSchema().Name()) + " " + Utf8(row.name));
        CQXDBSession session(host::SetUpModel);
        DPoolBase& targets = *session.GetDataPool(to);
        const ITR target = AddFresh(targets, kTarget);
        const ITR other = AddFresh(targets, kOther);
        DPoolBase& pool = *session.GetDataPool(source->GetTypeCode());
        const ITR holder = AddFresh(pool, row.offset == 8 ? kTarget : kHolder);
        if (row.key_of && row.offset != 8) {
          StoreAt(detail::Bytes(*KeyedSetBase::RecordAt(holder)) + row.offset, kTarget);
        } else if (row.target) {
          if (with_other) Refer(row, holder, {target, other});
          if (!with_other) Refer(row, holder, {target});
        }
        ++rows;
        const std::vector<ITR> asked = {target};
        const std::uint64_t before = session.StateHash();
        const DeletionPreview preview = PreviewDeletion(session, to, asked);
        EXPECT_EQ(session.StateHash(), before);
        Fates expected;
        for (const Consequence& one : preview.consequences) {
          expected[{one.type, KeyOf(one.item)}] |= one.effect == Effect::kRemoved;
          if (one.item == target) continue;
          EXPECT_EQ(one.cause, target);
          EXPECT_EQ(one.row, row.offset == 8 ? nullptr : pool.GetSchema().Find(row.name));
        }
        Witness witness;
        session.AddListener(&witness);
        const int done = DeleteRecords(session, to, asked);
        EXPECT_EQ(done, preview.blockers.empty());
        if (done) {
          EXPECT_EQ(witness.fates, expected);
        }
        if (!done) {
          EXPECT_EQ(session.StateHash(), before);
        }
      }
    }
  }
  EXPECT_GT(rows, 160);
}

}  // namespace
}  // namespace qx
