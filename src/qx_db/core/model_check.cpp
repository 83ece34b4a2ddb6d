#include "qx_db/core/model_check.h"

#include <fmt/format.h>
#include <vector>

#include "qx_db/record/verbs.h"

namespace qx {
namespace {

std::string TableOf(const CQXDBSession& session, std::uint16_t type) {
  const DPoolBase* pool = session.GetDataPool(type);
  return pool ? pool->GetAPIName().ToUtf8() : fmt::format("type {}", type);
}

/// A list of faults as one text: the first few, and how many there are.
class FaultList {
 public:
  void Add(std::string fault) {
    if (count_++ < kShown) text_ += (text_.empty() ? "" : ", ") + std::move(fault);
  }
  std::int64_t Count() const { return count_; }
  std::string Text() const {
    return count_ > kShown ? text_ + fmt::format(", and {} more", count_ - kShown) : text_;
  }

 private:
  static constexpr std::int64_t kShown = 8;
  std::int64_t count_ = 0;
  std::string text_;
};

/// Answers for many keys whether a pool has them.
class KeysOf {
 public:
  explicit KeysOf(const DPoolBase* pool) : pool_(pool) {
    if (!pool || pool->GetSize() == 0) return;
    const KeyedSetBase& set = pool->Set();
    low_ = set.GetMinKey();
    high_ = set.GetMaxKey();
    // Without gaps, as models mostly are, the bounds tell.
    dense_ = !set.MayShareKeys() && std::int64_t{high_} - low_ + 1 == set.GetSize();
  }
  bool Has(Key key) const {
    return dense_ ? key >= low_ && key <= high_ : !pool_ || pool_->Find(key) != 0;
  }

 private:
  const DPoolBase* pool_;
  Key low_ = 0, high_ = 0;
  bool dense_ = false;
};

void FindMissing(const CQXDBSession& records, const DPoolBase& pool, FaultList& faults) {
  if (pool.GetSchema().References().empty()) return;
  std::map<std::uint16_t, KeysOf> targets;
  std::uint16_t last_type = 0;
  const KeysOf* last = nullptr;
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
    TStructBase& record = *KeyedSetBase::RecordAt(pos);
    ForEachReference(pool.GetSchema(), record, [&](const Row& row, const char* slot) {
      const auto key = LoadAt<Key>(slot);
      if (!last || row.target != last_type) {
        last_type = row.target;
        last = &targets.try_emplace(last_type, records.GetDataPool(last_type)).first->second;
      }
      const bool not_saved = row.reference_rule == ReferenceRule::kNotSaved;
      if (key == 0 || not_saved || last->Has(key)) return;
      faults.Add(fmt::format("{} {} {} names {} {}", TableOf(records, pool.GetTypeCode()),
                             record.GetKey(), Utf8(row.name), TableOf(records, row.target), key));
    });
  }
}

/// The record of its own pool that a record leads to by one member; 0 for none.
ITR NextInPool(const DPoolBase& pool, ITR at, const Row& row, ReferenceForm form) {
  const char* slot = detail::Bytes(*KeyedSetBase::RecordAt(at)) + row.offset;
  if (row.target && form == ReferenceForm::kIterators) return LoadAt<ITR>(slot);
  const auto key = LoadAt<Key>(slot);
  return key ? pool.Find(key) : 0;
}

/// Follows one member from record to record within a pool.
void FindCircles(const CQXDBSession& records, const DPoolBase& pool, const Row& row,
                 ReferenceForm form, FaultList& faults) {
  std::vector<std::uint32_t> visit(pool.Set().SlotLimit(), 0);  // number of the walk, from 1
  std::uint32_t walk = 0;
  for (ITR start = pool.GetHeadPosition(); start; pool.Next(start)) {
    ++walk;
    ITR at = start;
    while (at && visit[pool.Set().SlotOf(at)] == 0) {
      visit[pool.Set().SlotOf(at)] = walk;
      at = NextInPool(pool, at, row, form);
    }
    if (!at || visit[pool.Set().SlotOf(at)] != walk) continue;
    faults.Add(fmt::format("{} {} {} leads back to itself", TableOf(records, pool.GetTypeCode()),
                           KeyOf(at), Utf8(row.name)));
  }
}

}  // namespace

Outcome CheckReferences(const CQXDBSession& keyed, const std::string& path) {
  FaultList missing;
  for (const DPoolBase* pool : keyed.Pools()) FindMissing(keyed, *pool, missing);
  if (missing.Count() == 0) return {};
  return Failure{path, "references",
                 fmt::format("{} lead nowhere: {}", missing.Count(), missing.Text()),
                 "open it, repair or delete these records, and save it"};
}

Outcome CheckCircles(const CQXDBSession& records, ReferenceForm form, const std::string& path) {
  FaultList circles;
  for (const DPoolBase* pool : records.Pools()) {
    for (const Row& row : pool->GetSchema().Rows()) {
      const bool own = row.target == pool->GetTypeCode() || row.key_of == pool->GetTypeCode();
      if (own && !row.IsArray() && pool->GetSize() > 0) {
        FindCircles(records, *pool, row, form, circles);
      }
    }
  }
  if (circles.Count() == 0) return {};
  return Failure{path, "references", circles.Text(), "open it, break the circle, and save it"};
}

std::map<std::uint16_t, std::int64_t> ClearDeadReferences(CQXDBSession& records) {
  std::map<std::uint16_t, std::int64_t> cleared;
  for (const DPoolBase* pool : records.Pools()) {
    const std::uint16_t type = pool->GetTypeCode();
    for (ITR pos = pool->GetSchema().References().empty() ? 0 : pool->GetHeadPosition(); pos;
         pool->Next(pos)) {
      ForEachReference(pool->GetSchema(), *KeyedSetBase::RecordAt(pos),
                       [&](const Row& row, char* slot) {
                         const auto item = LoadAt<ITR>(slot);
                         if (item == 0) return;
                         const DPoolBase* target = records.GetDataPool(row.target);
                         if (target && target->Set().Owns(item) && !KeyedSetBase::IsRemoved(item))
                           return;
                         StoreAt<ITR>(slot, 0);
                         ++cleared[type];
                       });
    }
  }
  return cleared;
}

}  // namespace qx
