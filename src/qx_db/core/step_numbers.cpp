#include "qx_db/core/step_numbers.h"

#include <algorithm>

namespace qx {

void StepNumbers::Reset(const CQXDBSession& session) {
  pools_.clear();
  last_ = nullptr;
  for (const DPoolBase* pool : session.Pools()) {
    if (!pool->NeedSaveNLoad()) continue;
    PoolNumbers& numbers = pools_[pool->GetTypeCode()];
    numbers.of_slot.assign(pool->Set().SlotLimit(), kNone);
    numbers.items.reserve(static_cast<std::size_t>(pool->GetSize()));
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      numbers.of_slot[pool->Set().SlotOf(pos)] = static_cast<std::uint32_t>(numbers.items.size());
      numbers.items.push_back(pos);
    }
  }
}

const StepNumbers::PoolNumbers* StepNumbers::Find(std::uint16_t type) const {
  if (type == last_type_ && last_) return last_;
  const auto found = pools_.find(type);
  if (found == pools_.end()) return nullptr;
  last_type_ = type;
  return last_ = &found->second;
}

std::uint32_t StepNumbers::Of(const DPoolBase& pool, ITR item) const {
  const PoolNumbers* numbers = Find(pool.GetTypeCode());
  if (!numbers) return kNone;
  const std::uint32_t slot = pool.Set().SlotOf(item);
  const bool known = slot < numbers->of_slot.size() && pool.Set().Owns(item);
  return known ? numbers->of_slot[slot] : kNone;
}

std::uint32_t StepNumbers::Give(const DPoolBase& pool, ITR item) {
  PoolNumbers& numbers = pools_[pool.GetTypeCode()];
  const std::uint32_t slot = pool.Set().SlotOf(item);
  if (slot >= numbers.of_slot.size()) {
    numbers.of_slot.resize(std::max<std::size_t>(pool.Set().SlotLimit(), slot + 1), kNone);
  }
  numbers.items.push_back(item);
  return numbers.of_slot[slot] = static_cast<std::uint32_t>(numbers.items.size() - 1);
}

void StepNumbers::TakeBack(const DPoolBase& pool) {
  PoolNumbers& numbers = pools_[pool.GetTypeCode()];
  const std::uint32_t slot = pool.Set().SlotOf(numbers.items.back());
  if (slot < numbers.of_slot.size()) numbers.of_slot[slot] = kNone;
  numbers.items.pop_back();
}

bool StepNumbers::Assign(const DPoolBase& pool, std::uint32_t number, ITR item,
                         std::uint64_t spare) {
  PoolNumbers& numbers = pools_[pool.GetTypeCode()];
  if (number >= numbers.items.size()) {
    if (number - numbers.items.size() >= spare) return false;
    numbers.items.resize(std::size_t{number} + 1, 0);
  }
  if (numbers.items[number]) return false;
  const std::uint32_t slot = pool.Set().SlotOf(item);
  if (slot >= numbers.of_slot.size()) numbers.of_slot.resize(std::size_t{slot} + 1, kNone);
  numbers.items[number] = item;
  numbers.of_slot[slot] = number;
  return true;
}

ITR StepNumbers::At(std::uint16_t type, std::uint32_t number) const {
  const PoolNumbers* numbers = Find(type);
  return numbers && number < numbers->items.size() ? numbers->items[number] : 0;
}

void StepNumbers::Forget(const DPoolBase& pool, ITR item) {
  const std::uint32_t number = Of(pool, item);
  if (number == kNone) return;
  PoolNumbers& numbers = pools_[pool.GetTypeCode()];
  numbers.items[number] = 0;
  numbers.of_slot[pool.Set().SlotOf(item)] = kNone;
}

}  // namespace qx
