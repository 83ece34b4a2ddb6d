#pragma once
// The element type codes of solids, surfaces, lines and points: the codes that every mesh format
// exchanges. Codes from 30 on are special elements whose meaning belongs to the host.
// Threads: any; the tables never change.

#include <cstdint>
#include <span>
#include <string_view>

#include "qx_db/export.h"

namespace qx {

/// One element type. Nodes are numbered from 0: corners first, then mid-side nodes in the order
/// of the edges.
struct ElementType {
  std::int32_t code;
  std::string_view name;    ///< "hex20"
  std::string_view plural;  ///< "20-node hexahedra"
  std::int32_t nodes;
  std::int32_t corners;
  std::int32_t dimension;  ///< 0 point, 1 line, 2 surface, 3 solid
};

namespace element {
inline constexpr std::int32_t kPoint = 1;
inline constexpr std::int32_t kLine2 = 2;
inline constexpr std::int32_t kLine3 = 3;
inline constexpr std::int32_t kTri3 = 4;
inline constexpr std::int32_t kTri6 = 5;
inline constexpr std::int32_t kQuad4 = 6;
inline constexpr std::int32_t kQuad8 = 7;
inline constexpr std::int32_t kTet4 = 8;
inline constexpr std::int32_t kTet10 = 9;
inline constexpr std::int32_t kPyramid5 = 10;
inline constexpr std::int32_t kPyramid13 = 11;
inline constexpr std::int32_t kWedge6 = 12;
inline constexpr std::int32_t kWedge15 = 13;
inline constexpr std::int32_t kHex8 = 14;
inline constexpr std::int32_t kHex20 = 15;

/// Whether an element of that type takes the orientation, or the special property, under its key
/// along when it is removed.
constexpr bool CarriesOrientation(std::int32_t type) {
  for (const std::int32_t carrier : {2, 3, 46, 47, 54, 77, 79, 80, 81}) {
    if (type == carrier) return true;
  }
  return false;
}
constexpr bool CarriesSpecialProperty(std::int32_t type) { return type >= 30; }
}  // namespace element

/// All of them, codes 1 to 15 in order.
QXDB_API std::span<const ElementType> ElementTypes();

/// The type of a code from 1 to 15; null for any other.
QXDB_API const ElementType* FindElementType(std::int32_t code);

}  // namespace qx
