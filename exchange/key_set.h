#pragma once
// A set of keys for checks over whole meshes.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <span>
#include <vector>

#include "qx_db/record/types.h"

namespace qx::exchange {

/// The set of some keys, each at least 1: a bitmap where they lie densely, a sorted array where
/// they do not, so that memory stays within a few bytes a key.
class KeySet {
 public:
  explicit KeySet(std::span<const Key> keys);

  /// Constant time in a bitmap, logarithmic otherwise. Any key may be asked for.
  bool Contains(Key key) const;
  /// A key that was given twice; 0 when there is none.
  Key Repeated() const { return repeated_; }

 private:
  std::vector<std::uint64_t> bits_;  // bit k is key k; empty when the array is used
  std::vector<Key> sorted_;
  Key repeated_ = 0;
};

}  // namespace qx::exchange
