#pragma once
// Lengths, areas and signed volumes of isoparametric elements, independent of the library.

#include <array>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include "sample_mesh.h"

namespace measure {

using sample::Point;
using sample::Shape;

/// How many of the first reference coordinates form a triangle or tetrahedron; the others, each
/// from 0 to 1, stand across.
inline std::size_t SimplexDimension(const Shape& shape) {
  const std::size_t corners = shape.corners.size();
  if (corners == 3 || corners == 6) return 2;
  return corners == 4 && shape.dimension == 3 ? 3 : 0;
}

/// Linear shape functions of the corners at a point of the reference shape.
inline std::vector<double> CornerFunctions(const Shape& shape, const Point& at) {
  const std::size_t simplex = SimplexDimension(shape);
  std::vector<double> values;
  for (const Point& corner : shape.corners) {
    double value = 1;
    double rest = 1;
    for (std::size_t d = 0; d < simplex; ++d) {
      rest -= at[d];
      if (corner[d] == 1) value = at[d];
    }
    if (value == 1 && simplex > 0) value = rest;  // the corner at the origin
    for (std::size_t d = simplex; d < static_cast<std::size_t>(shape.dimension); ++d) {
      value *= corner[d] == 1 ? at[d] : 1 - at[d];
    }
    values.push_back(value);
  }
  return values;
}

/// All shape functions. That of a mid-side node is 4 La Lb / s, where s is the sum of the linear
/// functions of all corners to which one comes in the directions of the edge's part of the shape;
/// corners give half of it away. (Serendipity elements, built from the sides.)
inline std::vector<double> ShapeFunctions(std::int32_t code, const Point& at) {
  const Shape& shape = sample::ShapeOf(code);
  const std::size_t simplex = SimplexDimension(shape);
  const std::vector<double> linear = CornerFunctions(shape, at);
  std::vector<double> values = linear;
  if (code % 2 == 0) return values;
  for (const auto& edge : shape.edges) {
    const auto a = static_cast<std::size_t>(edge.first);
    const auto b = static_cast<std::size_t>(edge.second);
    double sum = 0;
    for (std::size_t c = 0; c < linear.size(); ++c) {
      bool in_part = true;
      for (std::size_t d = simplex; d < 3; ++d) {
        const bool along = shape.corners[a][d] != shape.corners[b][d];
        in_part &= along || shape.corners[c][d] == shape.corners[a][d];
        // Along an edge across, the corner of the simplex stays.
        for (std::size_t s = 0; along && s < simplex; ++s) {
          in_part &= shape.corners[c][s] == shape.corners[a][s];
        }
      }
      if (in_part) sum += linear[c];
    }
    values.push_back(4 * linear[a] * linear[b] / sum);
    values[a] -= values.back() / 2;
    values[b] -= values.back() / 2;
  }
  return values;
}

/// Gauss-Legendre rule with n points on [0, 1]: (point, weight), by Newton's method.
inline std::vector<std::pair<double, double>> GaussRule(int n) {
  std::vector<std::pair<double, double>> rule;
  for (int i = 0; i < n; ++i) {
    double x = std::cos(std::acos(-1.0) * (i + 0.75) / (n + 0.5));
    double slope = 1;
    for (int step = 0; step < 50; ++step) {
      double p = 1, q = 0;
      for (int k = 1; k <= n; ++k) q = std::exchange(p, ((2 * k - 1) * x * p - (k - 1) * q) / k);
      slope = n * (x * p - q) / (x * x - 1);
      x -= p / slope;
    }
    rule.push_back({(1 + x) / 2, 1 / ((1 - x * x) * slope * slope)});
  }
  return rule;
}

/// One quadrature point: its weight and the derivatives of the functions by each coordinate.
struct Sample {
  double weight;
  std::vector<std::vector<double>> derivatives;
};

inline std::vector<Sample> MakeRule(std::int32_t code) {
  const Shape& shape = sample::ShapeOf(code);
  const std::size_t simplex = SimplexDimension(shape);
  const std::vector<std::pair<double, double>> one{{0.0, 1.0}};
  // Exact for volumes; areas and lengths, which are no polynomials, take more.
  const auto gauss = GaussRule(shape.dimension == 3 ? 4 : 8);
  std::vector<Sample> rule;
  for (const auto& [x, wx] : gauss) {
    for (const auto& [y, wy] : shape.dimension > 1 ? gauss : one) {
      for (const auto& [z, wz] : shape.dimension > 2 ? gauss : one) {
        Point at{x, y, z};
        double weight = wx * wy * wz;
        // Triangles and tetrahedra as squares and cubes with collapsed sides.
        if (simplex >= 2) at[1] *= 1 - x, weight *= 1 - x;
        if (simplex == 3) at[2] *= (1 - x) * (1 - y), weight *= (1 - x) * (1 - y);
        rule.push_back({weight, {}});
        for (std::size_t d = 0; d < static_cast<std::size_t>(shape.dimension); ++d) {
          // No power is above 2, so that a central difference is exact.
          constexpr double h = 0.25;
          Point ahead = at, behind = at;
          ahead[d] += h, behind[d] -= h;
          std::vector<double> slope = ShapeFunctions(code, ahead);
          const std::vector<double> back = ShapeFunctions(code, behind);
          for (std::size_t i = 0; i < slope.size(); ++i) slope[i] = (slope[i] - back[i]) / (2 * h);
          rule.back().derivatives.push_back(std::move(slope));
        }
      }
    }
  }
  return rule;
}

/// Length, area or signed volume of an element with these nodes; 0 for points. Knows no pyramids.
inline double Size(std::int32_t code, const std::vector<Point>& nodes) {
  static std::map<std::int32_t, std::vector<Sample>> rules;
  if (code == 1) return 0;
  auto [found, is_new] = rules.try_emplace(code);
  if (is_new) found->second = MakeRule(code);
  double size = 0;
  for (const auto& [weight, derivatives] : found->second) {
    std::array<Point, 3> t{};  // tangents
    for (std::size_t d = 0; d < derivatives.size(); ++d) {
      for (std::size_t i = 0; i < nodes.size(); ++i) {
        for (std::size_t k = 0; k < 3; ++k) t[d][k] += derivatives[d][i] * nodes[i][k];
      }
    }
    const Point cross{t[0][1] * t[1][2] - t[0][2] * t[1][1], t[0][2] * t[1][0] - t[0][0] * t[1][2],
                      t[0][0] * t[1][1] - t[0][1] * t[1][0]};
    const Point& flat = derivatives.size() == 1 ? t[0] : cross;
    size += weight * (derivatives.size() == 3
                          ? cross[0] * t[2][0] + cross[1] * t[2][1] + cross[2] * t[2][2]
                          : std::hypot(flat[0], flat[1], flat[2]));
  }
  return size;
}

}  // namespace measure
