// Lengths, areas, volumes, normals and centres of elements and sides.

#include <algorithm>

#include "qx_db/app/mesh_util.h"
#include "qx_db/callback/callbacks.h"
#include "qx_db/core/session.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/face_triangles.h"
#include "qx_db/mesh/side_nodes.h"
#include "qx_db/record/attribute_records.h"
#include "qx_db/record/element_types.h"

namespace qx {
namespace {

void Store(const Point3& p, double* out) {
  out[0] = p.x;
  out[1] = p.y;
  out[2] = p.z;
}

/// Stores the unit vector of a direction; zeros, and 0, when it has none.
int StoreUnit(Point3 direction, double* out) {
  const bool has_length = Normalize(direction);
  Store(has_length ? direction : Point3(), out);
  return has_length ? 1 : 0;
}

double SumOfTriangles(std::span<const NodeTriangle> triangles, const Point3* p) {
  double area = 0;
  for (const NodeTriangle& t : triangles) area += TriangleArea(p[t[0]], p[t[1]], p[t[2]]);
  return area;
}

/// What the first nodes of a type are measured as, special types included.
CornerShape MeasuredShape(std::int32_t code) {
  const topology::SpecialForm* const form = topology::FormOf(code);
  return form ? form->shape : topology::ShapeOf(code);
}

int StoreMean(std::span<const ITR> nodes, double* out) {
  Point3 sum;
  for (const ITR itr : nodes) {
    const tagTNode* node = NodeAt(itr);
    if (!node) return StoreUnit({}, out);
    sum += node->position;
  }
  if (nodes.empty()) return StoreUnit({}, out);
  Store((1.0 / static_cast<double>(nodes.size())) * sum, out);
  return 1;
}

}  // namespace

double CQXMeshUtil::GetEdgeLength(const tagTElemSide& side) const {
  Point3 p[2];
  return SideNodes(kEdgeSide, side, false).Positions(2, p) ? Distance(p[0], p[1]) : 0.0;
}

double CQXMeshUtil::GetElemMinLength(const tagTElemSide& side) const {
  const tagTElem* element = ElementAt(side.element);
  if (!element || element->nodes.IsEmpty()) return 0.0;
  const std::int32_t count = element->nodes.GetSize();
  const tagTNode* last = NodeAt(element->nodes[count - 1]);
  if (!last) return 0.0;
  // Squares are compared and one root is taken; 1e20 is what no distance can be above.
  double least = 1e40;
  Point3 before = last->position;
  for (const ITR itr : element->nodes) {
    const tagTNode* node = NodeAt(itr);
    if (!node) return 0.0;
    const Point3 here = node->position;
    least = std::min(least, SquaredLength(here - before));
    before = here;
  }
  return std::sqrt(least);
}

int CQXMeshUtil::GetElemSideNormal(const tagTElemSide& side, double normal[3]) const {
  Point3 p[3];
  if (!SideNodes(kFaceSide, side, false).Positions(3, p)) return StoreUnit({}, normal);
  return StoreUnit(Cross(p[1] - p[0], p[2] - p[0]), normal);
}

int CQXMeshUtil::GetElemEdgeSideNormal(const tagTElemSide& side, double normal[3]) const {
  Point3 p[3];
  if (!SideNodes(kEdgeSide, side, true).Positions(3, p)) return StoreUnit({}, normal);
  return StoreUnit(Cross(p[1] - p[0], p[2] - p[0]), normal);
}

int CQXMeshUtil::GetElemEdgeSideOutward(const tagTElemSide& side, double direction[3]) const {
  Point3 edge[2];
  Point3 face[3];
  const tagTElem* element = ElementAt(side.element);
  if (!element || ElementTopology(element->type).Class() != topology::kSurfaceClass ||
      !SideNodes(kEdgeSide, side, false).Positions(2, edge) ||
      !SideNodes(kFaceSide, {side.element, 0}, false).Positions(3, face)) {
    return StoreUnit({}, direction);
  }
  return StoreUnit(Cross(edge[1] - edge[0], Cross(face[1] - face[0], face[2] - face[0])),
                   direction);
}

int CQXMeshUtil::GetNormalVecByNodes(ITR node0, ITR node1, ITR node2, double normal[3]) const {
  const ITR nodes[3] = {node0, node1, node2};
  Point3 p[3];
  for (int i = 0; i < 3; ++i) {
    const tagTNode* node = NodeAt(nodes[i]);
    if (!node) return StoreUnit({}, normal);
    p[i] = node->position;
    if (!session_) continue;
    const CQXUnitCtrl& units = session_->Units();
    const int category = CQXNodeUnit::Instance().Code(0);
    p[i] = {units.Out(category, p[i].x), units.Out(category, p[i].y), units.Out(category, p[i].z)};
  }
  return StoreUnit(Cross(p[1] - p[0], p[2] - p[0]), normal);
}

int CQXMeshUtil::GetElemCenter(ITR elem, double center[3]) const {
  const tagTElem* element = ElementAt(elem);
  if (!element) return StoreUnit({}, center);
  return StoreMean({element->nodes.data(), element->nodes.size()}, center);
}

int CQXMeshUtil::GetElemCenter(int kind, const tagTElemSide& side, double center[3]) const {
  const SideNodes nodes(kind, side, false);
  return StoreMean(nodes.Nodes(), center);
}

double CQXMeshUtil::GetFaceArea(const tagTElemSide& side) const {
  const SideNodes nodes(kFaceSide, side, true);
  Point3 p[8];
  if (!nodes.Positions(nodes.Count(), p)) return 0.0;
  return SumOfTriangles(TrianglesOfFace(static_cast<std::int32_t>(nodes.Count())), p);
}

double CQXMeshUtil::GetFaceArea(ITR elem) const {
  const tagTElem* element = ElementAt(elem);
  if (!element) return 0.0;
  const ElementTopology type(element->type);
  Point3 p[8];
  if (type.Class() != topology::kSurfaceClass || !FirstPositions(*element, type.Nodes(), p)) {
    return 0.0;
  }
  return SumOfTriangles(TrianglesOfElement(element->type), p);
}

double CQXMeshUtil::GetElemQuantity(ITR elem) const {
  const tagTElem* element = ElementAt(elem);
  if (!element) return 0.0;
  const CornerShape shape = MeasuredShape(element->type);
  Point3 p[8];
  return FirstPositions(*element, topology::CornersOf(shape), p) ? ShapeSize(shape, p) : 0.0;
}

double CQXMeshUtil::GetEdgeArea(const tagTElemSide& side) const {
  const tagTElem* element = ElementAt(side.element);
  if (!element) return 0.0;
  const std::int32_t type_class = ElementTopology(element->type).Class();
  if (type_class == topology::kLineClass) {
    return GetEdgeLength(side) * Get1DElemPerimeter(side.element);
  }
  IAppDB* application = IAppDB::Instance();
  if (type_class != topology::kSurfaceClass || !application) return 0.0;
  return GetEdgeLength(side) * application->GetFaceThickAvg(session_, side.element);
}

double CQXMeshUtil::GetElemVolume(ITR elem) const {
  const tagTElem* element = ElementAt(elem);
  if (!element) return 0.0;
  switch (topology::DimensionOf(MeasuredShape(element->type))) {
    case 1:
      return GetBeamVolume(elem);
    case 2:
      return GetFaceVolume(elem);
    case 3:
      return GetElemQuantity(elem);
    default:
      return 0.0;
  }
}

int CQXMeshUtil::GetElemDim(std::int32_t type) { return topology::DimensionOf(type); }

int CQXMeshUtil::IsQuadratic(ITR elem) const {
  const tagTElem* element = ElementAt(elem);
  return element ? IsQuadratic(element->type) : 0;
}

int CQXMeshUtil::IsQuadratic(std::int32_t code) {
  const ElementType* const type = FindElementType(code);
  return type && type->nodes > type->corners ? 1 : 0;
}

int CQXMeshUtil::IsNodeQuadraticFor1D(ITR node) const {
  constexpr std::int32_t kMiddle = 2;
  const DPoolBase* pool = node && session_ ? session_->GetDataPool(code::kElem) : nullptr;
  for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
    const tagTElem* element = ElementAt(at);
    if (element->type == element::kLine3 && element->nodes.GetSize() > kMiddle &&
        element->nodes[kMiddle] == node) {
      return 1;
    }
  }
  return 0;
}

