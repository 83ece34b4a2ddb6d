// The formulas of tetrahedra and other solids.

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/quality_formulas.h"
#include "qx_db/mesh/quality_parts.h"

namespace qx::quality {

using std::numbers::sqrt2;
using std::numbers::sqrt3;

namespace {

/// The edges from a corner of a solid, right-handed.
template <class P>
struct Frame {
  using N = NumberOf<P>;
  P a, b, c;
  N Determinant() const { return Triple(a, b, c); }
  N Spread() const { return SquaredLength(a) + SquaredLength(b) + SquaredLength(c); }
  /// How far the map from the unit cube is from one that only turns and scales; 1 for that.
  N Condition() const { return ConditionOf(SquaredCondition()); }
  /// Infinite where the map turns inside out.
  N SquaredCondition() const {
    const P ab = Cross(a, b);
    const N across = SquaredLength(ab) + SquaredLength(Cross(b, c)) + SquaredLength(Cross(c, a));
    const N determinant = Dot(ab, c);
    return Choose(determinant > 0.0, Spread() * across / (9 * determinant * determinant),
                  Filled<N>(std::numeric_limits<double>::infinity()));
  }
  static N ConditionOf(N squared) { return Least(Root(squared), Filled<N>(kUnbounded)); }
};

}  // namespace

// ---- tetrahedra ---------------------------------------------------------------------------------

namespace {

constexpr int kTetFaces[4][3] = {{1, 2, 3}, {2, 0, 3}, {0, 1, 3}, {0, 1, 2}};

/// The angles between the faces, over the six edges.
template <class P>
Openings<NumberOf<P>> DihedralAngles(const P* p) {
  // Normals of the faces opposite the corners, all outwards or, of an inverted one, all inwards.
  P normal[4];
  for (int f = 0; f < 4; ++f) {
    const P& at = p[kTetFaces[f][0]];
    normal[f] = Cross(p[kTetFaces[f][1]] - at, p[kTetFaces[f][2]] - at);
  }
  normal[3] = -normal[3];  // the last face is listed the other way round
  // Two normals' cross product is the edge between their faces times the Jacobian.
  const NumberOf<P> jacobian = Dot(normal[3], p[0] - p[3]);
  constexpr int kEdges[6][4] = {{0, 1, 2, 3}, {0, 2, 1, 3}, {0, 3, 1, 2},
                                {1, 2, 0, 3}, {1, 3, 0, 2}, {2, 3, 0, 1}};  // faces, then corners
  Openings<NumberOf<P>> openings;
  for (const auto& [a, b, from, to] : kEdges) {
    const NumberOf<P> squared_cross = jacobian * jacobian * SquaredLength(p[to] - p[from]);
    openings.Take(-Dot(normal[a], normal[b]), squared_cross);
  }
  return openings;
}

/// Six times the signed volume.
template <class P>
NumberOf<P> TetJacobian(const P* p) {
  return Triple(p[1] - p[0], p[2] - p[0], p[3] - p[0]);
}

}  // namespace

double TetAspect(CornerShape shape, const Point3* p) {
  double area = 0;
  for (const auto& f : kTetFaces) area += TriangleArea(p[f[0]], p[f[1]], p[f[2]]);
  const double longest = EdgeLengths(shape, p).most;
  return Ratio(longest * area, std::sqrt(6.0) * TetJacobian(p));
}

template <class P>
NumberOf<P> TetScaledJacobian(CornerShape, const P* p) {
  using N = NumberOf<P>;
  const N jacobian = TetJacobian(p);
  N square[4][4];
  for (int a = 1; a < 4; ++a) {
    for (int b = 0; b < a; ++b) square[a][b] = square[b][a] = SquaredLength(p[a] - p[b]);
  }
  const N product = Root(Most(
      Most(square[0][1] * square[0][2] * square[0][3], square[1][0] * square[1][2] * square[1][3]),
      Most(square[2][0] * square[2][1] * square[2][3],
           square[3][0] * square[3][1] * square[3][2])));
  const N largest = Most(Magnitude(jacobian), product);
  return Choose(largest > 0.0, sqrt2 * jacobian / largest, N{});
}

template <class P>
NumberOf<P> TetShape(CornerShape, const P* p) {
  using N = NumberOf<P>;
  const P a = p[1] - p[0], b = p[2] - p[0], c = p[3] - p[0];
  const N jacobian = Triple(a, b, c);
  const N spread = 1.5 * (Dot(a, a) + Dot(b, b) + Dot(c, c)) - (Dot(a, b) + Dot(b, c) + Dot(c, a));
  return Choose(jacobian > 0.0, 3 * CubeRoot(2 * jacobian * jacobian) / spread, N{});
}

template <class P>
NumberOf<P> TetCondition(CornerShape, const P* p) {
  // The map from the regular tetrahedron, column by column.
  const P a = p[1] - p[0], b = p[2] - p[0], c = p[3] - p[0];
  return Frame<P>{a, (1 / sqrt3) * (2 * b - a), (1 / std::sqrt(6.0)) * (3 * c - b - a)}.Condition();
}

double TetCollapse(CornerShape, const Point3* p) {
  double least = kUnbounded;
  for (int c = 0; c < 4; ++c) {
    const Point3& u = p[kTetFaces[c][0]];
    const Point3& v = p[kTetFaces[c][1]];
    const Point3& w = p[kTetFaces[c][2]];
    Point3 normal = Cross(v - u, w - u);
    if (!Normalize(normal)) return 0;
    const double longest = std::max({Distance(u, v), Distance(v, w), Distance(w, u)});
    least = std::min(least, std::abs(Dot(normal, p[c] - u)) / longest);
  }
  return least;
}

namespace {

/// The point from which a sphere through the corners is drawn, from the first corner, times twice
/// the Jacobian.
Point3 TowardsCircumcentre(const Point3* p) {
  const Point3 a = p[1] - p[0], b = p[2] - p[0], c = p[3] - p[0];
  return SquaredLength(a) * Cross(b, c) + SquaredLength(b) * Cross(c, a) +
         SquaredLength(c) * Cross(a, b);
}

}  // namespace

double TetRadiusRatio(CornerShape, const Point3* p) {
  double area = 0;
  for (const auto& f : kTetFaces) area += TriangleArea(p[f[0]], p[f[1]], p[f[2]]);
  const double jacobian = TetJacobian(p);
  return Ratio(Length(TowardsCircumcentre(p)) * area, 3 * jacobian * std::abs(jacobian));
}

double TetFrobenius(CornerShape shape, const Point3* p) { return Ratio(1.0, TetShape(shape, p)); }

double TetGamma(CornerShape, const Point3* p) {
  double squares = 0;
  for (int i = 0; i < 4; ++i) {
    for (int k = 0; k < i; ++k) squares += SquaredLength(p[i] - p[k]);
  }
  const double length = std::sqrt(squares / 6);
  return Ratio(sqrt2 * length * length * length, 2 * TetJacobian(p));
}

double TetEquivolumeSkew(CornerShape, const Point3* p) {
  // With R the radius of the sphere, a regular tetrahedron in it has the volume 8 R^3 / (9 sqrt 3).
  const double radius = Length(TowardsCircumcentre(p));  // times twice the Jacobian
  const double jacobian = TetJacobian(p);
  if (!(jacobian > 0) || !(radius > 0)) return 1;
  const double part = jacobian / radius;
  return 1 - 1.5 * sqrt3 * part * part * part * jacobian;
}

double TetSquish(CornerShape, const Point3* p) {
  const Point3 middle = 0.25 * (p[0] + p[1] + p[2] + p[3]);
  double squish = 0;
  for (int c = 0; c < 4; ++c) {
    const Point3 &u = p[kTetFaces[c][0]], &v = p[kTetFaces[c][1]], &w = p[kTetFaces[c][2]];
    const Point3 normal = Cross(v - u, w - u);
    const Point3 outwards = c < 3 ? normal : -normal;  // the last face is listed inwards
    const Point3 way = (1.0 / 3) * (u + v + w) - middle;
    const double product = Length(outwards) * Length(way);
    squish = std::max(squish, product > 0 ? 1 - Dot(outwards, way) / product : 1.0);
  }
  return std::min(squish, 1.0);
}

template <class P>
NumberOf<P> MinDihedralAngle(CornerShape, const P* p) {
  return DihedralAngles(p).Least();
}

template <class P>
NumberOf<P> MaxDihedralAngle(CornerShape, const P* p) {
  return DihedralAngles(p).Most();
}

// ---- solids -------------------------------------------------------------------------------------

namespace {

/// Neighbours of a corner, right-handed in an element that is not inverted.
struct Neighbours {
  int corner, a, b, c;
};

constexpr Neighbours kTetCorners[] = {{0, 1, 2, 3}, {1, 2, 0, 3}, {2, 0, 1, 3}, {3, 0, 2, 1}};
constexpr Neighbours kPyramidCorners[] = {{0, 1, 3, 4}, {1, 2, 0, 4}, {2, 3, 1, 4}, {3, 0, 2, 4}};
constexpr Neighbours kWedgeCorners[] = {{0, 1, 2, 3}, {1, 2, 0, 4}, {2, 0, 1, 5},
                                        {3, 5, 4, 0}, {4, 3, 5, 1}, {5, 4, 3, 2}};
constexpr Neighbours kHexCorners[] = {{0, 1, 3, 4}, {1, 2, 0, 5}, {2, 3, 1, 6}, {3, 0, 2, 7},
                                      {4, 7, 5, 0}, {5, 4, 6, 1}, {6, 5, 7, 2}, {7, 6, 4, 3}};

template <CornerShape kShape>
constexpr auto CornersOf() {
  if constexpr (kShape == CornerShape::kTetrahedron) {
    return std::to_array(kTetCorners);
  } else if constexpr (kShape == CornerShape::kPyramid) {
    return std::to_array(kPyramidCorners);
  } else if constexpr (kShape == CornerShape::kWedge) {
    return std::to_array(kWedgeCorners);
  } else {
    return std::to_array(kHexCorners);
  }
}

/// The principal axes of a hexahedron: sums of its four edges each way.
template <class P>
Frame<P> HexAxes(const P* p) {
  return {(p[1] - p[0]) + (p[2] - p[3]) + (p[5] - p[4]) + (p[6] - p[7]),
          (p[3] - p[0]) + (p[2] - p[1]) + (p[7] - p[4]) + (p[6] - p[5]),
          (p[4] - p[0]) + (p[5] - p[1]) + (p[6] - p[2]) + (p[7] - p[3])};
}

/// Visits the frames of the corners.
template <class P, class Visit>
void ForEachCorner(CornerShape shape, const P* p, Visit&& visit) {
  ForShape(shape, [&]<CornerShape kShape>() {
    constexpr auto kCorners = CornersOf<kShape>();
    Unrolled<kCorners.size()>([&](auto i) {
      constexpr Neighbours kN = kCorners[i];
      const P& at = p[kN.corner];
      visit(Frame<P>{p[kN.a] - at, p[kN.b] - at, p[kN.c] - at});
    });
  });
}

/// Visits the frames of the corners, and of a hexahedron that of its middle.
template <class P, class Visit>
void ForEachFrame(CornerShape shape, const P* p, Visit&& visit) {
  ForEachCorner(shape, p, visit);
  if (shape != CornerShape::kHexahedron) return;
  const Frame<P> axes = HexAxes(p);
  visit(Frame<P>{0.25 * axes.a, 0.25 * axes.b, 0.25 * axes.c});
}

Range HexDiagonals(const Point3* p) {
  constexpr int kDiagonals[4][2] = {{0, 6}, {1, 7}, {2, 4}, {3, 5}};
  Range lengths;
  for (const auto& d : kDiagonals) lengths.Take(Distance(p[d[0]], p[d[1]]));
  return lengths;
}

/// The frame of a corner, seen from that of the ideal element.
Frame<Point3> AgainstIdeal(CornerShape shape, const Frame<Point3>& f) {
  if (shape != CornerShape::kWedge) return f;
  return {f.a, (1 / sqrt3) * (2 * f.b - f.a), f.c};
}

}  // namespace

double SolidJacobian(CornerShape shape, const Point3* p) {
  double least = kUnbounded;
  ForEachFrame(shape, p, [&](const auto& f) { least = std::min(least, f.Determinant()); });
  return least;
}

template <class P>
NumberOf<P> SolidScaledJacobian(CornerShape shape, const P* p) {
  using N = NumberOf<P>;
  const double ideal = shape == CornerShape::kPyramid ? sqrt2
                       : shape == CornerShape::kWedge ? 2 / sqrt3
                                                      : 1.0;
  N least = Filled<N>(kUnbounded);
  ForEachFrame(shape, p, [&](const Frame<P>& f) {
    const N product = SquaredLength(f.a) * SquaredLength(f.b) * SquaredLength(f.c);
    const N determinant = f.Determinant();
    // Squares with their signs are compared, and one root taken.
    const N square = determinant * Magnitude(determinant) / product;
    least = Least(least, Choose(product > 0.0, square, N{}));
  });
  return ideal * SignedRoot(least);
}

double SolidFrobenius(CornerShape shape, const Point3* p) {
  double most = 0;
  ForEachCorner(shape, p,
                [&](const auto& f) { most = std::max(most, AgainstIdeal(shape, f).Condition()); });
  return most;
}

double SolidMeanFrobenius(CornerShape shape, const Point3* p) {
  double sum = 0;
  int corners = 0;
  ForEachCorner(shape, p, [&](const auto& f) {
    sum += AgainstIdeal(shape, f).Condition();
    ++corners;
  });
  return Mean(sum, corners);
}

double SolidJacobianRatio(CornerShape shape, const Point3* p) {
  Range jacobians;
  ForEachCorner(shape, p, [&](const auto& f) { jacobians.Take(f.Determinant()); });
  return Ratio(jacobians.most, jacobians.least);
}

double HexAspect(CornerShape, const Point3* p) {
  const Frame<Point3> axes = HexAxes(p);
  Range lengths;
  for (const Point3* axis : {&axes.a, &axes.b, &axes.c}) lengths.Take(Length(*axis));
  return Ratio(lengths.most, lengths.least);
}

template <class P>
NumberOf<P> HexSkew(CornerShape, const P* p) {
  using N = NumberOf<P>;
  const Frame<P> axes = HexAxes(p);
  const N aa = SquaredLength(axes.a), bb = SquaredLength(axes.b), cc = SquaredLength(axes.c);
  // Squares are compared, and one root taken; 1 where an axis has no length.
  const auto squared_cosine = [](N dot, N squares) {
    const N one = Filled<N>(1);
    return Choose(squares > 0.0, Least(dot * dot / squares, one), one);
  };
  return Root(Most(Most(squared_cosine(Dot(axes.a, axes.b), aa * bb),
                        squared_cosine(Dot(axes.b, axes.c), bb * cc)),
                   squared_cosine(Dot(axes.c, axes.a), cc * aa)));
}

double HexTaper(CornerShape, const Point3* p) {
  const Frame<Point3> axes = HexAxes(p);
  const double a = Length(axes.a), b = Length(axes.b), c = Length(axes.c);
  const Point3 ab = (p[2] - p[3]) - (p[1] - p[0]) + (p[6] - p[7]) - (p[5] - p[4]);
  const Point3 ac = (p[5] - p[1]) - (p[4] - p[0]) + (p[6] - p[2]) - (p[7] - p[3]);
  const Point3 bc = (p[7] - p[4]) - (p[3] - p[0]) + (p[6] - p[5]) - (p[2] - p[1]);
  return std::max({Ratio(Length(ab), std::min(a, b)), Ratio(Length(ac), std::min(a, c)),
                   Ratio(Length(bc), std::min(b, c))});
}

template <class P>
NumberOf<P> HexShape(CornerShape, const P* p) {
  using N = NumberOf<P>;
  // Cubes are compared, and one root taken: of det^2 / spread^3.
  N least = Filled<N>(1.0 / 27);
  ForEachFrame(CornerShape::kHexahedron, p, [&](const Frame<P>& f) {
    const N determinant = f.Determinant(), spread = f.Spread();
    const N cube = determinant * determinant / (spread * spread * spread);
    least = Least(least, Choose(determinant > 0.0, cube, N{}));
  });
  return 3 * CubeRoot(least);
}

template <class P>
NumberOf<P> HexCondition(CornerShape, const P* p) {
  using N = NumberOf<P>;
  N most{};
  ForEachFrame(CornerShape::kHexahedron, p,
               [&](const Frame<P>& f) { most = Most(most, f.SquaredCondition()); });
  return Frame<P>::ConditionOf(most);
}

double HexStretch(CornerShape shape, const Point3* p) {
  const double longest = HexDiagonals(p).most;
  return longest > 0 ? sqrt3 * EdgeLengths(shape, p).least / longest : 0;
}

double HexDiagonal(CornerShape, const Point3* p) {
  const Range lengths = HexDiagonals(p);
  return lengths.most > 0 ? lengths.least / lengths.most : 0;
}

double HexShear(CornerShape shape, const Point3* p) {
  return std::max(SolidScaledJacobian(shape, p), 0.0);
}

double HexOddy(CornerShape shape, const Point3* p) {
  double most = 0;
  ForEachCorner(shape, p, [&](const auto& f) {
    const double aa = Dot(f.a, f.a), bb = Dot(f.b, f.b), cc = Dot(f.c, f.c);
    const double ab = Dot(f.a, f.b), bc = Dot(f.b, f.c), ca = Dot(f.c, f.a);
    const double squares = aa * aa + bb * bb + cc * cc + 2 * (ab * ab + bc * bc + ca * ca);
    const double trace = aa + bb + cc;
    const double jacobian = std::max(f.Determinant(), 0.0);
    most = std::max(most, Ratio(squares - trace * trace / 3, jacobian * std::cbrt(jacobian)));
  });
  return most;
}

double HexDistortion(CornerShape shape, const Point3* p) {
  const double volume = ShapeSize(shape, p);
  if (volume == 0) return 0;
  double least = kUnbounded;
  ForEachCorner(shape, p,
                [&](const auto& f) { least = std::min(least, f.Determinant() / volume); });
  return least;
}

double HexDimension(CornerShape shape, const Point3* p) {
  // The volume is a twelfth of three triple products (see HexahedronVolume); their factors are
  // differences of corners: p[0] - p[1] + p[2] - p[3], p[4] - p[5] and p[6] - p[7] of a row.
  constexpr int kProducts[3][8] = {
      {3, 1, 7, 2, 6, 3, 2, 0}, {4, 3, 5, 7, 6, 4, 7, 0}, {1, 4, 2, 5, 6, 1, 5, 0}};
  Point3 gradient[8];
  for (const auto& at : kProducts) {
    const Point3 a = (p[at[0]] - p[at[1]]) + (p[at[2]] - p[at[3]]);
    const Point3 b = p[at[4]] - p[at[5]], c = p[at[6]] - p[at[7]];
    const Point3 bc = Cross(b, c), ca = Cross(c, a), ab = Cross(a, b);
    const Point3 by[8] = {bc, -bc, bc, -bc, ca, -ca, ab, -ab};
    for (int i = 0; i < 8; ++i) gradient[at[i]] += by[i];
  }
  double squares = 0;
  for (const Point3& by : gradient) squares += SquaredLength(by) / 144;
  return squares > 0 ? std::abs(ShapeSize(shape, p)) / std::sqrt(2 * squares) : 0;
}

QX_FOR_ONE_AND_TWO(TetScaledJacobian)
QX_FOR_ONE_AND_TWO(TetShape)
QX_FOR_ONE_AND_TWO(TetCondition)
QX_FOR_ONE_AND_TWO(MinDihedralAngle)
QX_FOR_ONE_AND_TWO(MaxDihedralAngle)
QX_FOR_ONE_AND_TWO(SolidScaledJacobian)
QX_FOR_ONE_AND_TWO(HexSkew)
QX_FOR_ONE_AND_TWO(HexShape)
QX_FOR_ONE_AND_TWO(HexCondition)

}  // namespace qx::quality
