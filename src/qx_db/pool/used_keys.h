#pragma once
// What is known of keys that are in use, so that a search for a free one need not start over.
// Threads: its pool's.

#include <algorithm>
#include <array>
#include <cstdint>

#include "qx_db/record/types.h"

namespace qx {

/// A run of keys [from, to) that are all used, save for a few listed ones that were freed since.
/// Keys that come into use need no notice; every key that goes out of use does.
class UsedKeys {
 public:
  /// The first key from `start` on that may be free, or `start` when nothing is known of it.
  Key SkipUsed(Key start, const auto& is_used) {
    if (start < from_ || start >= to_) return start;
    std::sort(freed_.begin(), freed_.begin() + freed_count_);
    while (freed_count_ > 0) {
      const auto end = freed_.begin() + freed_count_;
      const auto hole = std::lower_bound(freed_.begin(), end, start);
      if (hole == end) break;
      if (!is_used(*hole)) return *hole;
      std::copy(hole + 1, end, hole);
      --freed_count_;
    }
    return to_;
  }
  /// Every key of [start, end) was found used.
  void Learn(Key start, Key end) {
    if (start == to_ && from_ < to_) {
      to_ = end;
    } else if (!(from_ <= start && end <= to_)) {
      *this = UsedKeys();
      from_ = start;
      to_ = end;
    }
  }
  void OnFreed(Key key) {
    if (key < from_ || key >= to_) return;
    if (freed_count_ == static_cast<int>(freed_.size())) return Forget();
    freed_[static_cast<std::size_t>(freed_count_++)] = key;
  }
  void Forget() { *this = UsedKeys(); }

 private:
  Key from_ = 0;
  Key to_ = 0;
  int freed_count_ = 0;
  std::array<Key, 64> freed_{};
};

}  // namespace qx
