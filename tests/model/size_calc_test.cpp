// The arithmetic of seed arrays.

#include <chrono>
#include <cmath>
#include <limits>

#include "tests/model/size_samples.h"

namespace qx {
namespace {

using namespace test;
using Calc = CQXCalcSzct;
using Doubles = CArray<double>;
using Seeds = CArray<double, double>;
using Method = int (*)(int, ICADSession*, const tagTSzct&, Seeds&);

constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

std::vector<double> Values(const auto& array) { return {array.begin(), array.end()}; }

void ExpectValues(const auto& array, const std::vector<double>& expected) {
  const auto values = Values(array);
  ASSERT_EQ(values.size(), expected.size());
  for (std::size_t i = 0; i < values.size(); ++i) EXPECT_NEAR(values[i], expected[i], 1e-14) << i;
}

/// A line of that length, edge 1.
struct LineOf : AnalyticCad {
  explicit LineOf(double length) { EXPECT_TRUE(AddLine({0, 0, 0}, {length, 0, 0})); }
};

Seeds Array(Method method, double length, const tagTSzct& control, int expected = 1) {
  LineOf cad(length);
  Seeds out;
  EXPECT_EQ(method(1, &cad, control, out), expected);
  return out;
}
constexpr Method kLinear = Calc::GetRationArrayOnSzct_SM_L_GRADE;
constexpr Method kGeometric = Calc::GetRationArrayOnSzct_SM_R_GRADE;
constexpr Method kHyperbolic = Calc::GetRationArrayOnSzct_SM_HYPERBOLA;

TEST(SizeCalc, TruncatesTowardsZero) {
  const std::pair<double, int> cases[] = {{2.9, 2}, {-2.9, -2},          {0.999, 0},    {-0.5, 0},
                                          {7, 7},   {1e300, 2147483647}, {kNoNumber, 0}};
  for (const auto& [value, expected] : cases) EXPECT_EQ(Calc::RealToInt(value), expected) << value;
  for (const double x : {1.0, 1.5, 40.0}) EXPECT_NEAR(Calc::acosh(x), std::acosh(x), 1e-14);
}

TEST(SizeCalc, IntervalsOfALinearGrading) {
  Doubles out;
  out.Add(99);
  EXPECT_TRUE(Calc::EstimateSeedInterval(1, 3, 5, 77, out));
  ExpectValues(out, {1, 1.5, 2, 2.5, 3});
  EXPECT_FALSE(Calc::EstimateSeedInterval(2, 2 + 9e-7, 3, 77, out)) << "filled all the same";
  ExpectValues(out, {2, 2, 2});
  EXPECT_FALSE(Calc::EstimateSeedInterval(1, 3, 1, 77, out));
  ExpectValues(out, {77});
}

TEST(SizeCalc, FractionsByLengthBeginWithZeroAndByRatioDoNot) {
  Doubles out;
  EXPECT_TRUE(Calc::EstimateRatioArrayLength(1, 3, 3, 12, out));
  ExpectValues(out, {0, 1.0 / 6, 0.5, 1});
  EXPECT_TRUE(Calc::EstimateRatioArrayLength(1, 3, 1, 12, out));
  ExpectValues(out, {0, 1});
  EXPECT_TRUE(Calc::EstimateRatioArrayRatio(1, 4, out));
  ExpectValues(out, {0.25, 0.5, 0.75, 1});
  EXPECT_TRUE(Calc::EstimateRatioArrayRatio(4, 3, out));
  ExpectValues(out, {1.0 / 7, 3.0 / 7, 1});
  EXPECT_EQ(out[2], 1.0);
  EXPECT_FALSE(Calc::EstimateRatioArrayRatio(9e-11, 4, out));
  for (const int n : {1, 0, -3}) EXPECT_FALSE(Calc::EstimateRatioArrayRatio(4, n, out)) << n;
  for (const double r : {kNoNumber, HUGE_VAL})
    EXPECT_FALSE(Calc::EstimateRatioArrayRatio(r, 4, out));
  ExpectValues(out, {1.0 / 7, 3.0 / 7, 1});
}

/// The search as its definition has it, from 3 on.
int SlowIdealDivision(double a, double b, double length) {
  double misfit = std::fabs(length / (a + b) - 1);
  for (int n = 3;; ++n) {
    Doubles sizes;
    Calc::EstimateSeedInterval(a, b, n, length, sizes);
    double sum = 0;
    for (const double size : sizes) sum += size;
    const double next = std::fabs(length / sum - 1);
    if (next > misfit) return n - 1;
    misfit = next;
  }
}

TEST(SizeCalc, IdealDivisionIsThatOfTheFullSearch) {
  EXPECT_EQ(Calc::GetIdealDivision(1, 1, 10.9), 10);
  EXPECT_EQ(Calc::GetIdealDivision(1, 2, 15), 10);
  EXPECT_EQ(Calc::GetIdealDivision(5, 9, 3), 2) << "two is the fewest";
  std::mt19937 random(7);
  std::uniform_real_distribution<double> size(0.05, 3);
  std::uniform_real_distribution<double> count(0.2, 400);
  for (int i = 0; i < 800; ++i) {
    const double a = size(random);
    const double b = size(random);
    const double length = (a + b) / 2 * count(random);
    EXPECT_EQ(Calc::GetIdealDivision(a, b, length), SlowIdealDivision(a, b, length))
        << a << " " << b << " " << length;
  }
  // Where the misfit of two counts is the same but for rounding.
  for (int n = 3; n < 60; ++n) {
    const double length = 3.0 * n * (n + 1) / (2 * n + 1);
    EXPECT_EQ(Calc::GetIdealDivision(1, 2, length), SlowIdealDivision(1, 2, length)) << n;
  }
}

TEST(SizeCalc, IdealDivisionEndsOnInputsWithoutAnAnswer) {
  const std::array<double, 3> cases[] = {{-1, 1, 10},        {-2, 1, 10},       {kNoNumber, 1, 10},
                                         {1, kNoNumber, 10}, {1, 2, kNoNumber}, {1, 2, HUGE_VAL},
                                         {1, 2, -5},         {1e-9, 2e-6, 1e9}};
  const auto start = std::chrono::steady_clock::now();
  for (const auto& c : cases) EXPECT_EQ(Calc::GetIdealDivision(c[0], c[1], c[2]), 0) << c[0];
  EXPECT_GT(Calc::GetIdealDivision(1e-4, 2e-4, 100), 600'000) << "large, but there";
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << "no search";
}

TEST(SizeCalc, LinearGrading) {
  ExpectValues(Array(kLinear, 12, Linear(1, 3, 3)), {0, 1.0 / 6, 0.5, 1});
  ExpectValues(Array(kLinear, 12, Linear(1, 3, 7, 0, true)),
               {0, 1.0 / 12, 0.25, 0.5, 0.75, 11.0 / 12, 1});
  EXPECT_EQ(Array(kLinear, 15, Linear(1, 2, 0)).GetSize(), 11) << "ideal division";
  EXPECT_EQ(Array(kLinear, 15, Linear(1, 2, 0, 0, true)).GetSize(), 11) << "of the whole, halved";
}

TEST(SizeCalc, LinearGradingWithAUniformPart) {
  // Sizes 1 to 2 in 5 intervals on the first 8 of 10 units: the last of them is 2 * 8 / 7.5, larger
  // than 2; the last 2 units hold 0.94 of it, that is none, so that one interval fills them.
  const Seeds at_end = Array(kLinear, 10, Linear(1, 2, 5, -0.2));
  ExpectValues(at_end,
               {0, 0.8 * 1 / 7.5, 0.8 * 2.25 / 7.5, 0.8 * 3.75 / 7.5, 0.8 * 5.5 / 7.5, 0.8, 1});
  // Half of 10 units in intervals of the larger of 1 and 1 * 5 / 4.5; truncated, that makes four.
  const Seeds four = Array(kLinear, 10, Linear(0.5, 1, 6, -0.5));
  const auto n = four.GetSize();
  EXPECT_EQ(n, 7 + 4);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(four[n - 1 - i] - four[n - 2 - i], 0.125, 1e-14);
  const Seeds at_start = Array(kLinear, 10, Linear(1, 2, 4, 0.4));
  // The smaller of 1 and 1 * 6 / 6 fits 4 times into 4 units.
  ExpectValues(at_start, {0, 0.1, 0.2, 0.3, 0.4, 0.5, 0.4 + 0.1 * (1 + 4.0 / 3),
                          0.4 + 0.1 * (1 + 4.0 / 3 + 5.0 / 3), 1});
}

TEST(SizeCalc, GeometricGrading) {
  ExpectValues(Array(kGeometric, 9, Geometric(4, 3)), {1.0 / 7, 3.0 / 7, 1});
  ExpectValues(Array(kGeometric, 9, Geometric(4, 6, 0, true)),
               {1.0 / 14, 3.0 / 14, 0.5, 11.0 / 14, 13.0 / 14, 1});
  // Half the edge graded, the last interval 4/7 of it; that fits once into the other half.
  ExpectValues(Array(kGeometric, 9, Geometric(4, 3, -0.5)), {0.5 / 7, 1.5 / 7, 0.5, 1});
  // The second entry, 3/7 of the half, fits twice.
  ExpectValues(Array(kGeometric, 9, Geometric(4, 3, 0.5)),
               {0, 0.25, 0.5 + 0.5 / 7, 0.5 + 1.5 / 7, 1});
}

TEST(SizeCalc, HyperbolicSizesAreThoseAskedFor) {
  for (const double length : {1.0, 250.0}) {
    for (const int n : {3, 10, 40, 200}) {
      for (const double share : {0.001, 0.1, 0.5, 0.95}) {
        const double s1 = share * length / n;
        const Seeds one = Array(kHyperbolic, length, Hyperbolic(s1, 0, n, false));
        ASSERT_EQ(one.GetSize(), n + 1);
        EXPECT_NEAR(one[1] * length, s1, 1e-9 * length) << "one-sided, exactly";
      }
    }
    // Two-sided sizes come out to first order in 1/n: doubling the divisions halves the misfit.
    double former = HUGE_VAL;
    for (const int n : {20, 40, 80, 160}) {
      const double s1 = 0.3 * length / n;
      const double s2 = 0.6 * length / n;
      const Seeds two = Array(kHyperbolic, length, Hyperbolic(s1, s2, n, true));
      ASSERT_EQ(two.GetSize(), n + 1);
      const double misfit =
          std::fabs(two[1] * length / s1 - 1) + std::fabs((1 - two[n - 1]) * length / s2 - 1);
      EXPECT_LT(misfit, 5.0 / n);
      EXPECT_LT(misfit, 0.6 * former);
      former = misfit;
    }
  }
}

TEST(SizeCalc, FailsWhereTheMethodsDo) {
  struct Case {
    Method method;
    tagTSzct control;
    const char* why;
  };
  const Case cases[] = {
      {kHyperbolic, Hyperbolic(1, 0, 10, false), "first size at L / n"},
      {kHyperbolic, Hyperbolic(1.5, 0, 10, false), "first size above L / n"},
      {kHyperbolic, Hyperbolic(0.5, 2, 10, true), "mean size at L / n"},
      {kHyperbolic, Hyperbolic(0.5, 0, 1, false), "one interval has no start size"},
      {kHyperbolic, Hyperbolic(0, 0, 10, false), "no size"},
      {kHyperbolic, Hyperbolic(kNoNumber, 0.1, 10, true), "no number"},
      {kHyperbolic, Hyperbolic(0.1, -1, 10, true), "negative"},
      {kHyperbolic, Hyperbolic(0.1, 0, 0, false), "no divisions"},
      {kGeometric, Geometric(0, 5), "no ratio"},
      {kGeometric, Geometric(9e-11, 5), "ratio below the least"},
      {kGeometric, Geometric(2, 1), "one interval has no ratio"},
      {kGeometric, Geometric(2, 3, 0, true), "nor has half of three"},
      {kGeometric, Geometric(kNoNumber, 5), "no number"},
      {kGeometric, Geometric(2, 5, 1), "all uniform"},
      {kGeometric, Geometric(2, 10'000'000), "too many"},
      {kLinear, Linear(-1, 2, 5), "negative"},
      {kLinear, Linear(1, kNoNumber, 5), "no number"},
      {kLinear, Linear(1, 2, -5), "negative count"},
      {kLinear, Linear(1, 2, 5, -1), "all uniform"},
      {kLinear, Linear(1e-7, 1e-5, 0), "too many"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Array(c.method, 10, c.control, 0);
  }
  Seeds out;
  AnalyticCad cad;
  ASSERT_TRUE(cad.AddLine({1, 1, 1}, {1, 1, 1}));
  for (const Method method : {kLinear, kGeometric, kHyperbolic}) {
    EXPECT_EQ(method(1, &cad, ControlsFor(10)[4], out), 0) << "an edge without length";
    EXPECT_EQ(method(2, &cad, ControlsFor(10)[4], out), 0) << "no edge";
    EXPECT_EQ(method(1, nullptr, ControlsFor(10)[4], out), 0) << "no geometry";
  }
}

TEST(SizeCalc, ArraysAreStrictlyIncreasingAndEndWithOne) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> share(0.02, 0.9);
  std::uniform_real_distribution<double> part(-0.8, 0.8);
  std::uniform_int_distribution<int> count(4, 60);
  for (int i = 0; i < 4000; ++i) {
    const double length = 100 * share(random);
    const int n = count(random);
    const double mean = length / n;
    const bool symmetric = i % 2;
    const double p = i % 3 ? part(random) : 0;
    const std::pair<Method, tagTSzct> cases[] = {
        {kLinear, Linear(mean * share(random), mean * 2 * share(random), n, p, symmetric)},
        {kGeometric, Geometric(std::pow(10, 4 * part(random)), n, p, symmetric)},
        {kHyperbolic, Hyperbolic(mean * share(random), mean * share(random), n, symmetric)}};
    for (const auto& [method, control] : cases) {
      const Seeds seeds = Array(method, length, control);
      const auto values = Values(seeds);
      ASSERT_FALSE(values.empty());
      EXPECT_EQ(values.back(), 1.0);
      EXPECT_GE(values.front(), 0.0);
      for (std::size_t k = 1; k < values.size(); ++k) ASSERT_LT(values[k - 1], values[k]);
      if (symmetric && p == 0 && control.method != tagTSzct::kHyperbolic) {
        // Seen from the other end they are the same.
        auto mirrored = values;
        ReverseSeeds(mirrored);
        for (std::size_t k = 0; k < values.size(); ++k) EXPECT_NEAR(mirrored[k], values[k], 1e-12);
      }
      auto twice = values;
      ReverseSeeds(twice);
      for (std::size_t k = 1; k < twice.size(); ++k) ASSERT_LT(twice[k - 1], twice[k]);
      EXPECT_EQ(twice.back(), 1.0);
      ReverseSeeds(twice);
      for (std::size_t k = 0; k < values.size(); ++k) EXPECT_NEAR(twice[k], values[k], 1e-15);
    }
  }
}

}  // namespace
}  // namespace qx
