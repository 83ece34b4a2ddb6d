#pragma once
// Keys for what is made: they follow the largest in a pool.
// Threads: values: one at a time for each object.

#include <algorithm>

#include "qx_db/pool/pool_base.h"
#include "qx_db/record/verbs.h"

namespace qx {

/// The keys above those of a pool's records as they are now; what was there once and is gone, as
/// after an undo, does not count.
class NextKey {
 public:
  explicit NextKey(const DPoolBase& pool) {
    for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) last_ = std::max(last_, KeyOf(at));
  }

  /// Whether there are so many.
  bool Has(std::size_t count) const { return count <= static_cast<std::size_t>(kMaxKey - last_); }
  /// The next one; Has(1) is required.
  Key Take() { return ++last_; }

 private:
  Key last_ = 0;
};

}  // namespace qx
