#include "exchange/nastran/nas_cards.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <set>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

constexpr std::size_t kMostIncludes = 10000;

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

}  // namespace

std::optional<std::int64_t> NasInteger(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<double> NasReal(std::string_view text) {
  std::string number;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool is_sign = c == '+' || c == '-';
    if (c == 'd' || c == 'D' || c == 'e' || c == 'E') {
      number += 'e';
    } else if (is_sign && i > 0 && number.back() != 'e') {
      number += 'e';
      if (c == '-') number += c;
    } else if (c != '+') {
      number += c;
    }
  }
  double value = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
  if (number.empty() || error != std::errc() || end != number.data() + number.size()) {
    return std::nullopt;
  }
  return value;
}

// ---- files --------------------------------------------------------------------------------------

/// Puts a deck and what it includes into one text.
class NasText::Reader {
 public:
  Reader(const std::string& path, const ReadOptions& options, std::vector<Failure>& faults,
         LossReport& report, NasText& to)
      : options_(options), faults_(faults), report_(report), to_(to) {
    std::error_code error;
    folder_ = std::filesystem::weakly_canonical(PathFromUtf8(path).parent_path().empty()
                                                    ? std::filesystem::path(".")
                                                    : PathFromUtf8(path).parent_path(),
                                                error);
    for (const std::string& folder : options.include_dirs) {
      allowed_.push_back(std::filesystem::weakly_canonical(PathFromUtf8(folder), error));
    }
    allowed_.push_back(folder_);
  }

  bool Add(const std::string& path, const std::filesystem::path& folder) {
    const Result<std::string> text = ReadWholeFile(path);
    if (!text) {
      faults_.push_back(text.Error());
      return false;
    }
    open_.push_back(path);
    to_.sources_.push_back({to_.text_.size(), path, 1});
    std::size_t line = 1;
    for (std::size_t at = 0; at < text->size();) {
      std::size_t end = std::min(text->find('\n', at), text->size() - 1) + 1;
      const std::string_view content = std::string_view(*text).substr(at, end - at);
      if (BeginsWith(content, "INCLUDE")) {
        std::string name = NameIn(*text, at, end);
        if (!Include(name, path, line, folder)) return false;
        line += static_cast<std::size_t>(
            std::count(text->begin() + static_cast<std::ptrdiff_t>(at),
                       text->begin() + static_cast<std::ptrdiff_t>(end), '\n'));
        to_.sources_.push_back({to_.text_.size(), path, line});
      } else {
        to_.text_ += content;
        ++line;
      }
      at = end;
    }
    if (!to_.text_.empty() && to_.text_.back() != '\n') to_.text_ += '\n';
    open_.pop_back();
    return true;
  }

