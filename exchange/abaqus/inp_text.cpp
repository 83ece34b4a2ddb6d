#include "exchange/abaqus/inp_text.h"

#include <algorithm>

#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::size_t LineEnd(std::string_view text, std::size_t at) {
  const std::size_t end = text.find('\n', at);
  return end == std::string_view::npos ? text.size() : end + 1;
}

bool IsComment(std::string_view line) { return line.starts_with("**"); }

/// The first keyword line at `at`, which is the beginning of a line, or behind it.
std::size_t NextKeyword(std::string_view text, std::size_t at) {
  while (at < text.size()) {
    std::size_t first = at;
    while (first < text.size() && (text[first] == ' ' || text[first] == '\t')) ++first;
    const std::string_view rest = text.substr(first, 2);
    if (rest.starts_with('*') && rest != "**") return at;
    at = LineEnd(text, first);
  }
  return text.size();
}

/// Where the data of a keyword begins: its line goes on while it ends with a comma.
std::size_t DataBegin(std::string_view text, std::size_t at) {
  for (;;) {
    const std::size_t end = LineEnd(text, at);
    const bool goes_on = Trimmed(text.substr(at, end - at)).ends_with(',');
    if (!goes_on || end >= text.size() || NextKeyword(text, end) == end) return end;
    at = end;
  }
}

std::string WithoutBlanks(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (!IsBlank(c)) out += c;
  }
  return out;
}

/// "SOLID SECTION" of "*Solid  section, elset=a".
std::string TitleOf(std::string_view line) {
  line = Trimmed(line);
  if (line.starts_with('*')) line.remove_prefix(1);
  std::string title;
  for (const char c : AsciiUpper(Trimmed(line.substr(0, line.find(','))))) {
    if (!IsBlank(c) || !title.ends_with(' ')) title += IsBlank(c) ? ' ' : c;
  }
  return title;
}

std::string KeywordOf(std::string_view line) { return WithoutBlanks(TitleOf(line)); }

/// The parameters of the keyword lines from `begin` to `end`.
std::vector<InpParameter> ParametersOf(std::string_view text, std::size_t begin, std::size_t end) {
  std::vector<InpParameter> parameters;
  std::size_t comma = text.substr(0, end).find(',', begin);
  while (comma != std::string_view::npos) {
    std::size_t stop = comma + 1;
    bool quoted = false;
    for (; stop < end && (quoted || text[stop] != ','); ++stop) quoted ^= text[stop] == '"';
    const std::string_view all = text.substr(comma + 1, stop - comma - 1);
    const std::size_t equals = all.find('=');
    InpParameter parameter;
    parameter.name = AsciiUpper(WithoutBlanks(all.substr(0, equals)));
    if (equals != std::string_view::npos) parameter.value = Trimmed(all.substr(equals + 1));
    if (parameter.value.size() > 1 && parameter.value.front() == '"' &&
        parameter.value.back() == '"') {
      parameter.value = parameter.value.substr(1, parameter.value.size() - 2);
    }
    parameter.begin = comma;
    parameter.end = stop;
    while (parameter.end > comma && IsBlank(text[parameter.end - 1])) --parameter.end;
    if (!parameter.name.empty()) parameters.push_back(std::move(parameter));
    comma = stop < end ? stop : std::string_view::npos;
  }
  return parameters;
}

/// The next *INCLUDE, or keyword whose data stands in a file of its own.
std::optional<IncludeLine> NextInclude(const std::string& text, std::size_t from) {
  for (std::size_t at = NextKeyword(text, from); at < text.size();) {
    const std::size_t line = LineEnd(text, at);
    const std::string keyword = KeywordOf(std::string_view(text).substr(at, line - at));
    const bool is_include = keyword == "INCLUDE";
    if (is_include || keyword == "NODE" || keyword == "ELEMENT" || keyword == "NSET" ||
        keyword == "ELSET") {
      const std::size_t end = DataBegin(text, at);
      for (const InpParameter& parameter : ParametersOf(text, at, end)) {
        if (parameter.name != "INPUT") continue;
        std::string head =
            text.substr(at, parameter.begin - at) + text.substr(parameter.end, end - parameter.end);
        if (!head.ends_with('\n')) head += '\n';
        return IncludeLine{at, end, std::string(parameter.value),
                           is_include ? std::string() : std::move(head)};
      }
      if (is_include) return IncludeLine{at, end, {}, {}};
    }
    at = NextKeyword(text, line);
  }
  return std::nullopt;
}

}  // namespace

bool IsInpNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string InpLabel(std::string_view name) {
  name = Trimmed(name);
  if (name.size() > 1 && name.front() == '"' && name.back() == '"') {
    name = name.substr(1, name.size() - 2);
  }
  return AsciiUpper(name);
}

std::optional<InpText> InpText::Read(const std::string& path, const ReadOptions& options,
                                     std::vector<Failure>& faults, LossReport& report) {
  auto read = ReadDeckText(path, options, NextInclude, faults, report);
  if (!read) return std::nullopt;
  return InpText(std::move(*read));
}

InpText::InpText(DeckText text) : deck_(std::move(text)) {
  const std::string_view all(Text());
  for (std::size_t at = NextKeyword(all, 0); at < all.size();) {
    InpBlock block;
    block.begin = at;
    block.title = TitleOf(all.substr(at, LineEnd(all, at) - at));
    block.keyword = WithoutBlanks(block.title);
    block.data = DataBegin(all, at);
    block.end = NextKeyword(all, block.data);
    at = block.end;
    blocks_.push_back(std::move(block));
  }
}

std::vector<InpParameter> InpText::Parameters(const InpBlock& block) const {
  return ParametersOf(Text(), block.begin, block.data);
}

std::optional<std::string_view> InpText::Parameter(const InpBlock& block,
                                                   std::string_view name) const {
  for (const InpParameter& parameter : Parameters(block)) {
    if (parameter.name == name) return parameter.value;
  }
  return std::nullopt;
}

bool InpLines::Next() {
  while (next_ < end_) {
    begin_ = next_;
    next_ = std::min(LineEnd(text_, begin_), end_);
    const std::string_view line = Trimmed(text_.substr(begin_, next_ - begin_));
    if (line.empty() || IsComment(line)) continue;
    fields_.clear();
    goes_on_ = line.back() == ',';
    for (std::size_t at = 0; at < line.size();) {
      std::size_t stop = at;
      bool quoted = false;
      for (; stop < line.size() && (quoted || line[stop] != ','); ++stop)
        quoted ^= line[stop] == '"';
      fields_.push_back(Trimmed(line.substr(at, stop - at)));
      at = stop + 1;
    }
    return true;
  }
  return false;
}

}  // namespace qx::exchange
