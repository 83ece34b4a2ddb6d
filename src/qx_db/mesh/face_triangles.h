#pragma once
// How faces are cut into triangles for their areas. There are two ways on purpose: one for the
// face of an element by its number of nodes, one for a surface element by its type. They cut the
// same shapes differently, and areas of warped faces that hosts have stored depend on both.
// Threads: any; nothing is kept between calls.

#include <array>
#include <cstdint>
#include <span>

#include "qx_db/export.h"

namespace qx {

/// Three positions in a list of nodes.
using NodeTriangle = std::array<std::int32_t, 3>;

/// The triangles of a face by its number of nodes, 3, 4, 6 or 8; positions in the face's own node
/// sequence. Empty for any other number.
QXDB_API std::span<const NodeTriangle> TrianglesOfFace(std::int32_t nodes);

/// The triangles of a surface element by its type code, 4 to 7; positions in the element's node
/// list. Empty for any other code.
QXDB_API std::span<const NodeTriangle> TrianglesOfElement(std::int32_t code);

}  // namespace qx
