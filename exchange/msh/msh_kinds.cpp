#include "exchange/msh/msh_kinds.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>

#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

// The format numbers mid-side nodes by its own lists of edges; see its reference, "Node ordering".
constexpr std::int8_t kTet10Order[] = {0, 1, 2, 3, 4, 5, 6, 7, 9, 8};
constexpr std::int8_t kPyramid13Order[] = {0, 1, 2, 3, 4, 5, 8, 10, 6, 7, 9, 11, 12};
constexpr std::int8_t kWedge15Order[] = {0, 1, 2, 3, 4, 5, 6, 9, 7, 12, 14, 13, 8, 10, 11};
constexpr std::int8_t kHex20Order[] = {0,  1, 2,  3,  4,  5,  6,  7,  8,  11,
                                       13, 9, 16, 18, 19, 17, 10, 12, 14, 15};

struct ReadKind {
  int number;
  std::int32_t code;
  const std::int8_t* order = nullptr;
};

// By type number. Complete kinds, with nodes on faces and inside, begin with the nodes of their
// serendipity member.
constexpr ReadKind kRead[] = {
    {1, element::kLine2},
    {2, element::kTri3},
    {3, element::kQuad4},
    {4, element::kTet4},
    {5, element::kHex8},
    {6, element::kWedge6},
    {7, element::kPyramid5},
    {8, element::kLine3},
    {9, element::kTri6},
    {10, element::kQuad8},
    {11, element::kTet10, kTet10Order},
    {12, element::kHex20, kHex20Order},
    {13, element::kWedge15, kWedge15Order},
    {14, element::kPyramid13, kPyramid13Order},
    {15, element::kPoint},
    {16, element::kQuad8},
    {17, element::kHex20, kHex20Order},
    {18, element::kWedge15, kWedge15Order},
    {19, element::kPyramid13, kPyramid13Order},
};

struct ShapeRange {
  int first;
  const char* shape;
};

// Shape and number of nodes of every type number, each range up to the next.
constexpr ShapeRange kShapes[] = {
    {1, "lines"},           {2, "triangles"},       {3, "quadrilaterals"},  {4, "tetrahedra"},
    {5, "hexahedra"},       {6, "wedges"},          {7, "pyramids"},        {8, "lines"},
    {9, "triangles"},       {10, "quadrilaterals"}, {11, "tetrahedra"},     {12, "hexahedra"},
    {13, "wedges"},         {14, "pyramids"},       {15, "points"},         {16, "quadrilaterals"},
    {17, "hexahedra"},      {18, "wedges"},         {19, "pyramids"},       {20, "triangles"},
    {26, "lines"},          {29, "tetrahedra"},     {34, "polygons"},       {35, "polyhedra"},
    {36, "quadrilaterals"}, {42, "triangles"},      {47, "quadrilaterals"}, {52, "triangles"},
    {57, "quadrilaterals"}, {62, "lines"},          {67, nullptr},          {71, "tetrahedra"},
    {76, nullptr},          {79, "tetrahedra"},     {84, "lines"},          {85, "triangles"},
    {86, "quadrilaterals"}, {87, "tetrahedra"},     {88, "hexahedra"},      {89, "wedges"},
    {92, "hexahedra"},      {106, "wedges"},        {118, "pyramids"},      {133, nullptr},
};

constexpr std::int16_t kNodes[] = {
    /*  0 */ 0,    2,   3,   4,   4,   8,   6,   5,   3,    6,
    /* 10 */ 9,    10,  27,  18,  14,  1,   8,   20,  15,   13,
    /* 20 */ 9,    10,  12,  15,  15,  21,  4,   5,   6,    20,
    /* 30 */ 35,   56,  22,  28,  0,   0,   16,  25,  36,   12,
    /* 40 */ 16,   20,  28,  36,  45,  55,  66,  49,  64,   81,
    /* 50 */ 100,  121, 18,  21,  24,  27,  30,  24,  28,   32,
    /* 60 */ 36,   40,  7,   8,   9,   10,  11,  0,   0,    0,
    /* 70 */ 0,    84,  120, 165, 220, 286, 0,   0,   0,    34,
    /* 80 */ 40,   46,  52,  58,  1,   1,   1,   1,   1,    1,
    /* 90 */ 40,   75,  64,  125, 216, 343, 512, 729, 1000, 32,
    /* 100 */ 44,  56,  68,  80,  92,  104, 126, 196, 288,  405,
    /* 110 */ 550, 24,  33,  42,  51,  60,  69,  78,  30,   55,
    /* 120 */ 91,  140, 204, 285, 385, 21,  29,  37,  45,   53,
    /* 130 */ 61,  69,  1,
};

/// The element of the corners alone, which stand first in the list of nodes; 0 when there is none.
std::int32_t CornerMember(const MshKind& kind) {
  struct Corners {
    std::string_view shape;
    std::int32_t code;
  };
  constexpr Corners kCorners[] = {
      {"lines", element::kLine2},          {"triangles", element::kTri3},
      {"quadrilaterals", element::kQuad4}, {"tetrahedra", element::kTet4},
      {"hexahedra", element::kHex8},       {"wedges", element::kWedge6},
      {"pyramids", element::kPyramid5},
  };
  for (const Corners& corners : kCorners) {
    if (corners.shape != kind.shape) continue;
    return kind.nodes > FindElementType(corners.code)->nodes ? corners.code : 0;
  }
  return 0;
}

}  // namespace

std::string MshKind::Name() const {
  return nodes == 0 ? shape : fmt::format("{}-node {}", nodes, shape);
}

std::optional<MshKind> FindMshKind(std::int64_t number) {
  if (number < 1 || number >= static_cast<std::int64_t>(std::size(kNodes))) return std::nullopt;
  const auto* range =
      std::upper_bound(std::begin(kShapes), std::end(kShapes), number,
                       [](std::int64_t n, const ShapeRange& shape) { return n < shape.first; }) -
      1;
  if (!range->shape) return std::nullopt;
  MshKind kind{static_cast<int>(number), range->shape, kNodes[number]};
  if (number <= static_cast<std::int64_t>(std::size(kRead))) {
    kind.code = kRead[number - 1].code;
    kind.order = kRead[number - 1].order;
  }
  if (kind.code == 0) kind.code = CornerMember(kind);
  return kind;
}

std::optional<MshKind> MshKindOf(std::int32_t code) {
  const ElementType* type = FindElementType(code);
  if (!type) return std::nullopt;
  for (const ReadKind& read : kRead) {
    if (read.code == code && kNodes[read.number] == type->nodes) return FindMshKind(read.number);
  }
  return std::nullopt;
}

}  // namespace qx::exchange
