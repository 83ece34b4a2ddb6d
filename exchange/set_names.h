#pragma once
// Names of groups as names of mesh sets.
// Threads: shares nothing; one at a time for each object.

#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "qx_db/model/mesh_set_pool.h"

#include "exchange/mesh.h"

namespace qx::exchange {

/// Cuts names that are longer than a set's name can be, to names that nothing else has. Shorter
/// ones are kept as they are, also when two groups share one.
class SetNames {
 public:
  /// The sets that are there and the groups to come, whose names are not to be hit by a cut.
  SetNames(const DPoolMset& sets, std::span<const Mesh::Group> groups);

  /// The name to use for a group's name; a cut is told in `report`.
  std::u16string Fit(const std::string& name, LossReport& report);

 private:
  std::set<std::u16string> taken_;
  std::map<std::u16string, int> last_number_;  // used behind a cut name
};

}  // namespace qx::exchange
