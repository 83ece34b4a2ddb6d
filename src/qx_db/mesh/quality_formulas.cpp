#include "qx_db/mesh/quality_formulas.h"

#include <algorithm>
#include <array>
#include <limits>
#include <numbers>

#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/mesh/shape_tables.h"

namespace qx::quality {
namespace {

using std::numbers::sqrt2;
using std::numbers::sqrt3;

double Ratio(double above, double below) {
  return below > 0 ? std::min(above / below, kUnbounded) : kUnbounded;
}

/// The mean of ratios, of which one without bound leaves none.
double Mean(double sum, int count) { return sum < kUnbounded ? sum / count : kUnbounded; }

constexpr double kDegreesOfRadian = 180 / std::numbers::pi;

/// Two extremes met so far.
struct Range {
  double least = kUnbounded;
  double most = -kUnbounded;
  void Take(double value) {
    least = std::min(least, value);
    most = std::max(most, value);
  }
};

/// The edges from a corner of a solid, right-handed.
struct Frame {
  Point3 a, b, c;
  double Determinant() const { return Triple(a, b, c); }
  double Spread() const { return SquaredLength(a) + SquaredLength(b) + SquaredLength(c); }
  /// How far the map from the unit cube is from one that only turns and scales; 1 for that.
  double Condition() const { return std::min(std::sqrt(SquaredCondition()), kUnbounded); }
  /// Infinite where the map turns inside out.
  double SquaredCondition() const {
    const Point3 ab = Cross(a, b);
    const double across =
        SquaredLength(ab) + SquaredLength(Cross(b, c)) + SquaredLength(Cross(c, a));
    const double determinant = Dot(ab, c);
    return determinant > 0 ? Spread() / determinant * (across / determinant) / 9
                           : std::numeric_limits<double>::infinity();
  }
};

/// Calls `work` with the table of a shape as a constant, so that what it does is unrolled.
template <class Work>
auto ForShape(CornerShape shape, Work&& work) {
  switch (shape) {
    case CornerShape::kTriangle:
      return work.template operator()<CornerShape::kTriangle>();
    case CornerShape::kQuadrilateral:
      return work.template operator()<CornerShape::kQuadrilateral>();
    case CornerShape::kTetrahedron:
      return work.template operator()<CornerShape::kTetrahedron>();
    case CornerShape::kPyramid:
      return work.template operator()<CornerShape::kPyramid>();
    case CornerShape::kWedge:
      return work.template operator()<CornerShape::kWedge>();
    default:
      return work.template operator()<CornerShape::kHexahedron>();
  }
}

/// The shortest and the longest edge. Squares are compared, and two roots taken.
Range EdgeLengths(CornerShape shape, const Point3* p) {
  return ForShape(shape, [p]<CornerShape kShape>() {
    constexpr const ShapeTable& kTable = TableOf(kShape);
    double least = SquaredLength(p[kTable.edge[0][1]] - p[kTable.edge[0][0]]), most = least;
    for (int e = 1; e < kTable.edges; ++e) {
      const double square = SquaredLength(p[kTable.edge[e][1]] - p[kTable.edge[e][0]]);
      least = std::min(least, square);
      most = std::max(most, square);
    }
    return Range{std::sqrt(least), std::sqrt(most)};
  });
}

/// Corners of a face, in order.
struct Face {
  int count = 0;
  Point3 at[4];
  const Point3& Next(int i) const { return at[(i + 1) % count]; }
  const Point3& Before(int i) const { return at[(i + count - 1) % count]; }
  /// Points out of the face's plane, as long as the corner's parallelogram is large.
  Point3 NormalAt(int i) const { return Cross(Next(i) - at[i], Before(i) - at[i]); }
};

template <class Visit>
void ForEachFace(CornerShape shape, const Point3* p, Visit&& visit) {
  ForShape(shape, [&]<CornerShape kShape>() {
    constexpr const ShapeTable& kTable = TableOf(kShape);
    for (int f = 0; f < kTable.faces; ++f) {
      Face face;
      face.count = kTable.face[f][3] < 0 ? 3 : 4;
      for (int c = 0; c < face.count; ++c) face.at[c] = p[kTable.face[f][c]];
      visit(face);
    }
  });
}

/// An angle by its sine and cosine, both times the lengths of the two directions: told from others
/// without an arc tangent.
struct Opening {
  double sine, cosine;  ///< the sine of one above 180 degrees is negative
  double lengths;

