#include "exchange/msh/msh_cursor.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <fmt/format.h>
#include <limits>
#include <type_traits>

namespace qx::exchange {
namespace {

constexpr const char* kWriteAgain = "write the file again, it may be cut short";
constexpr int kReports = 90;  // the rest of the progress is for checking the mesh

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Whether a number that is out of range is a real too close to zero, rather than too far from it.
template <class T>
bool IsTiny(std::string_view token) {
  return std::is_floating_point_v<T> &&
         (token.find("e-") != std::string_view::npos || token.find("E-") != std::string_view::npos);
}

/// The beginning of a text from the file, fit for a message.
std::string Excerpt(std::string_view text) {
  std::string excerpt(text.substr(0, 40));
  for (char& c : excerpt) {
    if (static_cast<unsigned char>(c) >= 0x7f) c = '?';
  }
  return excerpt;
}

}  // namespace

MshCursor::MshCursor(std::string_view bytes, std::string file, const Progress& progress)
    : bytes_(bytes), file_(std::move(file)), progress_(progress) {
  if (!progress_) next_report_ = std::numeric_limits<std::size_t>::max();
}

void MshCursor::Fail(std::string what, std::string remedy) {
  if (!failure_) failure_ = Failure{file_, Place(), std::move(what), std::move(remedy)};
}

void MshCursor::PassOver() {
  if (!failure_ || encoding_.binary || passed_over_.size() + 1 >= LossReport::kMostFaults) return;
  const std::size_t next = bytes_.find('\n', last_);
  if (next == std::string_view::npos) return;
  const std::size_t first = bytes_.find_first_not_of(" \t\r\n", next);
  // What is wrong at the end of a section is the section.
  if (first == std::string_view::npos || bytes_[first] == '$' || bytes_[last_] == '$') return;
  passed_over_.push_back(std::move(*failure_));
  failure_.reset();
  at_ = next + 1;
}

std::string MshCursor::Place() const {
  const std::string section = section_.empty() ? "" : fmt::format("${}, ", Excerpt(section_));
  if (encoding_.binary) return fmt::format("{}byte {}", section, last_);
  const auto lines =
      std::count(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(last_), '\n');
  return fmt::format("{}line {}", section, lines + 1);
}

void MshCursor::ReportProgress() {
  progress_(static_cast<double>(at_) / static_cast<double>(bytes_.size()) * kReports / 100);
  next_report_ = at_ + bytes_.size() / kReports + 1;
}

// ---- sections -----------------------------------------------------------------------------------

std::optional<std::string_view> MshCursor::NextSection() {
  section_ = {};
  SkipBlanks();
  last_ = at_;
  if (failure_ || at_ == bytes_.size()) return std::nullopt;
  if (bytes_[at_] != '$') {
    Fail(fmt::format("'{}' is no beginning of a section", Excerpt(Token())),
         "remove it or begin the section with '$'");
    return std::nullopt;
  }
  section_ = Token().substr(1);
  if (section_.starts_with("End")) {
    Fail(fmt::format("${} ends a section that has not begun", Excerpt(section_)),
         "remove it or begin the section before it");
  }
  EndLine();
  return section_;
}

void MshCursor::EndSection() {
  const std::string_view end = Token();
  if (failure_ || (end.starts_with("$End") && end.substr(4) == section_)) return;
  Fail(fmt::format("'{}' stands where $End{} should", Excerpt(end), Excerpt(section_)),
       "correct the count at the beginning of the section");
}

std::string_view MshCursor::SkipSection() {
  if (failure_) return {};
  const std::size_t begin = at_;
  const std::string end = fmt::format("$End{}", section_);
  for (std::size_t at = at_; (at = bytes_.find(end, at)) != std::string_view::npos;) {
    at += end.size();
    if (at < bytes_.size() && !IsBlank(bytes_[at])) continue;
    at_ = at;
    return bytes_.substr(begin, at - end.size() - begin);
  }
  Fail(fmt::format("the section has no {}", Excerpt(end)), kWriteAgain);
  return {};
}

// ---- text ---------------------------------------------------------------------------------------

void MshCursor::SkipBlanks() {
  while (at_ < bytes_.size() && IsBlank(bytes_[at_])) ++at_;
}

std::string_view MshCursor::Token() {
  if (failure_) return {};
  if (at_ >= next_report_) ReportProgress();
  SkipBlanks();
  last_ = at_;
  while (at_ < bytes_.size() && !IsBlank(bytes_[at_])) ++at_;
  if (at_ == last_) Fail("the file ends inside the section", kWriteAgain);
  return bytes_.substr(last_, at_ - last_);
}

template <class T>
T MshCursor::Parsed(const char* kind) {
  const std::string_view token = Token();
  if (failure_) return 0;
  const char* first = token.data() + (token.front() == '+' ? 1 : 0);
  const char* last = token.data() + token.size();
  T value = 0;
  const auto [end, error] = std::from_chars(first, last, value);
  if (error == std::errc() && end == last) return value;
  if (error == std::errc::result_out_of_range && end == last) {
    if (IsTiny<T>(token)) return 0;
    Fail(fmt::format("'{}' is too large", Excerpt(token)), "correct the number");
  } else if (token.front() == '$') {
    Fail(fmt::format("'{}' stands where {} should", Excerpt(token), kind),
         "correct the count at the beginning of the section");
  } else {
    Fail(fmt::format("'{}' is not {}", Excerpt(token), kind), "correct the number");
  }
  return 0;
}

std::int64_t MshCursor::TextInteger() { return Parsed<std::int64_t>("a whole number"); }

double MshCursor::TextReal() { return Parsed<double>("a number"); }

std::string_view MshCursor::RestOfLine() {
  if (failure_) return {};
  last_ = at_;
  if (at_ == bytes_.size()) Fail("the file ends inside the section", kWriteAgain);
  const std::size_t end = std::min(bytes_.find('\n', at_), bytes_.size());
  std::string_view line = bytes_.substr(at_, end - at_);
  at_ = std::min(end + 1, bytes_.size());
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

void MshCursor::EndLine() {
  const std::string_view rest = RestOfLine();
  if (!std::all_of(rest.begin(), rest.end(), IsBlank)) {
    Fail(fmt::format("'{}' stands where the line should end", Excerpt(rest)), "remove it");
  }
}

// ---- numbers in the file's encoding -------------------------------------------------------------

template <class T>
T MshCursor::Raw() {
  if (failure_) return 0;
  if (at_ >= next_report_) ReportProgress();
  last_ = at_;
  if (Remaining() < sizeof(T)) {
    Fail("the file ends inside the section", kWriteAgain);
    return 0;
  }
  char raw[sizeof(T)];
  std::memcpy(raw, bytes_.data() + at_, sizeof(T));
  at_ += sizeof(T);
  if (encoding_.swapped) std::reverse(raw, raw + sizeof(T));
  return std::bit_cast<T>(raw);
}

std::int32_t MshCursor::Int() {
  if (encoding_.binary) return Raw<std::int32_t>();
  const std::int64_t value = TextInteger();
  if (value != static_cast<std::int32_t>(value)) {
    Fail(fmt::format("'{}' is too large", value), "correct the number");
    return 0;
  }
  return static_cast<std::int32_t>(value);
}

std::uint64_t MshCursor::Size() {
  if (encoding_.binary) {
    return encoding_.size_bytes == 4 ? Raw<std::uint32_t>() : Raw<std::uint64_t>();
  }
  const std::int64_t value = TextInteger();
  if (value >= 0) return static_cast<std::uint64_t>(value);
  Fail(fmt::format("'{}' is negative", value), "correct the number");
  return 0;
}

double MshCursor::Real() { return encoding_.binary ? Raw<double>() : TextReal(); }

void MshCursor::SkipInts(std::uint64_t count) {
  for (; count > 0 && Ok(); --count) Int();
}

void MshCursor::SkipReals(int count) {
  for (; count > 0 && Ok(); --count) Real();
}

Key MshCursor::Number(bool wide, const char* of_what) {
  std::int64_t number = 0;
  if (!encoding_.binary) {
    number = TextInteger();
  } else if (wide) {
    number = static_cast<std::int64_t>(std::min<std::uint64_t>(Size(), INT64_MAX));
  } else {
    number = Int();
  }
  if (number >= 1 && number <= kMaxKey) return static_cast<Key>(number);
  Fail(fmt::format("{} number {} is not between 1 and {}", of_what, number, kMaxKey),
       "renumber the mesh");
  return 0;
}

std::uint64_t MshCursor::CheckCount(std::uint64_t count, const char* of_what,
                                    std::size_t text_bytes, std::size_t binary_bytes) {
  if (failure_) return 0;
  if (count <= Remaining() / (encoding_.binary ? binary_bytes : text_bytes)) return count;
  Fail(fmt::format("the count of {} {} is more than the file has room for", count, of_what),
       "correct the count, or write the file again if it is cut short");
  return 0;
}

}  // namespace qx::exchange
