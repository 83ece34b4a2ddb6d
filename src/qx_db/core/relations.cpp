#include "qx_db/core/relations.h"

#include <algorithm>
#include <cstring>

#include "qx_db/core/session.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

bool IsDead(ITR itr) { return itr != 0 && KeyedSetBase::IsRemoved(itr); }

/// Whether any reference of a row is one of those that `is` tells.
template <class Is>
bool HasAny(const Row& row, const TStructBase& record, Is&& is) {
  const char* bytes = detail::Bytes(record);
  if (!row.IsArray()) return is(LoadAt<ITR>(bytes + row.offset));
  const ArrayStorage& array = detail::ArrayAt(bytes, row);
  if (array.count == 0) return false;
  const char* slot = static_cast<const char*>(array.data) + std::max(row.inner_reference, 0);
  for (std::int32_t i = 0; i < array.count; ++i, slot += row.element_size) {
    if (is(LoadAt<ITR>(slot))) return true;
  }
  return false;
}

/// See DropEntries. Entries before the first that goes are not touched.
template <class Is>
void DropFrom(const Row& row, char* bytes, Is&& is_gone) {
  ArrayStorage& array = detail::ArrayAt(bytes, row);
  // The array beside this one holds 32-bit values; one of another length belongs to nothing.
  auto* beside = reinterpret_cast<ArrayStorage*>(bytes + row.beside);
  auto* companions = row.beside && beside->count == array.count
                         ? static_cast<std::int32_t*>(beside->data)
                         : nullptr;
  const auto size = static_cast<std::size_t>(row.element_size);
  char* const elements = static_cast<char*>(array.data);
  const std::size_t reference = static_cast<std::size_t>(std::max(row.inner_reference, 0));
  const auto count = static_cast<std::size_t>(array.count);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const char* element = elements + i * size;
    const ITR itr = LoadAt<ITR>(element + reference);
    if (is_gone(itr)) continue;
    if (kept != i) {
      if (size == sizeof(ITR)) {
        StoreAt(elements + kept * size, itr);
      } else {
        std::memmove(elements + kept * size, element, size);
      }
      if (companions) companions[kept] = companions[i];
    }
    ++kept;
  }
  array.count = static_cast<std::int32_t>(kept);
  if (companions) beside->count = array.count;
}

template <class Is>
void ClearFrom(const Row& row, char* bytes, Is&& is) {
  if (row.IsArray()) {
    DropFrom(row, bytes, is);
  } else if (is(LoadAt<ITR>(bytes + row.offset))) {
    StoreAt<ITR>(bytes + row.offset, 0);
  }
}

bool IsLocked(const Row& row, const TStructBase& record) {
  if (row.lock == 0) return false;
  const auto& flags = *reinterpret_cast<const ArrayStorage*>(detail::Bytes(record) + row.lock);
  const auto* flag = static_cast<const std::int32_t*>(flags.data);
  return std::any_of(flag, flag + flags.count, [](std::int32_t set) { return set != 0; });
}

/// A lock that outlives the last target is what keeps the record; a flag stays to say so.
void KeepLocked(const Row& row, TStructBase& record) {
  auto& flags = *reinterpret_cast<ArrayStorage*>(detail::Bytes(record) + row.lock);
  flags.Resize(1, sizeof(std::int32_t));
  *static_cast<std::int32_t*>(flags.data) = 1;
}

}  // namespace

// ---- removed records ----------------------------------------------------------------------------

/// Learns of what the open step has removed since it was last asked.
void Relations::Learn() {
  const Journal& journal = session_.History();
  // Of what is final, or was removed outside a step, nothing is known but that it is marked.
  if (journal.HasFinal() || !journal.IsOpen()) {
    std::fill(filter_.begin(), filter_.end(), ~std::uint64_t{0});
    return;
  }
  const auto& changes = journal.Current().changes;
  const std::size_t begin = journal.Mark() - changes.size();
  const std::size_t first = gone_.size();
  for (std::size_t i = known_ > begin ? known_ - begin : 0; i < changes.size(); ++i) {
    const ITR item = changes[i].item;  // by value: changes are packed
    if (changes[i].operation == tagTRNotify::kRemoved) gone_.push_back(item);
  }
  known_ = journal.Mark();
  constexpr std::size_t kBitsForOne = 256;  // few enough to stay in the cache nearest to the core
  constexpr int kMostBits = 25;
  int bits = 64 - shift_;
  while (bits < kMostBits && (std::size_t{1} << bits) < gone_.size() * kBitsForOne) ++bits;
  if (bits != 64 - shift_) {
    filter_.assign((std::size_t{1} << bits) / 64, 0);
    shift_ = 64 - bits;
    std::for_each(gone_.begin(), gone_.end(), [this](ITR item) { Mark(item); });
  } else {
    for (std::size_t i = first; i < gone_.size(); ++i) Mark(gone_[i]);
  }
}

