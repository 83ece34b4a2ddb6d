#include "qx_db/platform/code_page.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <unicode/ucnv.h>
#include <unicode/utf16.h>

#include "qx_db/platform/text.h"

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#endif

namespace qx {
namespace {

constexpr int kUtf8 = 65001;
constexpr int kWestern = 1252;

/// A code page with the languages that Windows gives it, as they start a POSIX locale name. The
/// first match counts, so that "zh_TW" stands before "zh".
struct PageRow {
  int number;
  const char* converter;  // ICU's name of the table that Windows uses
  std::string_view languages;
};
constexpr PageRow kPages[] = {
    {874, "windows-874-2000", " th "},
    {932, "ibm-943_P15A-2003", " ja "},
    {950, "windows-950-2000", " zh_TW zh_HK zh_MO "},
    {936, "windows-936-2000", " zh "},
    {949, "windows-949-2000", " ko "},
    {1250, "ibm-5346_P100-1998", " cs hr hu pl ro sk sl sq bs "},
    {1251, "ibm-5347_P100-1998", " be bg kk ky mk mn ru sr tt uk "},
    {1252, "ibm-5348_P100-1997", ""},
    {1253, "ibm-5349_P100-1998", " el "},
    {1254, "ibm-5350_P100-1998", " az tr "},
    {1255, "ibm-9447_P100-2002", " he yi "},
    {1256, "ibm-9448_X100-2005", " ar fa ur "},
    {1257, "ibm-9449_P100-2002", " et lt lv "},
    {1258, "ibm-5354_P100-1998", " vi "},
};

const PageRow* FindPage(int number) {
  const auto found = std::find_if(std::begin(kPages), std::end(kPages),
                                  [&](const PageRow& row) { return row.number == number; });
  return found == std::end(kPages) ? nullptr : found;
}

bool IsAscii(std::string_view text) {
  std::uint64_t high = 0;
  std::size_t i = 0;
  for (; i + 8 <= text.size(); i += 8) {
    std::uint64_t word;
    std::memcpy(&word, text.data() + i, 8);
    high |= word;
  }
  for (; i < text.size(); ++i) high |= static_cast<std::uint64_t>(text[i] & 0x80) << 56;
  return (high & 0x8080808080808080u) == 0;
}

struct CloseConverter {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

/// An ICU converter that stops at what it cannot convert; null when ICU lacks the table.
Converter OpenConverter(int number) {
  UErrorCode status = U_ZERO_ERROR;
  Converter converter(ucnv_open(FindPage(number)->converter, &status));
  if (U_FAILURE(status)) return nullptr;
  ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &status);
  ucnv_setFallback(converter.get(), false);
  return converter;
}

/// UTF-16 of a whole text. On failure `bad` is the offset of the first byte that means nothing.
bool ToUnicode(UConverter* converter, std::string_view bytes, std::u16string& text,
               std::size_t& bad) {
  UErrorCode status = U_ZERO_ERROR;
  text.resize(bytes.size());  // no byte of these code pages makes more than one unit
  const char* from = bytes.data();
  char16_t* to = text.data();
  ucnv_reset(converter);
  ucnv_toUnicode(converter, &to, to + text.size(), &from, bytes.data() + bytes.size(), nullptr,
                 true, &status);
  if (U_SUCCESS(status)) {
    text.resize(static_cast<std::size_t>(to - text.data()));
    return true;
  }
  char invalid[16];
  auto length = static_cast<std::int8_t>(sizeof(invalid));
  UErrorCode ignored = U_ZERO_ERROR;
  ucnv_getInvalidChars(converter, invalid, &length, &ignored);
  bad = static_cast<std::size_t>(from - bytes.data()) - static_cast<std::size_t>(length);
  return false;
}

/// Bytes of a text, if they give the same text back: ICU drops characters without a width where
/// the code page lacks them, and says nothing.
bool FromUnicode(UConverter* converter, std::u16string_view text, std::string& bytes) {
  UErrorCode status = U_ZERO_ERROR;
  bytes.resize(text.size() * 2);  // at most two bytes a unit in these code pages
  const char16_t* from = text.data();
  char* to = bytes.data();
  ucnv_reset(converter);
  ucnv_fromUnicode(converter, &to, to + bytes.size(), &from, text.data() + text.size(), nullptr,
                   true, &status);
  if (U_FAILURE(status)) return false;
  bytes.resize(static_cast<std::size_t>(to - bytes.data()));
  std::u16string again;
  std::size_t bad = 0;
  return ToUnicode(converter, bytes, again, bad) && again == text;
}

/// The first character that a code page lacks, as a failure.
Failure Unwritable(UConverter* converter, std::u16string_view text, const std::string& page,
                   const std::string& file) {
  std::string bytes;
  std::size_t at = 0;
  std::size_t next = 0;
  char32_t character = 0;
  do {
    at = next;
    U16_NEXT(text, next, text.size(), character);
  } while (FromUnicode(converter, text.substr(at, next - at), bytes) && next < text.size());
  char code[16];
  std::snprintf(code, sizeof(code), "U+%04X", static_cast<unsigned>(character));
  return {file, LinePlace(Utf8(text.substr(0, at)), std::string::npos),
          std::string("the character ") + code + " \"" + Utf8(text.substr(at, next - at)) +
              "\" is not in code page " + page,
          "choose another code page, such as UTF-8"};
}

/// A converter for a text of `bytes`, as far as ICU can take one in a call.
Result<Converter> ConverterFor(int number, std::size_t bytes, const std::string& file) {
  constexpr std::size_t kMost = std::size_t{1} << 29;
  if (bytes > kMost) {
    return Failure{file, "", "has over 512 MiB of text that is not UTF-8", "save it as UTF-8"};
  }
  Converter converter = OpenConverter(number);
  if (converter) return converter;
  return Failure{file, "", "code page " + std::to_string(number) + " is missing from ICU's data",
                 "install ICU's full data"};
}

}  // namespace

std::string LinePlace(std::string_view text, std::size_t at) {
  std::size_t line = 1;
  at = std::min(at, text.size());
  for (std::size_t i = 0; i < at; ++i) {
    // The LF of a CR LF was counted with its CR.
    if (text[i] == '\r' || (text[i] == '\n' && (i == 0 || text[i - 1] != '\r'))) ++line;
  }
  return "line " + std::to_string(line);
}

Result<CodePage> CodePage::Named(std::string_view name) {
  if (EqualNoCase(name, "UTF-8") || EqualNoCase(name, "UTF8")) return CodePage();
  std::string_view digits = name;
  for (const std::string_view prefix : {"WINDOWS-", "CP"}) {
    if (EqualNoCase(digits.substr(0, prefix.size()), prefix)) digits.remove_prefix(prefix.size());
  }
  int number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool whole = error == std::errc() && end == digits.data() + digits.size();
  if (whole && (number == kUtf8 || FindPage(number))) return CodePage(number);
  return Failure{"", "", "\"" + std::string(name) + "\" is no code page known here",
                 "use UTF-8, 874, 932, 936, 949, 950 or 1250 to 1258"};
}

CodePage CodePage::OfLocaleName(std::string_view locale) {
  // "sr_RS@latin" is written with the letters of central Europe.
  if (locale.starts_with("sr") && locale.find("@latin") != std::string_view::npos) {
    return CodePage(1250);
  }
  const std::string_view territory = locale.substr(0, locale.find_first_of(".@"));
  const std::string_view language = territory.substr(0, territory.find('_'));
  for (const PageRow& row : kPages) {
    for (const std::string_view name : {territory, language}) {
      const std::string word = " " + std::string(name) + " ";
      if (!name.empty() && row.languages.find(word) != std::string_view::npos) {
        return CodePage(row.number);
      }
    }
  }
  return CodePage(kWestern);
}

CodePage CodePage::OfLocale() {
#ifdef _WIN32
  DWORD number = 0;
  GetLocaleInfoW(GetThreadLocale(), LOCALE_IDEFAULTANSICODEPAGE | LOCALE_RETURN_NUMBER,
                 reinterpret_cast<LPWSTR>(&number), sizeof(number) / sizeof(WCHAR));
  const int page = static_cast<int>(number);
  return CodePage(page == kUtf8 || FindPage(page) ? page : kWestern);
#else
  for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value && *value) return OfLocaleName(value);
  }
  return OfLocaleName("C");
