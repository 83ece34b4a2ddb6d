#include "qx_db/app/mesh_adjacency.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <compare>
#include <memory>
#include <numeric>
#include <tuple>
#include <utility>

#include "qx_db/platform/long_work.h"
#include "qx_db/platform/pages.h"
#include "qx_db/record/element_types.h"

namespace qx {
namespace {

// ---- sides by their corners ---------------------------------------------------------------------

/// A side among those with its smallest corner: its other corners in ascending order, and whose
/// side it is. Node numbers have 29 bits, which leaves three for the side.
struct SideEntry {
  static constexpr std::uint32_t kNodeMask = PoolNumbers::kNone;

  std::uint64_t second_third;
  std::uint32_t fourth_and_side;
  std::uint32_t element;

  DenseSide Side() const { return {element, fourth_and_side >> 29}; }
  /// Without a branch: whether two sides meet cannot be foretold.
  bool SameNodes(const SideEntry& other) const {
    const std::uint32_t fourth = (fourth_and_side ^ other.fourth_and_side) & kNodeMask;
    return ((second_third ^ other.second_third) | fourth) == 0;
  }
  friend bool operator<(const SideEntry& a, const SideEntry& b) {
    const auto order = [](const SideEntry& s) {
      return std::tuple(s.second_third, s.fourth_and_side & kNodeMask, s.element);
    };
    return order(a) < order(b);
  }
};

/// Faces of solids, or edges of surfaces: of the elements with these shapes.
struct SideKind {
  CornerShape first, last;
  bool faces;

