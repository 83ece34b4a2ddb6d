#pragma once
// The axes of a grid of a CGNS file, and the units that they are in.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "qx_db/lib/units.h"

#include "exchange/cgns/cgns_tree.h"
#include "exchange/loss_report.h"

namespace qx::exchange {

struct CgnsAxes {
  std::array<std::string, 3> nodes;  ///< paths of X, Y and Z; "" of those that there need not be
  std::string wrong;                 ///< why they cannot be read, or ""
};

/// The Cartesian axes among the nodes below a grid at `place` in a space of so many dimensions.
/// Arrays besides them are told of.
CgnsAxes FindAxes(const std::vector<CgnsTree::Child>& nodes, std::int64_t dimensions,
                  const std::string& place, LossReport& report);

/// The units that a node names itself.
std::optional<UnitSystem> CgnsUnitsAt(CgnsTree& tree, const std::string& node);

/// What lengths in the first unit are multiplied by to be in the second.
double LengthFactor(const UnitSystem& from, const UnitSystem& to);

}  // namespace qx::exchange
