#pragma once
// Exodus II files into decks.

#include <string>
#include <string_view>

#include "exchange/format.h"

namespace qx::exchange {

class NcReader;

/// Fields of this name, with the attribute's behind it, hold attributes of elements.
inline constexpr std::string_view kExodusAttribute = "exodus:attribute ";

/// Reads and checks a mesh: blocks, node and side sets and sets of elements become groups with
/// their numbers, id maps keys, variables and attributes fields. The deck's report tells what is
/// reduced or left out. Of several faults the first is returned, all, up to the bound, go to
/// `faults`.
Result<Deck> ReadExodus(const std::string& path, const ReadOptions& options,
                        std::vector<Failure>& faults);

/// The same from memory; `name` stands for the file in messages.
Result<Deck> ParseExodus(std::string_view bytes, const std::string& name,
                         std::vector<Failure>* faults = nullptr);

}  // namespace qx::exchange
