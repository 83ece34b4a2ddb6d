#include "qx_db/platform/text.h"

#include <gtest/gtest.h>

#include "qx_db/platform/outcome.h"
#include "qx_db/record/values.h"

namespace qx {
namespace {

TEST(Text, Utf8AndUtf16ConvertBothWays) {
  struct Case {
    const char* utf8;
    std::u16string utf16;
    bool valid;
  };
  const Case cases[] = {
      {"", u"", true},
      {"abc", u"abc", true},
      {"\xC3\xA9\xE6\xBC\xA2", u"é漢", true},
      {"\xF0\x9F\x94\xA9", u"\U0001F529", true},
      {"\xF4\x8F\xBF\xBF", u"\U0010FFFF", true},
      {"\xC0\x80", u"\uFFFD\uFFFD", false},            // overlong
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD", false},  // surrogate
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD", false},
      {"a\xE6\xBC", u"a\uFFFD\uFFFD", false},  // cut
      {"\x80z", u"\uFFFDz", false},
  };
  for (const Case& c : cases) {
    bool valid = false;
    EXPECT_EQ(Utf16(c.utf8, &valid), c.utf16);
    EXPECT_EQ(valid, c.valid) << c.utf8;
    EXPECT_EQ(IsUtf8(c.utf8), c.valid);
    if (c.valid) {
      EXPECT_EQ(Utf8(c.utf16), c.utf8);
    }
  }
  const char16_t lone[] = {0xD800, u'x', 0};
  EXPECT_EQ(Utf8(lone), "\xEF\xBF\xBDx");
}

TEST(Text, FixedTextsAreCutWhole) {
  TString<4> text(u"abcdef");
  EXPECT_EQ(text.View(), u"abc");
  text.Set(u"ab\U0001F529");  // the pair does not fit
  EXPECT_EQ(text.View(), u"ab");
  text.Set(std::u16string_view(u"a\0b", 3));
  EXPECT_EQ(text.View(), u"a");
  EXPECT_EQ(text.units[2], 0);
}

TEST(Text, StringsTrimSearchAndCompare) {
  CString text(u" \t Mesh-12 \r\n");
  EXPECT_EQ(text.Trim(), CString(u"Mesh-12"));
  EXPECT_EQ(text.ReverseFind(u'-'), 4);
  EXPECT_EQ(text.Find(u"esh"), 1);
  EXPECT_EQ(text.Find(u"esh", 2), -1);
  EXPECT_EQ(text.Left(4) + text.Right(3), CString(u"Mesh-12"));
  EXPECT_EQ(text.Mid(5, 100), CString(u"12"));
  EXPECT_EQ(text.CompareNoCase(CString(u"MESH-12")), 0);
}

TEST(Outcome, AFailureIsOneLine) {
  const Failure failure{"a\nb.msh", "line 3", "is cut", "copy it again"};
  EXPECT_EQ(failure.Line(),
            "a\xEF\xBF\xBD"
            "b.msh: line 3: is cut; copy it again");
  EXPECT_EQ(Outcome().Line(), "");
}

TEST(Array, GrowsFromItsOwnElements) {
  TArray<ITR> array{1, 2, 3, 4};
  for (int i = 0; i < 100; ++i) array.Add(array[0]);
  EXPECT_EQ(array.GetSize(), 104);
  EXPECT_EQ(array[103], 1u);
  TArray<ITR> copy = array;
  copy[0] = 9;
  EXPECT_EQ(array[0], 1u);
  const TArray<ITR>& itself = array;
  array = itself;
  EXPECT_EQ(array.GetSize(), 104);
  EXPECT_THROW(array.GetAt(104), std::out_of_range);
  array.RemoveAll();
  EXPECT_TRUE(array.IsEmpty());
  EXPECT_EQ(array, TArray<ITR>());
}

}  // namespace
}  // namespace qx
