#pragma once
// The text of a Nastran deck taken apart: files and what they include, cards and their fields.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/deck_text.h"

namespace qx::exchange {

/// A field as it stands in the text, without blanks around it.
struct NasField {
  std::size_t at = 0;
  std::size_t length = 0;
};

/// A line of a card.
struct NasLine {
  enum class Form : std::uint8_t { kColumns, kTabs, kFree };

  std::size_t begin = 0;
  std::size_t end = 0;    ///< with the line end
  std::size_t stop = 0;   ///< where its fields end: at a comment or the line end
  std::size_t first = 0;  ///< index of its first field among the card's
  std::size_t given = 0;  ///< how many fields stand in it, in free form
  Form form = Form::kColumns;
  bool is_large = false;
};

/// A card of the bulk data: its name in upper case without the mark of large fields, and its fields
/// from the second on, eight to a line of small or free format.
struct NasCard {
  std::string name;
  std::vector<NasField> fields;
  std::size_t begin = 0;  ///< of its first line
  std::vector<NasLine> lines;
  /// What stands in fields instead of the text, by index.
  std::vector<std::pair<std::size_t, std::string>> changed;
  bool is_gone = false;  ///< it is left out
};

/// A deck as one text, in which included files stand where they are included.
class NasText {
 public:
  /// Reads a deck with what it includes; faults are gathered in `faults`.
  static std::optional<NasText> Read(const std::string& path, const ReadOptions& options,
                                     std::vector<Failure>& faults, LossReport& report);
  /// A text that is there already.
  NasText(std::string text, std::string name);

  const std::string& Text() const { return deck_.Text(); }
  /// Where the bulk data begins and ends; what stands before is executive and case control.
  std::size_t BulkBegin() const { return bulk_begin_; }
  std::size_t BulkEnd() const { return bulk_end_; }
  /// Whether ENDDATA ends it.
  bool IsEnded() const { return is_ended_; }
  const std::vector<NasCard>& Cards() const { return cards_; }

  /// A field as it is after the changes.
  std::string_view FieldText(const NasCard& card, std::size_t field) const;
  /// Puts another text into a field. The text of the deck stays.
  void Change(std::size_t card, std::size_t field, std::string text);
  /// Leaves a card out.
  void Remove(std::size_t card) { cards_[card].is_gone = true; }

  /// "line 12" with the file where it is an included one, of a place in the text.
  std::string Place(std::size_t at, std::string& file) const { return deck_.Place(at, file); }
  std::string Place(const NasCard& card) const;

 private:
  explicit NasText(DeckText text);
  void FindBulk();
  void ListCards();
  void AddLine(std::size_t begin, std::size_t end);
  void AddFields(NasCard& card, NasLine line, const std::vector<NasField>& fields,
                 std::size_t per_line);
  void TakeNinth(std::size_t card);

  DeckText deck_;
  std::size_t bulk_begin_ = 0;
  std::size_t bulk_end_ = 0;
  bool is_ended_ = false;
  std::vector<NasCard> cards_;
  std::vector<std::string> labels_;  ///< what each card's last line is continued by
  /// Of each card: a number where a label may stand in its last line, which is data unless the card
  /// is continued by it.
  std::vector<std::optional<NasField>> ninth_;
};

}  // namespace qx::exchange
