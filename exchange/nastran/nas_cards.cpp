#include "exchange/nastran/nas_cards.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <unordered_map>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

NasField Trimmed(std::string_view text, std::size_t begin, std::size_t end) {
  while (begin < end && IsBlank(text[begin])) ++begin;
  while (end > begin && IsBlank(text[end - 1])) --end;
  return {static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(end - begin)};
}

/// The first word of a line in upper case, and whether the second follows it.
bool BeginsWith(std::string_view line, std::string_view first, std::string_view second = {}) {
  std::size_t at = 0;
  for (const std::string_view word : {first, second}) {
    if (word.empty()) return true;
    while (at < line.size() && IsBlank(line[at])) ++at;
    if (AsciiUpper(std::string(line.substr(at, word.size()))) != word) return false;
    at += word.size();
    if (at < line.size() && !IsBlank(line[at]) &&
        std::string_view(",'=").find(line[at]) == std::string_view::npos)
      return false;
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
  return NasText(std::move(*read), ShareOf(options.progress, 0, 0.3));
}

NasText::NasText(std::string text, std::string name)
    : NasText(DeckText(std::move(text), std::move(name)), {}) {}

NasText::NasText(DeckText text, const Progress& progress) : deck_(std::move(text)) {
  FindBulk();
  ListCards(progress);
}

// ---- cards --------------------------------------------------------------------------------------

/// Bulk data begins after BEGIN BULK, or with the file where there is none, and ends with ENDDATA
/// or where that of a superelement begins.
void NasText::FindBulk() {
  bulk_end_ = Text().size();
  bool is_bulk = false;
  for (std::size_t at = 0; at < Text().size();) {
    const std::size_t end = std::min(Text().find('\n', at), Text().size() - 1) + 1;
    const std::string_view line = std::string_view(Text()).substr(at, end - at);
    const bool is_part =
        BeginsWith(line, "BEGIN", "SUPER") || BeginsWith(line, "BEGIN", "AUXMODEL");
    if (is_part || (is_bulk && BeginsWith(line, "BEGIN"))) {
      if (parts_++ == 0) bulk_end_ = at;
      is_bulk = true;
    } else if (!is_bulk && BeginsWith(line, "BEGIN", "BULK")) {
      bulk_begin_ = end;
      is_bulk = true;
    } else if (BeginsWith(line.substr(0, line.find('$')), "ENDDATA")) {
      bulk_end_ = std::min(bulk_end_, at);
      is_ended_ = true;
      break;
    }
    at = end;
  }
}

namespace {

/// The fields of a line, the name or the label it goes on from first.
void ListFields(std::string_view text, NasLine& line, std::vector<NasField>& fields) {
  fields.clear();
  const auto is_marked = [&] {
    return fields[0].length > 0 &&
           (text[fields[0].at + fields[0].length - 1] == '*' || text[fields[0].at] == '*');
  };
  if (line.form == NasLine::Form::kFree) {
    for (std::size_t at = line.begin; at <= line.stop;) {
      const std::size_t comma = std::min<std::size_t>(text.find(',', at), line.stop);
      fields.push_back(Trimmed(text, at, comma));
      at = comma + 1;
    }
    line.is_large = is_marked();
    line.given = static_cast<std::uint32_t>(fields.size() - 1);
    while (fields.size() > 1 && fields.back().length == 0) fields.pop_back();
    return;
  }
  // A tab goes on to the next column of eight, as the card of a small field is wide.
  std::array<std::size_t, 11> column_at{};  // place of each eighth column
  std::size_t known = 0;
  std::size_t column = 0;
  for (std::size_t at = line.begin; at < line.stop && known < column_at.size(); ++at) {
    while (known * 8 <= column && known < column_at.size()) column_at[known++] = at;
    if (text[at] == '\t') line.form = NasLine::Form::kTabs;
    column = text[at] == '\t' ? (column / 8 + 1) * 8 : column + 1;
  }
  const auto place = [&](std::size_t eighth) {
    return eighth < known ? column_at[eighth] : line.stop;
  };
  fields.push_back(Trimmed(text, place(0), place(1)));
  line.is_large = is_marked();
  const std::size_t width = line.is_large ? 2 : 1;
  for (std::size_t f = 0; f < (line.is_large ? 4u : 8u); ++f) {
    fields.push_back(Trimmed(text, place(1 + f * width), place(1 + (f + 1) * width)));
  }
  fields.push_back(Trimmed(text, place(9), place(10)));
}

/// A label without the sign before it.
std::string_view LabelName(std::string_view label) {
  return label.substr(!label.empty() && (label[0] == '+' || label[0] == '*') ? 1 : 0);
}

/// Puts lines together to cards. Lines of a card mostly follow each other, but a label may continue
/// an earlier one.
class CardLister {
 public:
  CardLister(std::string_view text, std::vector<NasCard>& cards, std::vector<NasField>& fields,
             std::vector<NasLine>& lines, std::set<std::string, std::less<>>& names)
      : text_(text), cards_(cards), fields_(fields), lines_(lines), names_(names) {}

  void AddLine(std::size_t begin, std::size_t end);
  /// Gives the cards what is theirs, once all lines are there.
  void Finish();

 private:
  /// What is known of a card until its last line has come.
  struct Open {
    std::uint32_t count = 0;  ///< of its fields
    std::uint32_t last = 0;   ///< its last line
    NasField label;           ///< what that line is continued by
    /// A number where a label may stand in that line, which is data unless the card is continued
    /// by it.
    NasField ninth;
  };
  /// Fields of one card that follow each other.
  struct Stretch {
    std::uint32_t card;
    std::uint32_t first;
    std::uint32_t count;
  };

  std::string_view Read(const NasField& field) const {
    return text_.substr(field.at, field.length);
  }
  std::string_view LabelOf(std::uint32_t card) const { return LabelName(Read(open_[card].label)); }
  std::uint32_t ContinuedBy(std::string_view wanted);
  void NewCard(std::string_view name, std::size_t begin);
  void AddFields(std::uint32_t card, std::span<const NasField> fields, std::size_t room,
                 std::size_t stop);
  void TakeNinth(std::uint32_t card);
  void SortByCard();

  std::string_view text_;
  std::vector<NasCard>& cards_;
  std::vector<NasField>& fields_;
  std::vector<NasLine>& lines_;
  std::set<std::string, std::less<>>& names_;
  std::vector<Open> open_;
  std::vector<Stretch> stretches_;
  std::vector<std::uint32_t> card_of_line_;
  bool is_sorted_ = true;
  /// Cards whose last line had a label, the last of several at the end; some go on since.
  std::unordered_map<std::string_view, std::vector<std::uint32_t>> by_label_;
  std::vector<NasField> in_line_;
};

/// The card that a line with a label goes on with: the last one that ends in it, or just the last.
std::uint32_t CardLister::ContinuedBy(std::string_view wanted) {
  const auto last = static_cast<std::uint32_t>(cards_.size() - 1);
  if (wanted.empty() || LabelOf(last) == wanted) return last;
  const auto found = by_label_.find(wanted);
  if (found == by_label_.end()) return last;
  std::vector<std::uint32_t>& cards = found->second;
  while (!cards.empty() && LabelOf(cards.back()) != wanted) cards.pop_back();
  return cards.empty() ? last : cards.back();
}

void CardLister::NewCard(std::string_view name, std::size_t begin) {
  if (name.ends_with('*')) name.remove_suffix(1);
  NasCard card;
  card.begin = begin;
  const bool is_as_before = !cards_.empty() && cards_.back().name == name;
  card.name = is_as_before ? cards_.back().name : *names_.insert(AsciiUpper(name)).first;
  cards_.push_back(std::move(card));
  open_.emplace_back();
}

void CardLister::AddLine(std::size_t begin, std::size_t end) {
  NasLine line;
  line.begin = static_cast<std::uint32_t>(begin);
  line.end = static_cast<std::uint32_t>(end);
  const std::string_view whole = text_.substr(begin, end - begin);
  line.stop =
      static_cast<std::uint32_t>(begin + std::min(whole.find_first_of("$\r\n"), whole.size()));
  const std::string_view given = whole.substr(0, line.stop - begin);
  if (Trimmed(text_, begin, line.stop).length == 0) return;
  const bool is_free = given.find(',') != std::string_view::npos;
  line.form = is_free ? NasLine::Form::kFree : NasLine::Form::kColumns;
  ListFields(text_, line, in_line_);
  const std::string_view first = Read(in_line_[0]);
  const bool goes_on = first.empty() || first[0] == '+' || first[0] == '*';
  if (goes_on && cards_.empty()) return;
  if (!goes_on) NewCard(first, begin);
  auto to = static_cast<std::uint32_t>(cards_.size() - 1);
  if (goes_on) {
    const std::string_view wanted = LabelName(first);
    to = ContinuedBy(wanted);
    if (!wanted.empty() && LabelOf(to) == wanted) open_[to].ninth = {};
    TakeNinth(to);
  }
  const std::size_t per_line = line.is_large ? 4 : 8;
  Open& open = open_[to];
  open.label = open.ninth = {};
  std::span<const NasField> fields = std::span(in_line_).subspan(1);
  if (fields.size() == per_line + 1) {
    const NasField last = fields.back();
    open.label = last;
    const std::string_view name = LabelName(Read(last));
    if (!name.empty()) by_label_[name].push_back(to);
    if (is_free && DeckReal(Read(last)) && Read(last)[0] != '+') open.ninth = last;
    fields = fields.first(per_line);
  }
  line.first = open.count;
  open.last = static_cast<std::uint32_t>(lines_.size());
  lines_.push_back(line);
  is_sorted_ = is_sorted_ && (card_of_line_.empty() || card_of_line_.back() <= to);
  card_of_line_.push_back(to);
  // Fields beyond a line's go on as those of the next line would.
  const std::size_t in_card = std::max<std::size_t>(1, (fields.size() + per_line - 1) / per_line);
  AddFields(to, fields, in_card * per_line, line.stop);
}

void CardLister::AddFields(std::uint32_t card, std::span<const NasField> fields, std::size_t room,
                           std::size_t stop) {
  const bool goes_on = !stretches_.empty() && stretches_.back().card == card;
  if (!goes_on) stretches_.push_back({card, static_cast<std::uint32_t>(fields_.size()), 0});
  fields_.insert(fields_.end(), fields.begin(), fields.end());
  fields_.resize(fields_.size() + room - fields.size(),
                 NasField{static_cast<std::uint32_t>(stop), 0});
  stretches_.back().count += static_cast<std::uint32_t>(room);
  open_[card].count += static_cast<std::uint32_t>(room);
}

void CardLister::TakeNinth(std::uint32_t card) {
  const NasField field = open_[card].ninth;
  if (field.length == 0) return;
  open_[card].ninth = {};
  const NasLine& line = lines_[open_[card].last];
  if (!stretches_.empty() && stretches_.back().card != card) is_sorted_ = false;
  AddFields(card, {&field, 1}, line.is_large ? 4 : 8, line.stop);
}

void CardLister::Finish() {
  for (std::uint32_t card = 0; card < cards_.size(); ++card) TakeNinth(card);
  by_label_ = {};
  if (!is_sorted_) SortByCard();
  std::size_t line = 0;
  std::size_t field = 0;
  for (std::size_t i = 0; i < cards_.size(); ++i) {
    const std::size_t from = line;
    while (line < lines_.size() && card_of_line_[line] == i) ++line;
    cards_[i].lines = std::span(lines_).subspan(from, line - from);
    cards_[i].fields = std::span(fields_).subspan(field, open_[i].count);
    field += open_[i].count;
  }
}

void CardLister::SortByCard() {
  const auto by_card = [](const Stretch& a, const Stretch& b) { return a.card < b.card; };
  std::stable_sort(stretches_.begin(), stretches_.end(), by_card);
  std::vector<NasField> fields;
  fields.reserve(fields_.size());
  for (const Stretch& stretch : stretches_) {
    const auto from = fields_.begin() + stretch.first;
    fields.insert(fields.end(), from, from + stretch.count);
  }
  fields_ = std::move(fields);
  std::vector<std::uint32_t> order(lines_.size());
  std::iota(order.begin(), order.end(), 0u);
  std::stable_sort(order.begin(), order.end(), [this](std::uint32_t a, std::uint32_t b) {
    return card_of_line_[a] < card_of_line_[b];
  });
  std::vector<NasLine> lines;
  lines.reserve(lines_.size());
  for (const std::uint32_t line : order) lines.push_back(lines_[line]);
  lines_ = std::move(lines);
  std::sort(card_of_line_.begin(), card_of_line_.end());
}

}  // namespace

void NasText::ListCards(const Progress& progress) {
  const std::string_view bulk =
      std::string_view(Text()).substr(bulk_begin_, bulk_end_ - bulk_begin_);
  const auto lines = static_cast<std::size_t>(std::count(bulk.begin(), bulk.end(), '\n'));
  lines_.reserve(lines);
  fields_.reserve(lines * 8);
  CardLister lister(Text(), cards_, fields_, lines_, names_);
  StepCounter steps(progress, lines);
  for (std::size_t at = bulk_begin_; at < bulk_end_;) {
    steps.Step();
    const std::size_t end = std::min(Text().find('\n', at), Text().size() - 1) + 1;
    lister.AddLine(at, end);
    at = end;
  }
  lister.Finish();
}

// ---- changes ------------------------------------------------------------------------------------

std::string_view NasText::FieldText(const NasCard& card, std::size_t field) const {
  if (card.changed) {
    const auto now = card.changed->find(field);
    if (now != card.changed->end()) return now->second;
  }
  if (field >= card.fields.size()) return {};
  return std::string_view(Text()).substr(card.fields[field].at, card.fields[field].length);
}

void NasText::Change(std::size_t card, std::size_t field, std::string text) {
  NasCard& of = cards_[card];
  if (FieldText(of, field) == text) return;
  if (!of.changed) of.changed = std::make_unique<NasChanges>();
  (*of.changed)[field] = std::move(text);
}

std::string NasText::Place(const NasCard& card) const {
  std::string file;
  return Place(card.begin, file);
}

}  // namespace qx::exchange
