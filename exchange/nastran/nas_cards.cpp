#include "exchange/nastran/nas_cards.h"

#include <algorithm>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

NasField Trimmed(std::string_view text, std::size_t begin, std::size_t end) {
  while (begin < end && IsBlank(text[begin])) ++begin;
  while (end > begin && IsBlank(text[end - 1])) --end;
  return {begin, end - begin};
}

/// The first word of a line in upper case, and whether the second follows it.
bool BeginsWith(std::string_view line, std::string_view first, std::string_view second = {}) {
  std::size_t at = 0;
  for (const std::string_view word : {first, second}) {
    if (word.empty()) return true;
    while (at < line.size() && IsBlank(line[at])) ++at;
    if (AsciiUpper(std::string(line.substr(at, word.size()))) != word) return false;
    at += word.size();
    if (at < line.size() && !IsBlank(line[at]) && line[at] != ',' && line[at] != '\'') return false;
  }
  return true;
}

/// The name behind INCLUDE, which may go on over lines until its quote ends.
std::string NameIn(const std::string& text, std::size_t at, std::size_t& end) {
  std::string_view line = std::string_view(text).substr(at, end - at);
  const std::size_t quote = line.find('\'');
  if (quote == std::string_view::npos) {
    const std::size_t word = line.find_first_of(" \t,", line.find_first_not_of(" \t"));
    if (word == std::string_view::npos) return {};
    std::size_t stop = line.find('$');
    const NasField name = Trimmed(line, word, std::min(stop, line.size()));
    return std::string(line.substr(name.at, name.length));
  }
  const std::size_t close = text.find('\'', at + quote + 1);
  if (close == std::string::npos) return {};
  end = std::min(text.find('\n', close), text.size() - 1) + 1;
  std::string name;
  for (const char c : text.substr(at + quote + 1, close - at - quote - 1)) {
    if (c != '\n' && c != '\r') name += c;
  }
  return name;
}

/// The next line that begins with INCLUDE.
std::optional<IncludeLine> NextInclude(const std::string& text, std::size_t from) {
  for (std::size_t at = from; at < text.size();) {
    std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    if (BeginsWith(std::string_view(text).substr(at, end - at), "INCLUDE")) {
      std::string name = NameIn(text, at, end);
      return IncludeLine{at, end, std::move(name), {}};
    }
    at = end;
  }
  return std::nullopt;
}

}  // namespace

std::optional<NasText> NasText::Read(const std::string& path, const ReadOptions& options,
                                     std::vector<Failure>& faults, LossReport& report) {
  auto read = ReadDeckText(path, options, NextInclude, faults, report);
  if (!read) return std::nullopt;
  return NasText(std::move(*read));
}

NasText::NasText(std::string text, std::string name)
    : NasText(DeckText(std::move(text), std::move(name))) {}

NasText::NasText(DeckText text) : deck_(std::move(text)) {
  FindBulk();
  ListCards();
}

// ---- cards --------------------------------------------------------------------------------------

/// Bulk data begins after BEGIN BULK, or with the file where there is none, and ends with ENDDATA.
void NasText::FindBulk() {
  bulk_end_ = Text().size();
  bool is_bulk = false;
  for (std::size_t at = 0; at < Text().size();) {
    const std::size_t end = std::min(Text().find('\n', at), Text().size() - 1) + 1;
    const std::string_view line = std::string_view(Text()).substr(at, end - at);
    if (!is_bulk && BeginsWith(line, "BEGIN", "BULK")) {
      bulk_begin_ = end;
      is_bulk = true;
    } else if (BeginsWith(line.substr(0, line.find('$')), "ENDDATA")) {
      bulk_end_ = at;
      is_ended_ = true;
      break;
    }
    at = end;
  }
}

void NasText::ListCards() {
  for (std::size_t at = bulk_begin_; at < bulk_end_;) {
    const std::size_t end = std::min(Text().find('\n', at), Text().size() - 1) + 1;
    AddLine(at, end);
    at = end;
  }
  for (std::size_t i = 0; i < cards_.size(); ++i) TakeNinth(i);
  labels_ = {};
  ninth_ = {};
}

