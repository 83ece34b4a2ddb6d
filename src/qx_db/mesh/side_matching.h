#pragma once
// Sides of elements that have the same corners: what free sides, orientation and more rest on.
// Threads: any; a mesh is only read.

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <numeric>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/platform/pages.h"
#include "qx_db/record/element_types.h"

namespace qx::matching {

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
inline constexpr SideKind kSolidFaces{CornerShape::kTetrahedron, CornerShape::kHexahedron, true};
inline constexpr SideKind kShellEdges{CornerShape::kTriangle, CornerShape::kQuadrilateral, false};

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

inline ShapeSides SidesOf(std::int32_t code, bool faces) {
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

/// Sides of a kind by shape: any type of a shape stands for all of them, since only corners count.
using SidesByShape = std::array<ShapeSides, 9>;
inline SidesByShape SidesByShapeOf(const SideKind& kind) {
  SidesByShape sides;
  for (std::int32_t code = element::kTri3; code <= element::kHex20; ++code) {
    const CornerShape shape = topology::ShapeOf(code);
    if (kind.Has(shape)) sides[static_cast<std::size_t>(shape)] = SidesOf(code, kind.faces);
  }
  return sides;
}

/// The elements of a mesh that have sides of a kind, and these sides.
class SidedElements {
 public:
  SidedElements(const DenseMesh& mesh, const SideKind& kind)
      : mesh_(mesh), kind_(kind), sides_(SidesByShapeOf(kind)) {}

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
  const SidesByShape sides_;
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

}  // namespace qx::matching
