#include "qx_db/mesh/quality_formulas.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/quality_parts.h"

namespace qx::quality {

using std::numbers::sqrt2;
using std::numbers::sqrt3;

// ---- any shape ----------------------------------------------------------------------------------

double EdgeRatio(CornerShape shape, const Point3* p) {
  const Range lengths = EdgeLengths(shape, p);
  return Ratio(lengths.most, lengths.least);
}

double EquiangleSkew(CornerShape shape, const Point3* p) {
  double skew = 0;
  ForEachFace(shape, p, [&](const Face& face) {
    const double ideal = face.count == 3 ? 60 : 90;
    Openings angles;
    TakeAngles(face, angles);
    skew =
        std::max({skew, (angles.Most() - ideal) / (180 - ideal), (ideal - angles.Least()) / ideal});
  });
  return std::min(skew, 1.0);
}

double MinFaceAngle(CornerShape shape, const Point3* p) { return FaceAngles(shape, p).Least(); }

double MaxFaceAngle(CornerShape shape, const Point3* p) { return FaceAngles(shape, p).Most(); }

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

}  // namespace qx::quality
