#pragma once
// The text of a deck: its file and what that includes as one, and numbers as decks write them.
// Threads: shares nothing; one at a time for each object.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/format.h"

namespace qx::exchange {

/// A deck as one text, in which included files stand where they are included.
class DeckText {
 public:
  DeckText() = default;
  /// A text that is there already.
  DeckText(std::string text, std::string name);

  const std::string& Text() const { return text_; }
  /// "line 12" of a place in the text; `file` becomes the file that the line came from.
  std::string Place(std::size_t at, std::string& file) const;

 private:
  struct Source {
    std::size_t begin;  ///< in the text
    std::string file;
    std::size_t line;  ///< number of its first line, from 1
  };
  friend class DeckTextReader;

  std::string text_;
  std::vector<Source> sources_;
};

/// Lines of a deck in whose place the content of another file stands.
struct IncludeLine {
  std::size_t begin;
  std::size_t end;
  std::string name;  ///< of the file, as the deck gives it; "" where it gives none
  std::string head;  ///< what stays of the lines, before the content
};

/// The first include of a file's text whose line begins at `from` or after it.
using FindInclude =
    std::function<std::optional<IncludeLine>(const std::string& text, std::size_t from)>;

/// Reads a deck with what it includes, from its own folder and those that the options name; tells
/// in `report` what it took for granted. Nothing, with the reason in `faults`, when a file cannot
/// be read, lies elsewhere, or includes itself.
std::optional<DeckText> ReadDeckText(const std::string& path, const ReadOptions& options,
                                     const FindInclude& find, std::vector<Failure>& faults,
                                     LossReport& report);

/// Whether any of the lines that a file begins with is so: `is_so(line, is_cut)`, without line
/// ends. `is_cut`: the file's head ends before the line does.
template <class IsSo>
bool AnyLine(std::string_view head, IsSo&& is_so) {
  while (!head.empty()) {
    const std::size_t end = std::min(head.find('\n'), head.size());
    if (is_so(head.substr(0, end), end == head.size())) return true;
    head.remove_prefix(std::min(end + 1, head.size()));
  }
  return false;
}

/// Takes the pieces of a text, in order.
using PutText = std::function<void(std::string_view)>;

/// Writes a deck piece by piece. One that this program makes anew gets a line of comment at its
/// head that says so, and of which text: a deck that somebody changed by hand is not ours any more.
/// What begins with such a line stays ours, with a line of what is written.
class DeckOut {
 public:
  /// `out` can go back to where it was.
  DeckOut(std::ostream& out, std::string_view comment, bool is_ours);
  ~DeckOut();
  DeckOut(const DeckOut&) = delete;
  DeckOut& operator=(const DeckOut&) = delete;
  void Put(std::string_view piece);
  /// Once all is put.
  void Finish();

 private:
  void Begin();
  void Write(std::string_view piece);

  struct Hash;
  std::ostream& out_;
  const std::string comment_;
  bool is_ours_;
  bool has_begun_ = false;
  std::string head_;  // until it is known whether it is a mark
  std::unique_ptr<Hash> hash_;
  std::ostream::pos_type mark_at_;
};
/// Whether the file is a marked deck that is as it was written.
bool IsMarkedDeck(std::string_view comment, const std::string& path);
/// The text behind the mark, which may be stale; all of it where there is none.
std::string_view WithoutDeckMark(std::string_view comment, std::string_view text);

/// A number in any of the forms of decks: "1.5", "-2.+3", "1.0D5"; none for other text.
std::optional<double> DeckReal(std::string_view text);
std::optional<std::int64_t> DeckInteger(std::string_view text);

}  // namespace qx::exchange
