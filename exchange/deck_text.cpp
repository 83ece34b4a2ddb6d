#include "exchange/deck_text.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

constexpr std::size_t kMostIncludes = 10000;
constexpr std::size_t kDeepestInclude = 64;
/// Places in a deck's text are kept in 32 bits.
constexpr std::size_t kLongestText = 2147483647;
constexpr std::string_view kMark = "written by qxdb, text ";

std::size_t LinesIn(std::string_view text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

namespace {

std::string MarkLine(std::string_view comment, std::uint64_t hash) {
  return fmt::format("{} {}{:016x}\n", comment, kMark, hash);
}

}  // namespace

struct DeckOut::Hash {
  Hash() { XXH3_64bits_reset(&state); }
  XXH3_state_t state;
};

DeckOut::DeckOut(std::ostream& out, std::string_view comment, bool is_ours)
    : out_(out), comment_(comment), is_ours_(is_ours), hash_(std::make_unique<Hash>()) {}
DeckOut::~DeckOut() = default;

void DeckOut::Put(std::string_view piece) {
  if (has_begun_) return Write(piece);
  head_ += piece;
  if (head_.find('\n') != std::string::npos) Begin();
}

void DeckOut::Begin() {
  has_begun_ = true;
  const std::string_view rest = WithoutDeckMark(comment_, head_);
  is_ours_ = is_ours_ || rest.size() < head_.size();
  mark_at_ = out_.tellp();
  if (is_ours_) out_ << MarkLine(comment_, 0);
  Write(rest);
  head_ = {};
}

void DeckOut::Write(std::string_view piece) {
  if (is_ours_) XXH3_64bits_update(&hash_->state, piece.data(), piece.size());
  out_.write(piece.data(), static_cast<std::streamsize>(piece.size()));
}

void DeckOut::Finish() {
  if (!has_begun_) Begin();
  if (!is_ours_) return;
  const auto end = out_.tellp();
  out_.seekp(mark_at_);
  out_ << MarkLine(comment_, XXH3_64bits_digest(&hash_->state));
  out_.seekp(end);
}

std::string_view WithoutDeckMark(std::string_view comment, std::string_view text) {
  const bool is_marked = text.starts_with(fmt::format("{} {}", comment, kMark));
  return is_marked ? text.substr(std::min(text.find('\n'), text.size() - 1) + 1) : text;
}

bool IsMarkedDeck(std::string_view comment, const std::string& path) {
  const Result<std::string> text = ReadWholeFile(path);
  if (!text) return false;
  const std::string_view rest = WithoutDeckMark(comment, *text);
  return std::string_view(*text).substr(0, text->size() - rest.size()) ==
         MarkLine(comment, XXH3_64bits(rest.data(), rest.size()));
}

std::optional<std::int64_t> DeckInteger(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<double> DeckReal(std::string_view text) {
  std::string number;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool is_sign = c == '+' || c == '-';
    if (is_sign && i > 0 && number.empty()) return std::nullopt;
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

DeckText::DeckText(std::string text, std::string name) : text_(std::move(text)) {
  sources_.push_back({0, std::move(name), 1});
}

std::string DeckText::Place(std::size_t at, std::string& file) const {
  auto source =
      std::upper_bound(sources_.begin(), sources_.end(), at,
                       [](std::size_t place, const Source& s) { return place < s.begin; });
  if (source != sources_.begin()) --source;
  file = source->file;
  const std::string_view before = std::string_view(text_).substr(source->begin, at - source->begin);
  return fmt::format("line {}", source->line + LinesIn(before));
}

/// Puts a deck and what it includes into one text.
class DeckTextReader {
 public:
  DeckTextReader(const std::string& path, const ReadOptions& options, const FindInclude& find,
                 std::vector<Failure>& faults, LossReport& report)
      : options_(options), find_(find), faults_(faults), report_(report) {
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
    // Before it is read: there may not be the memory for more.
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(PathFromUtf8(path), error);
    if (!error && size >= kLongestText - to_.text_.size()) {
      faults_.push_back(
          {path, "", "makes a deck of over 2 GiB with what it includes", "divide the deck"});
      return false;
    }
    Result<std::string> text = ReadWholeFile(path);
    if (!text) {
      faults_.push_back(text.Error());
      return false;
    }
    open_.push_back(path);
    to_.sources_.push_back({to_.text_.size(), path, 1});
    std::size_t line = 1;
    std::size_t done = 0;
    while (const auto include = find_(*text, done)) {
      const std::string_view before = std::string_view(*text).substr(done, include->begin - done);
      line += LinesIn(before);
      to_.text_ += before;
      to_.text_ += include->head;
      if (!Include(include->name, path, line, folder)) return false;
      line +=
          LinesIn(std::string_view(*text).substr(include->begin, include->end - include->begin));
      done = include->end;
      to_.sources_.push_back({to_.text_.size(), path, line});
    }
    if (done == 0 && to_.text_.empty()) {
      to_.text_ = std::move(*text);
    } else {
      to_.text_.append(*text, done);
    }
    open_.pop_back();
    const bool is_included = !open_.empty();
    if (is_included && !to_.text_.empty() && to_.text_.back() != '\n') to_.text_ += '\n';
    return true;
  }

  DeckText Take() { return std::move(to_); }

 private:
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
    if (open_.size() >= kDeepestInclude) {
      return fail("files are included more than 64 deep", "include them from the deck itself");
    }
    if (++included_ > kMostIncludes)
      return fail("there are too many included files", "include fewer");
    report_.Changed("included files were put into one deck");
    return Add(path, found.parent_path());
  }

  const ReadOptions& options_;
  const FindInclude& find_;
  std::vector<Failure>& faults_;
  LossReport& report_;
  DeckText to_;
  std::filesystem::path folder_;
  std::vector<std::filesystem::path> allowed_;
  std::vector<std::string> open_;
  std::size_t included_ = 0;
};

std::optional<DeckText> ReadDeckText(const std::string& path, const ReadOptions& options,
                                     const FindInclude& find, std::vector<Failure>& faults,
                                     LossReport& report) {
  DeckTextReader reader(path, options, find, faults, report);
  if (!reader.Add(path, PathFromUtf8(path).parent_path())) return std::nullopt;
  return reader.Take();
}

}  // namespace qx::exchange
