#pragma once
// The element kinds of MSH files and what becomes of them.
// Threads: any; the tables never change.

#include <cstdint>
#include <optional>
#include <string>

namespace qx::exchange {

/// One element kind of the format, by its type number.
struct MshKind {
  int number;
  const char* shape;      ///< plural: "hexahedra"
  std::int16_t nodes;     ///< nodes of one element in the file; 0 when the kind fixes none
  std::int32_t code = 0;  ///< element type code it is read as; 0 when it is left out
  /// Place in the file's node list of each node of ours; null for the same order.
  const std::int8_t* order = nullptr;

  /// "9-node quadrilaterals", "polygons".
  std::string Name() const;
};

/// Most nodes that one element of a kind with a fixed number can have.
inline constexpr int kMostMshNodes = 1000;

/// The kind of a type number; none for an unknown one.
std::optional<MshKind> FindMshKind(std::int64_t number);

/// The kind with the same nodes as an element type of ours; none for a code beyond 15.
std::optional<MshKind> MshKindOf(std::int32_t code);

}  // namespace qx::exchange
