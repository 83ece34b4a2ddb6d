#pragma once
// Materials and properties of Nastran decks.

#include "exchange/nastran/nas_fields.h"
#include "host/material_records.h"
#include "host/property_records.h"

namespace qx::exchange {

/// Reads a material or a property with its number; false for a card that is none. `in_part` tells
/// that the record does not hold all that the card says.
bool ReadNasMaterial(NasFieldReader& in, const NasCard& card, tagTMatl& material, bool& in_part);
bool ReadNasProperty(NasFieldReader& in, const NasCard& card, tagTProp& property, bool& in_part);

}  // namespace qx::exchange
