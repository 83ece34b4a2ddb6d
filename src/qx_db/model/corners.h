#pragma once
// The corner points that the axes of an element follow from.
// Threads: values: one at a time for each object.

#include <array>
#include <cstdint>
#include <span>

#include "qx_db/lib/math.h"

namespace qx {

/// Up to four corners in order; none for an element without a plane.
struct Corners {
  std::array<Vector3, 4> points{};
  std::size_t count = 0;
  std::span<const Vector3> Span() const { return {points.data(), count}; }
};

/// How many of an element's first nodes bound its plane: 3 or 4; 0 when it has none. A plane
/// element is that plane; of a solid it is the face of its first nodes. A type that the tables do
/// not name is taken by its number of nodes.
QXDB_API std::size_t CornersOfFirstFace(std::int32_t type, std::int32_t nodes);

}  // namespace qx
