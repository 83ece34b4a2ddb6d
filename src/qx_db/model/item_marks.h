#pragma once
// A set of items of one pool, as one bit each.
// Threads: values: one at a time for each object.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <span>
#include <vector>

#include "qx_db/pool/pool_base.h"

namespace qx {

/// Marks on items of one pool, linked or removed, by the number of their slot: marking and asking
/// take constant time, and a walk meets the items in ascending order of address. Null iterators
/// are never marked. For use while the pool's items are neither freed nor created.
class QXDB_API ItemMarks {
 public:
  explicit ItemMarks(const DPoolBase& pool)
      : set_(&pool.Set()),
        stride_(pool.GetCheckSize() + kItemOverhead),
        bits_((std::size_t{set_->SlotLimit()} + 63) / 64) {}

  void Add(std::span<const ITR> items) {
    for (const ITR item : items) Insert(item);
  }
  void Drop(std::span<const ITR> items) {
    for (const ITR item : items) {
      if (Has(item)) bits_[SlotOf(item) / 64] &= ~BitOf(item);
    }
  }
  /// Marks an item; false when it was marked before or is null.
  bool Insert(ITR item) {
    if (item == 0 || Has(item)) return false;
    if (SlotOf(item) / 64 >= bits_.size()) return false;  // no item of this pool
    bits_[SlotOf(item) / 64] |= BitOf(item);
    lowest_ = std::min(lowest_, item);
    return true;
  }
  bool Has(ITR item) const {
    const std::uint32_t word = SlotOf(item) / 64;
    return item != 0 && word < bits_.size() && (bits_[word] & BitOf(item)) != 0;
  }
  /// Whether any of the items is marked.
  bool HasAny(std::span<const ITR> items) const {
    return lowest_ != kNone &&
           std::any_of(items.begin(), items.end(), [this](ITR item) { return Has(item); });
  }

  /// Calls visit(item) in ascending order until it gives false; whether it never did.
  template <class Visit>
  bool ForEach(Visit&& visit) const {
    if (lowest_ == kNone) return true;
    const ITR base = lowest_ - SlotOf(lowest_) * stride_;
    for (std::size_t word = 0; word < bits_.size(); ++word) {
      for (std::uint64_t rest = bits_[word]; rest != 0; rest &= rest - 1) {
        const auto bit = static_cast<std::uint64_t>(std::countr_zero(rest));
        if (!visit(base + (word * 64 + bit) * stride_)) return false;
      }
    }
    return true;
  }

 private:
  static constexpr ITR kNone = ~ITR{0};
  static constexpr std::uint64_t kItemOverhead = 36;  // bytes: the state word and four links

  std::uint32_t SlotOf(ITR item) const { return set_->SlotOf(item); }
  std::uint64_t BitOf(ITR item) const { return std::uint64_t{1} << (SlotOf(item) % 64); }

  const KeyedSetBase* set_;
  std::uint64_t stride_;
  std::vector<std::uint64_t> bits_;  // by slot
  ITR lowest_ = kNone;               // of all that were ever marked
};

}  // namespace qx
