#include "exchange/nastran/nas_values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>

#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

constexpr std::size_t kSmall = 8;
constexpr std::size_t kLarge = 16;
constexpr double kSame = 1e-12;

/// The shortest of the forms that a number with so many digits has: plain, without the zero before
/// the point, with an exponent that needs no letter.
std::string FormOf(double value, int digits, std::size_t width) {
  const std::string scientific = fmt::format("{:.{}e}", std::abs(value), digits - 1);
  const std::size_t e = scientific.find('e');
  int exponent = 0;
  const char* from = scientific.data() + e + 1;
  std::from_chars(from + (*from == '+'), scientific.data() + scientific.size(), exponent);
  std::string number;
  for (const char c : scientific.substr(0, e)) {
    if (c != '.') number += c;
  }
  number.resize(std::max<std::size_t>(1, number.find_last_not_of('0') + 1));
  const std::string sign = value < 0 ? "-" : "";
  std::vector<std::string> forms;
  const int count = static_cast<int>(number.size());
  if (exponent >= 0 && exponent < 15) {
    std::string whole = number.substr(0, static_cast<std::size_t>(exponent) + 1);
    whole.resize(static_cast<std::size_t>(exponent) + 1, '0');
    const std::string rest = count > exponent + 1 ? number.substr(whole.size()) : "";
    forms.push_back(sign + whole + "." + rest);
  } else if (exponent < 0 && exponent > -5) {
    const std::string rest = std::string(static_cast<std::size_t>(-exponent - 1), '0') + number;
    forms.push_back(sign + "0." + rest);
    forms.push_back(sign + "." + rest);
  }
  const std::string mantissa = sign + number.substr(0, 1) + "." + number.substr(1);
  // Zeros that are no digits read worse than an exponent.
  const auto at = exponent >= 7 && count <= exponent - 2 ? forms.begin() : forms.end();
  forms.insert(at, fmt::format("{}e{}", mantissa, exponent));
  forms.push_back(fmt::format("{}{:+}", mantissa, exponent));
  for (std::string& form : forms) {
    if (form.size() <= width) return std::move(form);
  }
  return {};
}

std::string Components(std::string digits) {
  std::erase(digits, '0');
  std::sort(digits.begin(), digits.end());
  return digits;
}

}  // namespace

std::string NasReal(double value, std::size_t width) {
  if (value == 0 || !std::isfinite(value)) return "0.";
  for (int digits = 1; digits <= 17; ++digits) {
    const std::string text = FormOf(value, digits, width);
    if (!text.empty() && DeckReal(text) == value) return text;
  }
  for (int digits = 17; digits > 0; --digits) {
    std::string text = FormOf(value, digits, width);
    if (!text.empty()) return text;
  }
  return "0.";
}

// ---- values -------------------------------------------------------------------------------------

std::string NasValue::Text() const {
  switch (kind) {
    case Kind::kNumber:
      return fmt::format("{}", number);
    case Kind::kReal: {
      // What unit conversions and rotations leave where a number was 0.
      const double there = std::abs(real) < 1e-15 * scale ? 0 : real;
      const std::string text = NasReal(there, kLarge);
      const std::string shorter = NasReal(there, kSmall);
      const double error = std::abs(DeckReal(shorter).value_or(0) - there);
      return error <= 4e-16 * std::max(std::abs(there), scale) ? shorter : text;
    }
    case Kind::kWord:
      return word;
    case Kind::kBlank:
      break;
  }
  return {};
}

bool NasValue::IsSame(const NasValue& other) const {
  const bool is_zero = kind == Kind::kBlank && other.kind == Kind::kReal;
  if (is_zero || (kind == Kind::kReal && other.kind == Kind::kBlank)) {
    return real == 0 && other.real == 0;
  }
  if (kind != other.kind) return false;
  const double size = std::max({std::abs(real), std::abs(other.real), scale, other.scale});
  return number == other.number && word == other.word &&
         std::abs(real - other.real) <= kSame * size;
}

