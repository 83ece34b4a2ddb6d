#include "exchange/unv/unv_text.h"

#include <algorithm>
#include <array>

namespace qx::exchange {
namespace {

bool IsDelimiter(std::string_view line) {
  return line.starts_with("    -1") && line.find_first_not_of(" \t", 6) == std::string_view::npos;
}

bool Parse(std::string_view word, std::int64_t& number) {
  const auto found = WholeOf<std::int64_t>(word);
  number = found.value_or(0);
  return found.has_value();
}

/// Where the exponent of a number begins that has no letter before it; 0 for one that has. It
/// leaves the letter out where the exponent has three digits.
std::size_t BareExponent(std::string_view word) {
  if (word.size() < 6) return 0;
  const std::size_t at = word.size() - 4;
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  const bool is_one =
      (word[at] == '-' || word[at] == '+') && (is_digit(word[at - 1]) || word[at - 1] == '.') &&
      std::all_of(word.begin() + static_cast<std::ptrdiff_t>(at) + 1, word.end(), is_digit);
  return is_one ? at : 0;
}

/// A number whose exponent may begin with D, or with its sign.
bool Parse(std::string_view word, double& number) {
  std::array<char, 64> copy;
  if (word.size() >= copy.size()) return false;
  const std::size_t bare = BareExponent(word);
  std::size_t size = 0;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (bare != 0 && i == bare) copy[size++] = 'E';
    copy[size++] = word[i] == 'D' || word[i] == 'd' ? 'E' : word[i];
  }
  const auto found = RealOf(std::string_view(copy.data(), size));
  number = found.value_or(0);
  return found.has_value();
}

/// Takes whole numbers that end where columns do, which need no blank between them; none if one of
/// them does not.
bool AddColumns(std::string_view line, std::vector<std::int64_t>& to, std::size_t width) {
  const std::size_t before = to.size();
  line = line.substr(0, line.find_last_not_of(" \t") + 1);
  for (; !line.empty(); line.remove_prefix(width)) {
    const std::string_view column = line.substr(0, width);
    const std::size_t first = column.find_first_not_of(' ');
    std::int64_t number = 0;
    if (column.size() < width || first == column.npos || !Parse(column.substr(first), number)) {
      to.resize(before);
      return false;
    }
    to.push_back(number);
  }
  return true;
}
bool AddColumns(std::string_view, std::vector<double>&, std::size_t) { return false; }

}  // namespace

bool UnvText::NextDataset() {
  while (is_in_ && !is_over_) NextLine();
  wrong_.clear();
  is_in_ = false;
  for (;;) {
    if (!lines_.Next()) return false;
    const std::string_view word = Words(lines_.Line()).Rest();
    if (word.empty()) continue;
    if (word != "-1") {
      name_.clear();
      wrong_place_ = lines_.Place();
      wrong_ = "a dataset begins with a line of -1";
      return true;
    }
    break;
  }
  is_in_ = true;
  is_over_ = false;
  name_.clear();
  if (NeedLine()) name_ = CleanText(Words(lines_.Line()).Next().substr(0, 12));
  return true;
}

void UnvText::Fail(std::string what) {
  if (!wrong_.empty()) return;
  wrong_ = std::move(what);
  wrong_place_ = lines_.Place();
}

bool UnvText::NextLine() {
  if (is_over_) return false;
  is_over_ = !lines_.Next();
  is_cut_ = is_cut_ || is_over_;
  is_over_ = is_over_ || IsDelimiter(lines_.Line());
  return !is_over_;
}

bool UnvText::NeedLine() {
  if (!wrong_.empty()) return false;
  if (NextLine()) return true;
  Fail("the dataset ends early");
  return false;
}

template <class T>
bool UnvText::AddNumbers(std::string_view line, std::vector<T>& to, std::size_t width) {
  if (AddColumns(line, to, width)) return true;
  const std::size_t before = to.size();
  Words words(line);
  bool is_good = true;
  for (std::string_view word = words.Next(); !word.empty() && is_good; word = words.Next()) {
    T number{};
    is_good = Parse(word, number);
    to.push_back(number);
  }
  if (is_good) return true;
  // No blank need stand between columns.
  to.resize(before);
  while (line.find_first_not_of(" \t") != std::string_view::npos) {
    const std::string_view word = Words(line.substr(0, width)).Rest();
    T number{};
    if (!Parse(word, number)) {
      Fail(fmt::format("'{}' is no number", CleanText(word)));
      return false;
    }
    to.push_back(number);
    line.remove_prefix(std::min(width, line.size()));
  }
  return true;
}

template <class T>
bool UnvText::Numbers(std::size_t count, std::vector<T>& to, std::size_t width) {
  to.clear();
  while (to.size() < count) {
    const std::size_t before = to.size();
    if (!NeedLine() || !AddNumbers(Line(), to, width)) return false;
    if (to.size() == before) {
      Fail("numbers are missing");
      return false;
    }
  }
  return true;
}

bool UnvText::Integers(std::size_t count, std::vector<std::int64_t>& to, std::size_t width) {
  return Numbers(count, to, width);
}
bool UnvText::Reals(std::size_t count, std::vector<double>& to, std::size_t width) {
  return Numbers(count, to, width);
}
bool UnvText::IntegersOfLine(std::vector<std::int64_t>& to, std::size_t width) {
  to.clear();
  return AddNumbers(Line(), to, width);
}
bool UnvText::RealsOfLine(std::vector<double>& to, std::size_t width) {
  to.clear();
  return AddNumbers(Line(), to, width);
}

bool UnvText::NumbersOfLine(std::size_t integers, std::vector<std::int64_t>& whole,
                            std::vector<double>& to) {
  whole.clear();
  to.clear();
  const std::size_t columns = std::min(10 * integers, Line().size());
  return AddNumbers(Line().substr(0, columns), whole, 10) &&
         AddNumbers(Line().substr(columns), to, 13);
}

std::string UnvText::Rest() {
  std::string text;
  while (NextLine()) (text += Line()) += '\n';
  return text;
}

}  // namespace qx::exchange
