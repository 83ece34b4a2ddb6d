#include "adapters/occt/occt_cad.h"

#include <BRepAdaptor_Curve.hxx>
#include <BRep_Tool.hxx>
#include <Precision.hxx>
#include <Standard_Failure.hxx>
#include <TColStd_Array1OfReal.hxx>
#include <TopoDS.hxx>
#include <algorithm>
#include <numbers>
#include <optional>

#include "qx_db/model/arc_length_table.h"

#include "adapters/occt/occt_topology.h"

namespace qx::occt {
namespace {

CadPoint Scaled(const gp_XYZ& xyz, double scale) {
  return {xyz.X() * scale, xyz.Y() * scale, xyz.Z() * scale};
}

EdgeKind KindOf(const BRepAdaptor_Curve& curve) {
  switch (curve.GetType()) {
    case GeomAbs_Line:
      return EdgeKind::kLine;
    case GeomAbs_Circle: {
      const double angle = curve.LastParameter() - curve.FirstParameter();
      return angle > 2 * std::numbers::pi - 1e-9 ? EdgeKind::kCircle : EdgeKind::kArc;
    }
    case GeomAbs_Ellipse:
      return EdgeKind::kEllipse;
    case GeomAbs_BezierCurve:
    case GeomAbs_BSplineCurve:
      if (curve.Degree() != 1) return EdgeKind::kSpline;
      return curve.NbPoles() == 2 && !curve.IsRational() ? EdgeKind::kLine : EdgeKind::kPolyline;
    default:
      return EdgeKind::kOther;
  }
}

/// One edge: its curve, and its arc lengths, tabulated when they are first asked for.
class Edge {
 public:
  Edge(const TopoDS_Edge& edge, double scale) : scale_(scale) {
    if (BRep_Tool::Degenerated(edge)) return;
    curve_.emplace(edge);
    first_ = curve_->FirstParameter();
    last_ = curve_->LastParameter();
    if (Precision::IsInfinite(first_) || Precision::IsInfinite(last_) || !(first_ < last_)) {
      curve_.reset();
      return;
    }
    kind_ = KindOf(*curve_);
    even_ = kind_ == EdgeKind::kLine || kind_ == EdgeKind::kArc || kind_ == EdgeKind::kCircle;
    if (even_) length_ = (last_ - first_) * Speed(first_);
    if (!even_) Tabulate();
    if (!(length_ > 0)) {
      curve_.reset();
      kind_ = EdgeKind::kDegenerate;
      length_ = 0;
    }
  }

  EdgeKind Kind() const { return kind_; }
  double First() const { return first_; }
  double Last() const { return last_; }
  double Length() const { return length_; }
  bool HasCurve() const { return curve_.has_value(); }

  CadPoint Point(double at) const { return Scaled(curve_->Value(at).XYZ(), scale_); }
  CadPoint Derivative(double at) const {
    gp_Pnt point;
    gp_Vec derivative;
    curve_->D1(at, point, derivative);
    return Scaled(derivative.XYZ(), scale_);
  }
  double ParameterAt(double length, std::size_t& cell) const {
    if (even_) return first_ + (last_ - first_) * (length / length_);
    return table_.ParameterAt(
        length, [this](double t) { return Speed(t); }, cell);
  }
  double LengthAt(double at) const {
    if (even_) return length_ * ((at - first_) / (last_ - first_));
    return table_.LengthAt(at, [this](double t) { return Speed(t); });
  }

 private:
  double Speed(double at) const { return qx::Length(Derivative(at)); }

  void Tabulate() {
    const int pieces = curve_->NbIntervals(GeomAbs_C3);
    TColStd_Array1OfReal breaks(1, pieces + 1);
    curve_->Intervals(breaks, GeomAbs_C3);
    const std::vector<double> at(breaks.begin(), breaks.end());
    table_.Build(at, [this](double t) { return Speed(t); });
    length_ = table_.Length();
  }

  std::optional<BRepAdaptor_Curve> curve_;
  double scale_;
  double first_ = 0;
  double last_ = 0;
  double length_ = 0;
  EdgeKind kind_ = EdgeKind::kDegenerate;
  bool even_ = false;  // constant speed
  ArcLengthTable table_;
};

class OcctCad final : public ICADSession {
 public:
  OcctCad(const TopoDS_Shape& shape, double scale) {
    TopTools_IndexedMapOfShape edges;
    ReadTopology(shape, topology_, edges);
    edges_.reserve(static_cast<std::size_t>(edges.Extent()));
    for (int i = 1; i <= edges.Extent(); ++i) edges_.emplace_back(TopoDS::Edge(edges(i)), scale);
  }

  int GetEdgeCount() const override { return static_cast<int>(edges_.size()); }
  EdgeKind GetEdgeKind(int edge) const override {
    return HasEdge(edge) ? At(edge).Kind() : EdgeKind::kNone;
  }
  double GetEdgeLength(int edge) const override { return HasEdge(edge) ? At(edge).Length() : 0; }

  bool GetEdgeParameters(int edge, double& first, double& last) const override {
    if (!HasEdge(edge)) return false;
    first = At(edge).First();
    last = At(edge).Last();
    return true;
  }

  bool GetPoints(int edge, std::span<const double> parameters, CadPoint* out) const override {
    return Evaluate(edge, parameters, Range::kParameters,
                    [&](const Edge& e, double at) { *out++ = e.Point(at); });
  }

  bool GetTangent(int edge, double parameter, CadPoint& out) const override {
    CadPoint derivative;
    const bool done = Evaluate(edge, {&parameter, 1}, Range::kParameters,
                               [&](const Edge& e, double at) { derivative = e.Derivative(at); });
    const double speed = Length(derivative);
    if (!done || !(speed > 0)) return false;
    out = (1 / speed) * derivative;
    return true;
  }

  bool GetParametersAtLengths(int edge, std::span<const double> lengths,
                              double* out) const override {
    std::size_t cell = 0;
    return Evaluate(edge, lengths, Range::kLengths,
                    [&](const Edge& e, double at) { *out++ = e.ParameterAt(at, cell); });
  }

  bool GetLengthAt(int edge, double parameter, double& out) const override {
    return Evaluate(edge, {&parameter, 1}, Range::kParameters,
                    [&](const Edge& e, double at) { out = e.LengthAt(at); });
  }

  const CadTopology& GetTopology() const override { return topology_; }

 private:
  enum class Range { kParameters, kLengths };

  const Edge& At(int edge) const { return edges_[static_cast<std::size_t>(edge - 1)]; }

  /// Calls `work` with every value, once all are known to lie in the range.
  template <class Work>
  bool Evaluate(int edge, std::span<const double> values, Range range, Work&& work) const {
    if (!HasEdge(edge) || !At(edge).HasCurve()) return false;
    const Edge& e = At(edge);
    const double low = range == Range::kLengths ? 0 : e.First();
    const double high = range == Range::kLengths ? e.Length() : e.Last();
    const double slack = 1e-12 * (high - low);
    for (const double value : values) {
      if (!(value >= low - slack && value <= high + slack)) return false;
    }
    try {
      for (const double value : values) work(e, std::clamp(value, low, high));
    } catch (const Standard_Failure&) {
      return false;
    }
    return true;
  }

  std::vector<Edge> edges_;
  CadTopology topology_;
};

}  // namespace

std::unique_ptr<ICADSession> MakeCadSession(const TopoDS_Shape& shape, double scale) {
  try {
    return std::make_unique<OcctCad>(shape, scale);
  } catch (const Standard_Failure&) {
    return nullptr;
  }
}

}  // namespace qx::occt
