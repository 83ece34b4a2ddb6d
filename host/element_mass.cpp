#include "host/element_mass.h"

#include <algorithm>
#include <cmath>

#include "qx_db/mesh/element_volume.h"

#include "host/records.h"

namespace qx::host {
namespace {

/// Length, area or volume of an element with its first moment; both zero where it has none.
struct Extent {
  int dimension = 0;
  double size = 0;
  Point3 first;
};

/// The positions of an element's first nodes; false when it has fewer, or one is gone.
bool Corners(CQXDBSession* session, const tagTElem& elem, int count, Point3* out) {
  if (elem.nodes.GetSize() < count) return false;
  for (int i = 0; i < count; ++i) {
    const tagTNode* node = Live<tagTNode>(session, elem.nodes[i]);
    if (!node) return false;
    out[i] = node->position;
  }
  return true;
}

Extent ExtentOf(CQXDBSession* session, const tagTElem& elem) {
  const CornerShape shape = topology::ShapeOf(elem.type);
  Point3 corners[8];
  if (shape <= CornerShape::kPoint ||
      !Corners(session, elem, topology::CornersOf(shape), corners)) {
    return {};
  }
  const Moments moments = ShapeMoments(shape, corners);
  // An element turned inside out still has its mass.
  const double sign = moments.size < 0 ? -1 : 1;
  return {topology::DimensionOf(shape), sign * moments.size, sign * moments.first};
}

double MeanThickness(const tagTE2DThick& record, int corners) {
  if (record.uniform || corners < 1) return record.thickness[0];
  double sum = 0;
  const int count = std::min(corners, 4);
  for (int i = 0; i < count; ++i) sum += record.thickness[i];
  return sum / count;
}

Mass MassAt(const double (&by_axis)[3], const Point3& position) {
  Mass mass;
  std::copy_n(by_axis, 3, mass.by_axis);
  const double mean = mass.Mean();
  mass.moment[0] = mean * position.x;
  mass.moment[1] = mean * position.y;
  mass.moment[2] = mean * position.z;
  return mass;
}

}  // namespace

void Mass::Add(const Mass& other) {
  for (int i = 0; i < 3; ++i) {
    by_axis[i] += other.by_axis[i];
    moment[i] += other.moment[i];
  }
}

std::uint64_t ElementMasses::RevisionOf(CQXDBSession* session) {
  const DPoolBase* pool = PoolFor<tagTE2DThick>(session);
  return pool ? pool->Set().Revision() : 0;
}

ElementMasses::ElementMasses(CQXDBSession* session)
    : session_(session), revision_(RevisionOf(session)) {
  ForEach<tagTE2DThick>(session, [&](ITR itr, const tagTE2DThick& record) {
    for (const ITR elem : record.elements) own_thickness_[elem] = itr;
    return true;
  });
}

double ElementMasses::Thickness(const tagTElem& elem, ITR itr) const {
  const auto own = own_thickness_.find(itr);
  if (own != own_thickness_.end()) {
    const tagTE2DThick* record = Live<tagTE2DThick>(session_, own->second);
    if (record) return MeanThickness(*record, ElementTopology(elem.type).Corners());
  }
  const tagTProp* property = Live<tagTProp>(session_, elem.property);
  return property ? property->thickness : 0;
}

double ElementMasses::BeamVolume(ITR itr) const {
  const tagTElem* elem = Live<tagTElem>(session_, itr);
  const tagTProp* property = elem ? Live<tagTProp>(session_, elem->property) : nullptr;
  if (!property) return 0;
  const Extent extent = ExtentOf(session_, *elem);
  return extent.dimension == 1 ? extent.size * property->area : 0;
}

double ElementMasses::FaceVolume(ITR itr) const {
  const tagTElem* elem = Live<tagTElem>(session_, itr);
  if (!elem) return 0;
  const Extent extent = ExtentOf(session_, *elem);
  return extent.dimension == 2 ? extent.size * Thickness(*elem, itr) : 0;
}

Mass ElementMasses::PointMass(ITR itr) const {
  const tagTElem* elem = Live<tagTElem>(session_, itr);
  Point3 position;
  if (!elem || !Corners(session_, *elem, 1, &position)) return {};
  double by_axis[3]{};
  const tagTProp* property = Live<tagTProp>(session_, elem->property);
  if (property && property->type == tagTProp::kPointMass) {
    std::fill_n(by_axis, 3, property->mass);
  }
  DPoolBase* specials = PoolFor<tagTSprop>(session_);
  const tagTSprop* special =
      specials ? Live<tagTSprop>(session_, specials->Find(elem->key)) : nullptr;
  if (special) {
    if (special->has_offset) position += special->offset;
    for (int i = 0; i < 3; ++i) by_axis[i] += special->mass + special->mass_by_axis[i];
  }
  return MassAt(by_axis, position);
}

Mass ElementMasses::Of(ITR itr) const {
  Mass mass = PointMass(itr);
  const tagTElem* elem = Live<tagTElem>(session_, itr);
  const tagTProp* property = elem ? Live<tagTProp>(session_, elem->property) : nullptr;
  if (!property) return mass;
  const Extent extent = ExtentOf(session_, *elem);
  if (extent.size == 0) return mass;
  const double through = extent.dimension == 1   ? property->area
                         : extent.dimension == 2 ? Thickness(*elem, itr)
                                                 : 1.0;
  const tagTMatl* material = Live<tagTMatl>(session_, property->material);
  double per_size = material ? material->density * through : 0;
  if (extent.dimension < 3) per_size += property->non_structural_mass;
  const double whole = per_size * extent.size;
  mass.Add(MassAt({whole, whole, whole}, (1 / extent.size) * extent.first));
  return mass;
}

}  // namespace qx::host
