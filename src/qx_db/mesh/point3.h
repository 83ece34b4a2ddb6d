#pragma once
// Points and directions in space for the measures of elements: more of lib/math.h.
// Threads: any; nothing is kept between calls.

#include "qx_db/lib/math.h"
#include "qx_db/record/values.h"

namespace qx {

/// A point or a direction. Unlike the vector of records it is aligned, so that compilers keep it
/// in registers.
using Point3 = Vector3;

inline double Triple(const Point3& a, const Point3& b, const Point3& c) {
  return Dot(a, Cross(b, c));
}
inline double SquaredLength(const Point3& a) { return Dot(a, a); }

}  // namespace qx
