#pragma once
// Whether seeded edges go together: at the corners of faces, and across the joints of bodies.
// Threads: the one that uses the CAD session.

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qx_db/model/edge_seeding.h"

namespace qx {

/// Seeds of edges by their number in the CAD session.
using SeedsByEdge = std::map<int, EdgeSeeds>;

/// Two edges, or an edge and a face (`other` is 0), that do not go together.
struct SeedMismatch {
  int edge = 0;
  int other = 0;
  std::string what;
};

/// Pairs of different edges that lie on each other, each pair once, the lower number first: where
/// bodies meet without sharing their edges. Two edges do when their lengths agree and neither
/// leaves the other by more than 1e-5 of the length. Degenerate edges have no twin.
QXDB_API std::vector<std::pair<int, int>> FindTwinEdges(const ICADSession& cad);

/// Checks that the seeds of twins are the same points, in either order, and that around each face
/// whose edges are all seeded the seeds leave no gap at a corner. Twins of which only one is
/// seeded are left alone.
QXDB_API std::vector<SeedMismatch> CheckSeedsMatch(const ICADSession& cad,
                                                   const std::vector<std::pair<int, int>>& twins,
                                                   const SeedsByEdge& seeds);

}  // namespace qx
