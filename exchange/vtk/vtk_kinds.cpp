#include "exchange/vtk/vtk_kinds.h"

#include <algorithm>
#include <iterator>

#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

// VTK's wedges have their first triangle facing outward, ours inward; its Lagrange and Bezier
// wedges are like ours. Pixels and voxels run in rows.
constexpr std::int8_t kWedge6[] = {0, 2, 1, 3, 5, 4};
constexpr std::int8_t kWedge15[] = {0, 2, 1, 3, 5, 4, 8, 7, 6, 11, 10, 9, 12, 14, 13};
constexpr std::int8_t kPixel[] = {0, 1, 3, 2};
constexpr std::int8_t kVoxel[] = {0, 1, 3, 2, 4, 5, 7, 6};
constexpr std::int8_t kOldHex20[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,
                                     10, 11, 12, 13, 14, 15, 16, 17, 19, 18};

// By element type code, from 1.
constexpr VtkCell kCells[] = {
    {1},             // point
    {3},             // lines
    {21},            //
    {5},             // triangles
    {22},            //
    {9},             // quadrilaterals
    {23},            //
    {10},            // tetrahedra
    {24},            //
    {14},            // pyramids
    {27},            //
    {13, kWedge6},   // wedges
    {26, kWedge15},  //
    {12},            // hexahedra
    {25},            //
};

using Fate = VtkKind::Fate;

/// A cell type with a fixed number of nodes.
struct FixedKind {
  int number;
  std::size_t nodes;
  VtkKind kind;
};
constexpr FixedKind kFixed[] = {
    {1, 1, {"vertices", element::kPoint}},
    {3, 2, {"lines", element::kLine2}},
    {5, 3, {"triangles", element::kTri3}},
    {8, 4, {"pixels", element::kQuad4, kPixel, Fate::kRenamed}},
    {9, 4, {"quadrilaterals", element::kQuad4}},
    {10, 4, {"tetrahedra", element::kTet4}},
    {11, 8, {"voxels", element::kHex8, kVoxel, Fate::kRenamed}},
    {12, 8, {"hexahedra", element::kHex8}},
    {13, 6, {"wedges", element::kWedge6, kWedge6}},
    {14, 5, {"pyramids", element::kPyramid5}},
    {15, 10, {"pentagonal prisms"}},
    {16, 12, {"hexagonal prisms"}},
    {21, 3, {"quadratic edges", element::kLine3}},
    {22, 6, {"quadratic triangles", element::kTri6}},
    {23, 8, {"quadratic quadrilaterals", element::kQuad8}},
    {24, 10, {"quadratic tetrahedra", element::kTet10}},
    {25, 20, {"quadratic hexahedra", element::kHex20}},
    {26, 15, {"quadratic wedges", element::kWedge15, kWedge15}},
    {27, 13, {"quadratic pyramids", element::kPyramid13}},
    {28, 9, {"9-node quadrilaterals", element::kQuad8, nullptr, Fate::kReduced}},
    {29, 27, {"27-node hexahedra", element::kHex20, nullptr, Fate::kReduced}},
    {30, 6, {"6-node quadrilaterals", element::kQuad4, nullptr, Fate::kReduced}},
    {31, 12, {"12-node wedges", element::kWedge6, kWedge6, Fate::kReduced}},
    {32, 18, {"18-node wedges", element::kWedge15, kWedge15, Fate::kReduced}},
    {33, 24, {"24-node hexahedra", element::kHex20, nullptr, Fate::kReduced}},
    {34, 7, {"7-node triangles", element::kTri6, nullptr, Fate::kReduced}},
    {35, 4, {"cubic lines", element::kLine2, nullptr, Fate::kReduced}},
    {37, 19, {"19-node pyramids", element::kPyramid13, nullptr, Fate::kReduced}},
};

