// Which shells to turn over so that neighbours agree.

#include <algorithm>
#include <numeric>

#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/mesh/side_matching.h"

namespace qx {
namespace {

using namespace matching;

/// Two surface elements across an edge, and whether one must be turned for them to agree.
struct Neighbour {
  std::uint32_t a, b;
  bool turned;
};

/// Whether an element walks along an edge from its smaller node to its larger.
bool WalksUp(const DenseMesh& mesh, const DenseSide& side) {
  const auto corners = mesh.Corners(side.element);
  return corners[side.side] < corners[(side.side + 1) % corners.size()];
}

std::vector<Neighbour> ShellNeighbours(const DenseMesh& mesh) {
  std::vector<Neighbour> neighbours;
  MatchSides(mesh, kShellEdges, [&](std::span<const DenseSide> group) {
    if (group.size() != 2 || group[0].element == group[1].element) return;
    const bool same = WalksUp(mesh, group[0]) == WalksUp(mesh, group[1]);
    neighbours.push_back({group[0].element, group[1].element, same});
  });
  return neighbours;
}

/// The neighbours of every element, as ranges of one array.
struct NeighbourLists {
  std::vector<std::uint32_t> first;
  std::vector<std::pair<std::uint32_t, bool>> entries;

  NeighbourLists(std::uint32_t elements, const std::vector<Neighbour>& pairs)
      : first(std::size_t{elements} + 1, 0), entries(2 * pairs.size()) {
    for (const Neighbour& pair : pairs) {
      ++first[std::size_t{pair.a} + 1];
      ++first[std::size_t{pair.b} + 1];
    }
    std::partial_sum(first.begin(), first.end(), first.begin());
    std::vector<std::uint32_t> next = first;
    for (const Neighbour& pair : pairs) {
      entries[next[pair.a]++] = {pair.b, pair.turned};
      entries[next[pair.b]++] = {pair.a, pair.turned};
    }
  }
};

}  // namespace

ShellOrientation OrientShells(const DenseMesh& mesh) {
  const NeighbourLists lists(mesh.ElementCount(), ShellNeighbours(mesh));
  enum : char { kUnmet, kAsIs, kTurned };
  std::vector<char> state(mesh.ElementCount(), kUnmet);
  std::vector<std::uint32_t> patch;
  ShellOrientation result;
  for (std::uint32_t seed = 0; seed < mesh.ElementCount(); ++seed) {
    if (state[seed] != kUnmet || !kShellEdges.Has(mesh.Shape(seed)) || !mesh.IsUsable(seed))
      continue;
    ++result.patches;
    state[seed] = kAsIs;
    patch.assign(1, seed);
    bool agrees = true;
    std::size_t turned = 0;
    for (std::size_t at = 0; at < patch.size(); ++at) {
      const std::uint32_t here = patch[at];
      for (std::uint32_t i = lists.first[here]; i < lists.first[here + 1]; ++i) {
        const auto [other, differs] = lists.entries[i];
        const char wanted = (state[here] == kTurned) != differs ? kTurned : kAsIs;
        if (state[other] == kUnmet) {
          state[other] = wanted;
          turned += wanted == kTurned;
          patch.push_back(other);
        }
        agrees &= state[other] == wanted;
      }
    }
    if (!agrees) {
      ++result.one_sided;
      continue;
    }
    const char minority = 2 * turned > patch.size() ? kAsIs : kTurned;
    for (const std::uint32_t e : patch) {
      if (state[e] == minority) result.to_flip.push_back(e);
    }
  }
  std::sort(result.to_flip.begin(), result.to_flip.end());
  return result;
}

}  // namespace qx
