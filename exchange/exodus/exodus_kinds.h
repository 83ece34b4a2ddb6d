#pragma once
// The element types of Exodus files: names, node orders and sides.

#include <cstdint>
#include <optional>
#include <string_view>

namespace qx::exchange {

/// What the elements of a block are read as.
struct ExodusKind {
  std::int32_t code = 0;               ///< element type code
  const std::int8_t* order = nullptr;  ///< `file[k] = ours[order[k]]`, its own inverse; null: same
  bool is_reduced = false;             ///< nodes are left out
};

/// The kind of a block by its type, in any case, and number of nodes of an element; none for one
/// that the model lacks.
std::optional<ExodusKind> FindExodusKind(std::string_view type, std::int64_t nodes);

/// "HEX20" of an element type code from 1 to 15, and the order of its nodes.
std::string_view ExodusTypeOf(std::int32_t code);
const std::int8_t* ExodusOrderOf(std::int32_t code);

/// A side of the format, from 1, as ours, from 0; -1 for one that there is not. Sides of ours are
/// those of the topology table; behind the edges of a surface come its front and its back, which
/// the format has of surfaces in space (`in_space`).
std::int32_t SideOfExodus(std::int32_t code, std::int64_t side, bool in_space);
/// The other way round; 0 for a side that there is not. Of surfaces in space.
std::int32_t ExodusSideOf(std::int32_t code, std::int32_t side);

/// What is lost with an array of a file; "" with one that is read, or follows from what is.
std::string_view ExodusLossOf(std::string_view variable);

}  // namespace qx::exchange