namespace {

/// The fields of a line, the name or the label it goes on from first.
std::vector<NasField> FieldsOf(std::string_view text, NasLine& line) {
  std::vector<NasField> fields;
  const auto is_marked = [&] {
    return fields[0].length > 0 &&
           (text[fields[0].at + fields[0].length - 1] == '*' || text[fields[0].at] == '*');
  };
  if (line.form == NasLine::Form::kFree) {
    for (std::size_t at = line.begin; at <= line.stop;) {
      const std::size_t comma = std::min(text.find(',', at), line.stop);
      fields.push_back(Trimmed(text, at, comma));
      at = comma + 1;
    }
    line.is_large = is_marked();
    line.given = fields.size() - 1;
    while (fields.size() > 1 && fields.back().length == 0) fields.pop_back();
    return fields;
  }
  // A tab goes on to the next column of eight, as the card of a small field is wide.
  std::vector<std::size_t> column_at;  // place of each eighth column
  std::size_t column = 0;
  for (std::size_t at = line.begin; at < line.stop; ++at) {
    while (column_at.size() * 8 <= column) column_at.push_back(at);
    if (text[at] == '\t') line.form = NasLine::Form::kTabs;
    column = text[at] == '\t' ? (column / 8 + 1) * 8 : column + 1;
  }
  const auto place = [&](std::size_t eighth) {
    return eighth < column_at.size() ? column_at[eighth] : line.stop;
  };
  fields.push_back(Trimmed(text, place(0), place(1)));
  line.is_large = is_marked();
  const std::size_t width = line.is_large ? 2 : 1;
  for (std::size_t f = 0; f < (line.is_large ? 4u : 8u); ++f) {
    fields.push_back(Trimmed(text, place(1 + f * width), place(1 + (f + 1) * width)));
  }
  fields.push_back(Trimmed(text, place(9), place(10)));
  return fields;
}

/// A label without the sign before it.
std::string_view LabelName(std::string_view label) {
  return label.substr(!label.empty() && (label[0] == '+' || label[0] == '*') ? 1 : 0);
}

}  // namespace

void NasText::AddLine(std::size_t begin, std::size_t end) {
  const std::string_view text(Text());
  NasLine line;
  line.begin = begin;
  line.end = end;
  line.stop = begin + std::min(text.substr(begin, end - begin).find_first_of("$\r\n"), end - begin);
  if (Trimmed(text, begin, line.stop).length == 0) return;
  const bool is_free = text.substr(begin, line.stop - begin).find(',') != std::string_view::npos;
  line.form = is_free ? NasLine::Form::kFree : NasLine::Form::kColumns;
  std::vector<NasField> fields = FieldsOf(text, line);
  const auto read = [&](const NasField& field) { return text.substr(field.at, field.length); };
  std::string first(read(fields[0]));
  const bool goes_on = first.empty() || first[0] == '+' || first[0] == '*';
  std::size_t to = cards_.size();
  if (goes_on) {
    if (cards_.empty()) return;
    to = cards_.size() - 1;
    const std::string_view wanted = LabelName(first);
    if (!wanted.empty() && LabelName(labels_[to]) != wanted) {
      for (std::size_t i = labels_.size(); i-- > 0;) {
        if (!labels_[i].empty() && LabelName(labels_[i]) == wanted) {
          to = i;
          break;
        }
      }
    }
    if (!wanted.empty() && LabelName(labels_[to]) == wanted) ninth_[to].reset();
    TakeNinth(to);
  } else {
    if (first.ends_with('*')) first.pop_back();
    NasCard card;
    card.name = AsciiUpper(first);
    card.begin = begin;
    cards_.push_back(std::move(card));
    labels_.emplace_back();
    ninth_.emplace_back();
  }
  const std::size_t per_line = line.is_large ? 4 : 8;
  labels_[to].clear();
  ninth_[to].reset();
  if (fields.size() == per_line + 2) {
    const NasField last = fields.back();
    labels_[to] = std::string(read(last));
    if (is_free && DeckReal(read(last)) && read(last)[0] != '+') ninth_[to] = last;
    fields.pop_back();
  }
  fields.erase(fields.begin());
  AddFields(cards_[to], line, fields, per_line);
}

/// Fields beyond a line's go on as those of the next line would.
void NasText::AddFields(NasCard& card, NasLine line, const std::vector<NasField>& fields,
                        std::size_t per_line) {
  line.first = card.fields.size();
  card.lines.push_back(line);
  card.fields.insert(card.fields.end(), fields.begin(), fields.end());
  const std::size_t lines = std::max<std::size_t>(1, (fields.size() + per_line - 1) / per_line);
  card.fields.resize(line.first + lines * per_line, NasField{line.stop, 0});
}

void NasText::TakeNinth(std::size_t card) {
  if (!ninth_[card]) return;
  const NasField field = *ninth_[card];
  ninth_[card].reset();
  NasCard& of = cards_[card];
  const NasLine& line = of.lines.back();
  of.fields.push_back(field);
  of.fields.resize(of.fields.size() + (line.is_large ? 3 : 7), NasField{line.stop, 0});
}

// ---- changes ------------------------------------------------------------------------------------

std::string_view NasText::FieldText(const NasCard& card, std::size_t field) const {
  for (const auto& [index, text] : card.changed) {
    if (index == field) return text;
  }
  if (field >= card.fields.size()) return {};
  return std::string_view(Text()).substr(card.fields[field].at, card.fields[field].length);
}

void NasText::Change(std::size_t card, std::size_t field, std::string text) {
  if (FieldText(cards_[card], field) == text) return;
  for (auto& [index, now] : cards_[card].changed) {
    if (index == field) {
      now = std::move(text);
      return;
    }
  }
  cards_[card].changed.emplace_back(field, std::move(text));
}

std::string NasText::Place(const NasCard& card) const {
  std::string file;
  return Place(card.begin, file);
}

}  // namespace qx::exchange
