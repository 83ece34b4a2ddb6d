#include "qx_db/app/mesh_mass.h"

#include <map>

#include "qx_db/app/element_access.h"
#include "qx_db/app/mesh_util.h"
#include "qx_db/callback/app_db.h"
#include "qx_db/core/session.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// What stands behind one unit of an element's length, area or volume: 1 for solids, thickness for
/// surfaces, section area for lines; 0 when it is not known.
double SectionOf(CQXDBSession& session, const DenseMesh& mesh, std::uint32_t e, double size,
                 const MassAssumptions& assumptions) {
  const CornerShape shape = mesh.Shape(e);
  if (shape >= CornerShape::kTetrahedron) return 1;
  IAppDB* application = IAppDB::Instance();
  const bool is_line = shape == CornerShape::kLine;
  double known = 0;
  if (application && is_line && size > 0) {
    known = application->GetBeamVolume(&session, mesh.ElementItr(e)) / size;
  } else if (application && !is_line) {
    known = application->GetFaceThickAvg(&session, mesh.ElementItr(e));
  }
  if (known != 0) return known;
  return (is_line ? assumptions.section_area : assumptions.thickness).value_or(0);
}

double DensityOf(CQXDBSession& session, ITR element, const MassAssumptions& assumptions) {
  IAppDB* application = IAppDB::Instance();
  const double known = application ? application->GetElemMatlDensity(&session, element) : 0;
  return known != 0 ? known : assumptions.density.value_or(0);
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

/// Masses by the key of the property, and what is not known.
class Collector {
 public:
  Collector(CQXDBSession& session, const MassAssumptions& assumptions, MassReport& report)
      : session_(session), assumptions_(assumptions), report_(report) {}

  void AddShape(const DenseMesh& mesh, std::uint32_t e) {
    Point3 p[8];
    mesh.CornerPositions(e, p);
    const CornerShape shape = mesh.Shape(e);
    Moments moments = ShapeMoments(shape, p);
    // A solid listed inside out has the same matter in it.
    const double sign = moments.size < 0 ? -1 : 1;
    const double size = sign * moments.size;
    MassOfProperty& at = Of(mesh.Element(e));
    if (shape == CornerShape::kLine) at.length += size;
    if (shape == CornerShape::kTriangle || shape == CornerShape::kQuadrilateral) at.area += size;
    const double section = SectionOf(session_, mesh, e, size, assumptions_);
    const double density = DensityOf(session_, mesh.ElementItr(e), assumptions_);
    at.volume += size * section;
    report_.without_section += section == 0;
    report_.without_density += density == 0;
    // The application knows more of a mass than its density: non-structural parts, point masses.
    IAppDB* app = IAppDB::Instance();
    const double own = app ? app->GetMSetMass(&session_, TArray<ITR>{mesh.ElementItr(e)}) : 0;
    const double per_size = own > 0 && size > 0 ? own / size : section * density;
    at.mass.Add(moments, sign * per_size);
  }

  /// A mass element, whose mass only the application knows.
  void AddSpecial(ITR itr) {
    const CQXMeshUtil util(&session_);
    const double mass = util.GetSpecialElemMass(itr);
    double center[3];
    if (mass == 0 || !util.GetElemCenter(itr, center)) return;
    Of(*ElementAt(itr)).mass.Add(PointMoments(mass, {center[0], center[1], center[2]}), 1);
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
  constexpr int kSpecialDimension = 4;
  MassReport report;
  report.has_application = IAppDB::Instance() != nullptr;
  Collector collector(session, assumptions, report);
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    const bool is_special = CQXMeshUtil::GetElemDim(mesh.Element(e).type) == kSpecialDimension;
    if (is_special || !mesh.IsUsable(e) || mesh.Shape(e) < CornerShape::kLine) continue;
    collector.AddShape(mesh, e);
  }
  const DPoolBase* pool = session.GetDataPool(code::kElem);
  for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
    const std::int32_t dimension = CQXMeshUtil::GetElemDim(ElementAt(at)->type);
    if (dimension == kSpecialDimension || dimension == 0) collector.AddSpecial(at);
  }
  collector.Finish();
  return report;
}

}  // namespace qx