  /// Grows with the angle, from 0 to 4.
  double Order() const {
    const double c = lengths > 0 ? cosine / lengths : 1;
    return sine < 0 ? 3 + c : 1 - c;
  }
  double Degrees() const {
    const double angle = std::atan2(sine, cosine) * kDegreesOfRadian;
    return angle < 0 ? angle + 360 : angle;
  }
};

/// The least and the largest of angles met so far.
class Openings {
 public:
  void Take(const Opening& opening) {
    const double order = opening.Order();
    // As long as it is none a value is taken, so that what is no number stays one.
    if (!(order >= least_order_)) least_order_ = order, least_ = opening;
    if (!(order <= most_order_)) most_order_ = order, most_ = opening;
  }
  Range Degrees() const { return {least_.Degrees(), most_.Degrees()}; }

 private:
  Opening least_{}, most_{};
  double least_order_ = 5, most_order_ = -1;
};

void TakeAngles(const Face& face, Openings& openings) {
  const Point3 up =
      face.count == 4 ? Cross(face.at[2] - face.at[0], face.at[3] - face.at[1]) : face.NormalAt(0);
  for (int i = 0; i < face.count; ++i) {
    const Point3 to = face.Next(i) - face.at[i], from = face.Before(i) - face.at[i];
    const Point3 normal = Cross(to, from);
    const double sine = Length(normal);
    const double lengths = std::sqrt(SquaredLength(to) * SquaredLength(from));
    openings.Take({Dot(normal, up) < 0 ? -sine : sine, Dot(to, from), lengths});
  }
}

Range AnglesOf(const Face& face) {
  Openings openings;
  TakeAngles(face, openings);
  return openings.Degrees();
}

Range FaceAngles(CornerShape shape, const Point3* p) {
  Openings openings;
  ForEachFace(shape, p, [&](const Face& face) { TakeAngles(face, openings); });
  return openings.Degrees();
}

}  // namespace

// ---- any shape ----------------------------------------------------------------------------------

double EdgeRatio(CornerShape shape, const Point3* p) {
  const Range lengths = EdgeLengths(shape, p);
  return Ratio(lengths.most, lengths.least);
}

double EquiangleSkew(CornerShape shape, const Point3* p) {
  double skew = 0;
  ForEachFace(shape, p, [&](const Face& face) {
    const double ideal = face.count == 3 ? 60 : 90;
    const Range angles = AnglesOf(face);
    skew = std::max({skew, (angles.most - ideal) / (180 - ideal), (ideal - angles.least) / ideal});
  });
  return std::min(skew, 1.0);
}

double MinFaceAngle(CornerShape shape, const Point3* p) { return FaceAngles(shape, p).least; }

double MaxFaceAngle(CornerShape shape, const Point3* p) { return FaceAngles(shape, p).most; }

double FaceWarpage(CornerShape shape, const Point3* p) {
  double warpage = 0;
  ForEachFace(shape, p, [&](const Face& face) {
    if (face.count != 4) return;
    Point3 normal[4];
    for (int i = 0; i < 4; ++i) {
      normal[i] = face.NormalAt(i);
      // A face with a flat corner has no direction there and counts as plane, as in the report.
      if (!Normalize(normal[i])) return;
    }
    for (int i = 0; i < 2; ++i) {
      const double cosine = Dot(normal[i], normal[i + 2]);
      warpage = std::max(warpage, 1 - cosine * cosine * cosine);
    }
  });
  return warpage;
}

double RelativeSize(double size, double mean_size) {
  if (std::isnan(mean_size)) return mean_size;
  if (!(size > 0) || !(mean_size > 0)) return 0;
  const double ratio = std::min(size / mean_size, mean_size / size);
  return ratio * ratio;
}

// ---- triangles ----------------------------------------------------------------------------------

namespace {

/// What shape and condition of a triangle weigh the area against.
double TriSpread(const Point3* p) {
  const Point3 a = p[1] - p[0], b = p[2] - p[0];
  return Dot(a, a) + Dot(b, b) - Dot(a, b);
}

}  // namespace

double TriAspect(CornerShape shape, const Point3* p) {
  const double a = Distance(p[0], p[1]), b = Distance(p[1], p[2]), c = Distance(p[2], p[0]);
  return Ratio(std::max({a, b, c}) * (a + b + c), 4 * sqrt3 * ShapeSize(shape, p));
}

double TriScaledJacobian(CornerShape shape, const Point3* p) {
  const double a = Distance(p[0], p[1]), b = Distance(p[1], p[2]), c = Distance(p[2], p[0]);
  const double largest = std::max({a * b, b * c, c * a});
  return largest > 0 ? 2 / sqrt3 * 2 * ShapeSize(shape, p) / largest : 0;
}

double TriShape(CornerShape shape, const Point3* p) {
  const double spread = TriSpread(p);
  return spread > 0 ? 2 * sqrt3 * ShapeSize(shape, p) / spread : 0;
}

double TriCondition(CornerShape shape, const Point3* p) {
  return Ratio(TriSpread(p), 2 * sqrt3 * ShapeSize(shape, p));
}

double TriRadiusRatio(CornerShape shape, const Point3* p) {
  const double a = Distance(p[0], p[1]), b = Distance(p[1], p[2]), c = Distance(p[2], p[0]);
  const double area = ShapeSize(shape, p);
  return Ratio(a * b * c * (a + b + c), 16 * area * area);
}

// ---- quadrilaterals -----------------------------------------------------------------------------

namespace {

/// The directions across a quadrilateral, and how they change.
struct QuadAxes {
  Point3 x1, x2, x12;
  explicit QuadAxes(const Point3* p)
      : x1((p[1] - p[0]) + (p[2] - p[3])),
        x2((p[2] - p[1]) + (p[3] - p[0])),
        x12((p[0] - p[1]) + (p[2] - p[3])) {}
};

/// Signed areas of the parallelograms at the corners, seen along the normal in the middle, and the
/// squares and products of the edges there.
struct QuadCorners {
  double area[4], squares[4], product[4];
  double own_area[4], oddness[4];  // in the corner's own plane; what the edges there differ in
  explicit QuadCorners(const Point3* p) {
    const QuadAxes axes(p);
    Point3 up = Cross(axes.x1, axes.x2);
    if (!Normalize(up)) up = {};
    for (int i = 0; i < 4; ++i) {
      const Point3 to = p[(i + 1) % 4] - p[i], from = p[(i + 3) % 4] - p[i];
      const double difference = SquaredLength(to) - SquaredLength(from);
      area[i] = Dot(up, Cross(to, from));
      squares[i] = SquaredLength(to) + SquaredLength(from);
      product[i] = std::sqrt(SquaredLength(to) * SquaredLength(from));
      own_area[i] = Length(Cross(to, from));
      oddness[i] = difference * difference + 4 * Dot(to, from) * Dot(to, from);
    }
  }
  double Frobenius(int i) const { return Ratio(squares[i], 2 * own_area[i]); }
};

/// |cosine| between two directions; 1 when one has no length.
double Cosine(const Point3& a, const Point3& b) {
  const double product = Length(a) * Length(b);
  return product > 0 ? std::min(std::abs(Dot(a, b)) / product, 1.0) : 1.0;
}

}  // namespace

double QuadAspect(CornerShape shape, const Point3* p) {
  double sum = 0, longest = 0;
  for (int i = 0; i < 4; ++i) {
    const double length = Distance(p[i], p[(i + 1) % 4]);
    sum += length;
    longest = std::max(longest, length);
  }
  return Ratio(longest * sum, 4 * ShapeSize(shape, p));
}

double QuadSkew(CornerShape, const Point3* p) {
  const QuadAxes axes(p);
  return Cosine(axes.x1, axes.x2);
}

double QuadTaper(CornerShape, const Point3* p) {
  const QuadAxes axes(p);
  return Ratio(Length(axes.x12), std::min(Length(axes.x1), Length(axes.x2)));
}

double QuadJacobian(CornerShape, const Point3* p) {
  const QuadCorners corners(p);
  return *std::min_element(corners.area, corners.area + 4);
}

double QuadScaledJacobian(CornerShape, const Point3* p) {
  const QuadCorners corners(p);
  double least = 1;
  for (int i = 0; i < 4; ++i) {
    least = std::min(least, corners.product[i] > 0 ? corners.area[i] / corners.product[i] : 0.0);
  }
  return least;
}

double QuadShape(CornerShape, const Point3* p) {
  const QuadCorners corners(p);
  double least = 1;
  for (int i = 0; i < 4; ++i) {
    least = std::min(least, corners.area[i] > 0 ? 2 * corners.area[i] / corners.squares[i] : 0.0);
  }
  return least;
}

double QuadCondition(CornerShape, const Point3* p) {
  const QuadCorners corners(p);
  double most = 0;
  for (int i = 0; i < 4; ++i) most = std::max(most, Ratio(corners.squares[i], 2 * corners.area[i]));
  return most;
}

double QuadStretch(CornerShape shape, const Point3* p) {
  const double diagonal = std::max(Distance(p[0], p[2]), Distance(p[1], p[3]));
  return diagonal > 0 ? sqrt2 * EdgeLengths(shape, p).least / diagonal : 0;
}

double QuadShear(CornerShape shape, const Point3* p) {
  return std::max(QuadScaledJacobian(shape, p), 0.0);
}

double QuadRadiusRatio(CornerShape shape, const Point3* p) {
  double squares = 0, least = kUnbounded;
  for (int i = 0; i < 4; ++i) {
    const Point3 &here = p[i], &next = p[(i + 1) % 4], &after = p[(i + 2) % 4];
    squares += SquaredLength(next - here);
    least = std::min(least, TriangleArea(here, next, after));
  }
  const double longest =
      std::max({EdgeLengths(shape, p).most, Distance(p[0], p[2]), Distance(p[1], p[3])});
  return Ratio(std::sqrt(squares) * longest, 4 * sqrt2 * least);
}

double QuadFrobenius(CornerShape, const Point3* p) {
  const QuadCorners corners(p);
  double most = 0;
  for (int i = 0; i < 4; ++i) most = std::max(most, corners.Frobenius(i));
  return most;
}

double QuadMeanFrobenius(CornerShape, const Point3* p) {
  const QuadCorners corners(p);
  double sum = 0;
  for (int i = 0; i < 4; ++i) sum += corners.Frobenius(i);
  return Mean(sum, 4);
}

double QuadOddy(CornerShape, const Point3* p) {
  const QuadCorners corners(p);
  double most = 0;
  for (int i = 0; i < 4; ++i) {
    const double area = corners.own_area[i];
    most = std::max(most, Ratio(corners.oddness[i], 2 * area * area));
  }
  return most;
}

double QuadDistortion(CornerShape shape, const Point3* p) {
  const double area = ShapeSize(shape, p);
  return area > 0 ? QuadJacobian(shape, p) / area : 0;
}

double QuadJacobianRatio(CornerShape, const Point3* p) {
  const QuadCorners corners(p);
  const auto [least, most] = std::minmax_element(corners.area, corners.area + 4);
  return Ratio(*most, *least);
}

// ---- tetrahedra ---------------------------------------------------------------------------------

namespace {

constexpr int kTetFaces[4][3] = {{1, 2, 3}, {2, 0, 3}, {0, 1, 3}, {0, 1, 2}};

/// Angles in degrees between the faces, over the six edges.
Range DihedralAngles(const Point3* p) {
  // Normals of the faces opposite the corners, all outwards or, of an inverted one, all inwards.
  Point3 normal[4];
  double square[4];
  for (int f = 0; f < 4; ++f) {
    const Point3& at = p[kTetFaces[f][0]];
    normal[f] = Cross(p[kTetFaces[f][1]] - at, p[kTetFaces[f][2]] - at);
    if (f == 3) normal[f] = -normal[f];  // is listed the other way round
    square[f] = SquaredLength(normal[f]);
  }
  Openings openings;
  for (int a = 1; a < 4; ++a) {
    for (int b = 0; b < a; ++b) {
      openings.Take({Length(Cross(normal[a], normal[b])), -Dot(normal[a], normal[b]),
                     std::sqrt(square[a] * square[b])});
    }
  }
  return openings.Degrees();
}

}  // namespace

double TetAspect(CornerShape shape, const Point3* p) {
  double area = 0;
  for (const auto& f : kTetFaces) area += TriangleArea(p[f[0]], p[f[1]], p[f[2]]);
  const double longest = EdgeLengths(shape, p).most;
  return Ratio(longest * area, 2 * std::sqrt(6.0) * 3 * ShapeSize(shape, p));
}

double TetScaledJacobian(CornerShape shape, const Point3* p) {
  const double jacobian = 6 * ShapeSize(shape, p);
  double square[4][4];
  for (int a = 1; a < 4; ++a) {
    for (int b = 0; b < a; ++b) square[a][b] = square[b][a] = SquaredLength(p[a] - p[b]);
  }
  const double product = std::sqrt(std::max(
      {square[0][1] * square[0][2] * square[0][3], square[1][0] * square[1][2] * square[1][3],
       square[2][0] * square[2][1] * square[2][3], square[3][0] * square[3][1] * square[3][2]}));
  const double largest = std::max(std::abs(jacobian), product);
  return largest > 0 ? sqrt2 * jacobian / largest : 0;
}

double TetShape(CornerShape shape, const Point3* p) {
  const double jacobian = 6 * ShapeSize(shape, p);
  if (!(jacobian > 0)) return 0;
  const Point3 a = p[1] - p[0], b = p[2] - p[0], c = p[3] - p[0];
  const double spread =
      1.5 * (Dot(a, a) + Dot(b, b) + Dot(c, c)) - (Dot(a, b) + Dot(b, c) + Dot(c, a));
  return 3 * std::cbrt(2 * jacobian * jacobian) / spread;
}

double TetCondition(CornerShape, const Point3* p) {
  // The map from the regular tetrahedron, column by column.
  const Point3 a = p[1] - p[0], b = p[2] - p[0], c = p[3] - p[0];
  return Frame{a, (1 / sqrt3) * (2 * b - a), (1 / std::sqrt(6.0)) * (3 * c - b - a)}.Condition();
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

double TetRadiusRatio(CornerShape shape, const Point3* p) {
  double area = 0;
  for (const auto& f : kTetFaces) area += TriangleArea(p[f[0]], p[f[1]], p[f[2]]);
  const double jacobian = 6 * ShapeSize(shape, p);
  return Ratio(Length(TowardsCircumcentre(p)) * area, 3 * jacobian * std::abs(jacobian));
}

double TetFrobenius(CornerShape shape, const Point3* p) { return Ratio(1, TetShape(shape, p)); }

double TetGamma(CornerShape shape, const Point3* p) {
  double squares = 0;
  for (int i = 0; i < 4; ++i) {
    for (int k = 0; k < i; ++k) squares += SquaredLength(p[i] - p[k]);
  }
  const double length = std::sqrt(squares / 6);
  return Ratio(sqrt2 * length * length * length, 12 * ShapeSize(shape, p));
}

double TetEquivolumeSkew(CornerShape shape, const Point3* p) {
  // With R the radius of the sphere, a regular tetrahedron in it has the volume 8 R^3 / (9 sqrt 3).
  const double radius = Length(TowardsCircumcentre(p));  // times twice the Jacobian
  const double jacobian = 6 * ShapeSize(shape, p);
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

double MinDihedralAngle(CornerShape, const Point3* p) { return DihedralAngles(p).least; }

double MaxDihedralAngle(CornerShape, const Point3* p) { return DihedralAngles(p).most; }

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
Frame HexAxes(const Point3* p) {
  return {(p[1] - p[0]) + (p[2] - p[3]) + (p[5] - p[4]) + (p[6] - p[7]),
          (p[3] - p[0]) + (p[2] - p[1]) + (p[7] - p[4]) + (p[6] - p[5]),
          (p[4] - p[0]) + (p[5] - p[1]) + (p[6] - p[2]) + (p[7] - p[3])};
}

/// Visits the frames of the corners.
template <class Visit>
void ForEachCorner(CornerShape shape, const Point3* p, Visit&& visit) {
  ForShape(shape, [&]<CornerShape kShape>() {
    constexpr auto kCorners = CornersOf<kShape>();
    for (const Neighbours& n : kCorners) {
      const Point3& at = p[n.corner];
      visit(Frame{p[n.a] - at, p[n.b] - at, p[n.c] - at});
    }
  });
}

/// Visits the frames of the corners, and of a hexahedron that of its middle.
template <class Visit>
void ForEachFrame(CornerShape shape, const Point3* p, Visit&& visit) {
  ForEachCorner(shape, p, visit);
  if (shape != CornerShape::kHexahedron) return;
  const Frame axes = HexAxes(p);
  visit(Frame{0.25 * axes.a, 0.25 * axes.b, 0.25 * axes.c});
}

Range HexDiagonals(const Point3* p) {
  constexpr int kDiagonals[4][2] = {{0, 6}, {1, 7}, {2, 4}, {3, 5}};
  Range lengths;
  for (const auto& d : kDiagonals) lengths.Take(Distance(p[d[0]], p[d[1]]));
  return lengths;
}

/// The frame of a corner, seen from that of the ideal element.
Frame AgainstIdeal(CornerShape shape, const Frame& f) {
  if (shape != CornerShape::kWedge) return f;
  return {f.a, (1 / sqrt3) * (2 * f.b - f.a), f.c};
}

}  // namespace

double SolidJacobian(CornerShape shape, const Point3* p) {
  double least = kUnbounded;
  ForEachFrame(shape, p, [&](const Frame& f) { least = std::min(least, f.Determinant()); });
  return least;
}

double SolidScaledJacobian(CornerShape shape, const Point3* p) {
  const double ideal = shape == CornerShape::kPyramid ? sqrt2
                       : shape == CornerShape::kWedge ? 2 / sqrt3
                                                      : 1.0;
  double least = kUnbounded;
  ForEachFrame(shape, p, [&](const Frame& f) {
    const double product = std::sqrt(SquaredLength(f.a) * SquaredLength(f.b) * SquaredLength(f.c));
    least = std::min(least, product > 0 ? f.Determinant() / product : 0.0);
  });
  return ideal * least;
}

double SolidFrobenius(CornerShape shape, const Point3* p) {
  double most = 0;
  ForEachCorner(shape, p,
                [&](const Frame& f) { most = std::max(most, AgainstIdeal(shape, f).Condition()); });
  return most;
}

double SolidMeanFrobenius(CornerShape shape, const Point3* p) {
  double sum = 0;
  int corners = 0;
  ForEachCorner(shape, p, [&](const Frame& f) {
    sum += AgainstIdeal(shape, f).Condition();
    ++corners;
  });
  return Mean(sum, corners);
}

double SolidJacobianRatio(CornerShape shape, const Point3* p) {
  Range jacobians;
  ForEachCorner(shape, p, [&](const Frame& f) { jacobians.Take(f.Determinant()); });
  return Ratio(jacobians.most, jacobians.least);
}

double HexAspect(CornerShape, const Point3* p) {
  const Frame axes = HexAxes(p);
  Range lengths;
  for (const Point3* axis : {&axes.a, &axes.b, &axes.c}) lengths.Take(Length(*axis));
  return Ratio(lengths.most, lengths.least);
}

double HexSkew(CornerShape, const Point3* p) {
  const Frame axes = HexAxes(p);
  return std::max({Cosine(axes.a, axes.b), Cosine(axes.b, axes.c), Cosine(axes.c, axes.a)});
}

double HexTaper(CornerShape, const Point3* p) {
  const Frame axes = HexAxes(p);
  const double a = Length(axes.a), b = Length(axes.b), c = Length(axes.c);
  const Point3 ab = (p[2] - p[3]) - (p[1] - p[0]) + (p[6] - p[7]) - (p[5] - p[4]);
  const Point3 ac = (p[5] - p[1]) - (p[4] - p[0]) + (p[6] - p[2]) - (p[7] - p[3]);
  const Point3 bc = (p[7] - p[4]) - (p[3] - p[0]) + (p[6] - p[5]) - (p[2] - p[1]);
  return std::max({Ratio(Length(ab), std::min(a, b)), Ratio(Length(ac), std::min(a, c)),
                   Ratio(Length(bc), std::min(b, c))});
}

double HexShape(CornerShape shape, const Point3* p) {
  // Cubes are compared, and one root taken: of det^2 / spread^3.
  double least = 1.0 / 27;
  ForEachFrame(shape, p, [&](const Frame& f) {
    const double determinant = f.Determinant(), spread = f.Spread();
    const double cube =
        determinant > 0 ? determinant / spread * (determinant / spread) / spread : 0.0;
    least = std::min(least, cube);
  });
  return 3 * std::cbrt(least);
}

double HexCondition(CornerShape shape, const Point3* p) {
  double most = 0;
  ForEachFrame(shape, p, [&](const Frame& f) { most = std::max(most, f.SquaredCondition()); });
  return std::min(std::sqrt(most), kUnbounded);
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
  ForEachCorner(shape, p, [&](const Frame& f) {
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
                [&](const Frame& f) { least = std::min(least, f.Determinant() / volume); });
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

}  // namespace qx::quality