/// Cell types of any order: corners first, then edges, then what the serendipity member lacks.
/// Bezier cells have control points there, so that only their corners are points of the shape.
struct ShapeKind {
  int lagrange;
  int bezier;
  const char* lagrange_plural;
  const char* bezier_plural;
  std::int32_t linear;
  std::int32_t quadratic;
  std::size_t quadratic_nodes;  ///< of the complete cell of second order
};
constexpr ShapeKind kShapes[] = {
    {68, 75, "Lagrange curves", "Bezier curves", element::kLine2, element::kLine3, 3},
    {69, 76, "Lagrange triangles", "Bezier triangles", element::kTri3, element::kTri6, 6},
    {70, 77, "Lagrange quadrilaterals", "Bezier quadrilaterals", element::kQuad4, element::kQuad8,
     9},
    {71, 78, "Lagrange tetrahedra", "Bezier tetrahedra", element::kTet4, element::kTet10, 10},
    {72, 79, "Lagrange hexahedra", "Bezier hexahedra", element::kHex8, element::kHex20, 27},
    {73, 80, "Lagrange wedges", "Bezier wedges", element::kWedge6, element::kWedge15, 18},
    {74, 81, "Lagrange pyramids", "Bezier pyramids", element::kPyramid5, element::kPyramid13, 14},
};

std::size_t NodesOf(std::int32_t code) {
  return static_cast<std::size_t>(FindElementType(code)->nodes);
}

std::optional<VtkKind> FindShape(const ShapeKind& shape, bool is_bezier, std::size_t nodes,
                                 bool old_hexahedra) {
  if (nodes < NodesOf(shape.linear)) return std::nullopt;
  VtkKind kind{is_bezier ? shape.bezier_plural : shape.lagrange_plural, shape.linear};
  const bool is_complete = nodes == shape.quadratic_nodes;
  if (!is_bezier && (is_complete || nodes == NodesOf(shape.quadratic))) {
    kind.code = shape.quadratic;
    if (kind.code == element::kHex20 && old_hexahedra) kind.order = kOldHex20;
  }
  kind.fate = NodesOf(kind.code) == nodes ? Fate::kRenamed : Fate::kReduced;
  return kind;
}

}  // namespace

const VtkCell& VtkCellOf(std::int32_t code) { return kCells[code - 1]; }

std::optional<VtkKind> FindVtkKind(int number, std::size_t nodes, bool old_hexahedra) {
  for (const FixedKind& fixed : kFixed) {
    if (fixed.number != number) continue;
    return nodes == fixed.nodes ? std::optional(fixed.kind) : std::nullopt;
  }
  for (const ShapeKind& shape : kShapes) {
    if (number != shape.lagrange && number != shape.bezier) continue;
    return FindShape(shape, number == shape.bezier, nodes, old_hexahedra);
  }
  switch (number) {
    case 0:
      return VtkKind{"empty cells"};
    case kVtkPolyVertex:
      return VtkKind{"poly-vertices", element::kPoint, nullptr, Fate::kSplit};
    case kVtkPolyLine:
      return nodes < 2 ? std::nullopt
                       : std::optional(VtkKind{"poly-lines", element::kLine2, nullptr,
                                               nodes == 2 ? Fate::kRenamed : Fate::kSplit});
    case kVtkTriangleStrip:
      return nodes < 3 ? std::nullopt
                       : std::optional(VtkKind{"triangle strips", element::kTri3, nullptr,
                                               nodes == 3 ? Fate::kRenamed : Fate::kSplit});
    case 7:
      if (nodes == 3) return VtkKind{"polygons", element::kTri3, nullptr, Fate::kRenamed};
      if (nodes == 4) return VtkKind{"polygons", element::kQuad4, nullptr, Fate::kRenamed};
      return VtkKind{"polygons of more than four corners"};
    case 36:
      if (nodes == 6) return VtkKind{"quadratic polygons", element::kTri6, nullptr, Fate::kRenamed};
      if (nodes == 8) {
        return VtkKind{"quadratic polygons", element::kQuad8, nullptr, Fate::kRenamed};
      }
      return VtkKind{"quadratic polygons of more than four corners"};
    case 41:
      return VtkKind{"convex point sets"};
    case 42:
      return VtkKind{"polyhedra"};
    default:
      return VtkKind{"cells of unknown type"};
  }
}

}  // namespace qx::exchange
