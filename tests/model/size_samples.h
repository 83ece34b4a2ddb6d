#pragma once
// Curves and size controls that the seeding tests share.

#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "qx_db/model/analytic_cad.h"
#include "qx_db/model/edge_seeding.h"

#include "tests/model/cad_session_laws.h"

namespace qx::test {

/// The known edges, in an analytic session.
inline void AddKnownEdges(AnalyticCad& cad) {
  const auto& p = SamplePoints();
  ASSERT_TRUE(cad.AddLine({1, 1, 1}, {4, 5, 1}));
  ASSERT_TRUE(cad.AddArc({0, 0, 1}, {0, 0, 3}, {2, 0, 1}, std::numbers::pi / 2));
  ASSERT_TRUE(cad.AddCircle({0, 0, 0}, {1, 0, 0}, {0, 3, 0}));
  ASSERT_TRUE(cad.AddPolyline(p));
  ASSERT_TRUE(cad.AddSpline(p));
}

inline tagTSzct ByDivisions(int n) {
  tagTSzct control;
  control.method = tagTSzct::kByDivisions;
  control.int_params[0] = n;
  return control;
}
inline tagTSzct BySize(double size) {
  tagTSzct control;
  control.dbl_params[0] = size;
  return control;
}
inline tagTSzct Linear(double a, double b, int n, double p = 0, bool symmetric = false) {
  tagTSzct control;
  control.method = tagTSzct::kLinearGrading;
  control.dbl_params[1] = a;
  control.dbl_params[2] = b;
  control.dbl_params[3] = p;
  control.int_params[1] = n;
  control.int_params[2] = symmetric;
  return control;
}
inline tagTSzct Geometric(double r, int n, double p = 0, bool symmetric = false) {
  tagTSzct control;
  control.method = tagTSzct::kGeometricGrading;
  control.dbl_params[6] = r;
  control.dbl_params[7] = p;
  control.int_params[5] = n;
  control.int_params[6] = symmetric;
  return control;
}
inline tagTSzct Hyperbolic(double s1, double s2, int n, bool two_sided) {
  tagTSzct control;
  control.method = tagTSzct::kHyperbolic;
  control.dbl_params[4] = s1;
  control.dbl_params[5] = s2;
  control.int_params[3] = n;
  control.int_params[4] = two_sided;
  return control;
}
inline tagTSzct ByFractions(std::initializer_list<double> fractions) {
  tagTSzct control;
  control.method = tagTSzct::kByPositions;
  control.custom_ratios = fractions;
  return control;
}

/// One control or more for each method, that suit an edge of this length.
inline std::vector<tagTSzct> ControlsFor(double length) {
  const double l = length;
  return {BySize(l / 7.3),
          ByDivisions(1),
          ByDivisions(12),
          Linear(l / 20, l / 5, 0),
          Linear(l / 20, l / 5, 9),
          Linear(l / 5, l / 20, 10, 0, true),
          Linear(l / 20, l / 5, 8, -0.2),
          Linear(l / 5, l / 20, 8, 0.3),
          Geometric(5, 9),
          Geometric(0.2, 10, 0, true),
          Geometric(4, 8, -0.25),
          Geometric(4, 8, 0.25),
          Hyperbolic(l / 50, 0, 12, false),
          Hyperbolic(l / 50, l / 30, 12, true),
          ByFractions({0.1, 0.15, 0.6}),
          ByFractions({0, 0.5, 1})};
}

/// The laws of the seeds of an edge, whatever the method.
inline void CheckSeedLaws(const ICADSession& cad, int edge, const EdgeSeeds& seeds) {
  const auto count = static_cast<std::size_t>(seeds.fractions.GetSize());
  ASSERT_GE(count, 2u);
  ASSERT_EQ(seeds.parameters.size(), count);
  ASSERT_EQ(seeds.points.size(), count);
  EXPECT_EQ(seeds.fractions[0], 0.0);
  EXPECT_EQ(*(seeds.fractions.end() - 1), 1.0);
  double first = 0;
  double last = 0;
  ASSERT_TRUE(cad.GetEdgeParameters(edge, first, last));
  EXPECT_EQ(seeds.parameters.front(), first);
  EXPECT_EQ(seeds.parameters.back(), last);
  const double length = cad.GetEdgeLength(edge);
  double sum = 0;
  double former = 0;
  for (std::size_t i = 1; i < count; ++i) {
    EXPECT_LT(seeds.parameters[i - 1], seeds.parameters[i]);
    double at = 0;
    ASSERT_TRUE(cad.GetLengthAt(edge, seeds.parameters[i], at));
    sum += at - former;
    former = at;
    CadPoint point;
    ASSERT_TRUE(cad.GetPoint(edge, seeds.parameters[i], point));
    ExpectNear(point, seeds.points[i], 1e-12 * (length + Length(point)), "on the curve");
  }
  EXPECT_NEAR(sum, length, 1e-9 * length) << "the intervals make up the edge";
}

}  // namespace qx::test
