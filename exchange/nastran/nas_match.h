#pragma once
// Properties and materials of a model found again among the cards of the deck that they came from.
// Threads: shares nothing.

#include "exchange/nastran/nas_card_text.h"
#include "exchange/nastran/nas_follow.h"
#include "exchange/nastran/nas_names.h"

namespace qx::exchange {

/// Tells `numbers` which records of `now` the cards describe, and gives the names of the cards by
/// the keys of the records.
void MatchNasRecords(const NasText& text, const Deck& now, const std::vector<NasName>& names,
                     NasNumbers& numbers, NasCardText::Names& property_cards,
                     NasCardText::Names& material_cards);

}  // namespace qx::exchange
