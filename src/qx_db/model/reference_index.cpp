#include "qx_db/model/reference_index.h"

#include <algorithm>

#include "qx_db/core/session.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// Calls `visit(slot of the target, user)` for every reference of a row to a live record.
template <class Visit>
void ForEachReferenceOf(const DPoolBase& source, const Row& row, const DPoolBase& target,
                        Visit&& visit) {
  const std::uint32_t limit = target.Set().SlotLimit();
  for (ITR user = source.GetHeadPosition(); user; source.Next(user)) {
    const auto take = [&](const Row&, const char* slot) {
      const ITR itr = LoadAt<ITR>(slot);
      if (itr == 0 || KeyedSetBase::IsRemoved(itr)) return;
      const std::uint32_t number = target.Set().SlotOf(itr);
      if (number < limit) visit(number, user);
    };
    char* bytes = detail::Bytes(*KeyedSetBase::RecordAt(user));
    if (row.IsArray()) {
      const ArrayStorage& array = detail::ArrayAt(bytes, row);
      detail::ForEachSlot(row, static_cast<char*>(array.data), array.count, take);
    } else {
      take(row, bytes + row.offset);
    }
  }
}

}  // namespace

RowIndex::RowIndex(const DPoolBase& source, const Row& row, const DPoolBase& target)
    : source_(&source), target_(&target), row_(&row), revision_(source.Set().Revision()) {
  const std::size_t slots = target.Set().SlotLimit();
  first_.assign(slots + 1, 0);
  std::vector<ITR> last(slots, 0);  // the user that each target met last
  ForEachReferenceOf(source, row, target, [&](std::uint32_t slot, ITR user) {
    if (last[slot] == user) return;
    last[slot] = user;
    ++first_[slot + 1];
  });
  for (std::size_t i = 0; i < slots; ++i) first_[i + 1] += first_[i];
  users_.resize(first_[slots]);
  std::fill(last.begin(), last.end(), 0);
  std::vector<std::uint32_t> next(first_.begin(), first_.end() - 1);
  ForEachReferenceOf(source, row, target, [&](std::uint32_t slot, ITR user) {
    if (last[slot] == user) return;
    last[slot] = user;
    users_[next[slot]++] = user;
  });
}

std::span<const ITR> RowIndex::Users(ITR target) const {
  const std::size_t slot = target_->Set().SlotOf(target);
  if (slot + 1 >= first_.size()) return {};
  return {users_.data() + first_[slot], users_.data() + first_[slot + 1]};
}

ReferenceIndex::ReferenceIndex(const CQXDBSession& session) : session_(session) {
  for (DPoolBase* pool : session.Pools()) {
    for (const Row* row : pool->GetSchema().References()) {
      entries_.push_back({pool, row, nullptr});
    }
  }
}

ReferenceIndex::~ReferenceIndex() = default;

std::span<const ITR> ReferenceIndex::Users(Entry& entry, ITR target) {
  const DPoolBase* pool = session_.GetDataPool(entry.row->target);
  if (!pool || entry.source->GetSize() == 0) return {};
  if (!entry.index || !entry.index->IsCurrent()) {
    entry.index.reset();  // its memory before that of the new one
    entry.index = std::make_unique<RowIndex>(*entry.source, *entry.row, *pool);
  }
  return entry.index->Users(target);
}

std::span<const ITR> ReferenceIndex::Users(const DPoolBase& source, const Row& row, ITR target) {
  for (Entry& entry : entries_) {
    if (entry.source == &source && entry.row == &row) return Users(entry, target);
  }
  return {};
}

void ReferenceIndex::ForEachUser(
    std::uint16_t type, ITR target,
    const std::function<void(DPoolBase& pool, const Row& row, ITR user)>& visit) {
  for (Entry& entry : entries_) {
    if (entry.row->target != type) continue;
    for (const ITR user : Users(entry, target)) visit(*entry.source, *entry.row, user);
  }
}

}  // namespace qx
