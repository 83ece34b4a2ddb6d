#pragma once
// Legacy VTK files into decks.

#include <string>
#include <string_view>

#include "exchange/format.h"

namespace qx::exchange {

/// Reads and checks a legacy file, text or binary, of versions 1.0 to 5.1: unstructured grids, and
/// polygonal, structured, rectilinear and image data as elements. Points get their place as key,
/// from 1. Of several faults the first is returned, all, up to the bound, go to `faults`.
Result<Deck> ReadVtk(const std::string& path, const ReadOptions& options,
                     std::vector<Failure>& faults);

/// The same of a file in memory; `name` stands for it in messages.
Result<Deck> ParseVtk(std::string_view bytes, const std::string& name,
                      const ReadOptions& options = {}, std::vector<Failure>* faults = nullptr);

}  // namespace qx::exchange
