#include "qx_db/model/cad_session.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>

namespace qx {

const char* EdgeKindName(EdgeKind kind) {
  constexpr const char* kNames[] = {"none",     "line",   "arc",   "circle",    "ellipse",
                                    "polyline", "spline", "other", "degenerate"};
  const auto i = static_cast<std::size_t>(kind);
  return i < std::size(kNames) ? kNames[i] : kNames[0];
}

ICADSession::~ICADSession() = default;

bool ICADSession::IsClosed(int edge) const {
  double ends[2];
  CadPoint points[2];
  return GetEdgeParameters(edge, ends[0], ends[1]) && GetPoints(edge, ends, points) &&
         Distance(points[0], points[1]) <= 1e-6 * GetEdgeLength(edge);
}

bool FindNearest(const ICADSession& cad, int edge, const CadPoint& to, double& parameter,
                 double& distance) {
  constexpr std::size_t kSamples = 129;
  const double length = cad.GetEdgeLength(edge);
  if (!(length > 0) || !IsFinite(to)) return false;
  std::array<double, kSamples> at;
  std::array<CadPoint, kSamples> points;
  for (std::size_t i = 0; i < kSamples; ++i) {
    at[i] = length * static_cast<double>(i) / (kSamples - 1);
  }
  if (!cad.GetParametersAtLengths(edge, at, at.data())) return false;
  if (!cad.GetPoints(edge, at, points.data())) return false;
  std::size_t best = 0;
  for (std::size_t i = 1; i < kSamples; ++i) {
    if (Distance(points[i], to) < Distance(points[best], to)) best = i;
  }
  // The distance has one minimum between the neighbours of the best sample; halve on the sign of
  // its derivative there.
  double low = at[best > 0 ? best - 1 : 0];
  double high = at[std::min(best + 1, kSamples - 1)];
  parameter = at[best];
  distance = Distance(points[best], to);
  for (int step = 0; step < 100 && high - low > 0; ++step) {
    const double middle = low + (high - low) / 2;
    CadPoint point;
    CadPoint tangent;
    if (!cad.GetPoint(edge, middle, point) || !cad.GetTangent(edge, middle, tangent)) return false;
    if (Distance(point, to) < distance) {
      distance = Distance(point, to);
      parameter = middle;
    }
    if (middle <= low || middle >= high) break;
    (Dot(point - to, tangent) > 0 ? high : low) = middle;
  }
  return true;
}

}  // namespace qx
