#pragma once
// MED files into decks.

#include <string>
#include <string_view>

#include "exchange/format.h"
#include "exchange/hdf5/h5_apart.h"

namespace qx::exchange {

/// Text by which files of our own are known: the description of their mesh.
inline constexpr std::string_view kMedOwn = "Written by QX_db";

/// Reads and checks the first mesh of a file: groups become mesh sets, numbers keys. The deck's
/// report tells what is reduced or left out. Of several faults the first is returned, all, up to
/// the bound, go to `faults`.
Result<Deck> ReadMed(const std::string& path, const ReadOptions& options,
                     std::vector<Failure>& faults);

/// The same from memory; `name` stands for the file in messages.
Result<Deck> ParseMed(std::string_view bytes, const std::string& name,
                      std::vector<Failure>* faults = nullptr, FirstRead first = FirstRead::kApart);

}  // namespace qx::exchange
