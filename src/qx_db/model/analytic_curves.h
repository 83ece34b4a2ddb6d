#pragma once
// The curves of the analytic CAD session. For its .cpp file only.
// Threads: values: one at a time for each object.

#include <numbers>
#include <vector>

#include "qx_db/model/arc_length_table.h"
#include "qx_db/model/cad_session.h"

namespace qx {

/// A curve over parameters 0 to Last(). Arguments are inside the range.
class AnalyticCurve {
 public:
  AnalyticCurve(EdgeKind kind, double last) : kind_(kind), last_(last) {}
  virtual ~AnalyticCurve() = default;

  EdgeKind Kind() const { return kind_; }
  double Last() const { return last_; }
  double Length() const { return length_; }

  virtual void Points(std::span<const double> at, CadPoint* out) const = 0;
  virtual CadPoint Derivative(double at) const = 0;
  virtual void ParametersAt(std::span<const double> lengths, double* out) const = 0;
  virtual double LengthAt(double at) const = 0;

 protected:
  double length_ = 0;

 private:
  EdgeKind kind_;
  double last_;
};

/// A curve of constant speed: the parameter is proportional to the arc length.
class EvenCurve : public AnalyticCurve {
 public:
  using AnalyticCurve::AnalyticCurve;
  void ParametersAt(std::span<const double> lengths, double* out) const final {
    const double scale = Last() / length_;
    for (const double length : lengths) *out++ = length * scale;
  }
  double LengthAt(double at) const final { return at * length_ / Last(); }
};

class LineCurve final : public EvenCurve {
 public:
  LineCurve(const CadPoint& from, const CadPoint& to)
      : EvenCurve(from == to ? EdgeKind::kDegenerate : EdgeKind::kLine, 1), from_(from), to_(to) {
    length_ = Distance(from, to);
  }
  void Points(std::span<const double> at, CadPoint* out) const override {
    for (const double t : at) *out++ = (1 - t) * from_ + t * to_;  // exact at both ends
  }
  CadPoint Derivative(double) const override { return to_ - from_; }

 private:
  CadPoint from_;
  CadPoint to_;
};

class ArcCurve final : public EvenCurve {
 public:
  /// `u` is the radius to the start, `v` as long and a quarter turn further.
  ArcCurve(const CadPoint& center, const CadPoint& u, const CadPoint& v, double angle)
      : EvenCurve(angle >= 2 * std::numbers::pi ? EdgeKind::kCircle : EdgeKind::kArc, angle),
        center_(center),
        u_(u),
        v_(v) {
    length_ = angle * qx::Length(u);
  }
  void Points(std::span<const double> at, CadPoint* out) const override {
    for (const double t : at) *out++ = center_ + std::cos(t) * u_ + std::sin(t) * v_;
  }
  CadPoint Derivative(double at) const override { return std::cos(at) * v_ - std::sin(at) * u_; }

 private:
  CadPoint center_;
  CadPoint u_;
  CadPoint v_;
};

/// Points numbered from 0, one a unit of parameter.
class KnottedCurve : public AnalyticCurve {
 public:
  KnottedCurve(EdgeKind kind, std::span<const CadPoint> points)
      : AnalyticCurve(kind, static_cast<double>(points.size() - 1)),
        points_(points.begin(), points.end()) {}

 protected:
  /// The piece that a parameter is in, and how far in it is.
  std::size_t PieceOf(double at, double& within) const {
    at = std::clamp(at, 0.0, Last());
    const auto piece = std::min(static_cast<std::size_t>(at), points_.size() - 2);
    within = at - static_cast<double>(piece);
    return piece;
  }

  std::vector<CadPoint> points_;
};

class PolylineCurve final : public KnottedCurve {
 public:
  explicit PolylineCurve(std::span<const CadPoint> points)
      : KnottedCurve(EdgeKind::kPolyline, points) {
    lengths_.push_back(0);
    for (std::size_t i = 1; i < points_.size(); ++i) {
      length_ += Distance(points_[i - 1], points_[i]);
      lengths_.push_back(length_);
    }
  }
  void Points(std::span<const double> at, CadPoint* out) const override {
    for (const double t : at) {
      double u;
      const std::size_t i = PieceOf(t, u);
      *out++ = (1 - u) * points_[i] + u * points_[i + 1];
    }
  }
  CadPoint Derivative(double at) const override {
    double u;
    const std::size_t i = PieceOf(at, u);
    return points_[i + 1] - points_[i];
  }
  void ParametersAt(std::span<const double> lengths, double* out) const override {
    for (const double length : lengths) {
      const auto above = std::upper_bound(lengths_.begin() + 1, lengths_.end() - 1, length);
      const auto i = static_cast<std::size_t>(above - lengths_.begin()) - 1;
      const double u = (length - lengths_[i]) / (lengths_[i + 1] - lengths_[i]);
      *out++ = static_cast<double>(i) + std::clamp(u, 0.0, 1.0);
    }
  }
  double LengthAt(double at) const override {
    double u;
    const std::size_t i = PieceOf(at, u);
    return lengths_[i] + u * (lengths_[i + 1] - lengths_[i]);
  }

 private:
  std::vector<double> lengths_;  // up to each point
};

class SplineCurve final : public KnottedCurve {
 public:
  explicit SplineCurve(std::span<const CadPoint> points) : KnottedCurve(EdgeKind::kSpline, points) {
    SolveBends();
    std::vector<double> breaks;
    for (std::size_t i = 0; i < points_.size(); ++i) breaks.push_back(static_cast<double>(i));
    table_.Build(breaks, [this](double t) { return Speed(t); });
    length_ = table_.Length();
  }
  void Points(std::span<const double> at, CadPoint* out) const override {
    for (const double t : at) {
      double u;
      const std::size_t i = PieceOf(t, u);
      const double v = 1 - u;
      *out++ = v * points_[i] + u * points_[i + 1] + ((v * v * v - v) / 6) * bends_[i] +
               ((u * u * u - u) / 6) * bends_[i + 1];
    }
  }
  CadPoint Derivative(double at) const override {
    double u;
    const std::size_t i = PieceOf(at, u);
    const double v = 1 - u;
    return points_[i + 1] - points_[i] + ((1 - 3 * v * v) / 6) * bends_[i] +
           ((3 * u * u - 1) / 6) * bends_[i + 1];
  }
  void ParametersAt(std::span<const double> lengths, double* out) const override {
    std::size_t cell = 0;
    for (const double length : lengths) {
      *out++ = table_.ParameterAt(
          length, [this](double t) { return Speed(t); }, cell);
    }
  }
  double LengthAt(double at) const override {
    return table_.LengthAt(at, [this](double t) { return Speed(t); });
  }

 private:
  double Speed(double at) const { return qx::Length(Derivative(at)); }

  /// Second derivatives at the points: continuous inside, zero at both ends.
  void SolveBends() {
    const std::size_t n = points_.size();
    bends_.assign(n, {});
    std::vector<double> pivots(n, 0.0);
    for (std::size_t i = 1; i + 1 < n; ++i) {
      const CadPoint right = 6.0 * (points_[i - 1] - 2.0 * points_[i] + points_[i + 1]);
      pivots[i] = 1 / (4 - pivots[i - 1]);
      bends_[i] = pivots[i] * (right - bends_[i - 1]);
    }
    for (std::size_t i = n - 1; i-- > 1;) bends_[i] = bends_[i] - pivots[i] * bends_[i + 1];
  }

  std::vector<CadPoint> bends_;
  ArcLengthTable table_;
};

}  // namespace qx
