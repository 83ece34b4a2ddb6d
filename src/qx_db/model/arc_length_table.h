#pragma once
// Arc length of a curve as a function of its parameter, and back.
// Threads: values: one at a time for each object.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

namespace qx {

/// Arc lengths at so many parameters that Gauss quadrature is exact to about 1e-12 of the length
/// in between. `Speed` is a callable: parameter to length of the derivative. Queries cost a binary
/// search and some tens of speeds.
class ArcLengthTable {
 public:
  /// Builds the table over ascending parameters, between which the curve is smooth; cells are
  /// halved where needed, at most kMostSplits times over.
  template <class Speed>
  void Build(std::span<const double> breaks, const Speed& speed);

  double Length() const { return nodes_.empty() ? 0 : nodes_.back().length; }
  std::size_t Cells() const { return nodes_.empty() ? 0 : nodes_.size() - 1; }

  /// Parameter at an arc length from 0 to Length(). `cell` is where the search starts, and is left
  /// where it ended, so that ascending lengths find theirs at once.
  template <class Speed>
  double ParameterAt(double length, const Speed& speed, std::size_t& cell) const;
  template <class Speed>
  double LengthAt(double parameter, const Speed& speed) const;

 private:
  struct Node {
    double parameter;
    double length;
    double speed;
  };
  static constexpr int kMostSplits = 24;
  static constexpr double kTolerance = 1e-12;

  template <class Speed>
  static double Integrate(double from, double to, const Speed& speed);
  template <class Speed>
  void AddCells(double from, double to, double rough_total, const Speed& speed);
  double Guess(std::size_t cell, double length) const;

  std::vector<Node> nodes_;
};

// Five-point Gauss-Legendre.
template <class Speed>
double ArcLengthTable::Integrate(double from, double to, const Speed& speed) {
  constexpr double kNear = 0.53846931010568309104;
  constexpr double kFar = 0.90617984593866399280;
  constexpr double kMiddleWeight = 0.56888888888888888889;
  constexpr double kNearWeight = 0.47862867049936646804;
  constexpr double kFarWeight = 0.23692688505618908751;
  const double half = (to - from) / 2;
  const double middle = from + half;
  return half * (kMiddleWeight * speed(middle) +
                 kNearWeight * (speed(middle - kNear * half) + speed(middle + kNear * half)) +
                 kFarWeight * (speed(middle - kFar * half) + speed(middle + kFar * half)));
}

template <class Speed>
void ArcLengthTable::AddCells(double from, double to, double rough_total, const Speed& speed) {
  struct Piece {
    double from;
    double to;
    int splits;
  };
  std::vector<Piece> pieces{{from, to, 0}};
  while (!pieces.empty()) {
    const Piece piece = pieces.back();
    pieces.pop_back();
    const double middle = piece.from + (piece.to - piece.from) / 2;
    const double whole = Integrate(piece.from, piece.to, speed);
    const double left = Integrate(piece.from, middle, speed);
    const double right = Integrate(middle, piece.to, speed);
    const bool rough = !(std::fabs(left + right - whole) <= kTolerance * rough_total);
    if (rough && piece.splits < kMostSplits && std::isfinite(whole)) {
      pieces.push_back({middle, piece.to, piece.splits + 1});
      pieces.push_back({piece.from, middle, piece.splits + 1});
      continue;
    }
    nodes_.push_back({middle, nodes_.back().length + left, speed(middle)});
    nodes_.push_back({piece.to, nodes_.back().length + right, speed(piece.to)});
  }
}

template <class Speed>
void ArcLengthTable::Build(std::span<const double> breaks, const Speed& speed) {
  nodes_.clear();
  if (breaks.size() < 2) return;
  double rough_total = 0;
  for (std::size_t i = 0; i + 1 < breaks.size(); ++i) {
    rough_total += Integrate(breaks[i], breaks[i + 1], speed);
  }
  nodes_.push_back({breaks[0], 0, speed(breaks[0])});
  for (std::size_t i = 0; i + 1 < breaks.size(); ++i) {
    AddCells(breaks[i], breaks[i + 1], rough_total, speed);
  }
}

/// Cubic through the cell's ends with the slopes 1 / speed there; linear where a speed vanishes.
inline double ArcLengthTable::Guess(std::size_t cell, double length) const {
  const Node& a = nodes_[cell];
  const Node& b = nodes_[cell + 1];
  const double span = b.length - a.length;
  const double u = (length - a.length) / span;
  const double step = b.parameter - a.parameter;
  const double rise_a = span / a.speed / step;
  const double rise_b = span / b.speed / step;
  if (!(rise_a > 0 && rise_a < 3 && rise_b > 0 && rise_b < 3)) return a.parameter + u * step;
  const double v = 1 - u;
  return a.parameter + step * (u * u * (3 - 2 * u) + u * v * (v * rise_a - u * rise_b));
}

template <class Speed>
double ArcLengthTable::ParameterAt(double length, const Speed& speed, std::size_t& cell) const {
  if (length <= 0) return nodes_.front().parameter;
  if (length >= Length()) return nodes_.back().parameter;
  const auto holds = [&](std::size_t i) {
    return i + 1 < nodes_.size() && nodes_[i].length <= length && length < nodes_[i + 1].length;
  };
  if (!holds(cell) && !holds(++cell)) {
    const auto above = std::upper_bound(nodes_.begin(), nodes_.end(), length,
                                        [](double l, const Node& node) { return l < node.length; });
    cell = static_cast<std::size_t>(above - nodes_.begin()) - 1;
  }
  const Node& a = nodes_[cell];
  double low = a.parameter;
  double high = nodes_[cell + 1].parameter;
  double at = Guess(cell, length);
  // Newton, kept inside a shrinking bracket; the guess is so near that one or two steps do.
  for (int step = 0; step < 60; ++step) {
    const double error = a.length + Integrate(a.parameter, at, speed) - length;
    if (std::fabs(error) <= 1e-14 * Length()) break;
    (error > 0 ? high : low) = at;
    double next = at - error / speed(at);
    if (!(next > low && next < high)) next = low + (high - low) / 2;
    if (next == at) break;
    const bool last = std::fabs(error) <= 1e-8 * (nodes_[cell + 1].length - a.length);
    at = next;  // the step squares the error, so nothing is left to check after a small one
    if (last) break;
  }
  return at;
}

template <class Speed>
double ArcLengthTable::LengthAt(double parameter, const Speed& speed) const {
  const auto above =
      std::upper_bound(nodes_.begin(), nodes_.end(), parameter,
                       [](double t, const Node& node) { return t < node.parameter; });
  if (above == nodes_.begin()) return 0;
  if (above == nodes_.end()) return Length();
  const Node& a = *(above - 1);
  return a.length + Integrate(a.parameter, parameter, speed);
}

}  // namespace qx
