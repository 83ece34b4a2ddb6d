#include "qx_db/platform/text.h"

#include <algorithm>
#include <cstdint>

namespace qx {
namespace {

constexpr char32_t kReplacementCharacter = 0xFFFD;

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void AppendUtf16(std::u16string& out, char32_t c) {
  if (c < 0x10000) {
    out += static_cast<char16_t>(c);
  } else {
    out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
    out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
  }
}

/// Decodes one code point at `i` and moves past it; false (moving one byte) when malformed.
bool NextUtf8(std::string_view s, std::size_t& i, char32_t& c) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
  const unsigned char first = byte(i);
  const std::size_t start = i++;
  if (first < 0x80) {
    c = first;
    return true;
  }
  const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  if (first < 0xC2 || first > 0xF4 || start + static_cast<std::size_t>(more) >= s.size()) {
    return false;
  }
  c = first & (0x3F >> more);
  for (int k = 1; k <= more; ++k) {
    const unsigned char next = byte(start + static_cast<std::size_t>(k));
    if ((next & 0xC0) != 0x80) return false;
    c = (c << 6) | (next & 0x3F);
  }
  constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
  if (c < kSmallest[more] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return false;
  i = start + static_cast<std::size_t>(more) + 1;
  return true;
}

char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }
char16_t Upper(char16_t c) { return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c; }

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

}  // namespace

std::string Utf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDFFF) {
      const bool paired =
          c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF;
      c = paired ? 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00) : kReplacementCharacter;
    }
    AppendUtf8(out, c);
  }
  return out;
}

std::u16string Utf16(std::string_view text, bool* valid) {
  std::u16string out;
  out.reserve(text.size());
  bool all = true;
  for (std::size_t i = 0; i < text.size();) {
    char32_t c = 0;
    const bool good = NextUtf8(text, i, c);
    all = all && good;
    AppendUtf16(out, good ? c : kReplacementCharacter);
  }
  if (valid) *valid = all;
  return out;
}

bool IsUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    char32_t c = 0;
    if (!NextUtf8(text, i, c)) return false;
  }
  return true;
}

std::string AsciiUpper(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = Upper(c);
  return out;
}

bool EqualNoCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Upper(x) == Upper(y); });
}

CString CString::Left(int count) const { return Mid(0, count); }

CString CString::Mid(int first, int count) const {
  const int begin = std::clamp(first, 0, GetLength());
  const int length = std::clamp(count, 0, GetLength() - begin);
  return CString(View().substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(length)));
}

CString CString::Right(int count) const { return Mid(GetLength() - std::max(count, 0), count); }

int CString::Find(std::u16string_view part, int from) const {
  const auto at = text_.find(part, static_cast<std::size_t>(std::max(from, 0)));
  return at == std::u16string::npos ? -1 : static_cast<int>(at);
}

int CString::ReverseFind(char16_t unit) const {
  const auto at = text_.rfind(unit);
  return at == std::u16string::npos ? -1 : static_cast<int>(at);
}

CString& CString::Trim() {
  const auto first = std::find_if_not(text_.begin(), text_.end(), IsBlank);
  const auto last = std::find_if_not(text_.rbegin(), text_.rend(), IsBlank).base();
  text_ = first < last ? std::u16string(first, last) : std::u16string();
  return *this;
}

CString& CString::MakeUpper() {
  for (char16_t& c : text_) c = Upper(c);
  return *this;
}

int CString::CompareNoCase(const CString& other) const {
  return CString(*this).MakeUpper().View().compare(CString(other).MakeUpper().View());
}

}  // namespace qx
