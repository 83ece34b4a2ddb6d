#pragma once
// Numbers and points of two elements side by side, in registers that every 64-bit processor has, so
// that no build and no program asks which one it runs on. A formula written over the type of its
// points serves one element and two, with the same operations in the same order.
// Threads: any; nothing is kept between calls.

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "qx_db/mesh/point3.h"

namespace qx {

inline constexpr int kLanes = 2;
using Lanes = double __attribute__((vector_size(kLanes * sizeof(double))));

/// A point or a direction of each of two elements.
struct LanePoint {
  Lanes x, y, z;
};

inline LanePoint operator+(const LanePoint& a, const LanePoint& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline LanePoint operator-(const LanePoint& a, const LanePoint& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline LanePoint operator-(const LanePoint& a) { return {-a.x, -a.y, -a.z}; }
inline LanePoint operator*(double s, const LanePoint& a) { return {s * a.x, s * a.y, s * a.z}; }
inline Lanes Dot(const LanePoint& a, const LanePoint& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline LanePoint Cross(const LanePoint& a, const LanePoint& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline Lanes Triple(const LanePoint& a, const LanePoint& b, const LanePoint& c) {
  return Dot(a, Cross(b, c));
}
inline Lanes SquaredLength(const LanePoint& a) { return Dot(a, a); }

/// The number type of a point type: double or Lanes.
template <class P>
using NumberOf = decltype(P::x);

/// A number for every lane.
template <class N>
N Filled(double value) {
  return N{} + value;
}

/// `yes` where a comparison of numbers holds, `no` elsewhere. Both are evaluated.
inline double Choose(bool holds, double yes, double no) { return holds ? yes : no; }
template <class Mask>
Lanes Choose(const Mask& holds, Lanes yes, Lanes no) {
  return holds ? yes : no;
}

inline double Least(double a, double b) { return std::min(a, b); }
inline Lanes Least(Lanes a, Lanes b) { return b < a ? b : a; }
inline double Most(double a, double b) { return std::max(a, b); }
inline Lanes Most(Lanes a, Lanes b) { return a < b ? b : a; }
inline double Magnitude(double a) { return std::abs(a); }
inline Lanes Magnitude(Lanes a) { return a < 0.0 ? -a : a; }

/// A function of one number, lane by lane.
template <class Function>
double PerLane(double a, Function&& function) {
  return function(a);
}
template <class Function>
Lanes PerLane(Lanes a, Function&& function) {
  return Lanes{function(a[0]), function(a[1])};
}
template <class N>
N Root(N a) {
  return PerLane(a, [](double one) { return std::sqrt(one); });
}
/// The length of a direction, also where there are two.
template <class P>
NumberOf<P> LengthOf(const P& a) {
  return Root(SquaredLength(a));
}
/// The root of a number's magnitude, with its sign.
template <class N>
N SignedRoot(N a) {
  return PerLane(a, [](double one) { return std::copysign(std::sqrt(std::abs(one)), one); });
}
/// The cube root of a number that is not negative, by Halley's steps from a third of the exponent:
/// the first guess is within 4 parts of a hundred, and each step leaves two thirds of the cube of
/// an error. The library's own takes three times as long, for it has no two at once.
template <class N>
N CubeRoot(N a) {
  N root = PerLane(a, [](double one) {
    constexpr std::uint64_t kTwoThirdsOfBias = 0x2A9F7893782DA1CE;
    return std::bit_cast<double>(std::bit_cast<std::uint64_t>(one) / 3 + kTwoThirdsOfBias);
  });
  for (int step = 0; step < 3; ++step) {
    const N cube = root * root * root;
    root = root * ((cube + 2 * a) / (2 * cube + a));
  }
  return Choose(a > 0.0, root, N{});
}

/// The angle with a cotangent, in degrees: 0 of infinity, 180 of its opposite, as close near both
/// as anywhere. The rational approximation of an arc tangent up to that of 22.5 degrees is that of
/// S. L. Moshier's Cephes library.
template <class N>
N ArcCotangent(N cotangent) {
  constexpr double kQuarter = std::numbers::pi / 4, kDegrees = 180 / std::numbers::pi;
  const N one = Filled<N>(1);
  const N size = Magnitude(cotangent);
  const N below_one = Choose(size > 1.0, 1 / size, size);  // of the complement, beyond 45 degrees
  const auto is_large = below_one > std::numbers::sqrt2 - 1;
  const N x = Choose(is_large, (below_one - one) / (below_one + one), below_one);
  const N z = x * x;
  const N above = (((-8.750608600031904122785e-1 * z - 1.615753718733365076637e1) * z -
                    7.500855792314704667340e1) *
                       z -
                   1.228866684490136173410e2) *
                      z -
                  6.485021904942025371773e1;
  const N below = ((((z + 2.485846490142306297962e1) * z + 1.650270098316988542046e2) * z +
                    4.328810604912902668951e2) *
                       z +
                   4.853903996359136964868e2) *
                      z +
                  1.945506571482613964425e2;
  const N angle = Choose(is_large, Filled<N>(kQuarter), N{}) + (x + x * z * above / below);
  const N acute = Choose(size > 1.0, angle, 2 * kQuarter - angle);
  return kDegrees * Choose(cotangent < 0.0, 4 * kQuarter - acute, acute);
}

}  // namespace qx
