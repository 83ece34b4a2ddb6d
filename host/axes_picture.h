#pragma once
// A picture of elements with their local axes.
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <string>
#include <vector>

#include "qx_db/model/standard_pools.h"

namespace qx::host {

/// One element to draw.
struct DrawnElement {
  ITR item = 0;
  bool has_axes = false;
  Triad axes;
};

/// An SVG document that shows elements from above right, global Z up, each with its axes at its
/// centre: x red, y green, z blue. Node keys are written at the nodes when there are few.
std::string AxesSvg(const CQXDBSession& session, const std::vector<DrawnElement>& elements);

}  // namespace qx::host
