#pragma once
// Points and directions in space, aligned and by value, for geometry in loops.

#include <cmath>

#include "qx_db/record/values.h"

namespace qx {

/// A point or a direction. Unlike the vector of records it is aligned, so that compilers keep it
/// in registers.
struct Point3 {
  double x = 0;
  double y = 0;
  double z = 0;

  Point3() = default;
  constexpr Point3(double px, double py, double pz) : x(px), y(py), z(pz) {}
  constexpr Point3(const tagTVector3<double>& v) : x(v.x), y(v.y), z(v.z) {}
};

inline Point3 operator+(const Point3& a, const Point3& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Point3 operator-(const Point3& a, const Point3& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Point3 operator*(double s, const Point3& a) { return {s * a.x, s * a.y, s * a.z}; }
inline Point3& operator+=(Point3& a, const Point3& b) { return a = a + b; }
inline double Dot(const Point3& a, const Point3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Point3 Cross(const Point3& a, const Point3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double Triple(const Point3& a, const Point3& b, const Point3& c) {
  return Dot(a, Cross(b, c));
}
inline double SquaredLength(const Point3& a) { return Dot(a, a); }
inline double Length(const Point3& a) { return std::sqrt(SquaredLength(a)); }
inline bool IsFinite(const Point3& a) {
  return std::isfinite(a.x) && std::isfinite(a.y) && std::isfinite(a.z);
}

/// Scales to length 1; false, leaving it alone, for a zero, overflowing or undefined length.
inline bool Normalize(Point3& a) {
  const double length = Length(a);
  if (!(length > 0) || !std::isfinite(length)) return false;
  a = (1 / length) * a;
  return true;
}

/// The angle between two directions in degrees, 0 to 180; exact at both ends, where an arc cosine
/// loses half its digits. 0 when one has no length.
inline double AngleDeg(const Point3& a, const Point3& b) {
  constexpr double kDegrees = 57.295779513082320877;
  return std::atan2(Length(Cross(a, b)), Dot(a, b)) * kDegrees;
}

}  // namespace qx
