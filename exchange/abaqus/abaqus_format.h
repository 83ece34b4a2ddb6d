#pragma once
// The row of Abaqus and CalculiX input in the registry, with its reader.

#include "exchange/format.h"

namespace qx::exchange {

class InpText;

/// Reads a deck: nodes, elements, sets, surfaces, parts where the assembly places them, sections,
/// materials and coordinate systems; loads and conditions become named boundary sets. The text is
/// carried whole. Faults are gathered, a bound of them.
Result<Deck> ReadAbaqus(const std::string& path, const ReadOptions& options,
                        std::vector<Failure>& faults);

/// The same of a text that is there already.
Result<Deck> ParseAbaqus(const InpText& text, const std::string& file, const ReadOptions& options,
                         std::vector<Failure>& faults);

Format AbaqusFormat();

}  // namespace qx::exchange
