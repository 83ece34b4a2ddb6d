#include "qx_db/model/element_axes.h"

#include <algorithm>
#include <limits>

#include "qx_db/core/belongings.h"
#include "qx_db/core/session.h"
#include "qx_db/lib/message.h"
#include "qx_db/lib/variants.h"
#include "qx_db/model/corners.h"
#include "qx_db/model/mesh_coordinate_pool.h"
#include "qx_db/model/mesh_pools.h"
#include "qx_db/record/verbs.h"

namespace qx {

// ---- geometry -----------------------------------------------------------------------------------

double RoundingOf(std::span<const Vector3> points) {
  double largest = 0;
  for (const Vector3& p : points) {
    largest = std::max({largest, std::abs(p.x), std::abs(p.y), std::abs(p.z)});
  }
  constexpr double kUnits = 8;
  return kUnits * std::numeric_limits<double>::epsilon() * largest;
}

namespace {

/// What DPoolElem::IsValidEcrd accepts is never rounding: a reference node at that distance from
/// the line, and a reference vector at that angle to it, as a sine.
constexpr double kAcceptedDistance = 1e-7;
constexpr double kAcceptedSine = 1.3e-7;

bool UnitNormalBeyond(const Vector3& a, const Vector3& b, double parallel, Vector3& normal) {
  normal = Cross(a, b);
  return Normalize(normal, parallel);
}

}  // namespace

bool LineAxes(const Vector3& p1, const Vector3& p2, const Vector3& reference, Triad& axes,
              double parallel) {
  Vector3 x = p2 - p1;
  const double length = Length(x);
  if (!(length >= kShortestElement) || !std::isfinite(length)) return false;
  x = (1 / length) * x;
  Vector3 z0 = reference;
  Vector3 y;
  if (!Normalize(z0) || !UnitNormalBeyond(z0, x, parallel, y)) return false;
  axes = {x, y, Cross(x, y)};
  return true;
}

Vector3 TurnedReference(const Vector3& p1, const Vector3& p2, const Vector3& reference) {
  if (IsVariantA() || IsVariantC()) return reference;
  Vector3 x = p2 - p1;
  Normalize(x);
  return QuarterTurned(reference, x);
}

bool LineAxesByAngle(const Vector3& p1, const Vector3& p2, double beta_deg, bool vertical,
                     Triad& axes) {
  if (!std::isfinite(beta_deg)) return false;
  Vector3 reference = vertical ? Vector3(1, 0, 0) : Vector3(0, 0, 1);
  if (std::abs(beta_deg) > 1e-8) {
    Vector3 x = p2 - p1;
    if (!Normalize(x)) return false;
    reference = Rotated(reference, x, beta_deg);
  }
  return LineAxes(p1, p2, reference, axes);
}

bool IsVertical(const Vector3& p1, const Vector3& p2, double shortest) {
  const Vector3 d = p1 - p2;
  const double length = Length(d);
  if (!(length >= shortest)) return false;
  return std::sqrt(d.x * d.x + d.y * d.y) / length < 0.01;
}

void CleanAxes(Triad& axes) {
  for (Vector3* axis : {&axes.x, &axes.y, &axes.z}) {
    for (int i = 0; i < 3; ++i) {
      if (std::abs((*axis)[i]) < 1e-13) (*axis)[i] = 0;
    }
  }
}

bool PlaneAxes(std::span<const Vector3> corners, const Vector3& along, Triad& axes) {
  if (corners.size() < 3) return false;
  const bool is_triangle = corners.size() == 3;
  Vector3 a = is_triangle ? corners[1] - corners[0] : corners[2] - corners[0];
  Vector3 b = is_triangle ? corners[2] - corners[0] : corners[3] - corners[1];
  Vector3 z;
  const double shorter = std::min(Length(a), Length(b));
  const double parallel =
      shorter > 0 ? std::max(kParallelTolerance, RoundingOf(corners) / shorter) : 1;
  if (!Normalize(a) || !Normalize(b) || !UnitNormalBeyond(a, b, parallel, z)) return false;
  Vector3 x = along;
  if (!Normalize(x)) return false;
  x = Across(x, z);
  if (!Normalize(x, kParallelTolerance)) return false;
  axes = {x, Cross(z, x), z};
  return true;
}

bool PlaneAxes(std::span<const Vector3> corners, Triad& axes) {
  return corners.size() >= 3 && PlaneAxes(corners, corners[1] - corners[0], axes);
}

// ---- elements -----------------------------------------------------------------------------------

bool DPoolElem::IsPositionOf(const tagTElem& element, int index, Vector3& p) const {
  const ITR node = element.nodes[index];
  if (!IsLive(node)) return false;
  p = Nodes().Position(node);
  return true;
}

bool DPoolElem::EndsOf(const tagTElem& element, Vector3& p1, Vector3& p2) const {
  return element.nodes.GetSize() >= 2 && IsPositionOf(element, 0, p1) &&
         IsPositionOf(element, 1, p2);
}

Corners DPoolElem::CornersOf(const tagTElem& element) const {
  Corners corners;
  const std::size_t count = CornersOfFirstFace(element.type, element.nodes.GetSize());
  for (std::size_t i = 0; i < count; ++i) {
    if (!IsPositionOf(element, static_cast<int>(i), corners.points[i])) return {};
  }
  corners.count = count;
  return corners;
}

namespace {

/// By the orientation stored for it; 0 for none.
int AxesOf(const DPoolElem& elements, const tagTElem& element, const DPoolEcrd& orientations,
           ITR stored, double axes[3][3]) {
  Triad{{}, {}, {}}.CopyTo(axes);
  if (stored) {
    const tagTEcrd& orientation = orientations.GetAtNU(stored);
    return element_rule::IsInterfaceLine(element.type)
               ? elements.CalcIntfcLocalVectorLine(element, orientation, axes)
               : elements.Calc1DElemLocalVector(element, orientation, axes);
  }
  if (element_rule::HasDefaultOrientation(element.type)) {
    return elements.Calc1DElemLocalVector(element, tagTEcrd(), axes);
  }
  return element.type < 31 ? elements.Calc2DElemLocalVector(element, axes)
                           : elements.CalcSpecialElemLocalVector(element, axes);
}

}  // namespace

int DPoolElem::GetElemLocalVector(ITR pos, double axes[3][3]) const {
  const auto& orientations = *GetSession()->GetPool<DPoolEcrd>(code::kEcrd);
  if (Set().IsLinked(pos)) {
    const ITR stored = orientations.IsEmpty() ? 0 : GetSession()->Owned().Find(code::kEcrd, pos);
    return AxesOf(*this, GetAtNU(pos), orientations, stored, axes);
  }
  Triad{{}, {}, {}}.CopyTo(axes);
  return 0;
}

int DPoolElem::GetElemLocalVector(const tagTElem& element, double axes[3][3]) const {
  const auto& orientations = *GetSession()->GetPool<DPoolEcrd>(code::kEcrd);
  const ITR stored = orientations.IsEmpty() ? 0 : orientations.Find(element.key);
  return AxesOf(*this, element, orientations, stored, axes);
}

int DPoolElem::Calc1DElemLocalVector(const tagTElem& element, const tagTEcrd& orientation,
                                     double axes[3][3]) const {
  Vector3 p1;
  Vector3 p2;
  if (!EndsOf(element, p1, p2)) return 0;
  const double a[3] = {p1.x, p1.y, p1.z};
  const double b[3] = {p2.x, p2.y, p2.z};
  switch (orientation.method) {
    case tagTEcrd::kByNode:
      return Calc1DElemLocalVector(a, b, orientation.reference_node, axes);
    case tagTEcrd::kByVector: {
      const double w[3] = {orientation.reference_vector.x, orientation.reference_vector.y,
                           orientation.reference_vector.z};
      return Calc1DElemLocalVector(a, b, w, axes);
    }
    case tagTEcrd::kByBetaAngle:
      return Calc1DElemLocalVector(a, b, orientation.beta_angle_deg, axes, -1);
    case tagTEcrd::kByCoordinateSystem:
      break;
    default:
      return 0;
  }
  const auto* systems = GetSession()->GetPool<DPoolCord>(code::kCord);
  const ITR given = orientation.coordinate_system;
  const ITR system = given ? given : systems->GetDefaultItr();
  if (system && systems->GetAtNU(system).type != tagTCord::kRectangular) return 0;
  Frame frame;
  return Give(systems->GetFrame(system, frame), frame.axes, axes);
}

int DPoolElem::Calc1DElemLocalVector(const double p1[3], const double p2[3], ITR reference_node,
                                     double axes[3][3]) const {
  if (!IsLive(reference_node)) return 0;
  const Vector3 a(p1);
  const Vector3 d = Vector3(p2) - a;
  if (!(Length(d) >= kShortestElement)) return 0;
  const Vector3 r = Nodes().Position(reference_node);
  const Vector3 points[] = {a, Vector3(p2), r};
  if (DistanceToLine(r, a, d) < std::min(RoundingOf(points), kAcceptedDistance)) return 0;
  const Vector3 v = r - FootOnLine(r, a, d);
  const double w[3] = {v.x, v.y, v.z};
  return Calc1DElemLocalVector(p1, p2, w, axes);
}

int DPoolElem::Calc1DElemLocalVector(const double p1[3], const double p2[3],
                                     const double reference_vector[3], double axes[3][3]) const {
  const Vector3 a(p1);
  const Vector3 b(p2);
  const Vector3 points[] = {a, b};
  const double length = Distance(a, b);
  const double rounding = length > 0 ? std::min(RoundingOf(points) / length, kAcceptedSine) : 0;
  Triad triad;
  if (!LineAxes(a, b, TurnedReference(a, b, Vector3(reference_vector)), triad,
                std::max(rounding, kParallelTolerance))) {
    return 0;
  }
  CleanAxes(triad);
  return Give(true, triad, axes);
}

// Deliberate: axes by angle are not cleaned of rounding, unlike those by node and by vector.
int DPoolElem::Calc1DElemLocalVector(const double p1[3], const double p2[3], double beta_deg,
                                     double axes[3][3], int vertical) const {
  const bool decided = vertical == 0 || vertical == 1;
  const bool is_vertical = decided ? vertical == 1 : IsVerticalFrame(p1, p2) != 0;
  Triad triad;
  return Give(LineAxesByAngle(Vector3(p1), Vector3(p2), beta_deg, is_vertical, triad), triad, axes);
}

int DPoolElem::IsVerticalFrame(const double p1[3], const double p2[3]) const {
  const double shortest = GetSession()->Units().Out(unit::kLength, kShortestElement);
  return IsVertical(Vector3(p1), Vector3(p2), shortest);
}

int DPoolElem::IsValidEcrd(const tagTElem& element, const tagTEcrd& orientation) const {
  const auto refuse = [&](const char* text) {
    qxMsgOut(Severity::kRefusal, text, {std::to_string(element.key)});
    return 0;
  };
  const bool by_node = orientation.method == tagTEcrd::kByNode;
  if (!by_node && orientation.method != tagTEcrd::kByVector) return 1;
  constexpr const char* kOnLine = "IDS_QX_MESH_1D_ON_LINE";
  constexpr const char* kParallel = "IDS_QX_MESH_1D_PARALLEL_ERROR";
  Vector3 p1;
  Vector3 p2;
  if (!EndsOf(element, p1, p2)) return refuse(by_node ? kOnLine : kParallel);
  if (by_node) {
    const ITR node = orientation.reference_node;
    if (!IsLive(node)) return refuse(kOnLine);
    // Written so that a number that is none is refused as well.
    const double distance = DistanceToLine(Nodes().Position(node), p1, p2 - p1);
    return distance >= 1e-7 ? 1 : refuse(kOnLine);
  }
  // Deliberate: not 180. A direction within 1e-5 degrees of the opposite one, as measured from
  // here, is refused.
  constexpr double kOpposite = 180.00000210110483;
  const double angle = AngleBetween(p2 - p1, Vector3(orientation.reference_vector));
  return angle >= 1e-5 && std::abs(angle - kOpposite) >= 1e-5 ? 1 : refuse(kParallel);
}

int DPoolElem::Get1DElemCord(ITR pos, tagTCord& out) const {
  if (!Set().IsLinked(pos)) return 0;
  const tagTElem& element = GetAtNU(pos);
  tagTEcrd orientation;
  if ((element.type != 2 && element.type != 3) || !GetElemCSys(pos, orientation)) return 0;
  double axes[3][3];
  Vector3 p1;
  Vector3 p2;
  if (!EndsOf(element, p1, p2) || !Calc1DElemLocalVector(element, orientation, axes)) return 0;
  const tagTCord fresh;
  out.plane = fresh.plane;
  out.type = fresh.type;
  out.reference = fresh.reference;
  out.method = tagTCord::kByPoints;
  out.origin = p1.As<tagTVector3<double>>();
  out.axis_point = p2.As<tagTVector3<double>>();
  out.plane_point = (p1 + Vector3(axes[1])).As<tagTVector3<double>>();
  return 1;
}

// ---- plane elements -----------------------------------------------------------------------------

int DPoolElem::Calc2DElemLocalVector(const tagTElem& element, double axes[3][3]) const {
  Triad triad;
  return Give(PlaneAxes(CornersOf(element).Span(), triad), triad, axes);
}

int DPoolElem::Calc2DElemLocalVector(const tagTElem& element, const double reference[3],
                                     double axes[3][3]) const {
  Triad triad;
  return Give(PlaneAxes(CornersOf(element).Span(), Vector3(reference), triad), triad, axes);
}

int DPoolElem::Calc2DElemVectorAngle(const tagTElem& element, const double v[3],
                                     double& angle_deg) const {
  Triad triad;
  Triad turned;
  const Corners corners = CornersOf(element);
  if (!PlaneAxes(corners.Span(), triad)) return 0;
  if (!PlaneAxes(corners.Span(), Vector3(v), turned)) return 0;
  angle_deg = SignedAngle(triad.x, turned.x, triad.z);
  return 1;
}

int DPoolElem::Calc2DElemVectorAngle(const tagTElem& element, const double from[3],
                                     const double to[3], double& angle_deg) const {
  Triad a;
  Triad b;
  const Corners corners = CornersOf(element);
  if (!PlaneAxes(corners.Span(), Vector3(from), a)) return 0;
  if (!PlaneAxes(corners.Span(), Vector3(to), b)) return 0;
  angle_deg = SignedAngle(a.x, b.x, a.z);
  return 1;
}

// ---- points and nodal systems -------------------------------------------------------------------

int DPoolElem::GetElemCenter(const tagTElem& element, double center[3]) const {
  Vector3 sum;
  const int count = element.nodes.GetSize();
  for (int i = 0; i < count; ++i) {
    Vector3 p;
    if (!IsPositionOf(element, i, p)) return 0;
    sum += p;
  }
  if (count == 0) return 0;
  (1.0 / count * sum).CopyTo(center);
  return 1;
}

int DPoolElem::GetElemCenter(ITR pos, double center[3]) const {
  return Set().IsLinked(pos) && GetElemCenter(GetAtNU(pos), center);
}

int DPoolElem::GetElemAxisByNodalCSys(ITR node, double v[3]) const {
  auto* assignments = GetSession()->GetPool<DPoolMeshCsys>(code::kMeshCsys);
  const ITR system = assignments && IsLive(node) ? assignments->GetNodeCSysItr(node) : 0;
  if (system == 0) return 0;
  const auto* systems = GetSession()->GetPool<DPoolCord>(code::kCord);
  const tagTCord& record = systems->GetAtNU(system);
  if (record.key == DPoolCord::kDefaultKey) return 1;
  // Node and system in the same units: directions do not depend on which, so they stay as stored.
  // They do depend on the place, where the system is not rectangular.
  Triad axes;
  if (!systems->GetAxesAt(record, Nodes().Position(node), axes)) return 0;
  axes.ToLocal(Vector3(v)).CopyTo(v);
  return 1;
}

}  // namespace qx
