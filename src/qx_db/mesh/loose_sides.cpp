// Sides that belong to one element, or to more than two.

#include <bit>

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

}  // namespace qx
