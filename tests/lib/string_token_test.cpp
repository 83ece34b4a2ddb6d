#include "qx_db/lib/string_token.h"

#include <gtest/gtest.h>
#include <vector>

#include "qx_db/lib/math_lib.h"

namespace qx {
namespace {

using Tokens = std::vector<std::u16string_view>;

TEST(StringToken, TakesATextApart) {
  struct Case {
    std::u16string_view text, separators;
    Tokens tokens;
  };
  const Case cases[] = {
      {u"", u",", {}},
      {u"one", u",", {u"one"}},
      {u" a ,\tb\r\n", u",", {u"a", u"b"}},
      {u"a,,c", u",", {u"a", u"", u"c"}},
      {u"a,b,", u",", {u"a", u"b", u""}},
      {u"a;b,c", u",;", {u"a", u"b", u"c"}},
      {u"a b", u" ", {u"a", u"b"}},
  };
  for (const Case& c : cases) {
    stringtoken tokens(c.text, c.separators);
    Tokens found;
    for (std::u16string_view token; tokens.next(token);) found.push_back(token);
    EXPECT_EQ(found, c.tokens) << Utf8(c.text);
    EXPECT_FALSE(tokens.more());
  }
}

TEST(MathFunc, WorksOnArraysAndReportsWhatHasNoDirection) {
  const double x[3] = {2, 0, 0}, y[3] = {0, 3, 0};
  double out[3] = {9, 9, 9};
  CMathFunc::Cross(x, y, out);
  EXPECT_EQ(out[2], 6);
  EXPECT_EQ(CMathFunc::Normalize(out), 1);
  EXPECT_EQ(out[2], 1);
  double turned[3];
  CMathFunc::Rotate(x, out, 90, turned);
  EXPECT_NEAR(CMathFunc::Distance(turned, x), math_lib::Length({2, 2, 0}), 1e-15);
  EXPECT_EQ(CMathFunc::AngleBetween(x, y), 90);
  double zero[3] = {0, 0, 0};
  const double back[3] = {-1, -1, -1};
  EXPECT_EQ(CMathFunc::AngleBetween(zero, back), 0) << "nothing is a half turn from it";
  EXPECT_EQ(CMathFunc::Normalize(zero), 0);
  const double unit[3] = {1, 0, 0};
  EXPECT_EQ(CMathFunc::UnitNormal(unit, unit, turned), 0);
}

}  // namespace
}  // namespace qx
