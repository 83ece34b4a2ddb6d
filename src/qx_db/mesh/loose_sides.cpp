// Sides that belong to one element, or to more than two.

#include <algorithm>
#include <array>
#include <bit>
#include <numeric>

#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/mesh/side_matching.h"

namespace qx {
namespace {

using namespace matching;

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

/// Tells which solids that share a face lie on the same side of it.
class FaceSides {
 public:
  explicit FaceSides(const DenseMesh& mesh) : mesh_(mesh), sides_(SidesByShapeOf(kSolidFaces)) {}

  bool AllOnOne(std::span<const DenseSide> group) const {
    const SideCorners face = CornersOf(group[0]);
    const std::uint32_t first = group[0].element;
    for (const DenseSide& other : group.subspan(1)) {
      // The common case, neighbours, is told without a look at positions: they go round the face in
      // opposite ways, and have different corners.
      if (!TurnAlike(face, CornersOf(other)) && Sum(first) != Sum(other.element)) return false;
      if (IsAbove(first, face) != IsAbove(other.element, face)) return false;
    }
    return true;
  }

 private:
  SideCorners CornersOf(const DenseSide& side) const {
    SideCorners corners;
    const auto& places = sides_[static_cast<std::size_t>(mesh_.Shape(side.element))].corners;
    const std::uint32_t* nodes = mesh_.Corners(side.element).data();
    std::transform(places[side.side].begin(), places[side.side].end(), corners.begin(),
                   [&](std::int32_t place) { return place < 0 ? kNone : nodes[place]; });
    return corners;
  }
  static bool TurnAlike(const SideCorners& a, const SideCorners& b) {
    const std::size_t count = a[3] == kNone ? 3 : 4;
    const auto at = static_cast<std::size_t>(std::find(b.begin(), b.end(), a[0]) - b.begin());
    return b[(at + 1) % count] == a[1];
  }
  std::uint64_t Sum(std::uint32_t e) const {
    const auto corners = mesh_.Corners(e);
    return std::accumulate(corners.begin(), corners.end(), std::uint64_t{0});
  }
  /// Whether a solid has its middle on the side to which a face of its turns. By that and not by
  /// the order of its corners, as that may be wrong.
  bool IsAbove(std::uint32_t e, const SideCorners& face) const {
    const auto p = [&](std::size_t i) { return mesh_.Position(face[i]); };
    const Point3 normal =
        face[3] == kNone ? Cross(p(1) - p(0), p(2) - p(0)) : Cross(p(2) - p(0), p(3) - p(1));
    Point3 middle;
    for (const std::uint32_t n : mesh_.Corners(e)) middle += mesh_.Position(n) - p(0);
    return Dot(normal, middle) > 0;
  }

  static constexpr std::uint32_t kNone = SideEntry::kNodeMask;
  const DenseMesh& mesh_;
  const SidesByShape sides_;
};

}  // namespace

std::vector<DenseSide> OuterFaces(const DenseMesh& mesh) {
  SideMarks outer(mesh.ElementCount());
  const FaceSides sides(mesh);
  MatchSides(mesh, kSolidFaces, [&](std::span<const DenseSide> group) {
    if (group.size() > 1 && !sides.AllOnOne(group)) return;
    outer.Mark(*std::max_element(
        group.begin(), group.end(),
        [](const DenseSide& a, const DenseSide& b) { return a.element < b.element; }));
  });
  return outer.InOrder();
}

LooseSides LooseFaces(const DenseMesh& mesh) { return FindLooseSides(mesh, kSolidFaces); }

LooseSides LooseEdges(const DenseMesh& mesh) { return FindLooseSides(mesh, kShellEdges); }

TArray<tagTElemSide> ToElemSides(const DenseMesh& mesh, std::span<const DenseSide> sides) {
  TArray<tagTElemSide> out;
  out.Reserve(static_cast<std::int64_t>(sides.size()));
  for (const DenseSide& side : sides) {
    out.Add({mesh.ElementItr(side.element), static_cast<std::int32_t>(side.side)});
  }
  return out;
}

}  // namespace qx
