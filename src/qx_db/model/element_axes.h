#pragma once
// The geometry of local axes: axes from points and directions, without pools. All functions give
// false, leaving the result alone, where the axes are not determined: points that coincide, a
// reference along the element, a number that is not finite. docs/local-axes.md has the pictures.
// Threads: any; nothing is kept between calls.

#include <span>

#include "qx_db/lib/math.h"

namespace qx {

/// Elements shorter than this, in model units, have no direction.
inline constexpr double kShortestElement = 1e-8;

/// What is below this may be the rounding of the points' coordinates: eight units in the last place
/// of the largest.
QXDB_API double RoundingOf(std::span<const Vector3> points);

/// Axes of a line from p1 to p2: x along it, z as near to the reference direction as x allows,
/// y = z x x. `parallel`: sine of the angle below which line and reference have one direction.
QXDB_API bool LineAxes(const Vector3& p1, const Vector3& p2, const Vector3& reference, Triad& axes,
                       double parallel = kParallelTolerance);

/// The direction that orients a line when a reference direction was given: the one itself in
/// editions A and C, where it shows local z; turned by 90 degrees about the line in all others,
/// where it shows local y. Requires p1 and p2 to be apart.
QXDB_API Vector3 TurnedReference(const Vector3& p1, const Vector3& p2, const Vector3& reference);

/// Axes of a line by an angle about it: at 0 local z is as near as it can be to global Z, for a
/// vertical line to global X.
QXDB_API bool LineAxesByAngle(const Vector3& p1, const Vector3& p2, double beta_deg, bool vertical,
                              Triad& axes);

/// Whether a line rises steeper than 100 to 1. `shortest`: below this length it is not vertical.
QXDB_API bool IsVertical(const Vector3& p1, const Vector3& p2, double shortest);

/// Sets components that are no more than rounding to exactly 0.
QXDB_API void CleanAxes(Triad& axes);

/// Axes of a plane element of 3 or 4 corners: z normal to the plane of a triangle, to both
/// diagonals of a quadrilateral; x along the projection of `along`; y = z x x. Right-hand rule
/// around the corners.
QXDB_API bool PlaneAxes(std::span<const Vector3> corners, const Vector3& along, Triad& axes);

/// The same with x along the first edge.
QXDB_API bool PlaneAxes(std::span<const Vector3> corners, Triad& axes);

}  // namespace qx
