#pragma once
// CGNS files into decks.

#include <string>
#include <string_view>

#include "exchange/format.h"
#include "exchange/hdf5/h5_apart.h"

namespace qx::exchange {

/// Reads and checks a mesh in an HDF5 container: zones, sections, boundary conditions, regions and
/// families become groups. Numbers of nodes and elements are those of the file, of further zones
/// behind those of the first. The deck's report tells what is reduced or left out. Of several
/// faults the first is returned, all, up to the bound, go to `faults`.
Result<Deck> ReadCgns(const std::string& path, const ReadOptions& options,
                      std::vector<Failure>& faults);

/// The same from memory; `name` stands for the file in messages.
Result<Deck> ParseCgns(std::string_view bytes, const std::string& name,
                       std::vector<Failure>* faults = nullptr, FirstRead first = FirstRead::kApart);

}  // namespace qx::exchange