void Relations::Forget() {
  if (!gone_.empty() || filter_[0] != 0) {
    shift_ = 64 - 12;
    filter_.assign((1 << 12) / 64, 0);
  }
  gone_.clear();
  known_ = 0;
  for (DPoolBase* pool : session_.Pools()) pool->seen_removals_.clear();
}

// ---- references ---------------------------------------------------------------------------------

/// The rows into pools with removals that the pool has not been repaired for.
std::vector<const Row*> Relations::RowsToRepair(DPoolBase& pool) const {
  const auto references = pool.GetSchema().References();
  pool.seen_removals_.resize(references.size(), ~std::uint64_t{0});
  std::vector<const Row*> rows;
  for (std::size_t i = 0; i < references.size(); ++i) {
    const DPoolBase* target = session_.GetDataPool(references[i]->target);
    if (!target || !target->HasChanged(DPoolBase::kRemovedFlag)) continue;
    const bool is_known = session_.History().IsOpen();
    if (is_known && pool.seen_removals_[i] == target->removals_) continue;
    pool.seen_removals_[i] = target->removals_;
    rows.push_back(references[i]);
  }
  return rows;
}

/// Whether the filter knows any of the references of the rows, which is all that most records are
/// asked for: without branches on each.
bool Relations::MayHaveGone(const std::vector<const Row*>& rows, const TStructBase& record) const {
  const Filter known = Known();
  const auto bit = [known](ITR itr) { return known.Bit(itr); };
  const char* bytes = detail::Bytes(record);
  std::uint64_t any = 0;
  for (const Row* row : rows) {
    if (!row->IsArray()) {
      any |= bit(LoadAt<ITR>(bytes + row->offset));
      continue;
    }
    const ArrayStorage& array = detail::ArrayAt(bytes, *row);
    const std::int32_t count = array.count;
    if (count == 0) continue;  // nor has it any memory then
    const char* slot = static_cast<const char*>(array.data) + std::max(row->inner_reference, 0);
    if (row->element_size == sizeof(ITR)) {
      for (std::int32_t i = 0; i < count; ++i) {
        any |= bit(LoadAt<ITR>(slot + 8 * static_cast<std::ptrdiff_t>(i)));
      }
    } else {
      for (std::int32_t i = 0; i < count; ++i, slot += row->element_size) {
        any |= bit(LoadAt<ITR>(slot));
      }
    }
  }
  return (any & 1) != 0;
}

bool Relations::HasGone(const Row& row, const TStructBase& record) const {
  return HasAny(row, record, [known = Known()](ITR itr) { return known.IsGone(itr); });
}

/// Whether a record that dies with the last of its targets has one left, or is locked.
bool Relations::KeepsAny(const Schema& schema, const TStructBase& record) const {
  for (const Row* row : schema.References()) {
    if (row->on_removal != OnRemoval::kDieWithLast) continue;
    if (IsLocked(*row, record)) return true;
    if (HasAny(*row, record, [](ITR itr) { return itr != 0 && !KeyedSetBase::IsRemoved(itr); })) {
      return true;
    }
  }
  return false;
}

Relations::Fate Relations::FateOf(const std::vector<const Row*>& rows, const Schema& schema,
                                  const TStructBase& record, const Rule& rule) const {
  Fate fate = Fate::kUntouched;
  bool lost_some = false;
  for (const Row* row : rows) {
    if (!HasGone(*row, record)) continue;
    const OnRemoval what = rule ? rule(*row) : row->on_removal;
    if (what == OnRemoval::kDie) return Fate::kRemoved;
    lost_some |= what == OnRemoval::kDieWithLast;
    if (what == OnRemoval::kRefuse) {
      fate = Fate::kRefused;
    } else if (fate == Fate::kUntouched) {
      fate = Fate::kRepaired;
    }
  }
  return lost_some && !KeepsAny(schema, record) ? Fate::kRemoved : fate;
}

