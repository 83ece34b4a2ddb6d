// Solving a grading for what is not given of it.

#include "qx_db/model/size_inverse.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

#include "qx_db/model/size_calc.h"

namespace qx {
namespace {

constexpr int kCount = 1;
constexpr int kFirst = 2;
constexpr int kLast = 4;
constexpr int kRatio = 8;
constexpr int kLength = 16;

SeedingKnown Part(const SeedingSolution& whole, int given) {
  SeedingKnown known;
  if (given & kCount) known.divisions = whole.divisions;
  if (given & kFirst) known.first = whole.first;
  if (given & kLast) known.last = whole.last;
  if (given & kRatio) known.ratio = whole.ratio;
  if (given & kLength) known.length = whole.length;
  return known;
}

/// A grading added up size by size.
SeedingSolution Make(Grading grading, int n, double first, double ratio) {
  SeedingSolution made{n, first, first * ratio, ratio, 0, false};
  for (int i = 0; i < n; ++i) {
    const double u = n == 1 ? 0 : static_cast<double>(i) / (n - 1);
    made.length +=
        grading == Grading::kLinear ? first * (1 + u * (ratio - 1)) : first * std::pow(ratio, u);
  }
  return made;
}

bool IsSufficient(int given, int n) {
  const int sizes = ((given & kFirst) != 0) + ((given & kLast) != 0) + ((given & kRatio) != 0);
  if (given & kCount) {
    if (n == 1) return (given & (kFirst | kLast | kLength)) != 0;
    if (given & kLength) return sizes >= 1;
    return sizes >= 2;
  }
  return (given & kLength) && sizes >= 2;
}

TEST(SizeInverse, EverySufficientPartGivesTheWhole) {
  std::mt19937 random(3);
  std::uniform_int_distribution<int> count(1, 120);
  std::uniform_real_distribution<double> power(-1.5, 1.5);
  int solved = 0;
  for (int i = 0; i < 300; ++i) {
    const auto grading = i % 2 ? Grading::kLinear : Grading::kGeometric;
    const int n = i < 20 ? 1 + i / 10 : count(random);
    const auto whole =
        Make(grading, n, std::pow(10, power(random)), n == 1 ? 1 : std::pow(10, power(random)));
    for (int given = 0; given < 32; ++given) {
      SCOPED_TRACE(testing::Message() << "given " << given << " of n " << n << " first "
                                      << whole.first << " ratio " << whole.ratio);
      const auto got = SolveSeeding(grading, Part(whole, given));
      ASSERT_EQ(static_cast<bool>(got), IsSufficient(given, n)) << (got ? "" : got.Error().Line());
      if (!got) {
        EXPECT_FALSE(got.Error().remedy.empty());
        continue;
      }
      ++solved;
      EXPECT_EQ(got->divisions, n);
      EXPECT_NEAR(got->first, whole.first, 1e-7 * whole.first);
      EXPECT_NEAR(got->last, whole.last, 1e-7 * whole.last);
      EXPECT_NEAR(got->ratio, whole.ratio, 1e-7 * whole.ratio);
      EXPECT_NEAR(got->length, whole.length, 1e-7 * whole.length);
      EXPECT_FALSE(got->rounded);
    }
  }
  EXPECT_GT(solved, 4000);
}

TEST(SizeInverse, AnyFactThatDoesNotFitIsNamed) {
  for (const auto grading : {Grading::kLinear, Grading::kGeometric}) {
    const auto whole = Make(grading, 8, 0.5, 3);
    for (int wrong = kCount; wrong <= kLength; wrong *= 2) {
      SeedingKnown known = Part(whole, 31);
      if (wrong == kCount) known.divisions = 9;
      if (wrong == kFirst) *known.first *= 1.01;
      if (wrong == kLast) *known.last *= 1.01;
      if (wrong == kRatio) *known.ratio *= 1.01;
      if (wrong == kLength) *known.length *= 1.01;
      const auto got = SolveSeeding(grading, known);
      ASSERT_FALSE(got) << wrong;
      EXPECT_NE(got.Error().what.find(" make"), std::string::npos) << got.Error().Line();
    }
  }
}

TEST(SizeInverse, RefusesWhatCannotBe) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  struct Case {
    SeedingKnown known;
    const char* named;
  };
  const Case cases[] = {
      {{0, {}, {}, 2, 10}, "0 is not from 1"},
      {{-3, {}, {}, 2, 10}, "-3 is not from 1"},
      {{10'000'000, {}, {}, 2, 10}, "10000000 is not from 1"},
      {{5, 0, {}, 2, {}}, "first size: 0"},
      {{5, {}, -1, 2, {}}, "last size: -1"},
      {{5, {}, {}, nan, 10}, "ratio: nan"},
      {{5, {}, {}, 2, HUGE_VAL}, "length: inf"},
      {{5, 12, {}, {}, 10}, "larger than the length"},
      {{{}, 6, 7, {}, 10}, "do not fit"},
      {{5, 10, {}, {}, 10}, "cannot make a length"},
      {{1, 3, 4, {}, {}}, "1 division"},
      {{1, 3, {}, 2, {}}, "does not go with the last size 6"},
      {{1, {}, {}, 2, 10}, "ratio of 1"},
      {{1, 3, {}, {}, 10}, "1 division"},
      {{{}, 1e-9, 1e-9, {}, 10}, "more than 1000000"},
      {{{}, 1, 2, 2, {}}, "too little"},
      {{}, "too little"},
  };
  for (const Case& c : cases) {
    const auto got = SolveSeeding(Grading::kGeometric, c.known);
    ASSERT_FALSE(got) << c.named;
    EXPECT_NE(got.Error().Line().find(c.named), std::string::npos) << got.Error().Line();
  }
  // Linear sizes beyond what the last one can make good.
  EXPECT_FALSE(SolveSeeding(Grading::kLinear, {4, 6, {}, {}, 10}));
  EXPECT_TRUE(SolveSeeding(Grading::kGeometric, {4, 6, {}, {}, 10}));
}

TEST(SizeInverse, RoundsABrokenCountAndKeepsLengthAndRatio) {
  for (const auto grading : {Grading::kLinear, Grading::kGeometric}) {
    const auto got = SolveSeeding(grading, {{}, 1, 2, {}, 15.6});
    ASSERT_TRUE(got);
    EXPECT_TRUE(got->rounded);
    EXPECT_NEAR(got->ratio, 2, 1e-12);
    const auto made = Make(grading, got->divisions, got->first, got->ratio);
    EXPECT_NEAR(made.length, 15.6, 1e-9);
    EXPECT_NEAR(got->first, 1, 0.1);
  }
}

TEST(SizeInverse, AgreesWithTheSeedArray) {
  const auto solved = SolveSeeding(Grading::kGeometric, {12, 0.5, {}, {}, 20});
  ASSERT_TRUE(solved);
  CArray<double> fractions;
  ASSERT_TRUE(CQXCalcSzct::EstimateRatioArrayRatio(solved->ratio, 12, fractions));
  EXPECT_NEAR(fractions[0] * 20, 0.5, 1e-9);
  EXPECT_NEAR((1 - fractions[10]) * 20, solved->last, 1e-9);
}

}  // namespace
}  // namespace qx
