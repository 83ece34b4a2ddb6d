#pragma once
// The cell types of VTK files and what becomes of them.

#include <cstddef>
#include <cstdint>
#include <optional>

namespace qx::exchange {

/// What one cell is read as.
struct VtkKind {
  const char* plural;     ///< "pixels", as a report names them
  std::int32_t code = 0;  ///< element type code; 0 when it is left out
  /// Place in the file's node list of each node of ours, and of ours in the file's: no order of
  /// VTK's differs from ours by more than swaps. Null for the same order.
  const std::int8_t* order = nullptr;
  enum class Fate : std::uint8_t {
    kSame,
    kRenamed,  ///< another cell type of the same shape and nodes, in another order
    kReduced,  ///< nodes are left out
    kSplit,    ///< into elements of `code`: points, lines or triangles
  } fate = Fate::kSame;
};

/// Cell types of VTK that are split.
inline constexpr int kVtkPolyVertex = 2;
inline constexpr int kVtkPolyLine = 4;
inline constexpr int kVtkTriangleStrip = 6;

/// What a cell of that type number and number of nodes is read as; none for a number of nodes that
/// the type cannot have. `old_hexahedra`: the file is older than version 2.1 of its format, in
/// which Lagrange hexahedra have their last two edges the other way round.
std::optional<VtkKind> FindVtkKind(int number, std::size_t nodes, bool old_hexahedra);

/// The cell type of VTK for an element type code from 1 to 15.
struct VtkCell {
  std::uint8_t number;
  const std::int8_t* order = nullptr;  ///< `file[k] = ours[order[k]]`; null for the same order
};
const VtkCell& VtkCellOf(std::int32_t code);

}  // namespace qx::exchange