  bool Has(CornerShape shape) const { return shape >= first && shape <= last; }
};
constexpr SideKind kFaces{CornerShape::kTetrahedron, CornerShape::kHexahedron, true};
constexpr SideKind kEdges{CornerShape::kTriangle, CornerShape::kQuadrilateral, false};

/// Up to four node numbers, what is missing as the largest.
using SideCorners = std::array<std::uint32_t, 4>;

inline void SortTwo(std::uint32_t& a, std::uint32_t& b) {
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
inline SideCorners Sorted(SideCorners n) {
  SortTwo(n[0], n[1]);
  SortTwo(n[2], n[3]);
  SortTwo(n[0], n[2]);
  SortTwo(n[1], n[3]);
  SortTwo(n[1], n[2]);
  return n;
}

/// The elements of a mesh that have sides of a kind, and these sides.
class SidedElements {
 public:
  SidedElements(const DenseMesh& mesh, const SideKind& kind) : mesh_(mesh), kind_(kind) {
    // Any type of a shape stands for all of them, since only corners count.
    for (std::int32_t code = element::kTri3; code <= element::kHex20; ++code) {
      const CornerShape shape = topology::ShapeOf(code);
      if (kind.Has(shape)) sides_[static_cast<std::size_t>(shape)] = SidesOf(code, kind.faces);
    }
  }

  const DenseMesh& Mesh() const { return mesh_; }
  bool Has(std::uint32_t e) const { return kind_.Has(mesh_.Shape(e)) && mesh_.IsUsable(e); }
  /// Visits the sides of an element that has them: smallest corner, and the rest.
  template <class Visit>
  void ForEachSide(std::uint32_t e, Visit&& visit) const {
    const ShapeSides& sides = sides_[static_cast<std::size_t>(mesh_.Shape(e))];
    const std::uint32_t* nodes = mesh_.Corners(e).data();
    constexpr std::uint32_t kNone = SideEntry::kNodeMask;
    for (std::uint32_t s = 0; s < sides.count; ++s) {
      const auto& at = sides.corners[s];
      const SideCorners n = Sorted({nodes[at[0]], nodes[at[1]], at[2] < 0 ? kNone : nodes[at[2]],
                                    at[3] < 0 ? kNone : nodes[at[3]]});
      visit(n[0], SideEntry{std::uint64_t{n[1]} << 32 | n[2], n[3] | s << 29, e});
    }
  }

 private:
  const DenseMesh& mesh_;
  const SideKind kind_;
  std::array<ShapeSides, 9> sides_;
};

/// Calls `meet` with each group of sides that have the same nodes, among the sides at(0) to
/// at(size - 1) that have the same smallest corner.
template <class At, class Meet>
void MeetGroups(std::size_t size, At&& at, Meet&& meet) {
  constexpr std::size_t kFew = 16;
  if (size <= kFew) {
    std::array<DenseSide, kFew> group;
    std::uint32_t met = 0;
    for (std::size_t i = 0; i < size; ++i) {
      if ((met >> i & 1) != 0) continue;
      const SideEntry& first = at(i);
      group[0] = first.Side();
      std::size_t count = 1;
      for (std::size_t j = i + 1; j < size; ++j) {
        const bool same = first.SameNodes(at(j));
        group[count] = at(j).Side();
        count += same;
        met |= std::uint32_t{same} << j;
      }
      meet(std::span<const DenseSide>(group.data(), count));
    }
    return;
  }
  std::vector<SideEntry> sorted(size);
  for (std::size_t i = 0; i < size; ++i) sorted[i] = at(i);
  std::sort(sorted.begin(), sorted.end());
  std::vector<DenseSide> group;
  for (std::size_t i = 0; i < size; ++i) {
    group.push_back(sorted[i].Side());
    if (i + 1 < size && sorted[i].SameNodes(sorted[i + 1])) continue;
    meet(std::span<const DenseSide>(group));
    group.clear();
  }
}

/// Sides by their smallest corner, each kept only until the last element with that corner has
/// come.
class OpenSides {
 public:
  explicit OpenSides(const SidedElements& elements) : nodes_(elements.Mesh().NodeCount()) {
    for (std::uint32_t e = 0; e < elements.Mesh().ElementCount(); ++e) {
      if (!elements.Has(e)) continue;
      for (const std::uint32_t node : elements.Mesh().Corners(e)) nodes_[node].last_element = e;
    }
  }

  /// How many sides were ever kept at a time.
  std::size_t Most() const { return links_.size(); }
  void Add(std::uint32_t node, const SideEntry& side) {
    std::uint32_t at = unused_;
    if (at != kNone) {
      unused_ = links_[at].next;
    } else {
      at = static_cast<std::uint32_t>(links_.size());
      links_.emplace_back();
    }
    links_[at] = {side, std::exchange(nodes_[node].first_side, at)};
  }
  /// Meets what is complete with an element, and keeps it no longer.
  template <class Meet>
  void Close(std::uint32_t element, std::span<const std::uint32_t> corners, Meet&& meet) {
    for (const std::uint32_t node : corners) {
      if (nodes_[node].last_element != element || nodes_[node].first_side == kNone) continue;
      taken_.clear();
      for (std::uint32_t at = nodes_[node].first_side; at != kNone; at = links_[at].next) {
        taken_.push_back(at);
      }
      const auto side = [&](std::size_t i) -> const SideEntry& { return links_[taken_[i]].side; };
      MeetGroups(taken_.size(), side, meet);
      links_[taken_.back()].next = std::exchange(unused_, taken_.front());
      nodes_[node].first_side = kNone;
    }
  }
  /// Visits all that is kept: smallest corner and side.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    for (std::uint32_t node = 0; node < nodes_.size(); ++node) {
      for (std::uint32_t at = nodes_[node].first_side; at != kNone; at = links_[at].next) {
        visit(node, links_[at].side);
      }
    }
  }

 private:
  static constexpr std::uint32_t kNone = ~0u;
  struct Node {
    std::uint32_t last_element = kNone;
    std::uint32_t first_side = kNone;
  };
  struct Link {
    SideEntry side;
    std::uint32_t next;
  };

