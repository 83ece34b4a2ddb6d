#pragma once
// UTF-16 text as the interfaces carry it, and its conversion to the UTF-8 of shells and files.
// Threads: functions from any; objects are values, one at a time for each.

#include <cstddef>
#include <string>
#include <string_view>

#include "qx_db/export.h"

namespace qx {

/// UTF-8 of a UTF-16 text; an unpaired surrogate becomes U+FFFD.
QXDB_API std::string Utf8(std::u16string_view text);

/// UTF-16 of a UTF-8 text; each byte that belongs to no valid sequence becomes U+FFFD.
/// When `valid` is given it tells whether the whole text was well formed.
QXDB_API std::u16string Utf16(std::string_view text, bool* valid = nullptr);

/// Whether `text` is well-formed UTF-8 (no overlong forms, no surrogates, at most U+10FFFF).
QXDB_API bool IsUtf8(std::string_view text);

/// Upper case of the ASCII letters, everything else as it is.
QXDB_API std::string AsciiUpper(std::string_view text);

/// Whether two texts are equal but for the case of ASCII letters.
QXDB_API bool EqualNoCase(std::string_view a, std::string_view b);

/// A small UTF-16 string with the operations that the interfaces of this library use.
class QXDB_API CString {
 public:
  CString() = default;
  CString(const char16_t* text) : text_(text ? text : u"") {}
  CString(std::u16string_view text) : text_(text) {}
  CString(std::u16string text) : text_(std::move(text)) {}
  static CString FromUtf8(std::string_view text) { return CString(Utf16(text)); }

  int GetLength() const { return static_cast<int>(text_.size()); }
  bool IsEmpty() const { return text_.empty(); }
  void Empty() { text_.clear(); }
  char16_t operator[](int i) const { return text_[static_cast<std::size_t>(i)]; }
  const char16_t* c_str() const { return text_.c_str(); }
  std::u16string_view View() const { return text_; }
  std::string ToUtf8() const { return Utf8(text_); }

  CString Left(int count) const;
  CString Mid(int first, int count) const;
  CString Right(int count) const;
  /// Index of the first occurrence at or after `from`, -1 when there is none.
  int Find(std::u16string_view part, int from = 0) const;
  int ReverseFind(char16_t unit) const;
  /// Removes blanks, tabs and line ends on both sides.
  CString& Trim();
  CString& MakeUpper();
  int CompareNoCase(const CString& other) const;

  CString& operator+=(std::u16string_view more) {
    text_ += more;
    return *this;
  }
  friend CString operator+(CString a, std::u16string_view b) { return a += b; }
  friend CString operator+(CString a, const CString& b) { return a += b.View(); }
  friend bool operator==(const CString&, const CString&) = default;
  friend auto operator<=>(const CString&, const CString&) = default;

 private:
  std::u16string text_;
};

}  // namespace qx
