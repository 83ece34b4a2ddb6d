#include "host/element_mass.h"

#include <algorithm>
#include <cmath>

#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/element_shape.h"

#include "host/records.h"

namespace qx::host {
namespace {

/// What has a length, an area or a volume: its dimension, and its moments; nothing, of dimension 0,
/// for points, for special elements, and where a node is gone.
struct Extent {
  int dimension = 0;
  Moments moments;
};

Extent ExtentOf(const tagTElem& elem) {
  const ShapeMeasure measure = MeasureShape(elem);
  if (measure.shape == CornerShape::kNone) return {};
  Extent extent{topology::DimensionOf(measure.shape), {}};
  // An element turned inside out still has its mass.
  extent.moments.Add(measure.moments, measure.moments.size < 0 ? -1 : 1);
  return extent;
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
  const Extent extent = ExtentOf(*elem);
  return extent.dimension == 1 ? extent.moments.size * property->area : 0;
}

double ElementMasses::FaceVolume(ITR itr) const {
  const tagTElem* elem = Live<tagTElem>(session_, itr);
  if (!elem) return 0;
  const Extent extent = ExtentOf(*elem);
  return extent.dimension == 2 ? extent.moments.size * Thickness(*elem, itr) : 0;
}

Mass ElementMasses::PointMass(ITR itr) const {
  const tagTElem* elem = Live<tagTElem>(session_, itr);
  Point3 position;
  if (!elem || !FirstPositions(*elem, 1, &position)) return {};
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
  const Extent extent = ExtentOf(*elem);
  if (extent.moments.size == 0) return mass;
  const double through = extent.dimension == 1   ? property->area
                         : extent.dimension == 2 ? Thickness(*elem, itr)
                                                 : 1.0;
  const tagTMatl* material = Live<tagTMatl>(session_, property->material);
  double per_size = material ? material->density * through : 0;
  if (extent.dimension < 3) per_size += property->non_structural_mass;
  const double whole = per_size * extent.moments.size;
  mass.Add(MassAt({whole, whole, whole}, (1 / extent.moments.size) * extent.moments.first));
  return mass;
}

}  // namespace qx::host
