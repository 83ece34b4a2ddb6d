#include "qx_db/model/analytic_cad.h"

#include <algorithm>

#include "qx_db/model/analytic_curves.h"

namespace qx {
namespace {

Failure BadCurve(const char* curve, const char* what, const char* remedy) {
  return {"", curve, what, remedy};
}

Outcome CheckPoints(const char* curve, std::span<const CadPoint> points) {
  if (!std::all_of(points.begin(), points.end(), IsFinite)) {
    return BadCurve(curve, "a coordinate is not a finite number", "correct the points");
  }
  if (points.size() < 2) {
    return BadCurve(curve, "fewer than two points", "give at least two points");
  }
  const auto same =
      std::adjacent_find(points.begin(), points.end(),
                         [](const auto& a, const auto& b) { return !(Distance(a, b) > 0); });
  if (same != points.end()) {
    return BadCurve(curve, "two neighbouring points coincide", "leave one of them out");
  }
  return {};
}

/// Whether every value is within [0, last], a NaN excluded; rounding may have gone a little past.
bool InRange(std::span<const double> values, double last) {
  const double slack = 1e-12 * last;
  return std::all_of(values.begin(), values.end(),
                     [&](double value) { return value >= -slack && value <= last + slack; });
}

}  // namespace

AnalyticCad::AnalyticCad() = default;
AnalyticCad::~AnalyticCad() = default;

// ---- building -----------------------------------------------------------------------------------

int AnalyticCad::Take(std::unique_ptr<AnalyticCurve> curve) {
  topology_.edge_bodies.push_back(0);
  curves_.push_back(std::move(curve));
  return GetEdgeCount();
}

Result<int> AnalyticCad::AddLine(const CadPoint& from, const CadPoint& to) {
  if (!IsFinite(from) || !IsFinite(to)) {
    return BadCurve("line", "a coordinate is not a finite number", "correct the points");
  }
  return Take(std::make_unique<LineCurve>(from, to));
}

Result<int> AnalyticCad::AddArc(const CadPoint& center, const CadPoint& axis, const CadPoint& start,
                                double angle_rad) {
  constexpr double kTurn = 2 * std::numbers::pi;
  const CadPoint radius = start - center;
  const double size = Length(axis);
  if (!IsFinite(radius) || !(size > 0) || !std::isfinite(size) || !(Length(radius) > 0)) {
    return BadCurve("arc", "has no radius or no axis", "give a start off the center, and an axis");
  }
  if (std::fabs(Dot(radius, axis)) > 1e-9 * Length(radius) * size) {
    return BadCurve("arc", "the axis is not at right angles to the radius", "correct the axis");
  }
  if (!(std::fabs(angle_rad) > 0 && std::fabs(angle_rad) <= kTurn)) {
    return BadCurve("arc", "the angle is zero or more than a turn", "give an angle within a turn");
  }
  const CadPoint across = ((angle_rad < 0 ? -1 : 1) / size) * Cross(axis, radius);
  return Take(std::make_unique<ArcCurve>(center, radius, across, std::fabs(angle_rad)));
}

Result<int> AnalyticCad::AddCircle(const CadPoint& center, const CadPoint& axis,
                                   const CadPoint& start) {
  return AddArc(center, axis, start, 2 * std::numbers::pi);
}

Result<int> AnalyticCad::AddPolyline(std::span<const CadPoint> points) {
  if (Outcome checked = CheckPoints("polyline", points); !checked) return checked.Error();
  return Take(std::make_unique<PolylineCurve>(points));
}

Result<int> AnalyticCad::AddSpline(std::span<const CadPoint> points) {
  if (Outcome checked = CheckPoints("spline", points); !checked) return checked.Error();
  return Take(std::make_unique<SplineCurve>(points));
}

int AnalyticCad::AddBody(const std::string& kind) {
  topology_.bodies.push_back(kind);
  return static_cast<int>(topology_.bodies.size());
}

Result<int> AnalyticCad::AddFace(int body, const std::string& kind,
                                 std::span<const CadEdgeUse> edges) {
  if (body < 0 || body > static_cast<int>(topology_.bodies.size())) {
    return Failure{"", "body " + std::to_string(body), "is not there", "add it first"};
  }
  for (const CadEdgeUse& use : edges) {
    if (HasEdge(use.edge)) continue;
    return Failure{"", "edge " + std::to_string(use.edge), "is not there", "add it first"};
  }
  const int number = static_cast<int>(topology_.faces.size()) + 1;
  topology_.faces.push_back({number, body, kind, {edges.begin(), edges.end()}});
  for (const CadEdgeUse& use : edges) {
    int& owner = topology_.edge_bodies[static_cast<std::size_t>(use.edge - 1)];
    if (owner == 0) owner = body;
  }
  return number;
}

// ---- queries ------------------------------------------------------------------------------------

const AnalyticCurve* AnalyticCad::Find(int edge) const {
  return HasEdge(edge) ? curves_[static_cast<std::size_t>(edge - 1)].get() : nullptr;
}

const AnalyticCurve* AnalyticCad::FindCurve(int edge) const {
  const AnalyticCurve* curve = Find(edge);
  return curve && curve->Kind() != EdgeKind::kDegenerate ? curve : nullptr;
}

EdgeKind AnalyticCad::GetEdgeKind(int edge) const {
  const AnalyticCurve* curve = Find(edge);
  return curve ? curve->Kind() : EdgeKind::kNone;
}

double AnalyticCad::GetEdgeLength(int edge) const {
  const AnalyticCurve* curve = Find(edge);
  return curve ? curve->Length() : 0;
}

bool AnalyticCad::GetEdgeParameters(int edge, double& first, double& last) const {
  const AnalyticCurve* curve = Find(edge);
  if (!curve) return false;
  first = 0;
  last = curve->Last();
  return true;
}

bool AnalyticCad::GetPoints(int edge, std::span<const double> parameters, CadPoint* out) const {
  const AnalyticCurve* curve = FindCurve(edge);
  if (!curve || !InRange(parameters, curve->Last())) return false;
  curve->Points(parameters, out);
  return true;
}

bool AnalyticCad::GetTangent(int edge, double parameter, CadPoint& out) const {
  const AnalyticCurve* curve = FindCurve(edge);
  if (!curve || !InRange({&parameter, 1}, curve->Last())) return false;
  const CadPoint derivative = curve->Derivative(parameter);
  const double speed = Length(derivative);
  if (!(speed > 0)) return false;
  out = (1 / speed) * derivative;
  return true;
}

bool AnalyticCad::GetParametersAtLengths(int edge, std::span<const double> lengths,
                                         double* out) const {
  const AnalyticCurve* curve = FindCurve(edge);
  if (!curve || !InRange(lengths, curve->Length())) return false;
  curve->ParametersAt(lengths, out);
  return true;
}

bool AnalyticCad::GetLengthAt(int edge, double parameter, double& out) const {
  const AnalyticCurve* curve = FindCurve(edge);
  if (!curve || !InRange({&parameter, 1}, curve->Last())) return false;
  out = curve->LengthAt(parameter);
  return true;
}

}  // namespace qx