#endif
}

std::string CodePage::Name() const {
  return number_ == kUtf8 ? "UTF-8" : "windows-" + std::to_string(number_);
}

Result<std::string> CodePage::Decode(std::string bytes, const std::string& file) const {
  if (IsAscii(bytes) || (number_ == kUtf8 && IsUtf8(bytes))) return bytes;
  const auto meaningless = [&](std::size_t at) {
    return Failure{file, LinePlace(bytes, at), "holds bytes that are not text in " + Name(),
                   "name the file's code page"};
  };
  if (number_ == kUtf8) {
    // The valid part comes back as itself; the first byte that differs is the bad one.
    const std::string mended = Utf8(Utf16(bytes));
    const auto differs = std::mismatch(bytes.begin(), bytes.end(), mended.begin(), mended.end());
    return meaningless(static_cast<std::size_t>(differs.first - bytes.begin()));
  }
  const Result<Converter> converter = ConverterFor(number_, bytes.size(), file);
  if (!converter) return converter.Error();
  std::u16string text;
  std::size_t bad = 0;
  if (!ToUnicode(converter->get(), bytes, text, bad)) return meaningless(bad);
  return Utf8(text);
}

Result<std::string> CodePage::Encode(std::string utf8, const std::string& file) const {
  if (number_ == kUtf8 || IsAscii(utf8)) return utf8;
  const Result<Converter> converter = ConverterFor(number_, utf8.size(), file);
  if (!converter) return converter.Error();
  const std::u16string text = Utf16(utf8);
  std::string bytes;
  if (FromUnicode(converter->get(), text, bytes)) return bytes;
  return Unwritable(converter->get(), text, Name(), file);
}

}  // namespace qx