bool NasValue::IsRead(std::string_view text) const {
  if (text.empty()) return true;
  NasValue given;
  given.kind = kind == Kind::kBlank ? Kind::kReal : kind;
  given.scale = scale;
  switch (kind) {
    case Kind::kNumber:
      return DeckInteger(text) == number;
    case Kind::kWord: {
      const std::string upper = AsciiUpper(std::string(text));
      // Components may stand in any order.
      return upper == word || (upper.find_first_not_of("0123456") == std::string::npos &&
                               Components(upper) == Components(word));
    }
    default:
      given.real = DeckReal(text).value_or(NAN);
      return given.IsSame(*this);
  }
}

NasFields& NasFields::Number(Key key) {
  NasValue value;
  value.kind = key == 0 ? NasValue::Kind::kBlank : NasValue::Kind::kNumber;
  value.number = key;
  values_.push_back(std::move(value));
  return *this;
}
NasFields& NasFields::Real(double real, double scale) {
  NasValue value;
  value.kind = NasValue::Kind::kReal;
  value.real = real;
  value.scale = scale;
  values_.push_back(std::move(value));
  return *this;
}
NasFields& NasFields::RealOrBlank(double real) { return real == 0 ? Blank() : Real(real); }
NasFields& NasFields::Blank(int count) {
  values_.resize(values_.size() + static_cast<std::size_t>(count));
  return *this;
}
void NasFields::Set(std::size_t field, NasValue value) {
  values_.resize(std::max(values_.size(), field + 1));
  values_[field] = std::move(value);
}
NasFields& NasFields::Word(std::string text) {
  NasValue value;
  value.kind = text.empty() ? NasValue::Kind::kBlank : NasValue::Kind::kWord;
  value.word = std::move(text);
  values_.push_back(std::move(value));
  return *this;
}

const NasValue& NasFields::At(std::size_t field) const {
  static const NasValue kBlank;
  return field < values_.size() ? values_[field] : kBlank;
}

std::string NasFields::Text() const {
  if (name_.empty()) return {};
  std::vector<std::string> texts;
  for (const NasValue& value : values_) texts.push_back(value.Text());
  return NasCardLines(name_, std::move(texts));
}

std::string NasCardLines(std::string_view name, std::vector<std::string> fields) {
  while (!fields.empty() && fields.back().empty()) fields.pop_back();
  for (std::string& field : fields) {
    if (field.size() > kLarge) field = NasReal(DeckReal(field).value_or(0), kLarge);
  }
  const bool is_large = std::any_of(fields.begin(), fields.end(),
                                    [](const std::string& field) { return field.size() > kSmall; });
  const std::size_t width = is_large ? kLarge : kSmall;
  const std::size_t per_line = is_large ? 4 : 8;
  std::string text = fmt::format("{:<8}", std::string(name) + (is_large ? "*" : ""));
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0 && i % per_line == 0) {
      text.resize(text.find_last_not_of(' ') + 1);
      text += is_large ? "\n*       " : "\n+       ";
    }
    text += fmt::format("{:<{}}", fields[i], width);
  }
  text.resize(text.find_last_not_of(' ') + 1);
  // A card of large fields has an even number of lines.
  const std::size_t lines = std::max<std::size_t>(1, (fields.size() + per_line - 1) / per_line);
  if (is_large && lines % 2 == 1) text += "\n*";
  return text + '\n';
}

// ---- changed texts ------------------------------------------------------------------------------

std::string ApplyEdits(std::string_view text, std::vector<NasEdit> edits) {
  std::stable_sort(edits.begin(), edits.end(),
                   [](const NasEdit& a, const NasEdit& b) { return a.begin < b.begin; });
  std::string out;
  std::size_t added = 0;
  for (const NasEdit& edit : edits) added += edit.text.size();
  out.reserve(text.size() + added);
  std::size_t done = 0;
  for (const NasEdit& edit : edits) {
    if (edit.begin < done || edit.end > text.size()) continue;
    out += text.substr(done, edit.begin - done);
    out += edit.text;
    done = edit.end;
  }
  out += text.substr(done);
  return out;
}

