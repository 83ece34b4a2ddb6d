#pragma once
// Seeding one edge: from a size control to points on the curve.
// Threads: the one that uses the CAD session.

#include <span>
#include <vector>

#include "qx_db/model/size_calc.h"
#include "qx_db/platform/outcome.h"

namespace qx {

/// The seeds of one edge from its start to its end, both included: n divisions give n + 1 seeds.
struct EdgeSeeds {
  CArray<double, double> fractions;  ///< as the method defines them: 0.0 ... 1.0
  std::vector<double> parameters;
  std::vector<CadPoint> points;

  std::size_t Divisions() const { return points.empty() ? 0 : points.size() - 1; }
};

/// Whether a size control can seed an edge of this length; otherwise what is wrong with it. Sizes
/// and counts must be positive and finite, sizes no larger than the edge, counts at most
/// CQXCalcSzct::kMostDivisions, a uniform part less than the whole, given positions no closer to
/// each other than a millionth of the length. Deliberate: by size alone an edge that is shorter
/// than the size has one division, so that one size does for all edges of a part.
QXDB_API Outcome CheckSizeControl(const tagTSzct& control, double edge_length);

/// Seeds an edge. Fractions of methods 3, 4, 5 and 8 are of arc length; those of methods 1 and 2
/// are of the parameter range. Method 8 takes the fractions in `custom_ratios`, or the points in
/// `custom_seeds`, which must lie on the edge; the ends need not be among them. `reversed` mirrors
/// the seeds, given points apart. On failure `out` is of no use; its storage is used again.
QXDB_API Outcome SeedEdge(ICADSession& cad, int edge, const tagTSzct& control, bool reversed,
                          EdgeSeeds& out);

}  // namespace qx
