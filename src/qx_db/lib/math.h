#pragma once
// Vector mathematics of three dimensions. Angles are in degrees. Not-a-number and infinity never
// pass for a valid length: what cannot be normalised is reported, not guessed.
// Threads: any; nothing is kept between calls.

#include <cmath>

#include "qx_db/export.h"

namespace qx {

/// A point or direction. Converts from and to any type with members x, y and z.
struct Vector3 {
  double x = 0;
  double y = 0;
  double z = 0;

  Vector3() = default;
  constexpr Vector3(double x_, double y_, double z_) : x(x_), y(y_), z(z_) {}
  explicit Vector3(const double v[3]) : x(v[0]), y(v[1]), z(v[2]) {}
  template <class V>
  requires requires(const V& v) { double{v.x} + double{v.y} + double{v.z}; }
  constexpr Vector3(const V& v) : x(v.x), y(v.y), z(v.z) {}
  template <class V>
  V As() const {
    return V{x, y, z};
  }
  void CopyTo(double out[3]) const {
    out[0] = x;
    out[1] = y;
    out[2] = z;
  }

  double& operator[](int i) { return i == 0 ? x : i == 1 ? y : z; }
  double operator[](int i) const { return i == 0 ? x : i == 1 ? y : z; }
  Vector3& operator+=(const Vector3& b) {
    x += b.x;
    y += b.y;
    z += b.z;
    return *this;
  }
  friend bool operator==(const Vector3&, const Vector3&) = default;
};

inline Vector3 operator+(Vector3 a, const Vector3& b) { return a += b; }
inline Vector3 operator-(const Vector3& a, const Vector3& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Vector3 operator-(const Vector3& a) { return {-a.x, -a.y, -a.z}; }
inline Vector3 operator*(double s, const Vector3& a) { return {s * a.x, s * a.y, s * a.z}; }
inline double Dot(const Vector3& a, const Vector3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vector3 Cross(const Vector3& a, const Vector3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double Length(const Vector3& a) { return std::sqrt(Dot(a, a)); }
inline double Distance(const Vector3& a, const Vector3& b) { return Length(b - a); }

inline bool IsFinite(const Vector3& a) {
  return std::isfinite(a.x) && std::isfinite(a.y) && std::isfinite(a.z);
}

/// Scales to length 1. False, leaving `a` alone, when its length is not above `least` or not
/// finite.
inline bool Normalize(Vector3& a, double least = 0) {
  const double length = Length(a);
  if (!(length > least) || !std::isfinite(length)) return false;
  a = (1 / length) * a;
  return true;
}

/// Two unit directions closer than this, in radians, leave the third axis to rounding.
inline constexpr double kParallelTolerance = 1e-12;

/// The unit normal of two unit directions, a x b. False when they are parallel.
inline bool UnitNormal(const Vector3& a, const Vector3& b, Vector3& normal) {
  normal = Cross(a, b);
  return Normalize(normal, kParallelTolerance);
}

/// The part of `a` across the unit direction `axis`.
inline Vector3 Across(const Vector3& a, const Vector3& axis) { return a - Dot(a, axis) * axis; }

/// Sine and cosine of an angle, exact at every multiple of 90 degrees.
QXDB_API void SinCos(double angle_deg, double& sine, double& cosine);

/// `a` turned about the unit direction `axis`, by the right-hand rule.
QXDB_API Vector3 Rotated(const Vector3& a, const Vector3& axis, double angle_deg);

/// The same by 90 degrees, exactly and without a sine.
inline Vector3 QuarterTurned(const Vector3& a, const Vector3& axis) {
  return Cross(axis, a) + Dot(axis, a) * axis;
}

/// The angle between two directions, 0 to 180; accurate near both ends. 0 when either is zero.
QXDB_API double AngleBetween(const Vector3& a, const Vector3& b);

/// The angle by which `a` is turned to reach `b`, seen against the unit direction `axis`: above
/// -180, up to 180.
QXDB_API double SignedAngle(const Vector3& a, const Vector3& b, const Vector3& axis);

/// Foot of the perpendicular from `p` onto the line through `on_line` along `direction`, which
/// need not be of length 1 but must not be zero.
inline Vector3 FootOnLine(const Vector3& p, const Vector3& on_line, const Vector3& direction) {
  return on_line + (Dot(p - on_line, direction) / Dot(direction, direction)) * direction;
}
inline double DistanceToLine(const Vector3& p, const Vector3& on_line, const Vector3& direction) {
  return Distance(p, FootOnLine(p, on_line, direction));
}

/// Three unit axes: the rows of a local axis set.
struct Triad {
  Vector3 x{1, 0, 0};
  Vector3 y{0, 1, 0};
  Vector3 z{0, 0, 1};

  void CopyTo(double axes[3][3]) const {
    x.CopyTo(axes[0]);
    y.CopyTo(axes[1]);
    z.CopyTo(axes[2]);
  }
  static Triad From(const double axes[3][3]) {
    return {Vector3(axes[0]), Vector3(axes[1]), Vector3(axes[2])};
  }
  /// Components along the axes, and back.
  Vector3 ToLocal(const Vector3& v) const { return {Dot(v, x), Dot(v, y), Dot(v, z)}; }
  Vector3 ToGlobal(const Vector3& v) const { return v.x * x + v.y * y + v.z * z; }
};

/// Hands out the result of a computation: 1 and the axes, or 0 and nothing.
inline int Give(bool done, const Triad& axes, double out[3][3]) {
  if (done) axes.CopyTo(out);
  return done;
}

}  // namespace qx
