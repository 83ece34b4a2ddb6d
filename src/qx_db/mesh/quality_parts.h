#pragma once
// What the formulas of quality measures are made of: ratios, extremes, edges, faces, angles.
// Threads: any; nothing is kept between calls.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/mesh/point3.h"
#include "qx_db/mesh/shape_tables.h"

namespace qx::quality {

inline double Ratio(double above, double below) {
  return below > 0 ? std::min(above / below, kUnbounded) : kUnbounded;
}

/// The mean of ratios, of which one without bound leaves none.
inline double Mean(double sum, int count) { return sum < kUnbounded ? sum / count : kUnbounded; }

/// Two extremes met so far.
struct Range {
  double least = kUnbounded;
  double most = -kUnbounded;
  void Take(double value) {
    least = std::min(least, value);
    most = std::max(most, value);
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

/// Calls `work` with the numbers from 0 up as constants.
template <std::size_t kCount, class Work>
void Unrolled(Work&& work) {
  [&]<std::size_t... kI>(std::index_sequence<kI...>) {
    (work(std::integral_constant<std::size_t, kI>()), ...);
  }
  (std::make_index_sequence<kCount>());
}

/// The shortest and the longest edge. Squares are compared, and two roots taken.
inline Range EdgeLengths(CornerShape shape, const Point3* p) {
  return ForShape(shape, [p]<CornerShape kShape>() {
    constexpr const ShapeTable& kTable = TableOf(kShape);
    double least = kUnbounded * kUnbounded, most = 0;
    Unrolled<kTable.edges>([&](auto e) {
      const double square = SquaredLength(p[kTable.edge[e][1]] - p[kTable.edge[e][0]]);
      least = std::min(least, square);
      most = std::max(most, square);
    });
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
    Unrolled<kTable.faces>([&](auto f) {
      Face face;
      face.count = kTable.face[f][3] < 0 ? 3 : 4;
      for (int c = 0; c < face.count; ++c) face.at[c] = p[kTable.face[f][c]];
      visit(face);
    });
  });
}

/// An angle by its two directions: told from others without an arc tangent, or even a root.
struct Opening {
  Point3 a, b;
  bool is_reflex = false;  ///< above 180 degrees, where the directions say less

  double Degrees() const {
    const double angle = AngleBetween(a, b);
    return is_reflex ? 360 - angle : angle;
  }
};

/// The least and the largest of angles met so far.
class Openings {
 public:
  void Take(const Opening& opening) {
    // The square of the cosine, with its sign, falls from 1 to -1 while the angle grows to 180.
    const double cosine = Dot(opening.a, opening.b);
    const double lengths = SquaredLength(opening.a) * SquaredLength(opening.b);
    const double signed_square = lengths > 0 ? cosine * std::abs(cosine) / lengths : 1;
    const double order = opening.is_reflex ? 3 + signed_square : 1 - signed_square;
    if (order < least_order_) least_order_ = order, least_ = opening;
    if (order > most_order_) most_order_ = order, most_ = opening;
  }
  double Least() const { return least_.Degrees(); }
  double Most() const { return most_.Degrees(); }

 private:
  Opening least_, most_;
  double least_order_ = 5, most_order_ = -1;
};

inline void TakeAngles(const Face& face, Openings& openings) {
  const Point3 up = face.count == 4 ? Cross(face.at[2] - face.at[0], face.at[3] - face.at[1])
                                    : Point3();  // no angle of a triangle is reflex
  for (int i = 0; i < face.count; ++i) {
    const Point3 to = face.Next(i) - face.at[i], from = face.Before(i) - face.at[i];
    openings.Take({to, from, face.count == 4 && Dot(Cross(to, from), up) < 0});
  }
}

inline Openings FaceAngles(CornerShape shape, const Point3* p) {
  Openings openings;
  ForEachFace(shape, p, [&](const Face& face) { TakeAngles(face, openings); });
  return openings;
}

/// |cosine| between two directions; 1 when one has no length.
inline double Cosine(const Point3& a, const Point3& b) {
  const double product = Length(a) * Length(b);
  return product > 0 ? std::min(std::abs(Dot(a, b)) / product, 1.0) : 1.0;
}

}  // namespace qx::quality
