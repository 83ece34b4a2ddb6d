#pragma once
// A text in tokens.
// Threads: values: one at a time for each object.

#include <string_view>

#include "qx_db/platform/text.h"

namespace qx {

/// Takes a text apart at any of the separators, token by token. Blanks around a token do not belong
/// to it. Two separators in a row have an empty token between them, and a text without any is one
/// token; an empty text has none. The text must outlive the tokens.
///
///   stringtoken fields(line, u",;");
///   for (std::u16string_view field; fields.next(field);) Use(field);
class stringtoken {
 public:
  explicit stringtoken(std::u16string_view text, std::u16string_view separators = u",")
      : rest_(text), separators_(separators), more_(!text.empty()) {}

  /// Whether there is another token.
  bool more() const { return more_; }
  /// The next token; false, with `token` untouched, after the last.
  bool next(std::u16string_view& token) {
    if (!more_) return false;
    const std::size_t end = rest_.find_first_of(separators_);
    more_ = end != rest_.npos;
    token = Trim(rest_.substr(0, end));
    rest_.remove_prefix(more_ ? end + 1 : rest_.size());
    return true;
  }

 private:
  static std::u16string_view Trim(std::u16string_view token) {
    constexpr std::u16string_view kBlanks = u" \t\r\n";
    const std::size_t first = token.find_first_not_of(kBlanks);
    if (first == token.npos) return {};
    return token.substr(first, token.find_last_not_of(kBlanks) + 1 - first);
  }

  std::u16string_view rest_;
  std::u16string_view separators_;
  bool more_;
};

}  // namespace qx
