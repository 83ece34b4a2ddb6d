// Nodes and elements that repeat earlier ones.

#include <algorithm>
#include <cmath>
#include <compare>
#include <numeric>
#include <utility>

#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/platform/long_work.h"

namespace qx {

namespace {

/// A cube of space, by its place in a grid.
struct Cell {
  double x, y, z;
  friend bool operator==(const Cell&, const Cell&) = default;
  friend auto operator<=>(const Cell&, const Cell&) = default;
};

/// Nodes by cubes a little wider than a tolerance, so that what is near is in the same cube or the
/// next; and the cubes next to each. Without a width, cubes are points. A k-d tree (nanoflann)
/// that is asked about each node takes 1.0 to 1.6 times as long, and of nodes in random order three
/// times.
class NodeGrid {
 public:
  NodeGrid(const DenseMesh& mesh, double width) : reach_(width > 0 ? 1 : 0) {
    std::vector<std::pair<Cell, std::uint32_t>> placed;
    placed.reserve(mesh.NodeCount());
    // Adding zero makes the two zeros one.
    const auto place = [&](double c) { return width > 0 ? std::floor(c / width) : c + 0.0; };
    for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
      const Point3& p = mesh.Position(n);
      if (IsFinite(p)) placed.push_back({{place(p.x), place(p.y), place(p.z)}, n});
    }
    std::sort(placed.begin(), placed.end());
    cell_of_node_.assign(mesh.NodeCount(), PoolNumbers::kNone);
    for (const auto& [cell, node] : placed) {
      if (cells_.empty() || cells_.back() != cell) cells_.push_back(cell);
      cell_of_node_[node] = static_cast<std::uint32_t>(cells_.size() - 1);
    }
    FindNeighbours();
  }

  std::size_t CellCount() const { return cells_.size(); }
  /// kNone for a node that is nowhere.
  std::uint32_t CellOf(std::uint32_t node) const { return cell_of_node_[node]; }
  /// The cells around one, itself among them.
  std::span<const std::uint32_t> Around(std::uint32_t cell) const {
    return std::span(around_).subspan(first_[cell], first_[cell + 1] - first_[cell]);
  }

 private:
  void FindNeighbours() {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> pairs;
    for (int dx = -reach_; dx <= reach_; ++dx) {
      for (int dy = -reach_; dy <= reach_; ++dy) FindNeighbours(dx, dy, pairs);
    }
    first_.assign(cells_.size() + 1, 0);
    for (const auto& [cell, other] : pairs) ++first_[cell + 1];
    std::partial_sum(first_.begin(), first_.end(), first_.begin());
    around_.resize(pairs.size());
    std::vector<std::size_t> next = first_;
    for (const auto& [cell, other] : pairs) around_[next[cell]++] = other;
  }
  /// Shifting all cells keeps their order, so one cursor follows the other through the list.
  void FindNeighbours(int dx, int dy, std::vector<std::pair<std::uint32_t, std::uint32_t>>& pairs) {
    std::size_t low = 0;
    for (std::size_t i = 0; i < cells_.size(); ++i) {
      const Cell& cell = cells_[i];
      const Cell from{cell.x + dx, cell.y + dy, cell.z - reach_};
      while (low < cells_.size() && cells_[low] < from) ++low;
      for (std::size_t k = low; k < cells_.size() && cells_[k].x == from.x &&
                                cells_[k].y == from.y && cells_[k].z <= cell.z + reach_;
           ++k) {
        pairs.push_back({static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(k)});
      }
    }
  }

  int reach_;
  std::vector<Cell> cells_;
  std::vector<std::uint32_t> cell_of_node_;
  std::vector<std::size_t> first_;
  std::vector<std::uint32_t> around_;
};

/// A number that the order of the nodes does not change.
std::uint64_t Signature(const DenseMesh& mesh, std::uint32_t e) {
  auto sum = static_cast<std::uint64_t>(mesh.Element(e).type);
  for (std::uint64_t node : mesh.Nodes(e)) {
    node = (node + 1) * 0x9E3779B97F4A7C15;
    node = (node ^ node >> 31) * 0xBF58476D1CE4E5B9;
    sum += node ^ node >> 29;
  }
  return sum;
}

bool SameElement(const DenseMesh& mesh, std::uint32_t a, std::uint32_t b) {
  const auto na = mesh.Nodes(a), nb = mesh.Nodes(b);
  return mesh.Element(a).type == mesh.Element(b).type && na.size() == nb.size() &&
         std::is_permutation(na.begin(), na.end(), nb.begin());
}

}  // namespace

std::vector<Duplicate> DuplicateNodes(const DenseMesh& mesh, double tolerance,
                                      std::span<const std::uint8_t> among) {
  double farthest = 0;
  for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
    const Point3& p = mesh.Position(n);
    if (!IsFinite(p)) continue;
    farthest = std::max({farthest, std::abs(p.x), std::abs(p.y), std::abs(p.z)});
  }
  // Below the resolution of the coordinates only equal positions are near, and a grid is too fine
  // to be counted in.
  constexpr double kResolution = 1e-15;
  const double width = tolerance > kResolution * farthest ? tolerance * 1.0000001 : 0;
  const NodeGrid grid(mesh, width);
  // Only nodes that are no duplicates are kept in the cells. They are apart from each other, so
  // few fit into one however large the tolerance is.
  std::vector<std::vector<std::uint32_t>> kept(grid.CellCount());
  std::vector<Duplicate> found;
  LongWork work(mesh.NodeCount());
  for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
    work.Step();
    const std::uint32_t home = grid.CellOf(n);
    if (home == PoolNumbers::kNone || (!among.empty() && !among[n])) continue;
    std::uint32_t nearest = n;
    for (const std::uint32_t cell : grid.Around(home)) {
      for (const std::uint32_t other : kept[cell]) {
        const bool near = Length(mesh.Position(other) - mesh.Position(n)) <= tolerance;
        if (near) nearest = std::min(nearest, other);
      }
    }
    if (nearest == n) {
      kept[home].push_back(n);
    } else {
      found.push_back({n, nearest});
    }
  }
  return found;
}

std::vector<Duplicate> DuplicateElements(const DenseMesh& mesh) {
  std::vector<std::pair<std::uint64_t, std::uint32_t>> entries;
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    const bool has_extent = mesh.Shape(e) >= CornerShape::kLine;
    if (has_extent && mesh.IsUsable(e)) entries.push_back({Signature(mesh, e), e});
  }
  std::sort(entries.begin(), entries.end());
  std::vector<Duplicate> found;
  for (std::size_t i = 1, first = 0; i < entries.size(); ++i) {
    if (entries[i].first != entries[first].first) {
      first = i;
    } else if (SameElement(mesh, entries[first].second, entries[i].second)) {
      found.push_back({entries[i].second, entries[first].second});
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace qx
