#pragma once
// The elements of universal files: what their descriptors stand for, and how they list nodes.
// Threads: any; the tables never change.

#include <cstdint>
#include <optional>

namespace qx::exchange {

/// What an element of a descriptor and a number of nodes is read as.
struct UnvKind {
  std::int32_t code = 0;    ///< element type code
  bool is_reduced = false;  ///< nodes at its end are left out
};

/// None for one that the model lacks.
std::optional<UnvKind> FindUnvKind(std::int64_t descriptor, std::int64_t nodes);

/// Whether a line of three numbers, orientation and cross sections, stands before its nodes.
bool IsUnvBeam(std::int64_t descriptor);

/// The descriptor that an element of a code from 1 to 15 is written with; 0 for a pyramid, for
/// which there is none.
std::int32_t UnvDescriptorOf(std::int32_t code);

/// `file[k] = ours[order[k]]`: nodes between corners stand between them; null for the same order.
const std::int8_t* UnvOrderOf(std::int32_t code);

}  // namespace qx::exchange
