#pragma once
// What the formulas of quality measures are made of: ratios, extremes, edges, faces, angles.
// Threads: any; nothing is kept between calls.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "qx_db/mesh/lanes.h"
#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/mesh/point3.h"
#include "qx_db/mesh/shape_tables.h"

/// Makes a formula of quality_formulas.h for one element and for two.
#define QX_FOR_ONE_AND_TWO(formula)                    \
  template double formula(CornerShape, const Point3*); \
  template Lanes formula(CornerShape, const LanePoint*);

namespace qx::quality {

template <class N>
N Ratio(N above, N below) {
  const N unbounded = Filled<N>(kUnbounded);
  return Choose(below > 0.0, Least(above / below, unbounded), unbounded);
}

/// The mean of ratios, of which one without bound leaves none.
inline double Mean(double sum, int count) { return sum < kUnbounded ? sum / count : kUnbounded; }

/// Two extremes met so far.
template <class N>
struct Extremes {
  N least = Filled<N>(kUnbounded);
  N most = Filled<N>(-kUnbounded);
  void Take(N value) {
    least = Least(least, value);
    most = Most(most, value);
  }
};
using Range = Extremes<double>;

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
template <class P>
Extremes<NumberOf<P>> EdgeLengths(CornerShape shape, const P* p) {
  using N = NumberOf<P>;
  return ForShape(shape, [p]<CornerShape kShape>() {
    constexpr const ShapeTable& kTable = TableOf(kShape);
    Extremes<N> squares{Filled<N>(kUnbounded * kUnbounded), Filled<N>(0)};
    Unrolled<kTable.edges>(
        [&](auto e) { squares.Take(SquaredLength(p[kTable.edge[e][1]] - p[kTable.edge[e][0]])); });
    return Extremes<N>{Root(squares.least), Root(squares.most)};
  });
}

/// Corners of a face, in order.
template <int kCount, class P>
struct Face {
  static constexpr int kCorners = kCount;
  P at[kCount];
  const P& Next(int i) const { return at[(i + 1) % kCount]; }
  const P& Before(int i) const { return at[(i + kCount - 1) % kCount]; }
  /// Points out of the face's plane, as long as the corner's parallelogram is large.
  P NormalAt(int i) const { return Cross(Next(i) - at[i], Before(i) - at[i]); }
};

template <class P, class Visit>
void ForEachFace(CornerShape shape, const P* p, Visit&& visit) {
  ForShape(shape, [&]<CornerShape kShape>() {
    constexpr const ShapeTable& kTable = TableOf(kShape);
    Unrolled<kTable.faces>([&](auto f) {
      constexpr int kCount = kTable.face[f][3] < 0 ? 3 : 4;
      Face<kCount, P> face;
      for (int c = 0; c < kCount; ++c) face.at[c] = p[kTable.face[f][c]];
      visit(face);
    });
  });
}

/// The least and the largest of angles met so far. They are told apart by the squares of their
/// cotangents, with signs, which fall from infinity to its opposite while an angle grows to 180
/// degrees; neither loses anything near the ends. One arc tangent is taken, of the extreme.
template <class N>
class Openings {
 public:
  /// An angle by the product of its two directions and the square of their cross product; 0 where
  /// one has no length.
  void Take(N dot, N squared_cross) {
    const N square = SignedSquare(dot, squared_cross);
    least_ = qx::Most(least_, square);
    most_ = qx::Least(most_, square);
  }
  /// The same of one that is above 180 degrees, where the directions say less, where that holds.
  template <class Mask>
  void Take(N dot, N squared_cross, const Mask& is_reflex) {
    const N square = SignedSquare(dot, squared_cross);
    least_ = qx::Most(least_, Choose(is_reflex, Filled<N>(-kInfinity), square));
    most_ = qx::Least(most_, Choose(is_reflex, Filled<N>(kInfinity), square));
    most_reflex_ = qx::Most(most_reflex_, Choose(is_reflex, square, Filled<N>(-kInfinity)));
  }
  N Least() const { return ArcCotangent(SignedRoot(least_)); }
  N Most() const {
    // A reflex angle of exactly 180 degrees is as large as one that is not.
    const N reflex = 360 - ArcCotangent(SignedRoot(most_reflex_));
    return Choose(most_reflex_ > -kInfinity, reflex, ArcCotangent(SignedRoot(most_)));
  }

 private:
  static constexpr double kInfinity = std::numeric_limits<double>::infinity();

  static N SignedSquare(N dot, N squared_cross) {
    const N end = Choose(dot < 0.0, Filled<N>(-kInfinity), Filled<N>(kInfinity));
    return Choose(squared_cross > 0.0, dot * Magnitude(dot) / squared_cross, end);
  }

  N least_ = Filled<N>(-kInfinity), most_ = Filled<N>(kInfinity);
  N most_reflex_ = Filled<N>(-kInfinity);
};

template <int kCount, class P>
void TakeAngles(const Face<kCount, P>& face, Openings<NumberOf<P>>& openings) {
  P edge[kCount];
  for (int i = 0; i < kCount; ++i) edge[i] = face.Next(i) - face.at[i];
  P up{};
  if (kCount == 4) up = Cross(face.at[2] - face.at[0], face.at[3] - face.at[1]);
  for (int i = 0; i < kCount; ++i) {
    const P& to = edge[i];
    const P from = -edge[(i + kCount - 1) % kCount];
    const P normal = Cross(to, from);
    if constexpr (kCount == 4) {
      openings.Take(Dot(to, from), SquaredLength(normal), Dot(normal, up) < 0.0);
    } else {  // no angle of a triangle is reflex
      openings.Take(Dot(to, from), SquaredLength(normal));
    }
  }
}

template <class P>
Openings<NumberOf<P>> FaceAngles(CornerShape shape, const P* p) {
  Openings<NumberOf<P>> openings;
  ForEachFace(shape, p, [&](const auto& face) { TakeAngles(face, openings); });
  return openings;
}

/// |cosine| between two directions; 1 when one has no length.
template <class P>
NumberOf<P> Cosine(const P& a, const P& b) {
  using N = NumberOf<P>;
  const N product = Root(SquaredLength(a)) * Root(SquaredLength(b));
  const N one = Filled<N>(1);
  return Choose(product > 0.0, Least(Magnitude(Dot(a, b)) / product, one), one);
}

}  // namespace qx::quality