void Relations::Repair(const std::vector<const Row*>& rows, TStructBase& record,
                       const Rule& rule) const {
  const auto is_gone = [known = Known()](ITR itr) { return known.IsGone(itr); };
  void (*reset)(TStructBase&) = nullptr;
  const Row* locked = nullptr;
  for (const Row* row : rows) {
    const OnRemoval what = rule ? rule(*row) : row->on_removal;
    if (what != OnRemoval::kReset && !row->lock) continue;  // the rest is cleared below
    if (!HasGone(*row, record)) continue;
    if (what == OnRemoval::kReset && row->reset.counts(record)) reset = row->reset.reset;
    if (IsLocked(*row, record)) locked = row;
  }
  if (reset) reset(record);
  for (const Row* row : rows) ClearFrom(*row, detail::Bytes(record), is_gone);
  if (!locked || IsLocked(*locked, record)) return;
  // The flags beside the entries that left are gone; those of a record without entries keep it.
  for (const Row* row : rows) {
    const auto& left = detail::ArrayAt(detail::Bytes(record), *row);
    if (row->lock && left.count > 0) return;
  }
  KeepLocked(*locked, record);
}

void Relations::Refuse(const std::vector<const Row*>& rows, const TStructBase& record) const {
  for (const Row* row : rows) {
    if (row->on_removal != OnRemoval::kRefuse) continue;
    HasAny(*row, record, [&](ITR target) {
      if (!Is(target)) return false;
      qxMsgOut(Severity::kRefusal, row->refusal ? row->refusal : "IDS_QX_DB_REFERENCED",
               {std::to_string(KeyOf(target)), std::to_string(record.GetKey())});
      return true;
    });
  }
}

/// Whether the open step, of which all is known, has neither removed a record nor given one another
/// key, as most have not: then no row of any pool says what to do.
bool Relations::HasNothingToFollow() const {
  const Journal& journal = session_.History();
  return gone_.empty() && !has_new_keys_ && journal.IsOpen() && !journal.HasFinal();
}

int Relations::Process(DPoolBase& pool, const Rule& rule) {
  Learn();
  if (HasNothingToFollow()) return 1;
  const auto rows = RowsToRepair(pool);
  const Schema& schema = pool.GetSchema();
  const KeyedSetBase& records = pool.Set();
  LongWork work(rows.empty() ? 0 : static_cast<std::size_t>(pool.GetSize()));
  for (ITR pos = rows.empty() ? 0 : records.GetHeadPosition(); pos;) {
    work.Step();
    const ITR item = pos;
    records.Next(pos);
    const TStructBase& record = *KeyedSetBase::RecordAt(item);
    if (!MayHaveGone(rows, record)) continue;
    const Fate fate = FateOf(rows, schema, record, rule);
    if (fate == Fate::kUntouched) continue;
    if (fate == Fate::kRefused) {
      Refuse(rows, record);
      if (!session_.IsRehearsing()) return 0;
    } else if (fate == Fate::kRemoved) {
      if (!pool.Remove(item)) return 0;
    } else {
      const auto repaired = pool.CopyRecord(item);
      Repair(rows, *repaired, rule);
      if (!pool.SetAtNU(item, repaired.get())) return 0;
    }
  }
  for (const Row& row : schema.Rows()) {
    if (row.key_of && row.offset != 8 && !FollowKeys(pool, row)) return 0;
  }
  return 1;
}

void DropEntries(const Row& row, char* bytes, const std::function<bool(ITR)>& is_gone) {
  DropFrom(row, bytes, is_gone);
}

void ClearDeadReferences(DPoolBase& pool) {
  const auto& rows = pool.GetSchema().References();
  for (ITR item = rows.empty() ? 0 : pool.GetHeadPosition(); item; pool.Next(item)) {
    TStructBase& record = *KeyedSetBase::RecordAt(item);
    for (const Row* row : rows) {
      if (!HasAny(*row, record, IsDead)) continue;
      ClearFrom(*row, detail::Bytes(record), IsDead);
      PoolInside::SetOf(pool).Touch();
    }
  }
}

// ---- keys of other records ----------------------------------------------------------------------

