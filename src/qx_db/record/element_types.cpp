#include "qx_db/record/element_types.h"

namespace qx {
namespace {

constexpr ElementType kTypes[] = {
    {1, "point", "points", 1, 1, 0},
    {2, "line2", "2-node lines", 2, 2, 1},
    {3, "line3", "3-node lines", 3, 2, 1},
    {4, "tri3", "3-node triangles", 3, 3, 2},
    {5, "tri6", "6-node triangles", 6, 3, 2},
    {6, "quad4", "4-node quadrilaterals", 4, 4, 2},
    {7, "quad8", "8-node quadrilaterals", 8, 4, 2},
    {8, "tet4", "4-node tetrahedra", 4, 4, 3},
    {9, "tet10", "10-node tetrahedra", 10, 4, 3},
    {10, "pyramid5", "5-node pyramids", 5, 5, 3},
    {11, "pyramid13", "13-node pyramids", 13, 5, 3},
    {12, "wedge6", "6-node wedges", 6, 6, 3},
    {13, "wedge15", "15-node wedges", 15, 6, 3},
    {14, "hex8", "8-node hexahedra", 8, 8, 3},
    {15, "hex20", "20-node hexahedra", 20, 8, 3},
};

}  // namespace

std::span<const ElementType> ElementTypes() { return kTypes; }

const ElementType* FindElementType(std::int32_t code) {
  return code >= 1 && code <= 15 ? &kTypes[code - 1] : nullptr;
}

}  // namespace qx
