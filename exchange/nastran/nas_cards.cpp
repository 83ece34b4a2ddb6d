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
  labels_ = {};
}

void NasText::AddLine(std::size_t begin, std::size_t end) {
  const std::string_view text(Text());
  const std::size_t comment = std::min(text.substr(begin, end - begin).find('$'), end - begin);
  comments_ += comment < end - begin;
  const std::size_t stop = begin + comment;
  const NasField all = Trimmed(text, begin, stop);
  if (all.length == 0) return;
  std::vector<NasField> fields;
  const bool is_free = text.substr(begin, stop - begin).find(',') != std::string_view::npos;
  bool is_large = false;
  if (is_free) {
    for (std::size_t at = begin; at <= stop;) {
      const std::size_t comma = std::min(text.find(',', at), stop);
      fields.push_back(Trimmed(text, at, comma));
      at = comma + 1;
    }
    is_large = fields[0].length > 0 && text[fields[0].at + fields[0].length - 1] == '*';
    is_large = is_large || (fields[0].length > 0 && text[fields[0].at] == '*');
  } else {
    // A tab goes on to the next column of eight, as the card of a small field is wide.
    std::vector<std::size_t> column_at;  // place of each eighth column
    std::size_t column = 0;
    for (std::size_t at = begin; at < stop; ++at) {
      while (column_at.size() * 8 <= column) column_at.push_back(at);
      column = text[at] == '\t' ? (column / 8 + 1) * 8 : column + 1;
    }
    const auto place = [&](std::size_t eighth) {
      return eighth < column_at.size() ? column_at[eighth] : stop;
    };
    fields.push_back(Trimmed(text, place(0), place(1)));
    const bool marked = fields[0].length > 0 && (text[fields[0].at + fields[0].length - 1] == '*' ||
                                                 text[fields[0].at] == '*');
    is_large = marked;
    const std::size_t width = is_large ? 2 : 1;
    for (std::size_t f = 0; f < (is_large ? 4u : 8u); ++f) {
      fields.push_back(Trimmed(text, place(1 + f * width), place(1 + (f + 1) * width)));
    }
    fields.push_back(Trimmed(text, place(9), place(10)));
  }
  const std::size_t per_line = is_large ? 4 : 8;
  std::string first(text.substr(fields[0].at, fields[0].length));
  const bool goes_on = first.empty() || first[0] == '+' || first[0] == '*';
  std::string label;
  if (fields.size() > per_line + 1) {
    label = std::string(text.substr(fields[per_line + 1].at, fields[per_line + 1].length));
  }
  std::size_t to = cards_.size();
  if (goes_on) {
    if (cards_.empty()) return;
    to = cards_.size() - 1;
    const auto name = [](std::string_view of) {
      return of.empty() ? std::string()
                        : std::string(of.substr(of[0] == '+' || of[0] == '*' ? 1 : 0));
    };
    const std::string wanted = name(first);
    if (!wanted.empty() && name(labels_[to]) != wanted) {
      for (std::size_t i = labels_.size(); i-- > 0;) {
        if (!labels_[i].empty() && name(labels_[i]) == wanted) {
          to = i;
          break;
        }
      }
    }
  } else {
    if (first.ends_with('*')) first.pop_back();
    NasCard card;
    card.name = AsciiUpper(first);
    card.begin = begin;
    cards_.push_back(std::move(card));
    labels_.emplace_back();
  }
  NasCard& card = cards_[to];
  card.lines.emplace_back(begin, end);
  for (std::size_t f = 1; f <= per_line; ++f) {
    card.fields.push_back(f < fields.size() ? fields[f] : NasField{stop, 0});
  }
  // Free fields beyond a line's, which are no label, go on with the card.
  labels_[to] = label;
}

std::string_view NasText::FieldText(const NasCard& card, std::size_t field) const {
  if (field >= card.fields.size()) return {};
  return std::string_view(Text()).substr(card.fields[field].at, card.fields[field].length);
}

}  // namespace qx::exchange
