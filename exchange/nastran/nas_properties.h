#pragma once
// Materials and properties of Nastran decks, both ways.

#include "exchange/nastran/nas_fields.h"
#include "exchange/nastran/nas_values.h"
#include "host/material_records.h"
#include "host/property_records.h"

namespace qx::exchange {

/// Cards that are read.
bool IsNasMaterial(std::string_view card);
bool IsNasProperty(std::string_view card);

/// Reads a material or a property with its number from one of these.
void ReadNasMaterial(NasFieldReader& in, const NasCard& card, tagTMatl& material);
void ReadNasProperty(NasFieldReader& in, const NasCard& card, tagTProp& property);

/// What a reader makes of a card of ours.
template <class T>
T NasReadBack(const NasFields& card) {
  const std::string file;
  std::vector<Failure> faults;
  const NasText text(card.Text(), file);
  NasFieldReader in(text, file, faults);
  T record;
  if (text.Cards().empty()) return record;
  if constexpr (std::is_same_v<T, tagTMatl>) {
    ReadNasMaterial(in, text.Cards()[0], record);
  } else {
    ReadNasProperty(in, text.Cards()[0], record);
  }
  return record;
}

/// Whether the model has a place for some fields of a card only: it is never made of a record, but
/// keeps what it says besides when the record changes.
bool IsNasCardInPart(std::string_view card);

/// What a card of that name says of a record: of one that is held in part the fields that it holds.
/// A card without a name for one that cannot say anything of it.
NasFields NasMaterialCard(std::string_view card, const tagTMatl& material);
NasFields NasPropertyCard(std::string_view card, const tagTProp& property);

/// The card that says all that the model holds of what a property's card says.
std::string_view NasWholeCard(std::string_view card);

/// Whether a property is of the kind that a card describes.
bool NasCardFits(std::string_view card, const tagTProp& property);

/// The card that says all of a property; "" for a kind that has none.
std::string_view NasCardOfProperty(const tagTProp& property);

}  // namespace qx::exchange
