#include "qx_db/mesh/topology_table.h"

#include <array>

#include "qx_db/mesh/shape_tables.h"
#include "qx_db/record/element_types.h"

namespace qx {
namespace {

using namespace topology;

/// The classes of ordinary elements, by shape: their dimension and one.
constexpr std::int32_t kClassOfShape[] = {
    0,           kPointClass, kLineClass,  kSurfaceClass, kSurfaceClass,
    kSolidClass, kSolidClass, kSolidClass, kSolidClass};

/// The special types that have a row: a line of two nodes and a quadrilateral of eight.
constexpr std::int32_t kFirstSpecial = 30;
constexpr std::int32_t kSpecialLine = 81;
constexpr std::int32_t kSpecialQuadrilateral = 87;

/// What the first nodes of special types form, code by code or the linear and the quadratic one.
constexpr SpecialForm kForms[] = {
    {37, 37, CornerShape::kLine},           {46, 47, CornerShape::kLine, true},
    {48, 49, CornerShape::kTriangle, true}, {50, 51, CornerShape::kQuadrilateral, true},
    {54, 54, CornerShape::kLine},           {56, 57, CornerShape::kLine},
    {60, 61, CornerShape::kTriangle},       {62, 63, CornerShape::kQuadrilateral},
    {65, 66, CornerShape::kQuadrilateral},  {67, 68, CornerShape::kWedge},
    {69, 70, CornerShape::kHexahedron},     {71, 72, CornerShape::kLine, true},
    {73, 74, CornerShape::kTriangle, true}, {75, 76, CornerShape::kQuadrilateral, true},
    {79, 80, CornerShape::kLine},           {82, 83, CornerShape::kLine},
    {84, 85, CornerShape::kTriangle},       {86, 87, CornerShape::kQuadrilateral},
};

using Words = std::array<std::int32_t, kWords>;

/// Appends to a list of the block at `first` whose lists have room for `room` words.
void Append(Words& row, std::int32_t first, std::int32_t list, std::int32_t room,
            std::int32_t value) {
  std::int32_t at = first + list * room;
  while (row[static_cast<std::size_t>(at)] != -1) ++at;
  row[static_cast<std::size_t>(at)] = value;
}

std::int32_t CornersOfFace(const ShapeTable& solid, std::int32_t face) {
  return solid.face[face][3] < 0 ? 3 : 4;
}

bool FaceHas(const ShapeTable& solid, std::int32_t face, std::int32_t corner) {
  for (std::int32_t i = 0; i < CornersOfFace(solid, face); ++i) {
    if (solid.face[face][i] == corner) return true;
  }
  return false;
}

std::int32_t EdgeBetween(const ShapeTable& solid, std::int32_t a, std::int32_t b) {
  for (std::int32_t e = 0; e < solid.edges; ++e) {
    const auto& ends = solid.edge[e];
    if ((ends[0] == a && ends[1] == b) || (ends[0] == b && ends[1] == a)) return e;
  }
  return -1;
}

void FillEdges(const ShapeTable& solid, bool quadratic, Words& row) {
  for (std::int32_t e = 0; e < solid.edges; ++e) {
    std::int32_t* out = row.data() + kEdgeList + 3 * e;
    out[0] = solid.edge[e][0];
    out[1] = solid.edge[e][1];
    // Nodes between corners stand in the order of the edges.
    if (quadratic) out[2] = solid.corners + e;
  }
}

void FillFaces(const ShapeTable& solid, bool quadratic, Words& row) {
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

void FillFaceAdjacency(const ShapeTable& solid, Words& row) {
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

void FillCornerAdjacency(const ShapeTable& solid, Words& row) {
  for (std::int32_t e = 0; e < solid.edges; ++e) {
    const auto& ends = solid.edge[e];
    for (std::int32_t i = 0; i < 2; ++i) {
      Append(row, kEdgesOfCorner, ends[i], 5, e);
      Append(row, kCornersOfCorner, ends[i], 5, ends[1 - i]);
    }
  }
}

std::size_t IndexOf(CornerShape shape) { return static_cast<std::size_t>(shape); }

Words MakeRow(CornerShape shape, bool quadratic, std::int32_t type_class) {
  const ShapeTable& solid = kShapeTables[IndexOf(shape)];
  const bool is_point = shape == CornerShape::kPoint;
  Words row{};
  for (std::int32_t i = kFacesOfFace; i < kFaceCorners; ++i) row[static_cast<std::size_t>(i)] = -1;
  row[kTail] = row[kTail + 1] = -1;
  row[kClass] = type_class;
  row[kSides] = solid.faces > 1 ? solid.faces : shape == CornerShape::kLine ? 2 : solid.edges;
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

CornerShape ShapeWith(std::int32_t dimension, std::int32_t corners) {
  std::size_t shape = IndexOf(CornerShape::kPoint);
  while (kClassOfShape[shape] != dimension + kPointClass ||
         kShapeTables[shape].corners != corners) {
    ++shape;
  }
  return static_cast<CornerShape>(shape);
}

struct Table {
  std::array<Words, kRows> rows{};
  std::array<CornerShape, kRows> shapes{};

  Table() {
    for (const ElementType& type : ElementTypes()) {
      const auto code = static_cast<std::size_t>(type.code);
      shapes[code] = ShapeWith(type.dimension, type.corners);
      rows[code] =
          MakeRow(shapes[code], type.nodes > type.corners, kClassOfShape[IndexOf(shapes[code])]);
    }
    rows[kSpecialLine] = MakeRow(CornerShape::kLine, false, kSpecialClass);
    rows[kSpecialQuadrilateral] = MakeRow(CornerShape::kQuadrilateral, true, kSpecialClass);
  }
};

const Table kTable;

/// Codes outside the table read as 0, which has no row.
std::size_t Index(std::int32_t code) {
  return code >= 0 && code < kRows ? static_cast<std::size_t>(code) : 0;
}

/// Appends the edges of the plane or line that `corners` nodes from `first` on form.
void AddRing(std::int32_t first, std::int32_t corners, std::vector<NodeLine>& lines) {
  for (std::int32_t i = 0; i + 1 < corners; ++i) lines.push_back({first + i, first + i + 1});
  if (corners > 2) lines.push_back({first + corners - 1, first});
}

std::vector<NodeLine> SpecialOutline(const SpecialForm& form, std::int32_t code,
                                     std::int32_t nodes) {
  std::vector<NodeLine> lines;
  const std::int32_t corners = CornersOfFirstFace(form.shape);
  AddRing(0, corners, lines);
  const bool quadratic = form.first != form.last && code == form.last;
  const ShapeTable& side = kShapeTables[IndexOf(form.shape)];
  const std::int32_t second = side.corners + (quadratic ? side.edges : 0);
  if (!form.two_sided || nodes < 2 * second) return lines;
  AddRing(second, corners, lines);
  for (std::int32_t i = 0; i < corners; ++i) lines.push_back({i, second + i});
  return lines;
}

}  // namespace

const std::int32_t* topology::RowOf(std::int32_t code) { return kTable.rows[Index(code)].data(); }

CornerShape topology::ShapeOf(std::int32_t code) { return kTable.shapes[Index(code)]; }

int topology::DimensionOf(CornerShape shape) {
  return shape == CornerShape::kNone ? kUnknownDimension
                                     : kClassOfShape[IndexOf(shape)] - kPointClass;
}

int topology::DimensionOf(std::int32_t code) {
  if (const ElementType* type = FindElementType(code)) return type->dimension;
  if (code == kSpecialLine) return 1;
  return code >= kFirstSpecial && code < kRows ? kSpecialDimension : kUnknownDimension;
}

std::int32_t topology::CornersOf(CornerShape shape) { return kShapeTables[IndexOf(shape)].corners; }

std::int32_t topology::CornersOfFirstFace(CornerShape shape) {
  const ShapeTable& solid = kShapeTables[IndexOf(shape)];
  return solid.faces == 0 ? solid.corners : CornersOfFace(solid, 0);
}

const SpecialForm* topology::FormOf(std::int32_t code) {
  for (const SpecialForm& form : kForms) {
    if (code == form.first || code == form.last) return &form;
  }
  return nullptr;
}

std::vector<NodeLine> topology::OutlineOf(std::int32_t code, std::int32_t nodes) {
  std::vector<NodeLine> lines;
  const SpecialForm* const form = FormOf(code);
  if (form && nodes >= CornersOfFirstFace(form->shape)) return SpecialOutline(*form, code, nodes);
  const ElementTopology type(code);
  if (type.Edges() > 0 && nodes >= type.Corners()) {
    for (std::int32_t edge = 0; edge < type.Edges(); ++edge) {
      const auto ends = type.Edge(edge, false);
      lines.push_back({ends[0], ends[1]});
    }
    return lines;
  }
  for (std::int32_t i = 1; i < nodes; ++i) lines.push_back({0, i});
  return lines;
}

}  // namespace qx
