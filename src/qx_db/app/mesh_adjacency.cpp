#include "qx_db/app/mesh_adjacency.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <compare>
#include <memory>
#include <numeric>

#include "qx_db/platform/pages.h"

namespace qx {
namespace {

// ---- sides by their corners ---------------------------------------------------------------------

/// A side in the bucket of its smallest corner: its other corners in ascending order, and whose
/// side it is. Node numbers have 29 bits, which leaves three for the side.
struct SideEntry {
  static constexpr std::uint32_t kNodeMask = RecordNumbers::kNone;

  std::uint64_t second_third;
  std::uint32_t fourth_and_side;
  std::uint32_t element;

  std::uint32_t Fourth() const { return fourth_and_side & kNodeMask; }
  DenseSide Side() const { return {element, fourth_and_side >> 29}; }
  bool SameNodes(const SideEntry& other) const {
    return second_third == other.second_third && Fourth() == other.Fourth();
  }
  friend bool operator<(const SideEntry& a, const SideEntry& b) {
    if (a.second_third != b.second_third) return a.second_third < b.second_third;
    if (a.Fourth() != b.Fourth()) return a.Fourth() < b.Fourth();
    return a.element < b.element;
  }
};

bool IsSolid(CornerShape shape) { return shape >= CornerShape::kTetrahedron; }
bool IsSurface(CornerShape shape) {
  return shape == CornerShape::kTriangle || shape == CornerShape::kQuadrilateral;
}

/// Faces of solids, or edges of surfaces.
struct SideKind {
  bool (*has)(CornerShape);
  bool faces;
};
constexpr SideKind kFaces{IsSolid, true};
constexpr SideKind kEdges{IsSurface, false};

/// Up to four node numbers, what is missing as the largest.
using SideCorners = std::array<std::uint32_t, 4>;

void SortTwo(std::uint32_t& a, std::uint32_t& b) {
  const std::uint32_t low = std::min(a, b);
  b = std::max(a, b);
  a = low;
}

/// Sides of one kind for all types, so that the loop over elements reads no table row.
struct ShapeSides {
  std::uint32_t count = 0;
  std::array<std::array<std::int32_t, 4>, 6> corners{};  ///< -1 for none
};

ShapeSides SidesOf(std::int32_t code, bool faces) {
  const ElementTopology type(code);
  ShapeSides sides;
  sides.count = static_cast<std::uint32_t>(faces ? type.Faces() : type.Edges());
  for (std::uint32_t s = 0; s < sides.count; ++s) {
    const auto number = static_cast<std::int32_t>(s);
    const auto places = faces ? type.Face(number, false) : type.Edge(number, false);
    sides.corners[s].fill(-1);
    std::copy(places.begin(), places.end(), sides.corners[s].begin());
  }
  return sides;
}

/// The same in ascending order.
SideCorners Sorted(SideCorners n) {
  SortTwo(n[0], n[1]);
  SortTwo(n[2], n[3]);
  SortTwo(n[0], n[2]);
  SortTwo(n[1], n[3]);
  SortTwo(n[1], n[2]);
  return n;
}

/// Visits every side of the kind: its corners as they come, element, and side number.
template <class Visit>
void ForEachSide(const DenseMesh& mesh, const SideKind& kind, Visit&& visit) {
  std::array<ShapeSides, 9> known;
  std::array<bool, 9> have{};
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    if (!kind.has(mesh.Shape(e)) || !mesh.IsUsable(e)) continue;
    // One linear type of each shape stands for all: only corners count.
    const auto shape = static_cast<std::size_t>(mesh.Shape(e));
    if (!have[shape]) {
      known[shape] = SidesOf(mesh.Element(e).type, kind.faces);
      have[shape] = true;
    }
    const std::uint32_t* nodes = mesh.Corners(e).data();
    const ShapeSides& sides = known[shape];
    for (std::uint32_t s = 0; s < sides.count; ++s) {
      const auto& at = sides.corners[s];
      visit(SideCorners{nodes[at[0]], nodes[at[1]], at[2] < 0 ? SideEntry::kNodeMask : nodes[at[2]],
                        at[3] < 0 ? SideEntry::kNodeMask : nodes[at[3]]},
            e, s);
    }
  }
}

/// Calls `meet` with each group of sides that have the same corners.
template <class Meet>
void MatchSides(const DenseMesh& mesh, const SideKind& kind, Meet&& meet) {
  std::vector<std::uint64_t> first(std::size_t{mesh.NodeCount()} + 1, 0);
  ForEachSide(mesh, kind, [&](const SideCorners& n, std::uint32_t, std::uint32_t) {
    ++first[std::size_t{std::min(std::min(n[0], n[1]), std::min(n[2], n[3]))} + 1];
  });
  for (std::size_t i = 1; i < first.size(); ++i) first[i] += first[i - 1];
  // Not filled with zeros first: all of it is written below.
  const std::unique_ptr<SideEntry[]> entries(new SideEntry[first.back()]);
  PreferHugePages(entries.get(), first.back() * sizeof(SideEntry));
  // Filling moves each bucket's start to its end, which is the next one's start.
  ForEachSide(
      mesh, kind, [&](const SideCorners& corners, std::uint32_t element, std::uint32_t side) {
        const SideCorners n = Sorted(corners);
        entries[first[n[0]]++] = {std::uint64_t{n[1]} << 32 | n[2], n[3] | side << 29, element};
      });
  std::size_t begin = 0;
  for (std::uint32_t node = 0; node < mesh.NodeCount(); ++node) {
    const std::size_t end = first[node];
    std::sort(entries.get() + begin, entries.get() + end);
    while (begin < end) {
      std::size_t next = begin + 1;
      while (next < end && entries[next].SameNodes(entries[begin])) ++next;
      meet(std::span<const SideEntry>(entries.get() + begin, next - begin));
      begin = next;
    }
  }
}

LooseSides FindLooseSides(const DenseMesh& mesh, const SideKind& kind) {
  LooseSides loose;
  MatchSides(mesh, kind, [&](std::span<const SideEntry> group) {
    if (group.size() == 1) loose.free.push_back(group[0].Side());
    if (group.size() <= 2) return;
    for (const SideEntry& entry : group) loose.shared.push_back(entry.Side());
  });
  return loose;
}

// ---- groups -------------------------------------------------------------------------------------

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

// ---- orientation of shells ----------------------------------------------------------------------

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
  MatchSides(mesh, kEdges, [&](std::span<const SideEntry> group) {
    if (group.size() != 2 || group[0].element == group[1].element) return;
    const bool same = WalksUp(mesh, group[0].Side()) == WalksUp(mesh, group[1].Side());
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

LooseSides LooseFaces(const DenseMesh& mesh) { return FindLooseSides(mesh, kFaces); }

LooseSides LooseEdges(const DenseMesh& mesh) { return FindLooseSides(mesh, kEdges); }

TArray<tagTElemSide> ToElemSides(const DenseMesh& mesh, std::span<const DenseSide> sides) {
  TArray<tagTElemSide> out;
  out.Reserve(static_cast<std::int64_t>(sides.size()));
  for (const DenseSide& side : sides) {
    out.Add({mesh.ElementItr(side.element), static_cast<std::int32_t>(side.side)});
  }
  return out;
}

ShellOrientation OrientShells(const DenseMesh& mesh) {
  const NeighbourLists lists(mesh.ElementCount(), ShellNeighbours(mesh));
  enum : char { kUnmet, kAsIs, kTurned };
  std::vector<char> state(mesh.ElementCount(), kUnmet);
  std::vector<std::uint32_t> patch;
  ShellOrientation result;
  for (std::uint32_t seed = 0; seed < mesh.ElementCount(); ++seed) {
    if (state[seed] != kUnmet || !IsSurface(mesh.Shape(seed)) || !mesh.IsUsable(seed)) continue;
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

Parts ConnectedParts(const DenseMesh& mesh) {
  constexpr std::uint32_t kNoPart = ~0u;
  DisjointSets sets(mesh.NodeCount());
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
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

// ---- duplicates ---------------------------------------------------------------------------------

namespace {

/// A cube of space, by its place in a grid.
struct Cell {
  double x, y, z;
  friend bool operator==(const Cell&, const Cell&) = default;
  friend auto operator<=>(const Cell&, const Cell&) = default;
};

/// Nodes by cubes a little wider than a tolerance, so that what is near is in the same cube or the
/// next; and the cubes next to each. Without a width, cubes are points.
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
    cell_of_node_.assign(mesh.NodeCount(), RecordNumbers::kNone);
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

std::vector<Duplicate> DuplicateNodes(const DenseMesh& mesh, double tolerance) {
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
  for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
    const std::uint32_t home = grid.CellOf(n);
    if (home == RecordNumbers::kNone) continue;
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

std::vector<std::uint32_t> UnreferencedNodes(const DenseMesh& mesh) {
  std::vector<char> used(mesh.NodeCount(), 0);
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    for (const std::uint32_t node : mesh.Nodes(e)) {
      if (node != RecordNumbers::kNone) used[node] = 1;
    }
  }
  std::vector<std::uint32_t> unused;
  for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
    if (!used[n]) unused.push_back(n);
  }
  return unused;
}

}  // namespace qx
