#pragma once
// The text of a Nastran deck taken apart: files and what they include, cards and their fields.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/deck_text.h"

namespace qx::exchange {

/// A field as it stands in the text, without blanks around it.
struct NasField {
  std::uint32_t at = 0;
  std::uint32_t length = 0;
};

/// A line of a card.
struct NasLine {
  enum class Form : std::uint8_t { kColumns, kTabs, kFree };

  std::uint32_t begin = 0;
  std::uint32_t end = 0;    ///< with the line end
  std::uint32_t stop = 0;   ///< where its fields end: at a comment or the line end
  std::uint32_t first = 0;  ///< index of its first field among the card's
  std::uint32_t given = 0;  ///< how many fields stand in it, in free form
  Form form = Form::kColumns;
  bool is_large = false;
};

/// What stands in fields instead of the text, by their index.
using NasChanges = std::map<std::size_t, std::string>;

/// A card of the bulk data: its name in upper case without the mark of large fields, and its fields
/// from the second on, eight to a line of small or free format. They belong to the text.
struct NasCard {
  std::string_view name;
  std::span<const NasField> fields;
  std::span<const NasLine> lines;
  std::size_t begin = 0;  ///< of its first line
  bool is_gone = false;   ///< it is left out
  std::unique_ptr<NasChanges> changed;

  const NasChanges& Changes() const {
    static const NasChanges kNone;
    return changed ? *changed : kNone;
  }
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
  /// How many superelements follow it, each a deck of its own.
  std::size_t Parts() const { return parts_; }
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
  NasText(DeckText text, const Progress& progress);
  void FindBulk();
  void ListCards(const Progress& progress);

  DeckText deck_;
  std::size_t bulk_begin_ = 0;
  std::size_t bulk_end_ = 0;
  bool is_ended_ = false;
  std::size_t parts_ = 0;
  std::vector<NasCard> cards_;
  std::vector<NasField> fields_;  ///< of all cards, card after card
  std::vector<NasLine> lines_;    ///< the same
  std::set<std::string, std::less<>> names_;
};

}  // namespace qx::exchange
