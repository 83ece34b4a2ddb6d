#include "qx_db/core/relations.h"

#include <algorithm>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

bool IsDead(ITR itr) { return itr != 0 && KeyedSetBase::IsRemoved(itr); }

/// Counts the live and the dead references of a row.
struct Tally {
  std::int32_t live = 0;
  std::int32_t dead = 0;
};

Tally Count(const Row& row, TStructBase& record) {
  Tally tally;
  const auto count = [&](const Row&, const char* slot) {
    const ITR itr = LoadAt<ITR>(slot);
    tally.dead += IsDead(itr);
    tally.live += itr != 0 && !IsDead(itr);
  };
  char* bytes = detail::Bytes(record);
  if (row.IsArray()) {
    ArrayStorage& array = detail::ArrayAt(bytes, row);
    detail::ForEachSlot(row, static_cast<char*>(array.data), array.count, count);
  } else {
    count(row, bytes + row.offset);
  }
  return tally;
}

enum class Fate { kUntouched, kRepaired, kRemoved };

Fate FateOf(const std::vector<const Row*>& rows, const Schema& schema, TStructBase& record) {
  Fate fate = Fate::kUntouched;
  bool lost_some = false;
  for (const Row* row : rows) {
    if (Count(*row, record).dead == 0) continue;
    if (row->on_removal == OnRemoval::kDie) return Fate::kRemoved;
    lost_some |= row->on_removal == OnRemoval::kDieWithLast;
    fate = Fate::kRepaired;
  }
  if (!lost_some) return fate;
  for (const Row* row : schema.References()) {
    if (row->on_removal == OnRemoval::kDieWithLast && Count(*row, record).live > 0) return fate;
  }
  return Fate::kRemoved;
}

void ClearFrom(const Row& row, char* bytes) {
  if (row.IsArray()) {
    DropEntries(row, bytes, IsDead);
  } else if (IsDead(LoadAt<ITR>(bytes + row.offset))) {
    StoreAt<ITR>(bytes + row.offset, 0);
  }
}

}  // namespace

void DropEntries(const Row& row, char* bytes, bool (*is_gone)(ITR)) {
  ArrayStorage& array = detail::ArrayAt(bytes, row);
  // The array beside this one holds 32-bit values; one of another length belongs to nothing.
  auto* beside = reinterpret_cast<ArrayStorage*>(bytes + row.beside);
  auto* companions = row.beside && beside->count == array.count
                         ? static_cast<std::int32_t*>(beside->data)
                         : nullptr;
  const auto size = static_cast<std::size_t>(row.element_size);
  char* const elements = static_cast<char*>(array.data);
  std::int32_t kept = 0;
  for (std::int32_t i = 0; i < array.count; ++i) {
    const char* element = elements + static_cast<std::size_t>(i) * size;
    if (is_gone(LoadAt<ITR>(element + std::max(row.inner_reference, 0)))) continue;
    std::memmove(elements + static_cast<std::size_t>(kept) * size, element, size);
    if (companions) companions[kept] = companions[i];
    ++kept;
  }
  array.count = kept;
  if (companions) beside->count = kept;
}

int DropDeadReferences(DPoolBase& pool) {
  std::vector<const Row*> rows;
  for (const Row* row : pool.GetSchema().References()) {
    const DPoolBase* target = pool.GetSession()->GetDataPool(row->target);
    if (target && target->HasChanged(DPoolBase::kRemovedFlag)) rows.push_back(row);
  }
  if (rows.empty()) return 0;
  int changed = 0;
  for (ITR pos = pool.GetHeadPosition(); pos;) {
    ITR item = pos;
    pool.Next(pos);
    const Fate fate = FateOf(rows, pool.GetSchema(), *KeyedSetBase::RecordAt(item));
    if (fate == Fate::kRemoved) {
      changed += pool.Remove(item);
    } else if (fate == Fate::kRepaired) {
      const auto repaired = pool.CopyRecord(item);
      for (const Row* row : rows) ClearFrom(*row, detail::Bytes(*repaired));
      changed += pool.SetAtNU(item, repaired.get());
    }
  }
  return changed;
}

void ClearDeadReferences(DPoolBase& pool) {
  const auto& rows = pool.GetSchema().References();
  if (rows.empty()) return;
  for (ITR item = pool.GetHeadPosition(); item; pool.Next(item)) {
    TStructBase& record = *KeyedSetBase::RecordAt(item);
    for (const Row* row : rows) {
      if (Count(*row, record).dead == 0) continue;
      ClearFrom(*row, detail::Bytes(record));
      pool.Set().Touch();
    }
  }
}

}  // namespace qx
