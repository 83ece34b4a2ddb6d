#pragma once
// Universal files into decks.

#include <string>
#include <string_view>

#include "exchange/format.h"

namespace qx::exchange {

/// What the header of a file that was written here says, before the units' names.
inline constexpr std::string_view kUnvOwn = "QX_db, units:";
/// Before the category and the wholeness of a field's numbers, in its last line of description.
inline constexpr std::string_view kUnvField = "QX_db, category and whole:";
/// The division of elements by what the model has no place for: name of a block.
inline constexpr const char* kUnvBlock = "kind {} physical {} material {} color {} ends {} {}";

/// Reads and checks a file: units, nodes, elements, systems, groups and results; elements by their
/// descriptor, tables and colour as blocks. Every other dataset is carried as text. Faults are
/// gathered, a bound of them; the first is returned.
Result<Deck> ParseUnv(std::string_view bytes, const std::string& name, const ReadOptions& options,
                      std::vector<Failure>& faults);

}  // namespace qx::exchange