  std::vector<Node> nodes_;
  std::vector<Link> links_;
  std::uint32_t unused_ = kNone;
  std::vector<std::uint32_t> taken_;
};

/// Meets the groups among all sides that `for_each` visits, by a bucket for each node.
template <class ForEach, class Meet>
void MeetByBuckets(std::uint32_t nodes, ForEach&& for_each, Meet&& meet) {
  std::vector<std::uint64_t> first(std::size_t{nodes} + 1, 0);
  for_each([&](std::uint32_t node, const SideEntry&) { ++first[std::size_t{node} + 1]; });
  std::partial_sum(first.begin(), first.end(), first.begin());
  // Not filled with zeros first: all of it is written below.
  const std::unique_ptr<SideEntry[]> entries(new SideEntry[first.back()]);
  PreferHugePages(entries.get(), first.back() * sizeof(SideEntry));
  // Filling moves each bucket's start to its end, which is the next one's start.
  for_each([&](std::uint32_t node, const SideEntry& side) { entries[first[node]++] = side; });
  const SideEntry* begin = entries.get();
  for (std::uint32_t node = 0; node < nodes; ++node) {
    const SideEntry* const end = entries.get() + first[node];
    const auto side = [&](std::size_t i) -> const SideEntry& { return begin[i]; };
    MeetGroups(static_cast<std::size_t>(end - begin), side, meet);
    begin = end;
  }
}

/// Calls `meet` with each group of sides that have the same corners.
///
/// On a mesh that is numbered with any sense few sides are open at a time, and those stay in the
/// cache. When they become too many for that, the open ones and all that are to come are divided
/// into buckets instead, which needs memory for all of them but none in random order.
template <class Meet>
void MatchSides(const DenseMesh& mesh, const SideKind& kind, Meet&& meet) {
  const SidedElements elements(mesh, kind);
  OpenSides open(elements);
  const std::size_t too_many = std::max<std::size_t>(1 << 16, mesh.ElementCount() / 4);
  LongWork work(mesh.ElementCount());
  std::uint32_t e = 0;
  for (; e < mesh.ElementCount() && open.Most() < too_many; ++e) {
    work.Step();
    if (!elements.Has(e)) continue;
    elements.ForEachSide(e,
                         [&](std::uint32_t node, const SideEntry& side) { open.Add(node, side); });
    open.Close(e, mesh.Corners(e), meet);
  }
  if (e == mesh.ElementCount()) return;
  const auto for_each_left = [&](auto&& visit) {
    open.ForEach(visit);
    for (std::uint32_t rest = e; rest < mesh.ElementCount(); ++rest) {
      if (elements.Has(rest)) elements.ForEachSide(rest, visit);
    }
  };
  MeetByBuckets(mesh.NodeCount(), for_each_left, meet);
}

/// Sides by element, a bit for each.
class SideMarks {
 public:
  explicit SideMarks(std::uint32_t elements) : marks_(elements, 0) {}
  void Mark(const DenseSide& side) {
    marks_[side.element] |= static_cast<std::uint8_t>(1u << side.side);
    ++count_;
  }
  std::vector<DenseSide> InOrder() const {
    std::vector<DenseSide> sides;
    sides.reserve(count_);
    for (std::uint32_t e = 0; e < marks_.size() && count_ > 0; ++e) {
      for (std::uint32_t rest = marks_[e]; rest != 0; rest &= rest - 1) {
        sides.push_back({e, static_cast<std::uint32_t>(std::countr_zero(rest))});
      }
    }
    return sides;
  }

 private:
  std::vector<std::uint8_t> marks_;
  std::size_t count_ = 0;
};

LooseSides FindLooseSides(const DenseMesh& mesh, const SideKind& kind) {
  SideMarks free(mesh.ElementCount()), shared(mesh.ElementCount());
  MatchSides(mesh, kind, [&](std::span<const DenseSide> group) {
    if (group.size() == 1) free.Mark(group[0]);
    if (group.size() <= 2) return;
    for (const DenseSide& side : group) shared.Mark(side);
  });
  return {free.InOrder(), shared.InOrder()};
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
  MatchSides(mesh, kEdges, [&](std::span<const DenseSide> group) {
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
    if (state[seed] != kUnmet || !kEdges.Has(mesh.Shape(seed)) || !mesh.IsUsable(seed)) continue;
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
  LongWork work(mesh.NodeCount());
  for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
    work.Step();
    const std::uint32_t home = grid.CellOf(n);
    if (home == PoolNumbers::kNone) continue;
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
