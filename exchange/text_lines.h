#pragma once
// A text of lines of words and numbers, front to back.
// Threads: values: one at a time for each object.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <optional>
#include <string>
#include <string_view>

#include "qx_db/platform/text.h"

namespace qx::exchange {

/// The words of a line, between blanks.
class Words {
 public:
  explicit Words(std::string_view line) : rest_(line) {}

  /// The next one; empty at the end.
  std::string_view Next() {
    const std::size_t first = rest_.find_first_not_of(" \t");
    if (first == std::string_view::npos) return rest_ = {};
    const std::size_t end = std::min(rest_.find_first_of(" \t", first), rest_.size());
    const std::string_view word = rest_.substr(first, end - first);
    rest_.remove_prefix(end);
    return word;
  }
  /// What is left, without blanks around it.
  std::string_view Rest() const {
    const std::size_t first = rest_.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return rest_.substr(first, rest_.find_last_not_of(" \t") + 1 - first);
  }

 private:
  std::string_view rest_;
};

/// The lines of a text, which outlives it, without their ends, of either system.
class TextLines {
 public:
  explicit TextLines(std::string_view text) : text_(text) {}

  /// Goes on to the next line; false at the end.
  bool Next() {
    if (at_ >= text_.size()) return false;
    begin_ = at_;
    const std::size_t end = std::min(text_.find('\n', at_), text_.size());
    line_ = text_.substr(at_, end - at_);
    if (line_.ends_with('\r')) line_.remove_suffix(1);
    at_ = std::min(end + 1, text_.size());
    ++number_;
    return true;
  }
  std::string_view Line() const { return line_; }
  /// Of the line, from 1.
  std::size_t Number() const { return number_; }
  std::string Place() const { return fmt::format("line {}", number_); }
  /// Bytes before the line, and behind it.
  std::size_t Begin() const { return begin_; }
  std::size_t At() const { return at_; }
  double Done() const {
    return text_.empty() ? 1 : static_cast<double>(at_) / static_cast<double>(text_.size());
  }

 private:
  std::string_view text_;
  std::string_view line_;
  std::size_t begin_ = 0;
  std::size_t at_ = 0;
  std::size_t number_ = 0;
};

/// A whole number that is all of a word; none for other words.
template <class T>
std::optional<T> WholeOf(std::string_view word) {
  if (word.starts_with('+')) word.remove_prefix(1);
  T number{};
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return number;
}

/// A finite number that is all of a word.
inline std::optional<double> RealOf(std::string_view word) {
  const auto number = WholeOf<double>(word);
  return number && std::isfinite(*number) ? number : std::nullopt;
}

/// The text, with U+FFFD for what is no UTF-8, and control characters.
inline std::string CleanText(std::string_view text) {
  std::string clean(text);
  if (!IsUtf8(text)) clean = Utf8(Utf16(text));
  for (char& c : clean) c = static_cast<unsigned char>(c) < 0x20 ? '?' : c;
  return clean;
}

}  // namespace qx::exchange
