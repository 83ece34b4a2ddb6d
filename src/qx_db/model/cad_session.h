#pragma once
// What seeding asks of geometry: an interface to the CAD session of the application.

#include <span>
#include <string>
#include <vector>

#include "qx_db/export.h"
#include "qx_db/lib/math.h"
#include "qx_db/record/values.h"

namespace qx {

/// A point or a direction, in the model's length unit.
using CadPoint = Vector3;

/// What curve an edge lies on. A degenerate edge has no length (the tip of a cone).
enum class EdgeKind {
  kNone,
  kLine,
  kArc,
  kCircle,
  kEllipse,
  kPolyline,
  kSpline,
  kOther,
  kDegenerate
};

/// "line", "arc", ...; "none" for an edge that is not there.
QXDB_API const char* EdgeKindName(EdgeKind kind);

/// An edge as a face uses it; uses of one loop follow each other round the face.
struct CadEdgeUse {
  int edge = 0;
  bool reversed = false;
  int loop = 0;
};

/// A face: its number, from 1 on, its body (0 for none), what surface it lies on, its edges.
struct CadFace {
  int number = 0;
  int body = 0;
  std::string kind;
  std::vector<CadEdgeUse> edges;
};

/// What belongs to what.
struct CadTopology {
  std::vector<std::string> bodies;  ///< kind of each body ("solid"), numbered from 1 on
  std::vector<CadFace> faces;
  std::vector<int> edge_bodies;  ///< first body of each edge, edge 1 first; 0 for none
};

/// The geometry of one CAD model. Edges are numbered from 1 on. A query about an edge that is not
/// there, or with a value that is not finite, answers false and leaves its output. Not owned by the
/// pools that ask it. Threads: that of its session.
class QXDB_API ICADSession {
 public:
  virtual ~ICADSession();

  virtual int GetEdgeCount() const = 0;
  /// kNone when there is no such edge.
  virtual EdgeKind GetEdgeKind(int edge) const = 0;
  /// 0 when there is no such edge, or a degenerate one.
  virtual double GetEdgeLength(int edge) const = 0;
  /// The parameters at start and end, first < last.
  virtual bool GetEdgeParameters(int edge, double& first, double& last) const = 0;

  /// The points at parameters within the range; `out` has as many places. False for a degenerate
  /// edge, as for all queries below.
  virtual bool GetPoints(int edge, std::span<const double> parameters, CadPoint* out) const = 0;
  /// Unit tangent, in the direction of growing parameter.
  virtual bool GetTangent(int edge, double parameter, CadPoint& out) const = 0;
  /// Parameters at arc lengths from the start, each from 0 to the length. Ascending ones are
  /// fastest. `out` may be the place of the lengths.
  virtual bool GetParametersAtLengths(int edge, std::span<const double> lengths,
                                      double* out) const = 0;
  /// Arc length from the start to a parameter within the range.
  virtual bool GetLengthAt(int edge, double parameter, double& out) const = 0;

  virtual const CadTopology& GetTopology() const = 0;

  bool GetPoint(int edge, double parameter, CadPoint& out) const {
    return GetPoints(edge, {&parameter, 1}, &out);
  }
  bool GetParameterAtLength(int edge, double length, double& out) const {
    return GetParametersAtLengths(edge, {&length, 1}, &out);
  }
  bool HasEdge(int edge) const { return edge >= 1 && edge <= GetEdgeCount(); }
  /// Whether start and end are one point, within a millionth of the length.
  bool IsClosed(int edge) const;
};

/// The point of an edge nearest to a point: its parameter, and how far it is. False for an edge
/// without length. Cost of a few hundred points.
QXDB_API bool FindNearest(const ICADSession& cad, int edge, const CadPoint& to, double& parameter,
                          double& distance);

}  // namespace qx
