// What of a mesh hangs together, and nodes that nothing holds.

#include <algorithm>
#include <numeric>

#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/platform/long_work.h"

namespace qx {
namespace {

/// Disjoint sets of numbers, joined two at a time.
class DisjointSets {
 public:
  explicit DisjointSets(std::size_t count) : parent_(count) {
    std::iota(parent_.begin(), parent_.end(), 0u);
  }
  std::uint32_t Find(std::uint32_t i) {
    while (parent_[i] != i) i = parent_[i] = parent_[parent_[i]];
    return i;
  }
  void Join(std::uint32_t a, std::uint32_t b) {
    a = Find(a);
    b = Find(b);
    parent_[std::max(a, b)] = std::min(a, b);
  }

 private:
  std::vector<std::uint32_t> parent_;
};

}  // namespace

Parts ConnectedParts(const DenseMesh& mesh) {
  constexpr std::uint32_t kNoPart = ~0u;
  DisjointSets sets(mesh.NodeCount());
  LongWork work(mesh.ElementCount());
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    work.Step();
    if (!mesh.IsUsable(e)) continue;
    for (const std::uint32_t node : mesh.Nodes(e)) sets.Join(mesh.Nodes(e)[0], node);
  }
  Parts parts;
  parts.of_element.assign(mesh.ElementCount(), kNoPart);
  std::vector<std::uint32_t> part_of_root(mesh.NodeCount(), kNoPart);
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    if (!mesh.IsUsable(e) || mesh.Nodes(e).empty()) continue;
    std::uint32_t& part = part_of_root[sets.Find(mesh.Nodes(e)[0])];
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
