#pragma once
// Edges of geometry with their seeds, for the page.

#include <span>
#include <string>
#include <vector>

#include "qx_db/mesh/point3.h"
#include "qx_db/record/types.h"

namespace qx::viewer {

/// One edge, in model units.
struct SeededEdge {
  std::vector<Point3> curve;  ///< from start to end, near enough to look smooth
  std::vector<Point3> seeds;
  Key control = 0;  ///< the size control that seeds it; 0 for none
};

/// The pack "seeds": "curves", pairs of points from "origin" on, with "curve_control" for each
/// pair; "seeds", points, with "seed_control" for each. `length`: current units in one of the
/// model's.
std::string SeedPack(std::span<const SeededEdge> edges, double length);

}  // namespace qx::viewer
