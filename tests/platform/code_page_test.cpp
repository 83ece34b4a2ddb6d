#include "qx_db/platform/code_page.h"

#include <gtest/gtest.h>

#include "qx_db/platform/drive.h"
#include "qx_db/platform/text.h"

namespace qx {
namespace {

constexpr int kPages[] = {874,  932,  936,  949,  950,  1250, 1251,
                          1252, 1253, 1254, 1255, 1256, 1257, 1258};

TEST(CodePage, ConvertsTheLettersOfItsLanguage) {
  struct Case {
    const char* page;
    std::string bytes;
    std::u16string text;
  };
  const Case cases[] = {
      {"874", "\xE0\xCB\xC5", u"เหล"},
      {"932", "\x8D\x7C\x83\x5C\xB1", u"鋼ソｱ"},  // a second byte that is a backslash
      {"936", "\xB8\xD6", u"钢"},
      {"949", "\xB0\xAD", u"강"},
      {"950", "\xBF\xFB", u"鋼"},
      {"cp1250", "\xE1\xF8", u"ář"},
      {"Windows-1251", "\xF1\xF2", u"ст"},
      {"1252", "\x80\xE4\x9F", u"€äŸ"},
      {"1253", "\xEC", u"μ"},
      {"1254", "\xF0", u"ğ"},
      {"1255", "\xE0", u"א"},
      {"1256", "\xC8", u"ب"},
      {"1257", "\xF0", u"š"},
      {"1258", "\xD0", u"Đ"},
      {"utf-8", "\xF0\x9F\x94\xA9", u"\U0001F529"},
  };
  for (const Case& c : cases) {
    const auto page = CodePage::Named(c.page);
    ASSERT_TRUE(page) << c.page;
    const auto text = page->Decode(c.bytes, "f");
    ASSERT_TRUE(text) << c.page << ": " << text.Error().Line();
    EXPECT_EQ(Utf16(*text), c.text) << c.page;
    const auto bytes = page->Encode(*text, "f");
    ASSERT_TRUE(bytes) << c.page;
    EXPECT_EQ(*bytes, c.bytes) << c.page;
  }
}

TEST(CodePage, WhatOneByteMeansReadsBackOrIsRefused) {
  for (const int number : kPages) {
    const CodePage page = *CodePage::Named(std::to_string(number));
    int meant = 0;
    for (int byte = 1; byte < 256; ++byte) {
      const std::string bytes(1, static_cast<char>(byte));
      const auto text = page.Decode(bytes, "f");
      if (!text) {
        EXPECT_GE(byte, 128) << number << ": ASCII is part of every code page";
        EXPECT_EQ(text.Error().place, "line 1");
        continue;
      }
      ++meant;
      const auto again = page.Encode(*text, "f");
      ASSERT_TRUE(again) << number << " " << byte << " " << again.Error().Line();
      EXPECT_EQ(*again, bytes) << number;
    }
    EXPECT_GE(meant, 127) << number;
  }
}

TEST(CodePage, RefusesWhatItLacksWithItsPlace) {
  const CodePage western = *CodePage::Named("1252");
  const auto lacking = western.Encode("a\r\nb\n\xE6\xBC\xA2", "f.txt");
  ASSERT_FALSE(lacking);
  EXPECT_EQ(lacking.Error().file, "f.txt");
  EXPECT_EQ(lacking.Error().place, "line 3");
  EXPECT_NE(lacking.Error().what.find("U+6F22"), std::string::npos) << lacking.Error().what;
  // What has no width is not dropped, and what looks like a letter is not taken for it.
  EXPECT_FALSE(western.Encode("a\xE2\x80\x8D", "f"));
  EXPECT_FALSE(western.Encode("\xD0\xB0\xEF\xBD\x81", "f"));
  const auto bad = CodePage().Decode("ok\n\xC3\xA9\nx\xC3(", "f.txt");
  ASSERT_FALSE(bad);
  EXPECT_EQ(bad.Error().place, "line 3");
  const auto cut = CodePage::Named("932")->Decode("a\n\x8D", "f.txt");
  ASSERT_FALSE(cut);
  EXPECT_EQ(cut.Error().place, "line 2");
  for (const char* name : {"", "437", "latin1", "1259", "12520", "cp"}) {
    EXPECT_FALSE(CodePage::Named(name)) << name;
  }
}

TEST(CodePage, FollowsTheLocale) {
  struct Case {
    const char* locale;
    int number;
  };
  const Case cases[] = {
      {"", 1252},           {"C", 1252},           {"C.UTF-8", 1252},     {"de_DE.UTF-8", 1252},
      {"ko_KR.UTF-8", 949}, {"ja", 932},           {"zh_TW.Big5", 950},   {"zh_CN", 936},
      {"sr_RS", 1251},      {"sr_RS@latin", 1250}, {"el_GR@euro", 1253},  {"th_TH", 874},
      {"vi_VN", 1258},      {"x", 1252},           {"pt_BR.UTF-8", 1252}, {"tr_TR", 1254},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(CodePage::OfLocaleName(c.locale).Number(), c.number) << c.locale;
  }
}

TEST(Drive, MapsLettersToFolders) {
  SetDriveFolder('C', "/data/c");
  EXPECT_EQ(SystemPath(u"c:\\matl.txt"), "/data/c/matl.txt");
  EXPECT_EQ(SystemPath(u"C:a\\b"), "/data/c/a/b");
  EXPECT_EQ(SystemPath(u"c:"), "/data/c/");
  EXPECT_EQ(SystemPath(u"/home/é\\x"), "/home/é\\x");
  SetDriveFolder('c', "");
  setenv("QX_DRIVE_C", "/env/c", 1);
  EXPECT_EQ(DriveFolder('c'), "/env/c");
  unsetenv("QX_DRIVE_C");
  setenv("QX_DRIVE_Q", "/env/q", 1);
  EXPECT_EQ(SystemPath(u"q:/x"), "/env/q/x");
  unsetenv("QX_DRIVE_Q");
}

}  // namespace
}  // namespace qx
