// What of a mesh hangs together, and nodes that nothing holds.

#include <boost/pending/disjoint_sets.hpp>
#include <numeric>
#include <vector>

#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/platform/long_work.h"

namespace qx {
Parts ConnectedParts(const DenseMesh& mesh) {
  constexpr std::uint32_t kNoPart = ~0u;
  std::vector<std::uint32_t> ranks(mesh.NodeCount(), 0), parents(mesh.NodeCount());
  std::iota(parents.begin(), parents.end(), 0u);
  boost::disjoint_sets<std::uint32_t*, std::uint32_t*> sets(ranks.data(), parents.data());
  LongWork work(mesh.ElementCount());
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    work.Step();
    if (!mesh.IsUsable(e)) continue;
    for (const std::uint32_t node : mesh.Nodes(e)) sets.union_set(mesh.Nodes(e)[0], node);
  }
  Parts parts;
  parts.of_element.assign(mesh.ElementCount(), kNoPart);
  std::vector<std::uint32_t> part_of_root(mesh.NodeCount(), kNoPart);
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    if (!mesh.IsUsable(e) || mesh.Nodes(e).empty()) continue;
    std::uint32_t& part = part_of_root[sets.find_set(mesh.Nodes(e)[0])];
    if (part == kNoPart) part = parts.count++;
    parts.of_element[e] = part;
  }
  return parts;
}

std::vector<std::uint32_t> UnreferencedNodes(const DenseMesh& mesh) {
  std::vector<char> used(mesh.NodeCount(), 0);
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    for (const std::uint32_t node : mesh.Nodes(e)) {
      if (node != PoolNumbers::kNone) used[node] = 1;
    }
  }
  std::vector<std::uint32_t> unused;
  for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
    if (!used[n]) unused.push_back(n);
  }
  return unused;
}

}  // namespace qx