FormerKeys::FormerKeys(const DPoolBase& pool, const Row& row, const DPoolBase& targets,
                       const Step& step)
    : pool_(pool), row_(row), targets_(targets) {
  for (const Change& change : step.changes) {
    if (change.type != pool.GetTypeCode() && change.type != targets.GetTypeCode()) continue;
    const ITR item = change.item;  // out of the packed notice
    if (change.operation == tagTRNotify::kInserted) {
      inserted_.insert(item);
    } else if (!former_.contains(item)) {
      former_.emplace(item, change.operation == tagTRNotify::kRemoved
                                ? Identity{KeyOf(item), NamedBy(item)}
                                : Before(step, change));
    }
    touched_.insert(item);
  }
  for (const auto& [item, identity] : former_) {
    if (inserted_.contains(item) || !targets.Set().Owns(item)) continue;
    if (KeyedSetBase::IsRemoved(item) || KeyOf(item) != identity.key) {
      moved_.emplace(identity.key, item);
    }
  }
  for (const ITR item : touched_) {
    if (targets.Set().Owns(item) && KeyedSetBase::IsRemoved(item)) gone_.emplace(KeyOf(item), item);
  }
}

/// The key that a record names now; 0 for a target of another type.
Key FormerKeys::NamedBy(ITR item) const {
  if (!pool_.Set().Owns(item)) return 0;
  return LoadAt<Key>(detail::Bytes(*KeyedSetBase::RecordAt(item)) + row_.offset);
}

FormerKeys::Identity FormerKeys::Before(const Step& step, const Change& change) const {
  const char* image = step.bytes.data() + step.images[change.list_epoch].before;
  if (change.type != pool_.GetTypeCode()) return {LoadAt<Key>(image), 0};
  const auto rows = pool_.GetSchema().Rows();
  const auto place = MemberOffsets(pool_.GetSchema(), image);
  return {LoadAt<Key>(image),
          LoadAt<Key>(image + place[static_cast<std::size_t>(&row_ - &rows[0])])};
}

ITR FormerKeys::RenumberedFrom(Key key) const {
  const auto moved = moved_.find(key);
  return moved == moved_.end() || KeyedSetBase::IsRemoved(moved->second) ? 0 : moved->second;
}

Key FormerKeys::WantedBy(ITR item) const {
  const Key now = NamedBy(item);
  if (now == 0) return 0;
  const auto was = former_.find(item);
  const bool kept = !inserted_.contains(item) && (was == former_.end() || was->second.names == now);
  const auto moved = moved_.find(now);
  if (kept && moved != moved_.end()) return Resolve(moved->second);
  if (targets_.Find(now)) return now;
  const auto gone = gone_.find(now);
  return gone == gone_.end() ? now : Resolve(gone->second);
}

/// The present key of a target; of one that is gone, where the row passes up, that of the nearest
/// one above it that lives. 0 for none.
Key FormerKeys::Resolve(ITR item) const {
  for (std::size_t step = 0; step <= touched_.size(); ++step) {
    if (!KeyedSetBase::IsRemoved(item)) return KeyOf(item);
    if (row_.on_removal != OnRemoval::kPassUp) return 0;
    const Key above = NamedBy(item);
    const auto moved = moved_.find(above);
    const auto gone = gone_.find(above);
    item = moved != moved_.end() ? moved->second : targets_.Find(above);
    if (item == 0 && gone != gone_.end()) item = gone->second;
    if (item == 0) return 0;
  }
  return 0;  // those that are gone are a ring
}

int Relations::FollowKeys(DPoolBase& pool, const Row& row) {
  const DPoolBase* targets = session_.GetDataPool(row.key_of);
  if (!targets || (!pool.ChangeFlags() && !targets->ChangeFlags())) return 1;
  const FormerKeys former(pool, row, *targets, session_.History().Current());
  for (ITR pos = former.Changed() ? pool.GetHeadPosition() : 0; pos; pool.Next(pos)) {
    const Key wanted = former.WantedBy(pos);
    if (wanted == LoadAt<Key>(detail::Bytes(*KeyedSetBase::RecordAt(pos)) + row.offset)) continue;
    const auto repaired = pool.CopyRecord(pos);
    const bool itself = &pool == targets && wanted == repaired->GetKey();
    StoreAt<Key>(detail::Bytes(*repaired) + row.offset, itself ? 0 : wanted);
    if (!pool.SetAtNU(pos, repaired.get())) return 0;
  }
  return 1;
}

}  // namespace qx
