#pragma once
// Nastran bulk data into a deck.
// Threads: functions from any; a session given is read or filled as transfer.h says.

#include <functional>

#include "exchange/format.h"
#include "exchange/nastran/nas_cards.h"

namespace qx::exchange {

/// Keyword of the carried record that holds a deck's whole text.
inline constexpr const char16_t* kNasDeck = u"deck";

/// What a card of a deck is the source of.
struct NasSource {
  enum class Kind { kCarried, kSystem, kNode, kElement, kProperty, kMaterial };
  Kind kind = Kind::kCarried;
  Key key = 0;  ///< the format's number of it
  std::size_t card = 0;
  std::size_t part = 0;  ///< of a card that describes two, the second is 1
};

/// How a text is read.
struct NasReading {
  std::vector<NasSource>* sources = nullptr;  ///< unless null: told what each card is of
  /// For the text of a model that may have changed since: only cards that this is true for, by
  /// their index, describe what the model holds, and nothing that they name need be there.
  std::function<bool(std::size_t)> is_described;
  bool carries = true;  ///< the deck carries the text
  /// The text is left behind: the report tells what only it says, and nothing else.
  bool leaves_text = false;
  Progress progress;
};

/// Reads a deck: GRID, coordinate systems, elements, properties, materials, sets of the case
/// control; loads and constraints become named boundary sets. The text is carried whole, so that
/// cards of which the model did not change anything go back as they were, and those that the model
/// has no place for as well. Faults are gathered, a bound of them, in the order of the file.
Result<Deck> ReadNastran(const std::string& path, const ReadOptions& options,
                         std::vector<Failure>& faults);

/// The same of a text that is there already.
Result<Deck> ParseNastran(const NasText& text, const std::string& file,
                          std::vector<Failure>& faults, const NasReading& reading = {});

/// Nodes of an element of ours in the order of the file: `file[k] = ours[order[k]]`; null for the
/// same order.
const std::int8_t* NasOrder(std::int32_t type);

/// Beginning of the names of mesh sets that say in which system nodes have their displacements.
inline constexpr std::string_view kNasOutputSet = "displacements in system ";

}  // namespace qx::exchange
