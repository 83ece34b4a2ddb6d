#pragma once
// Orders of nodes that several formats share, as `file[k] = ours[order[k]]`; each is its own
// inverse.
// Threads: any; the tables never change.

#include <cstdint>

#include "qx_db/record/element_types.h"

namespace qx::exchange {

/// Those of Exodus and CGNS: middles of upright edges before those of the upper face.
inline constexpr std::int8_t kUprightWedge15[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 13, 14, 9, 10, 11};
inline constexpr std::int8_t kUprightHex20[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,
                                                10, 11, 16, 17, 18, 19, 12, 13, 14, 15};

/// The order of an element type in these formats; null for the model's own.
inline const std::int8_t* UprightOrderOf(std::int32_t code) {
  if (code == element::kWedge15) return kUprightWedge15;
  return code == element::kHex20 ? kUprightHex20 : nullptr;
}

}  // namespace qx::exchange
