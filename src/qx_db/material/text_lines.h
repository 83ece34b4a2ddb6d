#pragma once
// Text files of materials, line by line: code page, line ends, fields and numbers.
// Threads: functions from any; objects are values, one at a time for each.

#include <concepts>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/platform/code_page.h"

namespace qx {

/// Told of each line (or record, from 0; or 0 for the file as such) that a reader leaves out or
/// reads otherwise than it looks, and why; the formats themselves say nothing. Without one a reader
/// is silent, and as lenient as the formats are.
class MaterialLint {
 public:
  using Hear = std::function<void(std::int64_t line, const std::string& why)>;
  MaterialLint() = default;
  /// With `strict`, what makes a file doubtful as a whole is refused: bytes behind its end, another
  /// number of materials than it counts, no material at all.
  template <std::invocable<std::int64_t, const std::string&> F>
  MaterialLint(F hear, bool strict = false) : hear_(std::move(hear)), strict_(strict) {}

  explicit operator bool() const { return hear_ != nullptr; }
  void operator()(std::int64_t line, const std::string& why) const {
    if (hear_) hear_(line, why);
  }
  /// Of a doubtful file: the fault itself when strict, else success, and the listener is told, as
  /// of the file as such.
  Outcome Doubt(const Failure& fault) const {
    if (strict_) return fault;
    (*this)(0, (fault.place.empty() ? "" : fault.place + ": ") + fault.what);
    return {};
  }

 private:
  Hear hear_;
  bool strict_ = false;
};

/// The lines of a text file as UTF-8. A line ends with CR, LF or both.
class QXDB_API TextLines {
 public:
  /// Text in `page`, or in UTF-8 when it starts with that mark. Fails for what is not text: UTF-16,
  /// NUL bytes, bytes without a meaning in the code page. `lint` hears of a text that could be
  /// UTF-8 as well as what it is taken for.
  static Result<TextLines> FromBytes(std::string bytes, const std::string& file,
                                     const CodePage& page, std::size_t longest_line,
                                     const MaterialLint& lint = {});

  /// Sets the next line, without its end; false at the end of the file and at a line of more than
  /// `longest_line` UTF-16 units, which `Check` tells apart. Valid as long as this object.
  bool Next(std::string_view& line);
  Outcome Check() const { return check_; }
  std::int64_t Number() const { return number_; }  ///< of the last line, from 1
  /// Bounds the number of lines of at least `bytes` bytes each, to take memory once.
  std::size_t MostLines(std::size_t bytes) const;
  /// A failure at the last line; that the file is empty when it has none.
  Failure At(std::string what, std::string remedy) const;
  /// UTF-8 when the file said so by its mark.
  const CodePage& Page() const { return page_; }

 private:
  std::string file_;
  std::string text_;
  CodePage page_;
  std::size_t longest_line_ = 0;
  std::size_t at_ = 0;
  std::size_t next_lf_ = 0;  // offset of the first LF at or after at_, once known
  std::int64_t number_ = 0;
  Outcome check_;
};

/// The bytes of a text file in a code page. Text that needs UTF-8 starts with its mark, so that no
/// reader takes it for an ANSI code page.
Result<std::string> EncodedFile(std::string text, const CodePage& page, const std::string& file);

/// Without blanks and tabs on both sides.
QXDB_API std::string_view Trimmed(std::string_view text);

/// The parts of `text` between separators. Tokens are never empty: a run of separators counts as
/// one. Fields may be: n separators make n + 1. `parts` is cleared first.
QXDB_API void SplitTokens(std::string_view text, char separator,
                          std::vector<std::string_view>& parts);
QXDB_API void SplitFields(std::string_view text, char separator,
                          std::vector<std::string_view>& parts);

/// A text as a decimal number: the value of its longest start that is one, 0 without any.
struct ParsedNumber {
  double value = 0.0;
  bool whole = false;    ///< all of the text is a number, blanks around it aside
  bool in_range = true;  ///< false: too large for a double; the value is 0
};
QXDB_API ParsedNumber ParseNumber(std::string_view text);

/// The shortest text that reads back as the same double.
QXDB_API std::string ShortestText(double value);
/// As printf's "%g" writes it.
QXDB_API std::string SixDigitText(double value);

}  // namespace qx
