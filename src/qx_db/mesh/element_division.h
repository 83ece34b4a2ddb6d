#pragma once
// How elements are divided into triangles and tetrahedra so that neighbours agree on what they
// share.
// Threads: any; nothing is kept between calls.

#include <array>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "qx_db/export.h"
#include "qx_db/mesh/shape_tables.h"

namespace qx {

/// One part of a divided element: places in its list of corners, 3 of a triangle (the fourth is
/// -1), 4 of a tetrahedron.
using SimplexPlaces = std::array<std::int32_t, 4>;

/// The triangles of a quadrilateral, and the tetrahedra of a pyramid, wedge or hexahedron; none of
/// another shape. `order` ranks the corners: every quadrilateral, of which two elements may share
/// one, is cut from its lowest corner, so that both cut it alike; a solid is cut into the cones
/// from its lowest corner over the triangles of the faces that it is not in. Parts are oriented as
/// the whole.
QXDB_API std::vector<SimplexPlaces> DivisionOf(CornerShape shape,
                                               std::span<const std::uint64_t> order);

/// What a mid-side node on a line within an element is placed by: the element's own nodes of that
/// edge, or of a quadrilateral face, or of the hexahedron, that has the line as a diagonal.
struct DiagonalNodes {
  std::vector<std::int32_t> corners;  ///< places of corners
  std::vector<std::int32_t> edges;    ///< numbers of edges
};
/// Those of the face or solid of which two corners are a diagonal; empty where they are none.
QXDB_API DiagonalNodes DiagonalOf(CornerShape shape, std::int32_t a, std::int32_t b);
/// The edge between two corners; -1 for none.
QXDB_API std::int32_t EdgeBetween(CornerShape shape, std::int32_t a, std::int32_t b);

}  // namespace qx
