#pragma once
// A deck in the format's own terms as the neutral one.

#include "exchange/abaqus/inp_model.h"

namespace qx::exchange {

/// Keyword of the carried record that holds a deck's whole text, and of those that tell which
/// nodes and elements an instance has become.
inline constexpr const char16_t* kInpDeck = u"deck";
inline constexpr const char16_t* kInpInstance = u"instance";
inline constexpr const char16_t* kInpFormat = u"abaqus";

/// What the dimension of a set's tag stands for: a set of the deck, a surface, an instance.
inline constexpr std::int32_t kInpSetTag = -1;
inline constexpr std::int32_t kInpSurfaceTag = 2;
inline constexpr std::int32_t kInpInstanceTag = 3;

/// The groups of a deck: which of its sets in which of its placements, in the order of their tags.
struct InpGroup {
  std::size_t set = kNoPlace;        ///< kNoPlace for an instance itself
  std::size_t placement = kNoPlace;  ///< kNoPlace for sets of the assembly
};

/// The mesh of all placements, and all records. `groups`, unless null, is told what each is.
Deck DeckOf(const InpModel& model, std::vector<InpGroup>* groups = nullptr);

/// Adds the text, with the numbers in it that follow nodes and elements, to a deck made of it, and
/// what an import reports.
void CarryText(const InpText& text, const InpModel& model, Deck& deck);

/// Name of the property that a section becomes; no other section has it.
std::vector<std::string> SectionNames(const InpModel& model);

}  // namespace qx::exchange
