#include "qx_db/mesh/element_division.h"

#include <algorithm>

namespace qx {
namespace {

std::int32_t CornersOfFace(const ShapeTable& solid, std::int32_t face) {
  return solid.face[face][3] < 0 ? 3 : 4;
}

/// The triangles of a face, cut from its lowest corner where it has four.
std::vector<SimplexPlaces> TrianglesOf(const ShapeTable& table, std::int32_t face,
                                       std::span<const std::uint64_t> order) {
  const auto& places = table.face[face];
  if (CornersOfFace(table, face) == 3) return {{places[0], places[1], places[2], -1}};
  std::int32_t first = 0;
  for (std::int32_t i = 1; i < 4; ++i) {
    if (order[static_cast<std::size_t>(places[i])] <
        order[static_cast<std::size_t>(places[first])]) {
      first = i;
    }
  }
  const auto at = [&](std::int32_t i) { return places[(first + i) % 4]; };
  return {{at(0), at(1), at(2), -1}, {at(0), at(2), at(3), -1}};
}

}  // namespace

std::vector<SimplexPlaces> DivisionOf(CornerShape shape, std::span<const std::uint64_t> order) {
  const ShapeTable& table = TableOf(shape);
  switch (shape) {
    case CornerShape::kQuadrilateral:
      return TrianglesOf(table, 0, order);
    case CornerShape::kPyramid:
    case CornerShape::kWedge:
    case CornerShape::kHexahedron:
      break;
    default:
      return {};
  }
  const auto corners = order.first(static_cast<std::size_t>(table.corners));
  const auto lowest =
      static_cast<std::int32_t>(std::min_element(corners.begin(), corners.end()) - corners.begin());
  std::vector<SimplexPlaces> parts;
  for (std::int32_t face = 0; face < table.faces; ++face) {
    const auto& places = table.face[face];
    if (std::find(places, places + CornersOfFace(table, face), lowest) !=
        places + CornersOfFace(table, face)) {
      continue;
    }
    // Faces point outwards; a tetrahedron sees its first three corners from within.
    for (const SimplexPlaces& t : TrianglesOf(table, face, order)) {
      parts.push_back({t[0], t[2], t[1], lowest});
    }
  }
  return parts;
}

std::int32_t EdgeBetween(CornerShape shape, std::int32_t a, std::int32_t b) {
  const ShapeTable& table = TableOf(shape);
  for (std::int32_t e = 0; e < table.edges; ++e) {
    const auto& ends = table.edge[e];
    if ((ends[0] == a && ends[1] == b) || (ends[0] == b && ends[1] == a)) return e;
  }
  return -1;
}

DiagonalNodes DiagonalOf(CornerShape shape, std::int32_t a, std::int32_t b) {
  const ShapeTable& table = TableOf(shape);
  DiagonalNodes nodes;
  if (EdgeBetween(shape, a, b) >= 0) return nodes;
  for (std::int32_t face = 0; face < table.faces; ++face) {
    const auto& places = table.face[face];
    const auto* const end = places + CornersOfFace(table, face);
    if (std::find(places, end, a) == end || std::find(places, end, b) == end) continue;
    for (std::int32_t i = 0; i < 4; ++i) {
      nodes.corners.push_back(places[i]);
      nodes.edges.push_back(EdgeBetween(shape, places[i], places[(i + 1) % 4]));
    }
    return nodes;
  }
  if (shape != CornerShape::kHexahedron) return nodes;
  for (std::int32_t i = 0; i < table.corners; ++i) nodes.corners.push_back(i);
  for (std::int32_t i = 0; i < table.edges; ++i) nodes.edges.push_back(i);
  return nodes;
}

}  // namespace qx
