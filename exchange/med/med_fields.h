#pragma once
// Fields of MED files: a group for each below "CHA", in it one for each step, in it one for the
// nodes, "NOE", and for each type of elements, "MAI.HE8", in it one for each profile, which names
// the numbers of those that have values, with the values: all of the first component, then all of
// the next. ("Modèle de données", Champs.)

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "exchange/deck.h"
#include "exchange/hdf5/h5_reader.h"
#include "exchange/hdf5/h5_writer.h"

namespace qx::exchange {

/// The profile of all nodes, or of all elements of a type.
inline constexpr const char* kMedAll = "MED_NO_PROFILE_INTERNAL";

/// Where the elements of a type stand.
struct MedRun {
  std::size_t first = 0;
  std::size_t count = 0;
};

/// Text of a file without what pads it.
std::string TrimmedMed(std::string text);
/// A name as a file can have it: so many bytes at most, no part of a character, no blanks behind.
std::string FittingMed(const std::string& name, std::size_t most);

/// Adds the fields of a mesh whose nodes and elements the deck has; `types` gives the place of
/// those of each type, by its name, in the deck. Those that cannot be are left out and told of.
void ReadMedFields(H5Reader& in, const std::string& mesh,
                   const std::map<std::string, MedRun>& types, Deck& deck);

/// Writes the fields of a deck. Nodes stand in the file as in the deck; `place_of` gives those of
/// the elements, and `types` what is a run of one type there, by its name.
void WriteMedFields(H5Writer& out, const std::string& mesh, const Deck& deck,
                    const std::unordered_map<Key, std::int32_t>& node_number,
                    const std::unordered_map<Key, std::uint32_t>& place_of,
                    const std::vector<std::pair<std::string_view, MedRun>>& types,
                    LossReport& report);

}  // namespace qx::exchange
