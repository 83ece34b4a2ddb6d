#pragma once
// What the fields of known cards number: nodes, elements, systems, properties, materials.
// Threads: any; the table never changes.

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
  std::size_t end = 0;   ///< field behind the last one
  std::size_t thru = 0;  ///< kFirstLast: the field with THRU
};

struct NasKeys {
  bool is_known = true;  ///< false: it is not known what this card numbers
  std::vector<NasKeyField> fields;
  std::vector<NasKeyList> lists;
};

/// Whether it is known what a card numbers.
bool NasKnowsKeysOf(const NasCard& card);

/// The numbers of a card.
NasKeys NasKeysOf(const NasText& text, const NasCard& card);

}  // namespace qx::exchange
