#pragma once
// Nastran bulk data into a deck.
// Threads: functions from any; a session given is read or filled as transfer.h says.

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

/// Reads a deck: GRID, coordinate systems, elements, properties, materials; loads and constraints
/// become named boundary sets. The text is carried whole, so that cards of which the model did not
/// change anything go back as they were, and those that the model has no place for as well. Faults
/// are gathered, a bound of them.
Result<Deck> ReadNastran(const std::string& path, const ReadOptions& options,
                         std::vector<Failure>& faults);

/// The same of a text that is there already; `sources`, unless null, is told what each card is of.
Result<Deck> ParseNastran(const NasText& text, const std::string& file,
                          std::vector<Failure>& faults, std::vector<NasSource>* sources = nullptr);

/// Nodes of an element of ours in the order of the file: `file[k] = ours[order[k]]`; null for the
/// same order.
const std::int8_t* NasOrder(std::int32_t type);

/// The number that a coordinate system has in the format: that of its name "CORD2R 5", or its key.
Key NasSystemNumber(const tagTCord& system);

}  // namespace qx::exchange
