#pragma once
// Binary material files: numbers in little-endian order, texts in fixed blocks of UTF-16.
// Threads: functions from any; objects are values, one at a time for each.

#include <concepts>
#include <cstdint>
#include <istream>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "qx_db/material/text_lines.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/platform/stdio_file.h"

namespace qx {

/// A text block: the text, its terminator, then filler without a meaning.
inline constexpr std::size_t kBlockUnits = 256;
inline constexpr std::size_t kBlockBytes = 2 * kBlockUnits;

/// Whether a text and its terminator fit a block, and no NUL would cut it.
bool FitsBlock(const CString& text);

/// The text of a block's bytes; false when it has no terminator.
bool TextOfBlock(const char* block, CString& text);

/// Reads a binary file piece by piece and knows what is left of it, so that a count can be checked
/// before it is believed.
class QXDB_API BlockReader {
 public:
  /// Fails, naming the file, when it is missing, a directory or unreadable.
  static Result<BlockReader> Open(const std::string& path);
  /// Reads `size` bytes that `stream` holds.
  BlockReader(std::unique_ptr<std::istream> stream, std::uint64_t size, std::string file);

  std::uint64_t Left() const { return left_; }
  const std::string& File() const { return file_; }

  /// Reads exactly `count` bytes; `place` names them in the failure.
  Outcome Read(void* to, std::size_t count, const std::string& place);
  /// Whether `count` things of `size` bytes each may follow; fails, naming the place, when not.
  Outcome CheckCount(std::uint64_t count, std::uint64_t size, const std::string& place) const;
  Outcome ReadMagic(std::u16string_view magic);
  Outcome ReadText(CString& text, const std::string& place);
  /// Bytes that follow make the file doubtful.
  Outcome CheckEnd(const MaterialLint& lint) const;

 private:
  std::unique_ptr<std::istream> stream_;
  std::uint64_t left_;
  std::string file_;
};

/// A value for a place of a format: a text, an integer or a double.
class QXDB_API FormatValue {
 public:
  using Held = std::variant<std::u16string, std::int32_t, std::uint32_t, long long,
                            unsigned long long, double>;
  FormatValue(const char16_t* text);
  FormatValue(double number) : value_(number) {}
  template <std::integral T>
  FormatValue(T number) : value_(static_cast<Wide<T>>(number)) {}
  const Held& Value() const { return value_; }

 private:
  template <class T>
  using Wide =
      std::conditional_t<sizeof(T) <= 4,
                         std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>,
                         std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>>;
  Held value_;
};

/// The text that printf makes of a format and its values: flags, widths, precisions and all
/// conversions but %n; %s takes texts of UTF-16. Throws std::runtime_error for a place without a
/// value, or with one that does not suit it.
QXDB_API std::u16string FormatText(const char16_t* format,
                                   std::initializer_list<FormatValue> values);

/// Writes the text's characters without terminator; returns the bytes written.
QXDB_API unsigned WriteText(CStdioFile& file, std::u16string_view text);
/// Writes the text as a block; 0, and nothing written, when it and its terminator do not fit.
QXDB_API int WriteTextBlock(CStdioFile& file, std::u16string_view text);
/// Writes a value as it lies in memory.
template <class T>
void WriteValue(CStdioFile& file, const T& value) {
  file.Write(&value, sizeof(value));
}

}  // namespace qx
