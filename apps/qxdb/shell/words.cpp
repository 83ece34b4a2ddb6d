#include "apps/qxdb/shell/words.h"

#include <fmt/format.h>
#include <string_view>

namespace qx::app {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

}  // namespace

LineWords SplitLine(const std::string& line) {
  LineWords split;
  const auto add = [&](std::string_view text) {
    if (!split.is_in_word) split.words.emplace_back();
    split.is_in_word = true;
    split.words.back() += text;
  };
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    const char next = i + 1 < line.size() ? line[i + 1] : '\0';
    if (split.quote) {
      if (c == split.quote) {
        split.quote = 0;
      } else if (c == '\\' && split.quote == '"' && (next == '"' || next == '\\')) {
        add({&line[++i], 1});
      } else {
        add({&line[i], 1});
      }
    } else if (c == '\'' || c == '"') {
      split.quote = c;
      split.quote_at = i;
      add("");
    } else if (IsBlank(c)) {
      split.is_in_word = false;
    } else if (c == '#' && !split.is_in_word) {
      return split;
    } else if (c == '\\' && i + 1 == line.size()) {
      split.goes_on = true;
      split.is_in_word = false;
    } else if (c == '\\' && std::string_view(" \t'\"\\#").find(next) != std::string_view::npos) {
      add({&line[++i], 1});
    } else {
      add({&line[i], 1});
    }
  }
  return split;
}

Result<std::vector<std::string>> WordsOf(const std::string& line) {
  LineWords split = SplitLine(line);
  if (split.quote) {
    return Failure{"", fmt::format("column {}", split.quote_at + 1),
                   fmt::format("the quote {} is not closed", split.quote),
                   "close it, or write \\ before one that is meant as it is"};
  }
  return std::move(split.words);
}

std::string QuotedWord(const std::string& word) {
  if (word.find_first_of(" \t'\"\\#") == std::string::npos && !word.empty()) return word;
  if (word.find('\'') == std::string::npos) return '\'' + word + '\'';
  std::string out = "\"";
  for (const char c : word) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + '"';
}

}  // namespace qx::app