void ReplaceCard(const NasText& text, const NasCard& card, std::string with,
                 std::vector<NasEdit>& edits) {
  std::string comments;
  if (!with.empty()) {
    for (const NasLine& line : card.lines) {
      const std::string_view tail =
          std::string_view(text.Text()).substr(line.stop, line.end - line.stop);
      if (!tail.starts_with('$')) continue;
      comments += tail;
      if (!tail.ends_with('\n')) comments += '\n';
    }
  }
  for (std::size_t i = 0; i < card.lines.size(); ++i) {
    edits.push_back({card.lines[i].begin, card.lines[i].end, i == 0 ? comments + with : ""});
  }
}

namespace {

/// Puts a text into its columns; false when it does not fit.
bool IntoColumns(std::string& content, std::size_t column, std::size_t width,
                 const std::string& field) {
  if (field.size() > width) return false;
  if (content.size() < column + field.size()) content.resize(column + field.size(), ' ');
  const std::size_t room = std::min(width, content.size() - column);
  content.replace(column, room, fmt::format("{:<{}}", field, room));
  return true;
}

/// The line with its changed fields; false when they do not fit.
bool PatchLine(const NasText& text, const NasCard& card, std::size_t index, NasEdit& edit) {
  const NasLine& line = card.lines[index];
  const std::size_t next =
      index + 1 < card.lines.size() ? card.lines[index + 1].first : card.fields.size();
  std::string content = text.Text().substr(line.begin, line.stop - line.begin);
  edit = {line.begin, line.stop, {}};
  const auto first = card.Changes().lower_bound(line.first);
  const auto last = card.Changes().lower_bound(next);
  if (line.form == NasLine::Form::kFree) {
    std::vector<NasEdit> edits;
    std::size_t given = line.given;
    std::size_t longest = kSmall;
    for (std::size_t f = line.first; f < next; ++f)
      longest = std::max(longest, std::min<std::size_t>(card.fields[f].length, kLarge));
    for (auto at = first; at != last; ++at) {
      const auto& [field, to] = *at;
      if (to.size() > longest) return false;
      const std::size_t in_line = field - line.first;
      if (in_line < given) {
        const std::size_t begin = card.fields[field].at - line.begin;
        edits.push_back({begin, begin + card.fields[field].length, to});
      } else {
        content.resize(content.find_last_not_of(" \t\r") + 1);
        content += std::string(in_line - given + 1, ',') + to;
        given = in_line + 1;
      }
    }
    edit.text = ApplyEdits(content, std::move(edits));
    return true;
  }
  if (line.form == NasLine::Form::kTabs) return false;
  const std::size_t width = line.is_large ? kLarge : kSmall;
  const bool has_comment = line.stop < line.end && text.Text()[line.stop] == '$';
  const bool ends_in_text = !content.ends_with(' ') && !has_comment;
  const std::size_t was = content.size();
  for (auto at = first; at != last; ++at) {
    const auto& [field, to] = *at;
    const std::size_t column = kSmall + (field - line.first) * width;
    if (!IntoColumns(content, column, width, to)) return false;
  }
  if (content.size() > was || ends_in_text) content.resize(content.find_last_not_of(' ') + 1);
  edit.text = std::move(content);
  return true;
}

}  // namespace

void PatchCard(const NasText& text, const NasCard& card, std::vector<NasEdit>& edits) {
  if (card.is_gone) return ReplaceCard(text, card, {}, edits);
  if (card.Changes().empty()) return;
  std::vector<NasEdit> own;
  bool fits = std::all_of(card.Changes().begin(), card.Changes().end(),
                          [&](const auto& field) { return field.first < card.fields.size(); });
  for (std::size_t i = 0; fits && i < card.lines.size(); ++i) {
    own.emplace_back();
    fits = PatchLine(text, card, i, own.back());
  }
  if (fits) {
    edits.insert(edits.end(), own.begin(), own.end());
    return;
  }
  std::size_t count = card.fields.size();
  for (const auto& [field, to] : card.Changes()) count = std::max(count, field + 1);
  std::vector<std::string> fields;
  for (std::size_t f = 0; f < count; ++f) fields.emplace_back(text.FieldText(card, f));
  ReplaceCard(text, card, NasCardLines(card.name, std::move(fields)), edits);
}

}  // namespace qx::exchange
