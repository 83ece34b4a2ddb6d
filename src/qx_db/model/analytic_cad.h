#pragma once
// A CAD session of curves given by formulas: lines, arcs, circles, polylines and cubic splines.
// Threads: a CAD session is for one at a time.

#include <memory>

#include "qx_db/model/cad_session.h"
#include "qx_db/platform/outcome.h"

namespace qx {

class AnalyticCurve;

/// Geometry built by calls. Each Add gives the new edge the next number and returns it, or fails
/// and adds nothing when the input makes no such curve (values that are not finite, points that
/// coincide). Lengths are in the unit of the points.
class QXDB_API AnalyticCad : public ICADSession {
 public:
  AnalyticCad();
  ~AnalyticCad() override;

  /// Parameter 0 to 1. Two equal points give a degenerate edge.
  Result<int> AddLine(const CadPoint& from, const CadPoint& to);
  /// About an axis through `center`, from `start` through `angle_rad` (at most a full turn, either
  /// way round). Parameter 0 to |angle|. A full turn is a circle. `axis` need not be a unit vector
  /// but must be at right angles to the radius.
  Result<int> AddArc(const CadPoint& center, const CadPoint& axis, const CadPoint& start,
                     double angle_rad);
  Result<int> AddCircle(const CadPoint& center, const CadPoint& axis, const CadPoint& start);
  /// Straight pieces; parameter i at point i.
  Result<int> AddPolyline(std::span<const CadPoint> points);
  /// The natural cubic spline through the points; parameter i at point i.
  Result<int> AddSpline(std::span<const CadPoint> points);

  /// A body of that kind; its number.
  int AddBody(const std::string& kind);
  /// A face of a body, of that kind, bounded by edges; its number. Edges without a body get this
  /// one. Fails for a body or an edge that is not there.
  Result<int> AddFace(int body, const std::string& kind, std::span<const CadEdgeUse> edges);

  int GetEdgeCount() const override { return static_cast<int>(curves_.size()); }
  EdgeKind GetEdgeKind(int edge) const override;
  double GetEdgeLength(int edge) const override;
  bool GetEdgeParameters(int edge, double& first, double& last) const override;
  bool GetPoints(int edge, std::span<const double> parameters, CadPoint* out) const override;
  bool GetTangent(int edge, double parameter, CadPoint& out) const override;
  bool GetParametersAtLengths(int edge, std::span<const double> lengths,
                              double* out) const override;
  bool GetLengthAt(int edge, double parameter, double& out) const override;
  const CadTopology& GetTopology() const override { return topology_; }

 private:
  int Take(std::unique_ptr<AnalyticCurve> curve);
  /// Null when there is no such edge.
  const AnalyticCurve* Find(int edge) const;
  /// The same, but null for a degenerate edge as well.
  const AnalyticCurve* FindCurve(int edge) const;

  std::vector<std::unique_ptr<AnalyticCurve>> curves_;
  CadTopology topology_;
};

}  // namespace qx
