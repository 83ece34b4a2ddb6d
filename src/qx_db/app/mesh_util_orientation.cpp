// Which way round elements are, and turning them over; how near to flat a tetrahedron is.

#include <bit>
#include <limits>
#include <span>

#include "qx_db/app/element_turning.h"
#include "qx_db/app/mesh_util.h"
#include "qx_db/core/session.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/element_volume.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/record/element_types.h"

namespace qx {
namespace {

using Exchange = NodeExchange;

constexpr Exchange kTri3[] = {{1, 2}};
constexpr Exchange kTri6[] = {{1, 2}, {3, 5}};
constexpr Exchange kQuad4[] = {{1, 3}};
constexpr Exchange kQuad8[] = {{1, 3}, {4, 7}, {5, 6}};
constexpr Exchange kTet10[] = {{1, 2}, {4, 6}, {8, 9}};
constexpr Exchange kPyramid13[] = {{1, 3}, {5, 8}, {6, 7}, {10, 12}};
constexpr Exchange kWedge6[] = {{1, 2}, {4, 5}};
constexpr Exchange kWedge15[] = {{1, 2}, {6, 8}, {4, 5}, {9, 11}, {13, 14}};
constexpr Exchange kHex8[] = {{1, 3}, {5, 7}};
constexpr Exchange kHex20[] = {{1, 3}, {8, 11}, {9, 10}, {5, 7}, {12, 15}, {13, 14}, {17, 19}};

/// The exchanges that turn an element over, by type code; none for points and lines.
constexpr std::span<const Exchange> kFlips[16] = {
    {},    {},     {},     {},         kTri3,   kTri6,    kQuad4, kQuad8,
    kTri3, kTet10, kQuad4, kPyramid13, kWedge6, kWedge15, kHex8,  kHex20};

}  // namespace

std::span<const NodeExchange> FlipOf(std::int32_t type) {
  return type > 0 && type < static_cast<std::int32_t>(std::size(kFlips))
             ? kFlips[type]
             : std::span<const NodeExchange>();
}

int CQXMeshUtil::IsValidNormalSolid(ITR elem, int flip) const {
  const tagTElem* element = ElementAt(elem);
  if (!element) return 0;
  if (element->type < element::kTet4 || element->type > element::kHex20) return 1;
  const CornerShape shape = topology::ShapeOf(element->type);
  const bool on_triangle = shape == CornerShape::kTetrahedron || shape == CornerShape::kWedge;
  const std::int32_t third = on_triangle ? 2 : 3;
  Point3 p[5];
  if (!FirstPositions(*element, third + 2, p)) return 0;
  const Point3 normal = Cross(p[1] - p[0], p[third] - p[0]);
  const Point3 up = p[third + 1] - p[0];
  // Without a length there is no angle, and nothing that turning over would mend.
  if (!(Length(normal) > 0) || !(Length(up) > 0)) return 0;
  if (AngleBetween(up, normal) < 90) return 1;
  if (flip) FlipElement(elem);
  return 0;
}

int CQXMeshUtil::FlipElement(ITR elem) const {
  const tagTElem* element = ElementAt(elem);
  if (!element || element->type < element::kPoint || element->type > element::kHex20) return 0;
  if (element->type <= element::kLine3) return 1;
  if (!session_ || element->nodes.GetSize() < ElementTopology(element->type).Nodes()) return 0;
  tagTElem turned = *element;
  for (const Exchange& exchange : FlipOf(element->type)) {
    Swap(turned.nodes[exchange.a], turned.nodes[exchange.b]);
  }
  return Pool<tagTElem>(*session_).SetAtNU(elem, turned);
}

double CQXMeshUtil::CalcCollapseTetra(ITR elem, int* face) const {
  if (face) *face = 0;
  const tagTElem* element = ElementAt(elem);
  Point3 p[4];
  if (!element || topology::ShapeOf(element->type) != CornerShape::kTetrahedron ||
      !FirstPositions(*element, 4, p)) {
    return 0.0;
  }
  // Makes a regular tetrahedron 1; given by its bits because results are compared exactly.
  const double scale = std::bit_cast<double>(std::uint64_t{0x3FE9CA285D165B8C});
  constexpr int kFace[4][3] = {{1, 2, 3}, {2, 0, 3}, {0, 1, 3}, {0, 1, 2}};
  double least = std::numeric_limits<double>::max();
  for (int i = 0; i < 4; ++i) {
    const Point3& a = p[kFace[i][0]];
    Point3 normal = Cross(p[kFace[i][1]] - a, p[kFace[i][2]] - a);
    const double area = 0.5 * Length(normal);
    // A face without area has no plane to be above: as flat as can be.
    double quality = 0;
    if (Normalize(normal)) quality = std::abs(Dot(normal, p[i] - a)) * scale / std::sqrt(area);
    if (quality < least) {
      least = quality;
      if (face) *face = i;
    }
  }
  return least;
}

void CQXMeshUtil::Swap(ITR& a, ITR& b) {
  const ITR was = a;
  a = b;
  b = was;
}

}  // namespace qx
