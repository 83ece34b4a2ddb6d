#pragma once
// The table of known cards: what their fields number, what elements they make, and which of them
// are loads and constraints. Reading, renumbering, writing and recognition of decks derive from it.
// Threads: any; the table never changes.

#include <span>
#include <vector>

#include "exchange/nastran/nas_cards.h"

namespace qx::exchange {

enum class NasKind : std::uint8_t { kNode, kElement, kSystem, kProperty, kMaterial };
inline constexpr std::size_t kNasKinds = 5;

/// A field with the number of something. Fields that hold none are not told of.
struct NasKeyField {
  std::size_t field = 0;
  NasKind kind = NasKind::kNode;
  bool is_own = false;    ///< the number of what the card describes
  std::size_t group = 0;  ///< fields that go when what is numbered goes; 0: the whole card
};

/// Fields with a list of numbers, in which "a THRU b" may stand for all from a to b.
struct NasKeyList {
  enum class Form : std::uint8_t {
    kMixed,     ///< ranges may stand between numbers
    kAlone,     ///< a range is all that a card has
    kHoles,     ///< numbers keep their fields; those that go leave them blank
    kFirstLast  ///< a range is from one field to another, with THRU before the latter
  };
  NasKind kind = NasKind::kNode;
  Form form = Form::kMixed;
  std::size_t first = 0;
  std::size_t end = 0;       ///< field behind the last one
  std::size_t thru = 0;      ///< kFirstLast: the field with THRU
  bool is_own = false;       ///< numbers of what the card describes
  bool is_of_users = false;  ///< of the kind that the cards which name this one want
};

/// A field with the number of a SET1.
struct NasSetField {
  std::size_t field = 0;
  NasKind kind = NasKind::kNode;  ///< of what the set lists
};

struct NasKeys {
  bool is_known = true;  ///< false: it is not known what this card numbers
  std::vector<NasKeyField> fields;
  std::vector<NasKeyList> lists;
  std::vector<NasSetField> sets;
};

/// Whether it is known what a card numbers.
bool NasKnowsKeysOf(const NasCard& card);

/// Numbers of a list taken apart.
struct NasItems {
  struct Item {
    Key from;
    Key to;
    Key step;
    bool is_range;
  };
  std::vector<Item> items;
  std::vector<std::string> rest;  ///< what follows the numbers: a real one
  bool is_odd = false;            ///< something is between them that is no number
  bool has_ranges = false;
};
NasItems NasItemsOf(const NasText& text, const NasCard& card, const NasKeyList& list);

/// A card that makes an element of the model.
struct NasElementCard {
  std::string_view name;
  std::size_t first_node = 0;  ///< field
  bool has_property = false;   ///< a field for it
  std::int32_t linear = 0;     ///< type by its corner nodes
  std::int32_t quadratic = 0;  ///< with all mid-side nodes; 0 for none
  std::int32_t single = 0;     ///< with one node only; 0 for none
  /// Cards of the properties that its elements have; empty for those that have none or any.
  std::string_view properties;

  bool Makes(std::int32_t type) const {
    return type != 0 && (type == linear || type == quadratic || type == single);
  }
};
/// All of them; of those for one type the preferred one first.
std::span<const NasElementCard> NasElementCards();
/// Null for a card that makes none.
const NasElementCard* FindNasElementCard(std::string_view name);

/// Beginning of the name of the boundary set that a load or constraint belongs to, by the number in
/// its first field: "LOAD"; "" for another card.
std::string_view NasBoundarySet(std::string_view card);

/// Whether a card tells that a text is a deck: it describes something of the model, or is a load or
/// a constraint.
bool NasTellsADeck(std::string_view card);

/// The numbers of a card.
NasKeys NasKeysOf(const NasText& text, const NasCard& card);

}  // namespace qx::exchange
