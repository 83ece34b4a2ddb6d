#pragma once
// Dense temporary numbers for records: what turns questions about a mesh into work on arrays.

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "qx_db/pool/keyed_set_base.h"

namespace qx {

/// Collects records, each once, in the order they come, beside their pools: nothing is written to
/// them, and none is read.
/// Threads: values: one at a time for each object.
class DistinctRecords {
 public:
  /// Whether the record, not null, had not come before.
  bool Add(ITR record) {
    if (2 * (records_.size() + 1) > places_.size()) Grow();
    std::uint32_t& place = PlaceOf(record);
    if (place != kFree) return false;
    place = static_cast<std::uint32_t>(records_.size());
    records_.push_back(record);
    return true;
  }
  const std::vector<ITR>& Records() const { return records_; }

 private:
  static constexpr std::uint32_t kFree = ~0u;

  /// The place of a record, or the free one that it is to have. Records that lie beside each other
  /// have places beside each other: a walk through a mesh stays within few cache lines.
  std::uint32_t& PlaceOf(ITR record) {
    constexpr int kItemBits = 6;  // an item is a little larger than this power of two
    const std::size_t mask = places_.size() - 1;
    std::size_t at = (record >> kItemBits) & mask;
    while (places_[at] != kFree && records_[places_[at]] != record) at = (at + 1) & mask;
    return places_[at];
  }
  void Grow() {
    places_.assign(std::max<std::size_t>(16, 2 * places_.size()), kFree);
    for (std::size_t i = 0; i < records_.size(); ++i) {
      PlaceOf(records_[i]) = static_cast<std::uint32_t>(i);
    }
  }

  std::vector<ITR> records_;
  std::vector<std::uint32_t> places_;  ///< a power of two, at least half of them free
};

/// Numbers the records of one pool from 0 in the order of their list, beside the pool: nothing is
/// written to it, and a record's number is found without reading the record. Holds as long as no
/// record is freed or created.
class PoolNumbers {
 public:
  /// Found nowhere: beyond every number.
  static constexpr std::uint32_t kNone = KeyedSetBase::kParamMask;

  PoolNumbers() = default;
  /// Throws std::length_error when there are kNone records or more.
  explicit PoolNumbers(const KeyedSetBase& set) : set_(&set), of_slot_(set.SlotLimit(), kNone) {
    if (static_cast<std::size_t>(set.GetSize()) >= kNone) {
      throw std::length_error("a pool has too many records to number them");
    }
    records_.reserve(static_cast<std::size_t>(set.GetSize()));
    for (ITR at = set.GetHeadPosition(); at; set.Next(at)) {
      of_slot_[set.SlotOf(at)] = Count();
      records_.push_back(at);
    }
  }

  /// The number of a record; kNone for null, and for what was not in the pool's list.
  std::uint32_t Find(ITR record) const {
    if (record == 0 || records_.empty()) return kNone;
    const std::uint32_t slot = set_->SlotOf(record);
    const std::uint32_t number = slot < of_slot_.size() ? of_slot_[slot] : kNone;
    return number != kNone && records_[number] == record ? number : kNone;
  }
  std::uint32_t Count() const { return static_cast<std::uint32_t>(records_.size()); }
  /// The records by number.
  const std::vector<ITR>& Records() const { return records_; }

 private:
  const KeyedSetBase* set_ = nullptr;
  std::vector<std::uint32_t> of_slot_;
  std::vector<ITR> records_;
};

}  // namespace qx
