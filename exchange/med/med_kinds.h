#pragma once
// The element types of MED files.

#include <cstdint>
#include <optional>
#include <string_view>

namespace qx::exchange {

/// Bytes of the name of a group.
inline constexpr std::size_t kMedGroupNameBytes = 80;

/// An element type of the format.
struct MedKind {
  std::string_view name;               ///< "H20", of its group in a file
  std::int32_t number = 0;             ///< 320, of the enumeration of the library
  std::int32_t nodes = 0;              ///< of an element
  std::int32_t code = 0;               ///< element type code that it is read as
  const std::int8_t* order = nullptr;  ///< `file[k] = ours[order[k]]`, its own inverse; null: same
  bool is_reduced = false;             ///< nodes are left out
};

/// By the name of its group; none for polygons, polyhedra and names that there are not.
std::optional<MedKind> FindMedKind(std::string_view name);
/// Of an element type code from 1 to 15.
const MedKind& MedKindOf(std::int32_t code);

}  // namespace qx::exchange
