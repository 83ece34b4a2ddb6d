// Seeds on curves: every method on every kind of edge, and what is refused.

#include <limits>

#include "qx_db/model/seed_match.h"

#include "tests/model/size_samples.h"

namespace qx {
namespace {

using namespace test;

TEST(AnalyticCad, KeepsThePromisesOfASession) {
  AnalyticCad cad;
  AddKnownEdges(cad);
  CheckKnownEdges(cad);
}

TEST(AnalyticCad, RefusesWhatMakesNoCurve) {
  AnalyticCad cad;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<CadPoint> one{{1, 2, 3}};
  const std::vector<CadPoint> twice{{1, 2, 3}, {1, 2, 3}};
  const std::vector<CadPoint> lost{{1, 2, 3}, {nan, 0, 0}};
  EXPECT_FALSE(cad.AddLine({0, 0, nan}, {1, 0, 0}));
  EXPECT_FALSE(cad.AddArc({0, 0, 0}, {0, 0, 1}, {0, 0, 0}, 1));
  EXPECT_FALSE(cad.AddArc({0, 0, 0}, {0, 0, 0}, {1, 0, 0}, 1));
  EXPECT_FALSE(cad.AddArc({0, 0, 0}, {1, 0, 0}, {1, 0, 0}, 1));
  EXPECT_FALSE(cad.AddArc({0, 0, 0}, {0, 0, 1}, {1, 0, 0}, 0));
  EXPECT_FALSE(cad.AddArc({0, 0, 0}, {0, 0, 1}, {1, 0, 0}, 7));
  for (const auto& points : {one, twice, lost, {}}) {
    EXPECT_FALSE(cad.AddPolyline(points));
    EXPECT_FALSE(cad.AddSpline(points));
  }
  const CadEdgeUse nowhere{3, false, 0};
  EXPECT_FALSE(cad.AddFace(0, "plane", {&nowhere, 1}));
  EXPECT_FALSE(cad.AddFace(1, "plane", {}));
  EXPECT_EQ(cad.GetEdgeCount(), 0);
}

TEST(EdgeSeeding, SeedsEveryKindOfEdgeByEveryMethod) {
  AnalyticCad cad;
  AddKnownEdges(cad);
  for (int edge = 1; edge <= cad.GetEdgeCount(); ++edge) {
    for (const tagTSzct& control : ControlsFor(cad.GetEdgeLength(edge))) {
      SCOPED_TRACE(testing::Message() << "edge " << edge << " method " << control.method);
      EdgeSeeds ahead;
      EdgeSeeds back;
      ASSERT_TRUE(SeedEdge(cad, edge, control, false, ahead));
      ASSERT_TRUE(SeedEdge(cad, edge, control, true, back));
      CheckSeedLaws(cad, edge, ahead);
      CheckSeedLaws(cad, edge, back);
      const auto count = ahead.fractions.GetSize();
      ASSERT_EQ(back.fractions.GetSize(), count);
      for (int i = 0; i < count; ++i) {
        EXPECT_NEAR(ahead.fractions[i] + back.fractions[count - 1 - i], 1, 1e-15) << "mirrored";
      }
    }
  }
}

TEST(EdgeSeeding, GradesByLengthAndDividesEvenlyByParameter) {
  AnalyticCad cad;
  AddKnownEdges(cad);
  const int spline = 5;
  const double length = cad.GetEdgeLength(spline);
  EdgeSeeds seeds;
  const auto at = [&](std::size_t i) {
    double s = 0;
    EXPECT_TRUE(cad.GetLengthAt(spline, seeds.parameters[i], s));
    return s / length;
  };
  ASSERT_TRUE(SeedEdge(cad, spline, Geometric(1, 4), false, seeds));
  for (std::size_t i = 0; i <= 4; ++i) EXPECT_NEAR(at(i), 0.25 * static_cast<double>(i), 1e-10);
  ASSERT_TRUE(SeedEdge(cad, spline, ByDivisions(4), false, seeds));
  for (std::size_t i = 0; i <= 4; ++i) {
    EXPECT_NEAR(seeds.parameters[i], 0.75 * static_cast<double>(i), 1e-15);
  }
  EXPECT_GT(std::fabs(at(1) - 0.25), 0.01) << "which is not even in space on this curve";
}

TEST(EdgeSeeding, TakesPositionsAsFractionsOrAsPoints) {
  AnalyticCad cad;
  AddKnownEdges(cad);
  for (const int edge : {1, 2, 4, 5}) {
    EdgeSeeds by_fraction;
    ASSERT_TRUE(SeedEdge(cad, edge, ByFractions({0.2, 0.35, 0.9}), false, by_fraction));
    ASSERT_EQ(by_fraction.Divisions(), 4u);
    tagTSzct control = ByFractions({});
    for (const int i : {2, 3, 1}) {  // in any order
      control.custom_seeds.Add(
          by_fraction.points[static_cast<std::size_t>(i)].As<tagTVector3<double>>());
    }
    for (const bool reversed : {false, true}) {
      EdgeSeeds by_point;
      ASSERT_TRUE(SeedEdge(cad, edge, control, reversed, by_point));
      ASSERT_EQ(by_point.Divisions(), 4u);
      for (std::size_t i = 0; i <= 4; ++i) {
        ExpectNear(by_point.points[i], by_fraction.points[i], 1e-7 * cad.GetEdgeLength(edge),
                   "points stay where they were given, whatever the direction");
      }
    }
  }
}

TEST(EdgeSeeding, AUniformPartIsEvenAndEndsWhereItSays) {
  AnalyticCad cad;
  ASSERT_TRUE(cad.AddLine({0, 0, 0}, {10, 0, 0}));
  for (const double part : {0.2, -0.2, 0.5, -0.5}) {
    for (const tagTSzct& control : {Geometric(3, 8, part), Linear(1, 0.5, 8, part)}) {
      EdgeSeeds seeds;
      ASSERT_TRUE(SeedEdge(cad, 1, control, false, seeds));
      const auto& at = seeds.fractions;
      const double border = part > 0 ? part : 1 + part;
      const auto end = std::find_if(at.begin(), at.end(),
                                    [&](double f) { return std::abs(f - border) < 1e-12; });
      ASSERT_NE(end, at.end()) << "no seed where the part of " << part << " ends";
      const auto first = part > 0 ? at.begin() : end;
      const auto last = part > 0 ? end : at.end() - 1;
      ASSERT_GT(last - first, 0);
      for (auto i = first; i != last; ++i) {
        EXPECT_NEAR(i[1] - i[0], std::abs(part) / static_cast<double>(last - first), 1e-12);
      }
    }
  }
}

TEST(EdgeSeeding, RefusesWithAReason) {
  AnalyticCad cad;
  ASSERT_TRUE(cad.AddLine({0, 0, 0}, {10, 0, 0}));
  ASSERT_TRUE(cad.AddLine({1, 1, 1}, {1, 1, 1}));
  ASSERT_TRUE(cad.AddLine({0, 0, 0}, {1e200, 1e200, 0}));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  tagTSzct unknown;
  unknown.method = 6;
  tagTSzct both = ByFractions({0.5});
  both.custom_seeds.Add({5, 0, 0});
  tagTSzct off = ByFractions({});
  off.custom_seeds = {{5, 0, 0}, {5, 1, 0}};
  tagTSzct close = ByFractions({});
  close.custom_seeds = {{5, 0, 0}, {2, 0, 0}, {5 + 5e-6, 0, 0}};
  tagTSzct twice = ByFractions({});
  twice.custom_seeds = {{5, 0, 0}, {5, 0, 0}};
  struct Case {
    int edge;
    tagTSzct control;
    const char* reason;
  };
  const Case cases[] = {
      {9, ByDivisions(3), "edge 9: is not in the geometry"},
      {2, ByDivisions(3), "has no length"},
      {3, ByDivisions(3), "has no length"},
      {1, unknown, "method 6 is not known"},
      {1, BySize(0), "0 is not a positive number"},
      {1, BySize(-2), "-2 is not a positive"},
      {1, BySize(nan), "nan is not a positive"},
      {1, BySize(1e-6), "10000000 divisions"},
      {1, BySize(1e-300), "divisions"},
      {1, ByDivisions(0), "0 divisions"},
      {1, ByDivisions(-4), "-4 divisions"},
      {1, ByDivisions(10'000'000), "10000000 divisions"},
      {1, Linear(0, 1, 5), "start size 0"},
      {1, Linear(1, 11, 5), "end size 11 is too large"},
      {1, Linear(1, 2, -1), "-1 divisions"},
      {1, Linear(1, 2, 1, 0, true), "1 divisions"},
      {1, Linear(1, 2, 5, 1), "uniform part 1"},
      {1, Linear(1, 2, 5, nan), "uniform part nan"},
      {1, Linear(1e-7, 1e-5, 0), "no seeding"},
      {1, Geometric(0, 5), "ratio 0"},
      {1, Geometric(1e11, 5), "ratio 1"},
      {1, Geometric(nan, 5), "ratio nan"},
      {1, Geometric(2, 1), "1 divisions"},
      {1, Geometric(2, 3, 0, true), "3 divisions"},
      {1, Geometric(2, 10'000'000), "10000000 divisions"},
      {1, Hyperbolic(1, 0, 10, false), "not below"},
      {1, Hyperbolic(0.5, 2, 10, true), "not below"},
      {1, Hyperbolic(12, 0, 2, false), "start size 12 is too large"},
      {1, Hyperbolic(1, -1, 2, true), "end size -1"},
      {1, Hyperbolic(1e-40, 0, 10, false), ""},
      {1, ByFractions({}), "no positions"},
      {1, both, "both"},
      {1, ByFractions({0.5, 0.4}), "0.4"},
      {1, ByFractions({0.5, 0.5}), "0.5"},
      {1, ByFractions({1.2}), "1.2"},
      {1, ByFractions({nan}), "nan"},
      {1, off, "point 2 is not on the edge"},
      {1, twice, "coincide"},
      {1, close, "coincide at 0.5 of the length"},
      {1, ByFractions({0.25, 0.25 + 1e-9, 0.5}), "coincide at 0.25"},
      {1, ByFractions({1e-9, 0.5}), "coincide at 0 "},
      {1, ByFractions({0.5, 1 - 1e-9}), "coincide at 0.999999999"},
  };
  for (const Case& c : cases) {
    EdgeSeeds seeds;
    const Outcome seeded = SeedEdge(cad, c.edge, c.control, false, seeds);
    ASSERT_FALSE(seeded) << c.reason;
    EXPECT_NE(seeded.Line().find(c.reason), std::string::npos) << seeded.Line();
    EXPECT_FALSE(seeded.Error().remedy.empty());
  }
  EdgeSeeds seeds;
  for (const double size : {19.9, 21.0, 1e300}) {
    EXPECT_TRUE(SeedEdge(cad, 1, BySize(size), false, seeds)) << "one division: " << size;
    EXPECT_EQ(seeds.Divisions(), 1u);
  }
  EXPECT_EQ(seeds.Divisions(), 1u);
  tagTSzct near_the_end = ByFractions({});
  near_the_end.custom_seeds = {{4e-6, 0, 0}, {10 - 4e-6, 0, 0}};
  EXPECT_TRUE(SeedEdge(cad, 1, near_the_end, false, seeds));
  EXPECT_EQ(seeds.Divisions(), 1u) << "a point at an end is the end";
  EXPECT_TRUE(SeedEdge(cad, 1, Geometric(1e10, 5), false, seeds));
  EXPECT_TRUE(SeedEdge(cad, 1, Geometric(1e-10, 5), false, seeds));
  EXPECT_TRUE(SeedEdge(cad, 1, ByDivisions(1'000'000), false, seeds));
}

/// Two unit squares side by side in one plane, each with edges of its own; the second one's edge at
/// the joint runs the other way. A circle on another one begins a third of a turn later.
struct Joint : AnalyticCad {
  Joint() {
    const CadPoint p[] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}, {2, 1, 0}};
    AddSquare(p[0], p[1], p[2], p[3]);  // edges 1 to 4: 2 is at the joint
    AddSquare(p[4], p[5], p[2], p[1]);  // edges 5 to 8: 7 is at the joint
    EXPECT_TRUE(AddCircle({0, 0, 5}, {0, 0, 1}, {1, 0, 5}));
    EXPECT_TRUE(AddCircle({0, 0, 5}, {0, 0, -1}, {-0.5, std::sqrt(0.75), 5}));
  }
  void AddSquare(const CadPoint& a, const CadPoint& b, const CadPoint& c, const CadPoint& d) {
    const CadPoint* corners[] = {&a, &b, &c, &d, &a};
    std::vector<CadEdgeUse> uses;
    for (int i = 0; i < 4; ++i) uses.push_back({*AddLine(*corners[i], *corners[i + 1]), false, 0});
    EXPECT_TRUE(AddFace(AddBody("sheet"), "plane", uses));
  }
  EdgeSeeds Seed(int edge, const tagTSzct& control, bool reversed = false) {
    EdgeSeeds seeds;
    EXPECT_TRUE(SeedEdge(*this, edge, control, reversed, seeds));
    return seeds;
  }
};

