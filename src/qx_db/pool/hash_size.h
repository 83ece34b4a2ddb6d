#pragma once
// How large a hash table should be.
// Threads: any; nothing is kept between calls.

#include <algorithm>

#include "qx_db/pool/keyed_set_base.h"

namespace qx {

/// The number of buckets for so many records: one each, and never fewer than a set starts with.
/// What KeyedSetBase::Optimize would give, known before the records come.
inline std::int32_t GF_GetHashSizeByCount(std::int64_t count) {
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(count, KeyedSetBase::kDefaultHashSize, kMaxKey));
}

}  // namespace qx
