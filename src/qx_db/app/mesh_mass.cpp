#include "qx_db/app/mesh_mass.h"

#include <map>

#include "qx_db/app/mesh_util.h"
#include "qx_db/callback/callbacks.h"
#include "qx_db/core/session.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/element_shape.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/record/control_records.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// A number from the application, or the one assumed in its place; 0 when there is neither.
struct Answer {
  double value = 0;
  bool is_assumed = false;
};

Answer KnownOr(double known, const std::optional<double>& assumed) {
  if (known != 0) return {known, false};
  return {assumed.value_or(0), true};
}

/// What stands behind one unit of an element's length, area or volume: 1 for solids, thickness for
/// surfaces, section area for lines.
Answer SectionOf(CQXDBSession& session, const DenseMesh& mesh, std::uint32_t e, double size,
                 const MassAssumptions& assumptions) {
  const CornerShape shape = mesh.Shape(e);
  if (shape >= CornerShape::kTetrahedron) return {1, false};
  IAppDB* application = IAppDB::Instance();
  const bool is_line = shape == CornerShape::kLine;
  double known = 0;
  if (application && is_line && size > 0) {
    known = application->GetBeamVolume(&session, mesh.ElementItr(e)) / size;
  } else if (application && !is_line) {
    known = application->GetFaceThickAvg(&session, mesh.ElementItr(e));
  }
  return KnownOr(known, is_line ? assumptions.section_area : assumptions.thickness);
}

Answer DensityOf(CQXDBSession& session, ITR element, const MassAssumptions& assumptions) {
  IAppDB* application = IAppDB::Instance();
  return KnownOr(application ? application->GetElemMatlDensity(&session, element) : 0,
                 assumptions.density);
}

/// The moments of a mass at a point.
Moments PointMoments(double mass, const Point3& p) {
  Moments m;
  m.size = mass;
  m.first = mass * p;
  m.xx = mass * p.x * p.x;
  m.yy = mass * p.y * p.y;
  m.zz = mass * p.z * p.z;
  m.xy = mass * p.x * p.y;
  m.yz = mass * p.y * p.z;
  m.zx = mass * p.z * p.x;
  return m;
}

/// The moments that a special property adds about its element's mass: the inertia of its own, the
/// lower triangle of the matrix in global axes.
Moments OwnInertia(const CQXDBSession& session, Key element) {
  const DPoolBase* pool = session.GetDataPool(code::kSprop);
  const auto* special = pool ? LiveRecord<tagTSprop>(pool->Find(element)) : nullptr;
  Moments m;
  if (!special) return m;
  const double xx = special->inertia[0], yy = special->inertia[2], zz = special->inertia[5];
  m.xx = (yy + zz - xx) / 2;
  m.yy = (zz + xx - yy) / 2;
  m.zz = (xx + yy - zz) / 2;
  m.xy = -special->inertia[1];
  m.zx = -special->inertia[3];
  m.yz = -special->inertia[4];
  return m;
}

bool IsNothing(const Moments& m) {
  return m.size == 0 && m.xx == 0 && m.yy == 0 && m.zz == 0 && m.xy == 0 && m.yz == 0 && m.zx == 0;
}

/// Masses by the key of the property, and what is not known.
class Collector {
 public:
  Collector(CQXDBSession& session, const MassAssumptions& assumptions, MassReport& report)
      : session_(session), assumptions_(assumptions), report_(report) {}

  void AddShape(const DenseMesh& mesh, std::uint32_t e) {
    const auto [shape, moments, is_curved] = MeasureShape(mesh.Element(e));
    // A solid listed inside out has the same matter in it.
    const double sign = moments.size < 0 ? -1 : 1;
    const double size = sign * moments.size;
    MassOfProperty& at = Of(mesh.Element(e));
    at.curved += is_curved;
    if (shape == CornerShape::kLine) at.length += size;
    if (shape == CornerShape::kTriangle || shape == CornerShape::kQuadrilateral) at.area += size;
    const Answer section = SectionOf(session_, mesh, e, size, assumptions_);
    const Answer density = DensityOf(session_, mesh.ElementItr(e), assumptions_);
    at.volume += size * section.value;
    report_.without_section += section.value == 0;
    report_.without_density += density.value == 0;
    // The application knows more of a mass than its density: non-structural parts, point masses.
    // What it lacks a factor for is not in its mass yet.
    IAppDB* app = IAppDB::Instance();
    const double own = app ? app->GetMSetMass(&session_, TArray<ITR>{mesh.ElementItr(e)}) : 0;
    const bool has_own = own > 0 && size > 0;
    double per_size = has_own ? own / size : 0;
    if (!has_own || section.is_assumed || density.is_assumed) {
      per_size += section.value * density.value;
    }
    at.mass.Add(moments, sign * per_size);
  }

  /// A point or special element, whose mass only the application knows, offsets included.
  void AddSpecial(ITR itr) {
    const CQXMeshUtil util(&session_);
    const double mass = util.GetSpecialElemMass(itr);
    Moments moments = OwnInertia(session_, ElementAt(itr)->key);
    double center[3];
    if (mass != 0) {
      if (!util.GetMassCenter({itr}, center) && !util.GetElemCenter(itr, center)) return;
      moments.Add(PointMoments(mass, {center[0], center[1], center[2]}), 1);
    }
    if (!IsNothing(moments)) Of(*ElementAt(itr)).mass.Add(moments, 1);
  }

  void Finish() {
    for (auto& [key, mass] : by_key_) {
      mass.property_key = key;
      report_.total.Add(mass);
      report_.by_property.push_back(mass);
    }
  }

 private:
  MassOfProperty& Of(const tagTElem& element) {
    MassOfProperty& found = by_key_[KeyOf(element.property)];
    ++found.elements;
    return found;
  }

  CQXDBSession& session_;
  const MassAssumptions& assumptions_;
  MassReport& report_;
  std::map<Key, MassOfProperty> by_key_;
};

}  // namespace

void MassOfProperty::Add(const MassOfProperty& other) {
  elements += other.elements;
  curved += other.curved;
  length += other.length;
  area += other.area;
  volume += other.volume;
  mass.Add(other.mass, 1);
}

RigidBody ToRigidBody(const Moments& m) {
  RigidBody body;
  body.mass = m.size;
  if (m.size == 0) return body;
  body.center = (1 / m.size) * m.first;
  const Point3& c = body.center;
  const double xx = m.xx - m.size * c.x * c.x;
  const double yy = m.yy - m.size * c.y * c.y;
  const double zz = m.zz - m.size * c.z * c.z;
  body.xx = yy + zz;
  body.yy = zz + xx;
  body.zz = xx + yy;
  body.xy = -(m.xy - m.size * c.x * c.y);
  body.yz = -(m.yz - m.size * c.y * c.z);
  body.zx = -(m.zx - m.size * c.z * c.x);
  return body;
}

MassReport ComputeMass(CQXDBSession& session, const DenseMesh& mesh,
                       const MassAssumptions& assumptions) {
  MassReport report;
  report.has_application = IAppDB::Instance() != nullptr;
  Collector collector(session, assumptions, report);
  LongWork work(mesh.ElementCount());
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    work.Step();
    if (!mesh.IsUsable(e)) continue;
    if (mesh.Shape(e) >= CornerShape::kLine) {
      collector.AddShape(mesh, e);
    } else {
      collector.AddSpecial(mesh.ElementItr(e));
    }
  }
  collector.Finish();
  return report;
}

}  // namespace qx