 private:
  /// The name behind INCLUDE, which may go on over lines until its quote ends.
  static std::string NameIn(const std::string& text, std::size_t at, std::size_t& end) {
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

  static bool IsBelow(const std::filesystem::path& path, const std::filesystem::path& folder) {
    const auto [at, rest] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
    return at == folder.end() || (std::next(at) == folder.end() && at->empty());
  }

  /// The file of that name in a folder, whatever the case of its letters.
  static std::filesystem::path Find(const std::filesystem::path& folder, const std::string& name,
                                    bool& by_case) {
    std::error_code error;
    std::filesystem::path at = folder;
    for (const std::filesystem::path& part : PathFromUtf8(name)) {
      if (part == ".." || part == "." || std::filesystem::exists(at / part, error)) {
        at /= part;
        continue;
      }
      std::filesystem::path found;
      for (const auto& entry : std::filesystem::directory_iterator(at, error)) {
        if (AsciiUpper(Utf8FromPath(entry.path().filename())) == AsciiUpper(Utf8FromPath(part))) {
          found = entry.path().filename();
        }
      }
      if (found.empty()) return {};
      by_case = true;
      at /= found;
    }
    return at;
  }

  bool Include(std::string name, const std::string& from, std::size_t line,
               const std::filesystem::path& folder) {
    const std::string place = fmt::format("line {}", line);
    const auto fail = [&](std::string what, std::string remedy) {
      faults_.push_back({from, place, std::move(what), std::move(remedy)});
      return false;
    };
    if (name.empty()) return fail("INCLUDE names no file", "name it in quotes");
    if (name.find('\\') != std::string::npos) {
      std::replace(name.begin(), name.end(), '\\', '/');
      report_.Assumed("separators of Windows in names of included files were turned round");
    }
    bool by_case = false;
    std::filesystem::path found;
    std::vector<std::filesystem::path> folders{folder, folder_};
    for (const std::string& more : options_.include_dirs) folders.push_back(PathFromUtf8(more));
    for (const std::filesystem::path& in : folders) {
      found = PathFromUtf8(name).is_absolute() ? PathFromUtf8(name) : Find(in, name, by_case);
      std::error_code error;
      if (!found.empty() && std::filesystem::is_regular_file(found, error)) break;
      found.clear();
    }
    if (found.empty()) {
      return fail(fmt::format("included file '{}' is not there", name),
                  "put it there or name its folder with --include-dir");
    }
    if (by_case) report_.Assumed("names of included files differ in case from those of the files");
    std::error_code error;
    const std::filesystem::path real = std::filesystem::weakly_canonical(found, error);
    const bool is_allowed =
        std::any_of(allowed_.begin(), allowed_.end(),
                    [&](const std::filesystem::path& allowed) { return IsBelow(real, allowed); });
    if (!is_allowed) {
      return fail(fmt::format("included file '{}' is not below the deck's folder", name),
                  "name its folder with --include-dir if you trust the deck");
    }
    const std::string path = Utf8FromPath(found);
    const std::string canonical = Utf8FromPath(real);
    for (const std::string& open : open_) {
      if (IsSamePlace(open, path))
        return fail(fmt::format("'{}' includes itself", name), "remove the INCLUDE");
    }
    if (++included_ > kMostIncludes)
      return fail("there are too many included files", "include fewer");
    report_.Changed("included files were put into one deck");
    return Add(path, found.parent_path());
  }

  const ReadOptions& options_;
  std::vector<Failure>& faults_;
  LossReport& report_;
  NasText& to_;
  std::filesystem::path folder_;
  std::vector<std::filesystem::path> allowed_;
  std::vector<std::string> open_;
  std::size_t included_ = 0;
};

std::optional<NasText> NasText::Read(const std::string& path, const ReadOptions& options,
                                     std::vector<Failure>& faults, LossReport& report) {
  NasText text;
  Reader reader(path, options, faults, report, text);
  if (!reader.Add(path, PathFromUtf8(path).parent_path())) return std::nullopt;
  text.FindBulk();
  text.ListCards();
  return text;
}

NasText::NasText(std::string text, std::string name) : text_(std::move(text)) {
  sources_.push_back({0, std::move(name), 1});
  FindBulk();
  ListCards();
}

std::string NasText::Place(std::size_t at, std::string& file) const {
  auto source =
      std::upper_bound(sources_.begin(), sources_.end(), at,
                       [](std::size_t place, const Source& s) { return place < s.begin; });
  if (source != sources_.begin()) --source;
  file = source->file;
  const auto begin = text_.begin() + static_cast<std::ptrdiff_t>(source->begin);
  const auto lines = std::count(begin, text_.begin() + static_cast<std::ptrdiff_t>(at), '\n');
  return fmt::format("line {}", source->line + static_cast<std::size_t>(lines));
}

// ---- cards --------------------------------------------------------------------------------------

/// Bulk data begins after BEGIN BULK, or with the file where there is none, and ends with ENDDATA.
void NasText::FindBulk() {
  bulk_end_ = text_.size();
  bool is_bulk = false;
  for (std::size_t at = 0; at < text_.size();) {
    const std::size_t end = std::min(text_.find('\n', at), text_.size() - 1) + 1;
    const std::string_view line = std::string_view(text_).substr(at, end - at);
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
    const std::size_t end = std::min(text_.find('\n', at), text_.size() - 1) + 1;
    AddLine(at, end);
    at = end;
  }
  labels_ = {};
}

void NasText::AddLine(std::size_t begin, std::size_t end) {
  const std::string_view text(text_);
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
  return std::string_view(text_).substr(card.fields[field].at, card.fields[field].length);
}

}  // namespace qx::exchange
