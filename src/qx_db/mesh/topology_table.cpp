#include "qx_db/mesh/topology_table.h"

#include <array>

namespace qx {
namespace {

using namespace topology;

/// Corners, edges and faces of a shape; what the shape does not have is -1.
struct Solid {
  std::int32_t corners;
  std::int32_t edges;
  std::int32_t faces;
  std::int32_t edge[12][2];
  std::int32_t face[6][4];
};

constexpr Solid kShapes[] = {
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

/// The types of one shape: the code of the linear one and, unless 0, of the quadratic one.
struct Family {
  CornerShape shape;
  std::int32_t linear;
  std::int32_t quadratic;
  std::int32_t type_class;
};

constexpr Family kFamilies[] = {
    {CornerShape::kPoint, 1, 0, kPointClass},
    {CornerShape::kLine, 2, 3, kLineClass},
    {CornerShape::kTriangle, 4, 5, kSurfaceClass},
    {CornerShape::kQuadrilateral, 6, 7, kSurfaceClass},
    {CornerShape::kTetrahedron, 8, 9, kSolidClass},
    {CornerShape::kPyramid, 10, 11, kSolidClass},
    {CornerShape::kWedge, 12, 13, kSolidClass},
    {CornerShape::kHexahedron, 14, 15, kSolidClass},
    {CornerShape::kLine, 37, 0, kSpecialClass},
    {CornerShape::kLine, 46, 47, kSpecialClass},
    {CornerShape::kTriangle, 48, 49, kSpecialClass},
    {CornerShape::kQuadrilateral, 50, 51, kSpecialClass},
    {CornerShape::kLine, 54, 0, kSpecialClass},
    {CornerShape::kLine, 56, 57, kSpecialClass},
    {CornerShape::kTriangle, 60, 61, kSpecialClass},
    {CornerShape::kQuadrilateral, 62, 63, kSpecialClass},
    {CornerShape::kQuadrilateral, 65, 66, kSpecialClass},
    {CornerShape::kWedge, 67, 68, kSpecialClass},
    {CornerShape::kHexahedron, 69, 70, kSpecialClass},
    {CornerShape::kLine, 71, 72, kSpecialClass},
    {CornerShape::kTriangle, 73, 74, kSpecialClass},
    {CornerShape::kQuadrilateral, 75, 76, kSpecialClass},
    {CornerShape::kLine, 79, 80, kSpecialClass},
    {CornerShape::kLine, 81, 0, kSpecialClass},
    {CornerShape::kLine, 82, 83, kSpecialClass},
    {CornerShape::kTriangle, 84, 85, kSpecialClass},
    {CornerShape::kQuadrilateral, 86, 87, kSpecialClass},
};

using Words = std::array<std::int32_t, kWords>;

/// Appends to a list of the block at `first` whose lists have room for `room` words.
void Append(Words& row, std::int32_t first, std::int32_t list, std::int32_t room,
            std::int32_t value) {
  std::int32_t at = first + list * room;
  while (row[static_cast<std::size_t>(at)] != -1) ++at;
  row[static_cast<std::size_t>(at)] = value;
}

std::int32_t CornersOfFace(const Solid& solid, std::int32_t face) {
  return solid.face[face][3] < 0 ? 3 : 4;
}

bool FaceHas(const Solid& solid, std::int32_t face, std::int32_t corner) {
  for (std::int32_t i = 0; i < CornersOfFace(solid, face); ++i) {
    if (solid.face[face][i] == corner) return true;
  }
  return false;
}

std::int32_t EdgeBetween(const Solid& solid, std::int32_t a, std::int32_t b) {
  for (std::int32_t e = 0; e < solid.edges; ++e) {
    const auto& ends = solid.edge[e];
    if ((ends[0] == a && ends[1] == b) || (ends[0] == b && ends[1] == a)) return e;
  }
  return -1;
}

void FillEdges(const Solid& solid, bool quadratic, Words& row) {
  for (std::int32_t e = 0; e < solid.edges; ++e) {
    std::int32_t* out = row.data() + kEdgeList + 3 * e;
    out[0] = solid.edge[e][0];
    out[1] = solid.edge[e][1];
    // Nodes between corners stand in the order of the edges.
    if (quadratic) out[2] = solid.corners + e;
  }
}

void FillFaces(const Solid& solid, bool quadratic, Words& row) {
  const bool mixed = solid.faces == 5;  // triangles beside quadrilaterals
  for (std::int32_t f = 0; f < solid.faces; ++f) {
    const std::int32_t corners = CornersOfFace(solid, f);
    row[static_cast<std::size_t>(kFaceCorners + f)] = corners;
    row[static_cast<std::size_t>(kFaceNodes + f)] = quadratic ? 2 * corners : corners;
    std::int32_t* out = row.data() + kFaceList + 8 * f;
    for (std::int32_t i = 0; i < corners; ++i) {
      const std::int32_t corner = solid.face[f][i];
      const std::int32_t next = solid.face[f][(i + 1) % corners];
      out[i] = corner;
      if (quadratic) out[corners + i] = solid.corners + EdgeBetween(solid, corner, next);
    }
    if (mixed && !quadratic && corners == 3) out[3] = -1;
  }
}

void FillFaceAdjacency(const Solid& solid, Words& row) {
  for (std::int32_t f = 0; f < solid.faces; ++f) {
    const std::int32_t corners = CornersOfFace(solid, f);
    for (std::int32_t i = 0; i < corners; ++i) {
      const std::int32_t a = solid.face[f][i];
      const std::int32_t b = solid.face[f][(i + 1) % corners];
      const std::int32_t edge = EdgeBetween(solid, a, b);
      Append(row, kEdgesOfFace, f, 5, edge);
      Append(row, kFacesOfEdge, edge, 3, f);
      Append(row, kFacesOfCorner, a, 5, f);
      for (std::int32_t other = 0; other < solid.faces; ++other) {
        if (other != f && FaceHas(solid, other, a) && FaceHas(solid, other, b)) {
          Append(row, kFacesOfFace, f, 5, other);
        }
      }
    }
    for (std::int32_t other = 0; other < solid.faces; ++other) {
      bool apart = true;
      for (std::int32_t i = 0; i < corners; ++i) apart &= !FaceHas(solid, other, solid.face[f][i]);
      if (apart) Append(row, kOppositeFace, f, 2, other);
    }
  }
}

void FillCornerAdjacency(const Solid& solid, Words& row) {
  for (std::int32_t e = 0; e < solid.edges; ++e) {
    const auto& ends = solid.edge[e];
    for (std::int32_t i = 0; i < 2; ++i) {
      Append(row, kEdgesOfCorner, ends[i], 5, e);
      Append(row, kCornersOfCorner, ends[i], 5, ends[1 - i]);
    }
  }
}

Words MakeRow(const Family& family, bool quadratic) {
  const Solid& solid = kShapes[static_cast<std::size_t>(family.shape)];
  const bool is_point = family.shape == CornerShape::kPoint;
  Words row{};
  for (std::int32_t i = kFacesOfFace; i < kFaceCorners; ++i) row[static_cast<std::size_t>(i)] = -1;
  row[kTail] = row[kTail + 1] = -1;
  row[kClass] = family.type_class;
  row[kSides] = solid.faces > 1                      ? solid.faces
                : family.shape == CornerShape::kLine ? 2
                                                     : solid.edges;
  row[kCorners] = solid.corners;
  row[kNodes] = solid.corners + (quadratic ? solid.edges : 0);
  row[kEdges] = solid.edges;
  row[kCornersPerEdge] = is_point ? 1 : 2;
  row[kNodesPerEdge] = is_point ? 1 : quadratic ? 3 : 2;
  FillEdges(solid, quadratic, row);
  FillFaces(solid, quadratic, row);
  FillFaceAdjacency(solid, row);
  FillCornerAdjacency(solid, row);
  return row;
}

struct Table {
  std::array<Words, kRows> rows{};
  std::array<CornerShape, kRows> shapes{};

  Table() {
    for (const Family& family : kFamilies) {
      Put(family, family.linear, false);
      if (family.quadratic) Put(family, family.quadratic, true);
    }
  }
  void Put(const Family& family, std::int32_t code, bool quadratic) {
    rows[static_cast<std::size_t>(code)] = MakeRow(family, quadratic);
    shapes[static_cast<std::size_t>(code)] = family.shape;
  }
};

const Table kTable;

/// Codes outside the table read as 0, which has no row.
std::size_t Index(std::int32_t code) {
  return code >= 0 && code < kRows ? static_cast<std::size_t>(code) : 0;
}

}  // namespace

const std::int32_t* topology::RowOf(std::int32_t code) { return kTable.rows[Index(code)].data(); }

CornerShape topology::ShapeOf(std::int32_t code) { return kTable.shapes[Index(code)]; }

int topology::DimensionOf(std::int32_t code) {
  struct Range {
    std::int32_t first, last;
    int dimension;
  };
  constexpr Range kRanges[] = {{1, 1, 0},  {2, 3, 1},   {4, 7, 2},
                               {8, 15, 3}, {81, 81, 1}, {30, 87, kSpecialDimension}};
  for (const Range& range : kRanges) {
    if (code >= range.first && code <= range.last) return range.dimension;
  }
  return kUnknownDimension;
}

}  // namespace qx
