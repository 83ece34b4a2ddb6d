#pragma once
// Dense temporary numbers for records: what turns questions about a mesh into work on arrays.

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "qx_db/pool/keyed_set_base.h"

namespace qx {

/// Numbers records from 0 in the order they are first asked for. A record's number is kept in its
/// parameter index and believed only when the record at that number is the same one, so nothing
/// need be cleared before; destruction puts the indices back. Numbers live as long as the object,
/// unless another one numbers the same records meanwhile.
/// Threads: one at a time for a session, since the marks are in its records.
class RecordNumbers {
 public:
  /// Found nowhere: beyond every number.
  static constexpr std::uint32_t kNone = KeyedSetBase::kParamMask;

  RecordNumbers() = default;
  RecordNumbers(const RecordNumbers&) = delete;
  RecordNumbers& operator=(const RecordNumbers&) = delete;
  ~RecordNumbers() {
    for (std::size_t i = records_.size(); i-- > 0;) SetIndex(records_[i], before_[i]);
  }

  void Reserve(std::size_t count) {
    records_.reserve(count);
    before_.reserve(count);
  }
  /// The number of a live record, a new one if need be.
  std::uint32_t Of(ITR record) {
    const std::uint32_t index = KeyedSetBase::StateOf(record) & KeyedSetBase::kParamMask;
    if (index < records_.size() && records_[index] == record) return index;
    const auto number = static_cast<std::uint32_t>(records_.size());
    records_.push_back(record);
    before_.push_back(index);
    SetIndex(record, number);
    return number;
  }
  /// The number a record has; kNone when it has none.
  std::uint32_t Find(ITR record) const {
    const std::uint32_t index = KeyedSetBase::StateOf(record) & KeyedSetBase::kParamMask;
    return index < records_.size() && records_[index] == record ? index : kNone;
  }
  std::uint32_t Count() const { return static_cast<std::uint32_t>(records_.size()); }
  /// The records by number.
  const std::vector<ITR>& Records() const { return records_; }

 private:
  static void SetIndex(ITR record, std::uint32_t index) {
    const std::uint32_t rest = KeyedSetBase::StateOf(record) & ~KeyedSetBase::kParamMask;
    KeyedSetBase::SetState(record, rest | index);
  }

  std::vector<ITR> records_;
  std::vector<std::uint32_t> before_;
};

/// Numbers the records of one pool from 0 in the order of their list, beside the pool: nothing is
/// written to it, and a record's number is found without reading the record. Holds as long as no
/// record is freed or created.
class PoolNumbers {
 public:
  static constexpr std::uint32_t kNone = RecordNumbers::kNone;

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
