#pragma once
// Which nodes a picture can show, and where they are.

#include <cstdint>
#include <limits>
#include <vector>

#include "qx_db/mesh/dense_mesh.h"

namespace qx::viewer {

/// Coordinates of a picture are floats, and the card squares lengths: farther out, in current
/// units, nothing is drawn.
inline constexpr double kFarthest = 1e18;

/// A number as the page has it: the nearest float, the largest one where it is larger than that.
inline float ToFloat(double value) {
  constexpr double kMost = std::numeric_limits<float>::max();
  return static_cast<float>(value > kMost ? kMost : value < -kMost ? -kMost : value);
}

/// The nodes of a mesh that go into one picture.
struct Extent {
  Point3 low, high;  ///< of them, in model units; both 0 where there are none
  /// A mark for each node that does not; empty when all do.
  std::vector<std::uint8_t> left_out;
  std::uint32_t left_out_count = 0;

  bool Has(std::uint32_t node) const { return left_out.empty() || !left_out[node]; }
};

/// Leaves out the nodes with a coordinate that is no number, is beyond kFarthest, or is so far from
/// most others that these would be one point to floats beside it. `length`: current units in one of
/// the model's.
Extent ExtentOf(const DenseMesh& mesh, double length);

}  // namespace qx::viewer
