#pragma once
// The text of an Abaqus or CalculiX deck taken apart: keywords with their parameters, and the
// fields of the data lines behind them.

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/deck_text.h"

namespace qx::exchange {

/// NAME=value of a keyword line.
struct InpParameter {
  std::string name;        ///< in upper case, without blanks
  std::string_view value;  ///< without blanks around it and without quotes
  std::size_t begin = 0;   ///< of the comma before it, in the text
  std::size_t end = 0;
};

/// A keyword with its data lines.
struct InpBlock {
  std::string keyword;    ///< "SOLIDSECTION": in upper case, without blanks
  std::string title;      ///< "SOLID SECTION": the same with the blanks between its words
  std::size_t begin = 0;  ///< of its line
  std::size_t data = 0;   ///< of the first line behind it
  std::size_t end = 0;    ///< of the next keyword
};

/// A name as decks compare them: in upper case, without blanks around it and without quotes.
std::string InpLabel(std::string_view name);

/// Whether a name is a number of a node or an element.
bool IsInpNumber(std::string_view text);

/// The deck's text and its keywords in order.
class InpText {
 public:
  /// Reads a deck with what it includes and the files that INPUT= names; faults are gathered.
  static std::optional<InpText> Read(const std::string& path, const ReadOptions& options,
                                     std::vector<Failure>& faults, LossReport& report);
  /// A text that is there already.
  InpText(std::string text, std::string name) : InpText(DeckText(std::move(text), name)) {}

  const std::string& Text() const { return deck_.Text(); }
  const std::vector<InpBlock>& Blocks() const { return blocks_; }
  std::vector<InpParameter> Parameters(const InpBlock& block) const;
  /// The value of a parameter; none when it is not there, empty when it has none.
  std::optional<std::string_view> Parameter(const InpBlock& block, std::string_view name) const;
  std::string Place(std::size_t at, std::string& file) const { return deck_.Place(at, file); }

 private:
  explicit InpText(DeckText text);

  DeckText deck_;
  std::vector<InpBlock> blocks_;
};

/// The data lines of a block, without comments and empty ones.
class InpLines {
 public:
  InpLines(std::string_view text, std::size_t begin, std::size_t end)
      : text_(text), next_(begin), end_(end) {}

  /// Goes to the next line; false when there is none.
  bool Next();
  /// Place of the line, and of what comes behind its end.
  std::size_t Begin() const { return begin_; }
  std::size_t End() const { return next_; }
  /// Without blanks around them; an empty one at the end of the line is left out.
  std::span<const std::string_view> Fields() const { return fields_; }
  /// Whether the line ends with a comma.
  bool GoesOn() const { return goes_on_; }

 private:
  std::string_view text_;
  std::size_t begin_ = 0;
  std::size_t next_;
  std::size_t end_;
  std::vector<std::string_view> fields_;
  bool goes_on_ = false;
};

}  // namespace qx::exchange