TEST(SeedMatch, FindsEdgesThatLieOnEachOther) {
  Joint cad;
  EXPECT_EQ(FindTwinEdges(cad), (std::vector<std::pair<int, int>>{{2, 7}, {9, 10}}));
}

TEST(SeedMatch, TellsMatchingSeedsFromOthers) {
  Joint cad;
  const auto twins = FindTwinEdges(cad);
  const auto check = [&](SeedsByEdge seeds) { return CheckSeedsMatch(cad, twins, seeds); };
  const tagTSzct graded = Geometric(3, 6);
  EXPECT_TRUE(check({{2, cad.Seed(2, graded)}}).empty()) << "the other side is not seeded";
  EXPECT_TRUE(check({{2, cad.Seed(2, graded)}, {7, cad.Seed(7, graded, true)}}).empty());
  const auto turned = check({{2, cad.Seed(2, graded)}, {7, cad.Seed(7, graded)}});
  ASSERT_EQ(turned.size(), 1u);
  EXPECT_EQ(turned[0].edge, 2);
  EXPECT_EQ(turned[0].other, 7);
  EXPECT_NE(turned[0].what.find("apart"), std::string::npos);
  const auto other = check({{2, cad.Seed(2, graded)}, {7, cad.Seed(7, Geometric(3, 7), true)}});
  ASSERT_EQ(other.size(), 1u);
  EXPECT_NE(other[0].what.find("6 and 7 divisions"), std::string::npos) << other[0].what;
  EXPECT_TRUE(check({{9, cad.Seed(9, ByDivisions(6))}, {10, cad.Seed(10, ByDivisions(6))}}).empty())
      << "a third of a turn is two of six divisions";
  EXPECT_EQ(check({{9, cad.Seed(9, ByDivisions(8))}, {10, cad.Seed(10, ByDivisions(8))}}).size(),
            1u);
}

TEST(SeedMatch, FindsGapsAtTheCornersOfAFace) {
  Joint cad;
  SeedsByEdge seeds;
  for (int edge = 1; edge <= 4; ++edge) seeds[edge] = cad.Seed(edge, ByDivisions(3));
  EXPECT_TRUE(CheckSeedsMatch(cad, {}, seeds).empty());
  seeds[3].points.back() = {0.1, 1, 0};
  const auto gaps = CheckSeedsMatch(cad, {}, seeds);
  ASSERT_EQ(gaps.size(), 2u) << "the end of one and the start of the next";
  EXPECT_EQ(gaps[0].other, 0);
  EXPECT_NE(gaps[0].what.find("face 1"), std::string::npos);
  seeds.erase(1);
  EXPECT_TRUE(CheckSeedsMatch(cad, {}, seeds).empty()) << "not all of the face is seeded yet";
}

}  // namespace
}  // namespace qx
