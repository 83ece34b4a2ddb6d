// Local axes of special elements, and material axes.

#include <algorithm>

#include "qx_db/core/session.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/model/element_axes.h"
#include "qx_db/model/mesh_pools.h"
#include "qx_db/model/reference_index.h"

namespace qx {
namespace {

/// Whose rule gives the axes of a special element.
enum class Family : std::uint8_t {
  kSpring,  ///< two nodes or one: spring, link, mass, damper, weld
  kInterfaceLine,
  kInterfacePlane,
  kFreeFieldLine,
  kFreeFieldPlane,
  kFluidLine,
  kFluidPlane,
  kPlane,  ///< plane or solid without a rule of its own
};

/// A run of element types of one family.
struct SpecialTypes {
  std::int32_t first;
  std::int32_t last;
  Family family;
};

constexpr SpecialTypes kSpecialTypes[] = {
    {46, 47, Family::kInterfaceLine},  {48, 51, Family::kInterfacePlane},
    {56, 57, Family::kFreeFieldLine},  {60, 63, Family::kPlane},
    {65, 66, Family::kFreeFieldPlane}, {67, 70, Family::kPlane},
    {71, 72, Family::kInterfaceLine},  {73, 76, Family::kInterfacePlane},
    {82, 83, Family::kFluidLine},      {84, 87, Family::kFluidPlane},
};

/// Turns x and y round when x points against a direction; the axes stay right-handed.
void PointAlong(const Vector3& direction, Triad& axes) {
  if (!(Dot(axes.x, direction) < 0)) return;
  axes.x = -axes.x;
  axes.y = -axes.y;
}

constexpr Vector3 kUp(0, 0, 1);

/// Axes of a line without an orientation of its own, which lies in a plane model as a rule: z
/// towards global Z, for a vertical line towards global X.
bool BoundaryLineAxes(const Vector3& p1, const Vector3& p2, Triad& axes) {
  return LineAxesByAngle(p1, p2, 0, IsVertical(p1, p2, kShortestElement), axes);
}

}  // namespace

std::size_t CornersOfFirstFace(std::int32_t type, std::int32_t nodes) {
  const topology::SpecialForm* const form = topology::FormOf(type);
  const CornerShape shape = form ? form->shape : topology::ShapeOf(type);
  const std::int32_t corners =
      shape == CornerShape::kNone ? std::min(nodes, 4) : topology::CornersOfFirstFace(shape);
  return corners >= 3 && corners <= nodes ? static_cast<std::size_t>(corners) : 0;
}

int DPoolElem::CalcSpecialElemLocalVector(const tagTElem& element, double axes[3][3]) const {
  using Rule = int (DPoolElem::*)(const tagTElem&, double[3][3]) const;
  static constexpr Rule kRules[] = {
      &DPoolElem::CalcSpringLocalVector,         &DPoolElem::CalcIntfcLocalVectorLine,
      &DPoolElem::CalcIntfcLocalVectorPlane,     &DPoolElem::CalcFreeFieldLocalVectorLine,
      &DPoolElem::CalcFreeFieldLocalVectorPlane, &DPoolElem::CalcFluidBndLocalVectorLine,
      &DPoolElem::CalcFluidBndLocalVectorPlane,  &DPoolElem::Calc2DElemLocalVector,
  };
  const auto special = std::find_if(std::begin(kSpecialTypes), std::end(kSpecialTypes),
                                    [&](const SpecialTypes& row) {
                                      return row.first <= element.type && element.type <= row.last;
                                    });
  const Family family = special == std::end(kSpecialTypes) ? Family::kSpring : special->family;
  return (this->*kRules[static_cast<std::size_t>(family)])(element, axes);
}

int DPoolElem::CalcSpringLocalVector(const tagTElem& element, double axes[3][3]) const {
  Vector3 p1;
  if (element.nodes.IsEmpty() || !IsPositionOf(element, 0, p1)) return 0;
  const bool has_line = element.nodes.GetSize() >= 2;
  Vector3 p2 = p1;
  if (has_line && !IsPositionOf(element, 1, p2)) return 0;

  enum How { kSystem, kVector, kNode, kElement };
  const auto* properties = GetSession()->GetPool<DPool<tagTSprop>>(code::kSprop);
  const ITR stored = properties ? properties->Find(element.key) : 0;
  const tagTSprop& property = stored ? properties->GetAtNU(stored) : tagTSprop::GTCD();
  const auto* systems = GetSession()->GetPool<DPoolCord>(code::kCord);
  Triad triad;
  if (property.csys_type == kSystem && property.coordinate_system) {
    const tagTCord& system = systems->GetAtNU(property.coordinate_system);
    return Give(systems->GetAxesAt(system, p1, triad), triad, axes);
  }
  if (property.csys_type == kVector) {
    Vector3 w(property.reference_vector);
    if (has_line && Distance(p1, p2) >= kShortestElement) {
      return Give(LineAxes(p1, p2, TurnedReference(p1, p2, w), triad), triad, axes);
    }
    // An element without length lies along its vector.
    if (!Normalize(w)) return 0;
    p2 = p1 + w;
  } else if (property.csys_type == kNode) {
    const double a[3] = {p1.x, p1.y, p1.z};
    const double b[3] = {p2.x, p2.y, p2.z};
    return Calc1DElemLocalVector(a, b, property.reference_node, axes);
  } else if (!has_line) {
    // A single node has no line: the default system counts.
    Frame frame;
    return Give(systems->GetFrame(systems->GetDefaultItr(), frame), frame.axes, axes);
  }
  // As a line element of the default orientation would be turned, save that a vertical line has
  // axes here in every edition.
  const bool vertical = IsVertical(p1, p2, kShortestElement);
  return Give(LineAxesByAngle(p1, p2, 90.0, vertical, triad), triad, axes);
}

// ---- interface, free field, fluid boundary ------------------------------------------------------

int DPoolElem::CalcIntfcLocalVectorLine(const double p1[3], const double p2[3],
                                        const double along[3], double axes[3][3]) const {
  Triad triad;
  if (!BoundaryLineAxes(Vector3(p1), Vector3(p2), triad)) return 0;
  PointAlong(Vector3(along), triad);
  return Give(true, triad, axes);
}

int DPoolElem::CalcIntfcLocalVectorLine(const tagTElem& element, double axes[3][3]) const {
  Vector3 p1;
  Vector3 p2;
  Triad triad;
  return Give(EndsOf(element, p1, p2) && BoundaryLineAxes(p1, p2, triad), triad, axes);
}

int DPoolElem::CalcIntfcLocalVectorLine(const tagTElem& element, const tagTEcrd& orientation,
                                        double axes[3][3]) const {
  if (!Calc1DElemLocalVector(element, orientation, axes)) return 0;
  Triad triad = Triad::From(axes);
  PointAlong(Vector3(orientation.intersection_x), triad);
  return Give(true, triad, axes);
}

int DPoolElem::CalcIntfcLocalVectorPlane(const tagTElem& element, double axes[3][3]) const {
  return Calc2DElemLocalVector(element, axes);
}

int DPoolElem::CalcFreeFieldLocalVectorLine(const tagTElem& element, double axes[3][3]) const {
  Vector3 p1;
  Vector3 p2;
  Triad triad;
  if (!EndsOf(element, p1, p2) || !BoundaryLineAxes(p1, p2, triad)) return 0;
  PointAlong(kUp, triad);
  return Give(true, triad, axes);
}

int DPoolElem::CalcFreeFieldLocalVectorPlane(const tagTElem& element, double axes[3][3]) const {
  Triad triad;
  const Corners corners = CornersOf(element);
  if (!PlaneAxes(corners.Span(), triad)) return 0;
  // x level, so that y rises; a level plane keeps x along its first edge.
  Vector3 level;
  if (UnitNormal(kUp, triad.z, level)) triad = {level, Cross(triad.z, level), triad.z};
  return Give(true, triad, axes);
}

int DPoolElem::CalcFluidBndLocalVectorLine(const tagTElem& element, double axes[3][3]) const {
  return CalcIntfcLocalVectorLine(element, axes);
}

int DPoolElem::CalcFluidBndLocalVectorPlane(const tagTElem& element, double axes[3][3]) const {
  return Calc2DElemLocalVector(element, axes);
}

// ---- material axes ------------------------------------------------------------------------------

int DPoolElem::GetElemMatlVector(ITR pos, double axes[3][3]) const {
  return Set().IsLinked(pos) && GetElemMatlVector(GetAtNU(pos), axes);
}

int DPoolElem::GetElemMatlVector(const tagTElem& element, double axes[3][3]) const {
  if (element.type >= 4 && element.type <= 7) {
    const auto* systems = GetSession()->GetPool<DPool<tagTE2DMatlCsys>>(code::kE2DMatlCsys);
    if (const ITR pos = systems && !systems->IsEmpty() ? Find(element.key) : 0) {
      const Row& row = *systems->GetSchema().Find(u"_ARGKEY");
      const std::span<const ITR> listing = References().Users(*systems, row, pos);
      if (!listing.empty()) {
        return Calc2DElemMatlVector(element, systems->GetAtNU(listing.back()), axes);
      }
    }
  }
  if (element.type < 8 || element.type > 15) return GetElemLocalVector(element, axes);
  const auto* triads = GetSession()->GetPool<DPool<tagTE3DMatlCsys>>(code::kE3DMatlCsys);
  const ITR stored = triads ? triads->Find(element.key) : 0;
  return stored ? Calc3DElemMatlVector(triads->GetAtNU(stored), axes) : Give(true, Triad(), axes);
}

int DPoolElem::Calc2DElemMatlVector(const tagTElem& element, const tagTE2DMatlCsys& system,
                                    double axes[3][3]) const {
  Triad triad;
  const Corners corners = CornersOf(element);
  if (system.type == tagTE2DMatlCsys::kByAngle) {
    if (!std::isfinite(system.angle_deg) || !PlaneAxes(corners.Span(), triad)) return 0;
    triad.x = Rotated(triad.x, triad.z, system.angle_deg);
    triad.y = Cross(triad.z, triad.x);
    return Give(true, triad, axes);
  }
  Vector3 along(system.reference_vector);
  if (system.type == tagTE2DMatlCsys::kByCoordinateSystem) {
    // Where the directions of the system change from place to place, those at the centre count.
    double center[3];
    const auto* systems = GetSession()->GetPool<DPoolCord>(code::kCord);
    Triad at_center;
    if (system.csys_axis < 0 || system.csys_axis > 2 || !GetElemCenter(element, center)) return 0;
    if (system.coordinate_system && !systems->GetAxesAt(systems->GetAtNU(system.coordinate_system),
                                                        Vector3(center), at_center)) {
      return 0;
    }
    const Vector3* axis[] = {&at_center.x, &at_center.y, &at_center.z};
    along = *axis[system.csys_axis];
  } else if (system.type != tagTE2DMatlCsys::kByVector) {
    return 0;
  }
  return Give(PlaneAxes(corners.Span(), along, triad), triad, axes);
}

int DPoolElem::Calc3DElemMatlVector(const tagTE3DMatlCsys& system, double axes[3][3]) const {
  Vector3 x(system.x_axis);
  Vector3 y(system.y_axis);
  Vector3 z(system.z_axis);
  if (Dot(x, x) == 0) {
    // As in a new record, which leaves x to follow from y and z.
    if (!Normalize(y) || !Normalize(z) || !UnitNormal(y, z, x)) return 0;
    return Give(true, {x, y, Cross(x, y)}, axes);
  }
  if (!Normalize(x) || !Normalize(y) || !UnitNormal(x, y, z)) return 0;
  return Give(true, {x, Cross(z, x), z}, axes);
}

}  // namespace qx
