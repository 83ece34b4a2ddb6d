#pragma once
// Vector operations under the names, and for the plain arrays, that callers bring along. All are
// those of lib/math.h, with its rules: angles in degrees, and what cannot be normalised is
// reported.
// Threads: any; nothing is kept between calls.

#include "qx_db/lib/math.h"

namespace qx {

/// The operations on Vector3.
namespace math_lib {
using qx::Across;
using qx::AngleBetween;
using qx::Cross;
using qx::Distance;
using qx::DistanceToLine;
using qx::Dot;
using qx::FootOnLine;
using qx::Length;
using qx::Normalize;
using qx::Rotated;
using qx::SignedAngle;
using qx::UnitNormal;
}  // namespace math_lib

/// The same on arrays of three coordinates. An int result is 1, or 0 with the output untouched.
class CMathFunc {
 public:
  static double Dot(const double a[3], const double b[3]) { return qx::Dot(V(a), V(b)); }
  static void Cross(const double a[3], const double b[3], double out[3]) {
    qx::Cross(V(a), V(b)).CopyTo(out);
  }
  static double Length(const double a[3]) { return qx::Length(V(a)); }
  static double Distance(const double a[3], const double b[3]) { return qx::Distance(V(a), V(b)); }
  static double DistanceToLine(const double p[3], const double on_line[3],
                               const double direction[3]) {
    return qx::DistanceToLine(V(p), V(on_line), V(direction));
  }
  /// 0 for a vector without a direction.
  static int Normalize(double a[3]) {
    Vector3 unit = V(a);
    if (!qx::Normalize(unit)) return 0;
    unit.CopyTo(a);
    return 1;
  }
  /// The unit normal a x b of two unit directions; 0 where they are parallel.
  static int UnitNormal(const double a[3], const double b[3], double out[3]) {
    Vector3 normal;
    if (!qx::UnitNormal(V(a), V(b), normal)) return 0;
    normal.CopyTo(out);
    return 1;
  }
  /// Turns `a` about a unit direction, by the right-hand rule.
  static void Rotate(const double a[3], const double axis[3], double angle_deg, double out[3]) {
    qx::Rotated(V(a), V(axis), angle_deg).CopyTo(out);
  }
  static double AngleBetween(const double a[3], const double b[3]) {
    return qx::AngleBetween(V(a), V(b));
  }

 private:
  static Vector3 V(const double v[3]) { return Vector3(v); }
};

}  // namespace qx
