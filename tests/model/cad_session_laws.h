#pragma once
// What every CAD session promises about every edge, whatever is behind it; and one set of curves
// that each session is given in its own way.

#include <array>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <vector>

#include "qx_db/model/cad_session.h"

namespace qx::test {

/// What is known of an edge beforehand. A length of 0 means that it is not known.
struct KnownEdge {
  EdgeKind kind;
  double length;
  CadPoint start;
  CadPoint end;
};

/// The points of the polyline and of the spline that sessions are given.
inline const std::vector<CadPoint>& SamplePoints() {
  static const std::vector<CadPoint> points{{0, 0, 0}, {1, 2, 0.5}, {4, 2.5, 1}, {5, 0, 3}};
  return points;
}

/// The curves that both sessions are given, edge 1 first: a line, a quarter arc, a circle, a
/// polyline and the natural spline through the same points.
inline std::vector<KnownEdge> KnownEdges() {
  const auto& p = SamplePoints();
  const double polyline = Distance(p[0], p[1]) + Distance(p[1], p[2]) + Distance(p[2], p[3]);
  return {{EdgeKind::kLine, 5, {1, 1, 1}, {4, 5, 1}},
          {EdgeKind::kArc, std::numbers::pi, {2, 0, 1}, {0, 2, 1}},
          {EdgeKind::kCircle, 6 * std::numbers::pi, {0, 3, 0}, {0, 3, 0}},
          {EdgeKind::kPolyline, polyline, p.front(), p.back()},
          {EdgeKind::kSpline, 0, p.front(), p.back()}};
}

inline void ExpectNear(const CadPoint& a, const CadPoint& b, double tolerance, const char* what) {
  EXPECT_LE(Distance(a, b), tolerance) << what;
}

/// Chord length between two parameters over so many pieces, from below.
inline double ChordLength(const ICADSession& cad, int edge, double from, double to, int pieces) {
  std::vector<double> at;
  for (int i = 0; i <= pieces; ++i) at.push_back(i < pieces ? from + (to - from) * i / pieces : to);
  std::vector<CadPoint> points(at.size());
  EXPECT_TRUE(cad.GetPoints(edge, at, points.data()));
  double sum = 0;
  for (std::size_t i = 1; i < points.size(); ++i) sum += Distance(points[i - 1], points[i]);
  return sum;
}

/// The laws of an edge that has a length.
inline void CheckCurveLaws(const ICADSession& cad, int edge) {
  SCOPED_TRACE(testing::Message() << "edge " << edge << ", "
                                  << EdgeKindName(cad.GetEdgeKind(edge)));
  const double length = cad.GetEdgeLength(edge);
  double first = 0;
  double last = 0;
  ASSERT_TRUE(cad.GetEdgeParameters(edge, first, last));
  ASSERT_LT(first, last);
  ASSERT_GT(length, 0);
  const double chords = ChordLength(cad, edge, first, last, 2000);
  EXPECT_LE(chords, length * (1 + 1e-9));
  EXPECT_NEAR(chords, length, 2e-4 * length);

  double former = first;
  for (int i = 0; i <= 16; ++i) {
    const double s = i < 16 ? length * i / 16 : length;
    double t = 0;
    double back = 0;
    ASSERT_TRUE(cad.GetParameterAtLength(edge, s, t));
    EXPECT_GE(t, former) << "parameters grow with the length";
    former = t;
    ASSERT_TRUE(cad.GetLengthAt(edge, t, back));
    EXPECT_NEAR(back, s, 1e-9 * length) << "there and back";
  }
  EXPECT_NEAR(former, last, 1e-9 * (last - first));

  // A small step along the curve goes in the direction of the tangent, as far as its length says.
  for (const double fraction : {0.11, 0.37, 0.59, 0.83}) {
    const double step = 1e-5 * length;
    std::array<double, 2> at{length * fraction, length * fraction + step};
    std::array<CadPoint, 2> points;
    CadPoint tangent;
    ASSERT_TRUE(cad.GetParametersAtLengths(edge, at, at.data()));
    ASSERT_TRUE(cad.GetPoints(edge, at, points.data()));
    ASSERT_TRUE(cad.GetTangent(edge, at[0], tangent));
    EXPECT_NEAR(Length(tangent), 1, 1e-12);
    ExpectNear(points[1] - points[0], step * tangent, 1e-2 * step, "tangent");
    double parameter = 0;
    double distance = 0;
    ASSERT_TRUE(FindNearest(cad, edge, points[0], parameter, distance));
    EXPECT_LE(distance, 1e-7 * length) << "a point of the curve is nearest to itself";
  }
}

/// Queries that must be answered by false, and leave what they were given.
inline void CheckRefusals(const ICADSession& cad) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const int edge : {0, -1, cad.GetEdgeCount() + 1, std::numeric_limits<int>::max()}) {
    EXPECT_EQ(cad.GetEdgeKind(edge), EdgeKind::kNone);
    EXPECT_EQ(cad.GetEdgeLength(edge), 0);
    double value = 42;
    EXPECT_FALSE(cad.GetEdgeParameters(edge, value, value));
    EXPECT_FALSE(cad.GetParameterAtLength(edge, 0, value));
    EXPECT_FALSE(cad.GetLengthAt(edge, 0, value));
    EXPECT_EQ(value, 42);
  }
  for (int edge = 1; edge <= cad.GetEdgeCount(); ++edge) {
    double first = 0;
    double last = 0;
    if (!(cad.GetEdgeLength(edge) > 0)) continue;
    ASSERT_TRUE(cad.GetEdgeParameters(edge, first, last));
    CadPoint point{7, 7, 7};
    double value = 42;
    for (const double beyond : {first - 1, last + 1, nan, HUGE_VAL}) {
      EXPECT_FALSE(cad.GetPoint(edge, beyond, point));
      EXPECT_FALSE(cad.GetTangent(edge, beyond, point));
      EXPECT_FALSE(cad.GetLengthAt(edge, beyond, value));
    }
    for (const double beyond : {-0.1, cad.GetEdgeLength(edge) * 1.01, nan, HUGE_VAL}) {
      EXPECT_FALSE(cad.GetParameterAtLength(edge, beyond, value));
    }
    EXPECT_EQ(value, 42);
    EXPECT_EQ(point, (CadPoint{7, 7, 7}));
  }
}

/// The known curves come out as they went in.
inline void CheckKnownEdges(const ICADSession& cad) {
  const auto known = KnownEdges();
  ASSERT_GE(cad.GetEdgeCount(), static_cast<int>(known.size()));
  for (std::size_t i = 0; i < known.size(); ++i) {
    const int edge = static_cast<int>(i) + 1;
    SCOPED_TRACE(testing::Message() << "edge " << edge);
    EXPECT_EQ(cad.GetEdgeKind(edge), known[i].kind);
    if (known[i].length > 0) {
      EXPECT_NEAR(cad.GetEdgeLength(edge), known[i].length, 1e-9 * known[i].length);
    }
    double ends[2];
    CadPoint points[2];
    ASSERT_TRUE(cad.GetEdgeParameters(edge, ends[0], ends[1]));
    ASSERT_TRUE(cad.GetPoints(edge, ends, points));
    ExpectNear(points[0], known[i].start, 1e-12, "start");
    ExpectNear(points[1], known[i].end, 1e-12, "end");
    EXPECT_EQ(cad.IsClosed(edge), known[i].kind == EdgeKind::kCircle);
    CheckCurveLaws(cad, edge);
  }
  CheckRefusals(cad);
}

}  // namespace qx::test
