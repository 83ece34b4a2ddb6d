#pragma once
// The formulas behind the quality measures, a function each. Names and formulas follow C. J.
// Stimpson, C. D. Ernst, P. Knupp, P. P. Pebay, D. Thompson: The Verdict Geometric Quality Library,
// SAND2007-1751; what goes beyond it is said at the function.
//
// Those that whole meshes are asked for most are templates, for one element by Point3 and for two
// at once by LanePoint (lanes.h), with the same result for each. Threads: any; nothing is kept
// between calls.

#include "qx_db/mesh/lanes.h"
#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/mesh/point3.h"
#include "qx_db/mesh/topology_table.h"

namespace qx::quality {

using FormulaOfTwo = Lanes (*)(CornerShape shape, const LanePoint* p);
/// What Quality() gives, of two elements of a shape; null where there is no such formula, as of
/// every measure that weighs an element's size against others'.
FormulaOfTwo FindFormulaOfTwo(Measure measure, CornerShape shape);

// ---- any shape ----------------------------------------------------------------------------------

/// Longest edge over shortest.
template <class P>
NumberOf<P> EdgeRatio(CornerShape shape, const P* p);
/// How far the angles of the faces are from 60 or 90 degrees: 0 none, 1 as far as can be.
double EquiangleSkew(CornerShape shape, const Point3* p);
/// Smallest and largest angle in degrees between neighbouring edges of a face. An angle of a
/// quadrilateral that is not convex may exceed 180. Beyond the report for solids.
template <class P>
NumberOf<P> MinFaceAngle(CornerShape shape, const P* p);
template <class P>
NumberOf<P> MaxFaceAngle(CornerShape shape, const P* p);
/// 1 minus the least cube of the cosine between normals at opposite corners of a quadrilateral, of
/// the worst face. Beyond the report for solids.
double FaceWarpage(CornerShape shape, const Point3* p);

/// The square of a size over the mean size or of its inverse, whichever is below 1; 0 for an
/// inverted element. NaN when there is no mean size.
double RelativeSize(double size, double mean_size);

// ---- triangles ----------------------------------------------------------------------------------

template <class P>
NumberOf<P> TriAspect(CornerShape, const P* p);
template <class P>
NumberOf<P> TriScaledJacobian(CornerShape, const P* p);
template <class P>
NumberOf<P> TriShape(CornerShape, const P* p);
/// Also the aspect Frobenius of a triangle.
double TriCondition(CornerShape, const Point3* p);
/// Radius of the circle through the corners over twice that of the circle inside.
double TriRadiusRatio(CornerShape, const Point3* p);

// ---- quadrilaterals -----------------------------------------------------------------------------

template <class P>
NumberOf<P> QuadAspect(CornerShape, const P* p);
double QuadSkew(CornerShape, const Point3* p);
double QuadTaper(CornerShape, const Point3* p);
double QuadJacobian(CornerShape, const Point3* p);
template <class P>
NumberOf<P> QuadScaledJacobian(CornerShape, const P* p);
template <class P>
NumberOf<P> QuadShape(CornerShape, const P* p);
template <class P>
NumberOf<P> QuadCondition(CornerShape, const P* p);
double QuadStretch(CornerShape, const Point3* p);
double QuadShear(CornerShape, const Point3* p);
double QuadRadiusRatio(CornerShape, const Point3* p);
/// Largest and mean condition at the corners, each in its own plane.
double QuadFrobenius(CornerShape, const Point3* p);
double QuadMeanFrobenius(CornerShape, const Point3* p);
double QuadOddy(CornerShape, const Point3* p);
/// Least Jacobian at a corner over the area; both are taken along the normal in the middle, also
/// of a warped element.
double QuadDistortion(CornerShape, const Point3* p);
/// Largest Jacobian at a corner over the least. Beyond the report.
double QuadJacobianRatio(CornerShape, const Point3* p);

// ---- tetrahedra ---------------------------------------------------------------------------------

double TetAspect(CornerShape, const Point3* p);
template <class P>
NumberOf<P> TetScaledJacobian(CornerShape, const P* p);
template <class P>
NumberOf<P> TetShape(CornerShape, const P* p);
template <class P>
NumberOf<P> TetCondition(CornerShape, const P* p);
/// Smallest height over the longest edge of the face below it.
double TetCollapse(CornerShape, const Point3* p);
double TetRadiusRatio(CornerShape, const Point3* p);
double TetFrobenius(CornerShape, const Point3* p);
double TetGamma(CornerShape, const Point3* p);
/// What is missing to the volume of the regular tetrahedron in the same sphere, as a share. Beyond
/// the report.
double TetEquivolumeSkew(CornerShape, const Point3* p);
/// 1 minus the least cosine between a face's normal and the way from the element's centre to the
/// face's. Beyond the report.
double TetSquish(CornerShape, const Point3* p);
template <class P>
NumberOf<P> MinDihedralAngle(CornerShape, const P* p);
template <class P>
NumberOf<P> MaxDihedralAngle(CornerShape, const P* p);

// ---- solids -------------------------------------------------------------------------------------

/// Least determinant of the three edges at a corner, of a hexahedron also at its centre. The apex
/// of a pyramid, where four edges meet, does not count.
double SolidJacobian(CornerShape shape, const Point3* p);
/// The same of edges of length 1, times what makes the ideal pyramid, wedge or hexahedron 1. For
/// pyramids beyond the report.
template <class P>
NumberOf<P> SolidScaledJacobian(CornerShape shape, const P* p);

/// Largest and mean condition at the corners of a wedge or hexahedron, against the ideal one.
/// Beyond the report for wedges.
double SolidFrobenius(CornerShape shape, const Point3* p);
double SolidMeanFrobenius(CornerShape shape, const Point3* p);
/// Largest Jacobian at a corner over the least. Beyond the report.
double SolidJacobianRatio(CornerShape shape, const Point3* p);

/// Longest principal axis over shortest.
double HexAspect(CornerShape, const Point3* p);
template <class P>
NumberOf<P> HexSkew(CornerShape, const P* p);
double HexTaper(CornerShape, const Point3* p);
template <class P>
NumberOf<P> HexShape(CornerShape, const P* p);
template <class P>
NumberOf<P> HexCondition(CornerShape, const P* p);
double HexStretch(CornerShape, const Point3* p);
double HexShear(CornerShape, const Point3* p);
double HexOddy(CornerShape, const Point3* p);
/// Least Jacobian at a corner over the volume.
double HexDistortion(CornerShape, const Point3* p);
/// Shortest diagonal over longest.
double HexDiagonal(CornerShape, const Point3* p);
/// A length for the time step of explicit solvers: the volume over its gradient by all corners.
double HexDimension(CornerShape, const Point3* p);

}  // namespace qx::quality
