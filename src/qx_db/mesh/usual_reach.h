#pragma once
// How large a model is, whatever is wrong with a few of its nodes.
// Threads: any.

#include <algorithm>
#include <cmath>
#include <vector>

#include "qx_db/export.h"
#include "qx_db/mesh/point3.h"

namespace qx {

/// The largest coordinate of a point, without its sign.
inline double ReachOf(const Point3& p) {
  return std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)});
}

/// The largest of the reaches of nodes, without those that are no number and those beyond a
/// thousand times the median of the ones that are not 0: a node that lies so far out was misplaced,
/// and says nothing of the rounding of the others. 0 where there is none.
QXDB_API double UsualReach(std::vector<double> reaches);

}  // namespace qx
