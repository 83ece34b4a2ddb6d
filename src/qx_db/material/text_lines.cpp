#include "qx_db/material/text_lines.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <locale>
#include <sstream>

#include "qx_db/platform/text.h"

namespace qx {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

std::size_t Utf16Length(std::string_view utf8) {
  std::size_t units = 0;
  for (const char c : utf8) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0) != 0x80) units += byte >= 0xF0 ? 2 : 1;
  }
  return units;
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/// Whether std::from_chars would find digits at the start, rather than "inf" or "nan".
bool StartsNumber(std::string_view text) {
  if (!text.empty() && text[0] == '-') text.remove_prefix(1);
  if (!text.empty() && text[0] == '.') text.remove_prefix(1);
  return !text.empty() && IsDigit(text[0]);
}

}  // namespace

Result<TextLines> TextLines::FromBytes(std::string bytes, const std::string& file,
                                       const CodePage& page, std::size_t longest_line,
                                       const MaterialLint& lint) {
  if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF")) {
    return Failure{file, "line 1", "is UTF-16 text", "save it as UTF-8 or in an ANSI code page"};
  }
  TextLines lines;
  lines.file_ = file;
  lines.longest_line_ = longest_line;
  const bool marked = bytes.starts_with(kUtf8Mark);
  if (marked) bytes.erase(0, kUtf8Mark.size());
  lines.page_ = marked ? CodePage() : page;
  if (const std::size_t nul = bytes.find('\0'); nul != std::string::npos) {
    return Failure{file, LinePlace(bytes, nul), "holds a NUL byte, so it is no text file",
                   "check that this is the right file"};
  }
  const auto high =
      std::find_if(bytes.begin(), bytes.end(), [](char c) { return (c & 0x80) != 0; });
  if (lint && lines.page_ != CodePage() && high != bytes.end() && IsUtf8(bytes)) {
    // Names of UTF-8 read in an ANSI code page are rarely refused and never right.
    const std::string before(bytes.begin(), high);
    lint(1 + std::count(before.begin(), before.end(), '\n'),
         "is read in " + lines.page_.Name() + " but is UTF-8 as well; name that code page if so");
  }
  Result<std::string> text = lines.page_.Decode(std::move(bytes), file);
  if (!text) return text.Error();
  lines.text_ = std::move(*text);
  return lines;
}

bool TextLines::Next(std::string_view& line) {
  if (at_ >= text_.size() || !check_) return false;
  const std::string_view all = text_;
  // The next LF is looked for once, so that a file of CR alone is not searched over and over.
  if (next_lf_ < at_ || number_ == 0) next_lf_ = std::min(all.find('\n', at_), all.size());
  const std::size_t cr = all.substr(at_, next_lf_ - at_).find('\r');
  const std::size_t end = cr == std::string_view::npos ? next_lf_ : at_ + cr;
  line = all.substr(at_, end - at_);
  at_ = end + (all.substr(end, 2) == "\r\n" ? 2 : 1);
  ++number_;
  if (line.size() <= longest_line_ || Utf16Length(line) <= longest_line_) return true;
  check_ = At("has more than " + std::to_string(longest_line_) + " characters", "break it up");
  return false;
}

std::size_t TextLines::MostLines(std::size_t bytes) const {
  const auto ends =
      std::count_if(text_.begin(), text_.end(), [](char c) { return c == '\n' || c == '\r'; });
  return std::min(static_cast<std::size_t>(ends), text_.size() / bytes) + 1;
}

Failure TextLines::At(std::string what, std::string remedy) const {
  if (number_ == 0) return {file_, "", "is empty", std::move(remedy)};
  return {file_, "line " + std::to_string(number_), std::move(what), std::move(remedy)};
}

Result<std::string> EncodedFile(std::string text, const CodePage& page, const std::string& file) {
  Result<std::string> bytes = page.Encode(std::move(text), file);
  if (!bytes || page != CodePage()) return bytes;
  const bool ascii =
      std::all_of(bytes->begin(), bytes->end(), [](char c) { return (c & 0x80) == 0; });
  if (!ascii) bytes->insert(0, kUtf8Mark);
  return bytes;
}

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

void SplitTokens(std::string_view text, char separator, std::vector<std::string_view>& parts) {
  SplitFields(text, separator, parts);
  std::erase_if(parts, [](std::string_view part) { return part.empty(); });
}

void SplitFields(std::string_view text, char separator, std::vector<std::string_view>& parts) {
  parts.clear();
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(separator, start), text.size());
    parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
}

ParsedNumber ParseNumber(std::string_view text) {
  ParsedNumber number;
  text = Trimmed(text);
  std::string_view digits = text;
  if (digits.starts_with('+')) digits.remove_prefix(1);
  if (!StartsNumber(digits) || (digits != text && digits[0] == '-')) return number;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), number.value);
  number.whole = end == digits.data() + digits.size();
  if (error == std::errc::result_out_of_range) {
    // Too large and too small look alike here; a stream tells them apart.
    std::istringstream stream{std::string(digits.data(), end)};
    stream.imbue(std::locale::classic());
    number.in_range = static_cast<bool>(stream >> number.value);
    if (!number.in_range) number.value = 0.0;
  }
  return number;
}

std::string ShortestText(double value) {
  char text[32];
  return {text, std::to_chars(text, text + sizeof(text), value).ptr};
}

std::string SixDigitText(double value) {
  char text[32];
  return {text, std::to_chars(text, text + sizeof(text), value, std::chars_format::general, 6).ptr};
}

}  // namespace qx
