#include "exchange/nastran/nas_units.h"

namespace qx::exchange {

void NasUnits::Count(const NasText& text, const NasCard& card, const NasFields& held) {
  if (are_same_ || card.is_gone) return;
  for (std::size_t f = 0; f < card.fields.size(); ++f) {
    const std::string_view field = text.FieldText(card, f);
    const bool is_real = !DeckInteger(field) && DeckReal(field).value_or(0) != 0;
    const bool is_held = held.At(f).kind != NasValue::Kind::kBlank && held.At(f).IsRead(field);
    if (is_real && !is_held) return (held.IsEmpty() ? whole_ : in_part_).Add(text, card);
  }
}

void NasUnits::Tell(LossReport& report) const {
  for (const auto& [name, told] : whole_) {
    report.Changed(name + " cards keep the units that the deck was read in", told.count, told.where,
                   "they are text; it is not known which of their numbers have units");
  }
  for (const auto& [name, told] : in_part_) {
    report.Changed("parts of " + name + " cards keep the units that the deck was read in",
                   told.count, told.where,
                   "the model has no place for them; what it holds was converted");
  }
}

}  // namespace qx::exchange
