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

template <class P>
NumberOf<P> EdgeRatio(CornerShape shape, const P* p) {
  const auto lengths = EdgeLengths(shape, p);
  return Ratio(lengths.most, lengths.least);
}

double EquiangleSkew(CornerShape shape, const Point3* p) {
  double skew = 0;
  ForEachFace(shape, p, [&](const auto& face) {
    const double ideal = face.kCorners == 3 ? 60 : 90;
    Openings<double> angles;
    TakeAngles(face, angles);
    skew =
        std::max({skew, (angles.Most() - ideal) / (180 - ideal), (ideal - angles.Least()) / ideal});
  });
  return std::min(skew, 1.0);
}

template <class P>
NumberOf<P> MinFaceAngle(CornerShape shape, const P* p) {
  return FaceAngles(shape, p).Least();
}

template <class P>
NumberOf<P> MaxFaceAngle(CornerShape shape, const P* p) {
  return FaceAngles(shape, p).Most();
}

double FaceWarpage(CornerShape shape, const Point3* p) {
  double warpage = 0;
  ForEachFace(shape, p, [&]<int kCount>(const Face<kCount, Point3>& face) {
    if constexpr (kCount == 4) {
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
template <class P>
NumberOf<P> TriSpread(const P* p) {
  const P a = p[1] - p[0], b = p[2] - p[0];
  return Dot(a, a) + Dot(b, b) - Dot(a, b);
}

}  // namespace

template <class P>
NumberOf<P> TriAspect(CornerShape shape, const P* p) {
  using N = NumberOf<P>;
  const N a = LengthOf(p[1] - p[0]), b = LengthOf(p[2] - p[1]), c = LengthOf(p[0] - p[2]);
  return Ratio<N>(Most(Most(a, b), c) * (a + b + c), 4 * sqrt3 * ShapeSize(shape, p));
}

template <class P>
NumberOf<P> TriScaledJacobian(CornerShape shape, const P* p) {
  using N = NumberOf<P>;
  const N a = LengthOf(p[1] - p[0]), b = LengthOf(p[2] - p[1]), c = LengthOf(p[0] - p[2]);
  const N largest = Most(Most(a * b, b * c), c * a);
  return Choose(largest > 0.0, 2 / sqrt3 * 2 * ShapeSize(shape, p) / largest, N{});
}

template <class P>
NumberOf<P> TriShape(CornerShape shape, const P* p) {
  const NumberOf<P> spread = TriSpread(p);
  return Choose(spread > 0.0, 2 * sqrt3 * ShapeSize(shape, p) / spread, Filled<NumberOf<P>>(0));
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
template <class P>
struct QuadAxes {
  P x1, x2, x12;
  explicit QuadAxes(const P* p)
      : x1((p[1] - p[0]) + (p[2] - p[3])),
        x2((p[2] - p[1]) + (p[3] - p[0])),
        x12((p[0] - p[1]) + (p[2] - p[3])) {}
};

/// Signed areas of the parallelograms at the corners, seen along the normal in the middle, and the
/// squares and products of the edges there.
template <class P>
struct QuadCorners {
  using N = NumberOf<P>;
  N area[4], squares[4], product[4];
  N own_area[4], oddness[4];  // in the corner's own plane; what the edges there differ in
  explicit QuadCorners(const P* p) {
    const QuadAxes<P> axes(p);
    const P up = Cross(axes.x1, axes.x2);
    const N length = LengthOf(up);
    const N is_up = Choose(length > 0.0, 1 / length, N{});  // a quadrilateral of no area has none
    for (int i = 0; i < 4; ++i) {
      const P to = p[(i + 1) % 4] - p[i], from = p[(i + 3) % 4] - p[i];
      const N difference = SquaredLength(to) - SquaredLength(from);
      area[i] = is_up * Dot(up, Cross(to, from));
      squares[i] = SquaredLength(to) + SquaredLength(from);
      product[i] = Root(SquaredLength(to) * SquaredLength(from));
      own_area[i] = LengthOf(Cross(to, from));
      oddness[i] = difference * difference + 4 * Dot(to, from) * Dot(to, from);
    }
  }
  N Frobenius(int i) const { return Ratio<N>(squares[i], 2 * own_area[i]); }
};

}  // namespace

template <class P>
NumberOf<P> QuadAspect(CornerShape shape, const P* p) {
  using N = NumberOf<P>;
  N sum{}, longest{};
  for (int i = 0; i < 4; ++i) {
    const N length = LengthOf(p[(i + 1) % 4] - p[i]);
    sum += length;
    longest = Most(longest, length);
  }
  return Ratio<N>(longest * sum, 4 * ShapeSize(shape, p));
}

double QuadSkew(CornerShape, const Point3* p) {
  const QuadAxes<Point3> axes(p);
  return Cosine(axes.x1, axes.x2);
}

double QuadTaper(CornerShape, const Point3* p) {
  const QuadAxes<Point3> axes(p);
  return Ratio(Length(axes.x12), std::min(Length(axes.x1), Length(axes.x2)));
}

double QuadJacobian(CornerShape, const Point3* p) {
  const QuadCorners<Point3> corners(p);
  return *std::min_element(corners.area, corners.area + 4);
}

template <class P>
NumberOf<P> QuadScaledJacobian(CornerShape, const P* p) {
  using N = NumberOf<P>;
  const QuadCorners<P> corners(p);
  N least = Filled<N>(1);
  for (int i = 0; i < 4; ++i) {
    const N product = corners.product[i];
    least = Least(least, Choose(product > 0.0, corners.area[i] / product, N{}));
  }
  return least;
}

template <class P>
NumberOf<P> QuadShape(CornerShape, const P* p) {
  using N = NumberOf<P>;
  const QuadCorners<P> corners(p);
  N least = Filled<N>(1);
  for (int i = 0; i < 4; ++i) {
    const N area = corners.area[i];
    least = Least(least, Choose(area > 0.0, 2 * area / corners.squares[i], N{}));
  }
  return least;
}

template <class P>
NumberOf<P> QuadCondition(CornerShape, const P* p) {
  using N = NumberOf<P>;
  const QuadCorners<P> corners(p);
  N most{};
  for (int i = 0; i < 4; ++i) {
    most = Most(most, Ratio<N>(corners.squares[i], 2 * corners.area[i]));
  }
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
  const QuadCorners<Point3> corners(p);
  double most = 0;
  for (int i = 0; i < 4; ++i) most = std::max(most, corners.Frobenius(i));
  return most;
}

double QuadMeanFrobenius(CornerShape, const Point3* p) {
  const QuadCorners<Point3> corners(p);
  double sum = 0;
  for (int i = 0; i < 4; ++i) sum += corners.Frobenius(i);
  return Mean(sum, 4);
}

double QuadOddy(CornerShape, const Point3* p) {
  const QuadCorners<Point3> corners(p);
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
  const QuadCorners<Point3> corners(p);
  const auto [least, most] = std::minmax_element(corners.area, corners.area + 4);
  return Ratio(*most, *least);
}

QX_FOR_ONE_AND_TWO(EdgeRatio)
QX_FOR_ONE_AND_TWO(MinFaceAngle)
QX_FOR_ONE_AND_TWO(MaxFaceAngle)
QX_FOR_ONE_AND_TWO(TriAspect)
QX_FOR_ONE_AND_TWO(TriScaledJacobian)
QX_FOR_ONE_AND_TWO(TriShape)
QX_FOR_ONE_AND_TWO(QuadAspect)
QX_FOR_ONE_AND_TWO(QuadScaledJacobian)
QX_FOR_ONE_AND_TWO(QuadShape)
QX_FOR_ONE_AND_TWO(QuadCondition)

}  // namespace qx::quality
