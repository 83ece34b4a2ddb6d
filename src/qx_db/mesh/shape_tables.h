#pragma once
// Corners, edges and faces of the shapes that elements have: what the topology table is made of,
// and what formulas for one shape are unrolled over.
// Threads: any; the tables never change.

#include <cstddef>
#include <cstdint>

namespace qx {

/// What the corners of an element form, whatever its class and order.
enum class CornerShape : std::uint8_t {
  kNone,
  kPoint,
  kLine,
  kTriangle,
  kQuadrilateral,
  kTetrahedron,
  kPyramid,
  kWedge,
  kHexahedron,
};

/// Corners, edges and faces of a shape; a triangle among faces has -1 as its fourth corner.
struct ShapeTable {
  std::int32_t corners;
  std::int32_t edges;
  std::int32_t faces;
  std::int32_t edge[12][2];
  std::int32_t face[6][4];
};

inline constexpr ShapeTable kShapeTables[] = {
    {},                       // none
    {1, 0, 0, {}, {}},        // point
    {2, 1, 0, {{0, 1}}, {}},  // line
    {3, 3, 1, {{0, 1}, {1, 2}, {2, 0}}, {{0, 1, 2, -1}}},
    {4, 4, 1, {{0, 1}, {1, 2}, {2, 3}, {3, 0}}, {{0, 1, 2, 3}}},
    {4,
     6,
     4,
     {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 3}, {2, 3}},
     {{0, 2, 1, -1}, {0, 1, 3, -1}, {1, 2, 3, -1}, {2, 0, 3, -1}}},
    {5,
     8,
     5,
     {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4}, {3, 4}},
     {{0, 3, 2, 1}, {0, 1, 4, -1}, {1, 2, 4, -1}, {2, 3, 4, -1}, {3, 0, 4, -1}}},
    {6,
     9,
     5,
     {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}},
     {{0, 2, 1, -1}, {3, 4, 5, -1}, {0, 1, 4, 3}, {1, 2, 5, 4}, {2, 0, 3, 5}}},
    {8,
     12,
     6,
     {{0, 1},
      {1, 2},
      {2, 3},
      {3, 0},
      {4, 5},
      {5, 6},
      {6, 7},
      {7, 4},
      {0, 4},
      {1, 5},
      {2, 6},
      {3, 7}},
     {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}}},
};

/// The table of a shape.
constexpr const ShapeTable& TableOf(CornerShape shape) {
  return kShapeTables[static_cast<std::size_t>(shape)];
}

}  // namespace qx
