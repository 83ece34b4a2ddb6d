#pragma once
// Lengths, areas, volumes and moments of elements from their corners.
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include "qx_db/mesh/lanes.h"
#include "qx_db/mesh/point3.h"
#include "qx_db/mesh/topology_table.h"

namespace qx {

template <class P>
NumberOf<P> TriangleArea(const P& a, const P& b, const P& c) {
  return 0.5 * Root(SquaredLength(Cross(b - a, c - a)));
}

/// Half the cross product of the diagonals: right for every plane quadrilateral, also one that is
/// not convex; of a warped one the largest area of its shadow.
template <class P>
NumberOf<P> QuadrilateralArea(const P* p) {
  return 0.5 * Root(SquaredLength(Cross(p[2] - p[0], p[3] - p[1])));
}

/// Signed volume of the solid of 4, 5, 6 or 8 corners whose quadrilaterals are bilinear surfaces:
/// what integrating the shape functions gives, in closed form. Positive when the faces of the
/// topology table point outwards; 0 for another number of corners.
QXDB_API double SolidVolume(int corners, const Point3* p);

/// The length, area or signed volume of a shape from its corners; 0 for a point and for none.
QXDB_API double ShapeSize(CornerShape shape, const Point3* p);
/// The same of two elements.
Lanes ShapeSize(CornerShape shape, const LanePoint* p);

/// Size, first and second moments of a body of density 1 about the origin.
struct Moments {
  double size = 0;                ///< length, area or signed volume
  Point3 first;                   ///< integrals of x, y, z
  double xx = 0, yy = 0, zz = 0;  ///< integrals of the squares
  double xy = 0, yz = 0, zx = 0;  ///< integrals of the products

  QXDB_API void Add(const Moments& other, double factor);
  /// Adds a point mass: one point of a rule of integration.
  void Collect(const Point3& p, double weight) {
    size += weight;
    first += weight * p;
    xx += weight * p.x * p.x;
    yy += weight * p.y * p.y;
    zz += weight * p.z * p.z;
    xy += weight * p.x * p.y;
    yz += weight * p.y * p.z;
    zx += weight * p.z * p.x;
  }
};

/// The moments of a line, surface or solid shape from its corners, by a Gauss rule that is exact
/// for solids and lines, and for surfaces that are parallelograms or triangles.
QXDB_API Moments ShapeMoments(CornerShape shape, const Point3* p);

}  // namespace qx