double CQXMeshUtil::GetNodeDist(ITR node0, ITR node1) const {
  const tagTNode* a = NodeAt(node0);
  const tagTNode* b = NodeAt(node1);
  return a && b ? Distance(a->position, b->position) : 0.0;
}

double CQXMeshUtil::GetNodeDist(const tagTVector3<double>& a, const tagTVector3<double>& b) {
  return Distance(a, b);
}

int CQXMeshUtil::GetNodeBoundingBox(const CQXDBSession*, const std::set<ITR>& nodes,
                                    double* box) const {
  bool empty = true;
  for (const ITR itr : nodes) {
    const tagTNode* node = NodeAt(itr);
    if (!node || !IsFinite(node->position)) continue;
    const double p[3] = {node->position.x, node->position.y, node->position.z};
    for (int i = 0; i < 3; ++i) {
      box[i] = empty ? p[i] : std::min(box[i], p[i]);
      box[3 + i] = empty ? p[i] : std::max(box[3 + i], p[i]);
    }
    empty = false;
  }
  return empty ? 0 : 1;
}

int CQXMeshUtil::Get2DShellCordItrByElem(ITR elem, int& kind, ITR& cord) const {
  kind = 0;
  cord = 0;
  const tagTElem* element = ElementAt(elem);
  if (!session_ || !element || ElementTopology(element->type).Class() != topology::kSurfaceClass) {
    return 0;
  }
  const DPoolBase* pool = session_->GetDataPool(code::kE2DMatlCsys);
  for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
    const auto* axes = LiveRecord<tagTE2DMatlCsys>(at);
    if (std::find(axes->elements.begin(), axes->elements.end(), elem) == axes->elements.end()) {
      continue;
    }
    kind = axes->type;
    cord = axes->coordinate_system;
    return 1;
  }
  IAppDB* application = IAppDB::Instance();
  cord =
      application && element->property ? application->GetPropCord(session_, element->property) : 0;
  if (cord) kind = tagTE2DMatlCsys::kByCoordinateSystem;
  return cord ? 1 : 0;
}

}  // namespace qx
