#pragma once
// The text of a Nastran deck taken apart: files and what they include, cards and their fields.

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

/// A card of the bulk data: its name in upper case without the mark of large fields, and its fields
/// from the second on, eight to a line of small or free format.
struct NasCard {
  std::string name;
  std::vector<NasField> fields;
  std::size_t begin = 0;  ///< of its first line
  /// Lines that it is made of: begin and end, with the line ends.
  std::vector<std::pair<std::size_t, std::size_t>> lines;
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
  const std::vector<NasCard>& Cards() const { return cards_; }

  std::string_view FieldText(const NasCard& card, std::size_t field) const;
  /// "line 12" with the file where it is an included one, of a place in the text.
  std::string Place(std::size_t at, std::string& file) const { return deck_.Place(at, file); }
  std::size_t Comments() const { return comments_; }

 private:
  explicit NasText(DeckText text);
  void FindBulk();
  void ListCards();
  void AddLine(std::size_t begin, std::size_t end);

  DeckText deck_;
  std::size_t bulk_begin_ = 0;
  std::size_t bulk_end_ = 0;
  std::vector<NasCard> cards_;
  std::vector<std::string> labels_;  ///< tenth field of each card's last line
  std::size_t comments_ = 0;
};

}  // namespace qx::exchange
