// Dividing sides by direction and into connected groups; dividing polylines.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/side_nodes.h"
#include "qx_db/platform/parallel.h"
#include "qx_db/platform/prefetch.h"

namespace qx {
namespace {

constexpr std::uint32_t kNoCorner = ~0u;
/// Corners are numbered over all sides; every side has room for the most that one can have.
constexpr std::uint32_t kCornersOfSide = 4;

/// The corners of sides that lie on the same node, chained into a ring. Nodes are told apart by
/// their iterators alone, so that none of their records, which lie all over the mesh, is read.
class CornerRings {
 public:
  /// Of all corners but those with no node, 0. The span is to live as long.
  explicit CornerRings(std::span<const ITR> nodes)
      : nodes_(nodes),
        next_(nodes.size(), kNoCorner),
        last_(std::bit_ceil(nodes.size() / 2 + 2), kNoCorner) {
    constexpr std::size_t kAhead = 16;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      if (i + kAhead < nodes.size()) Prefetch(&last_[PlaceOf(nodes[i + kAhead])]);
      if (nodes[i] != 0) Add(static_cast<std::uint32_t>(i));
    }
  }

  /// Visits the corners of the ring that a corner is in, which ends with it, and dissolves the
  /// ring: a node hands on its sides once, so that a walk stays linear however many share it.
  template <class Visit>
  void Take(std::uint32_t corner, Visit&& visit) {
    std::uint32_t at = std::exchange(next_[corner], kNoCorner);
    while (at != kNoCorner) {
      visit(at);
      at = std::exchange(next_[at], kNoCorner);
    }
  }

 private:
  void Add(std::uint32_t corner) {
    if (2 * (used_ + 1) > last_.size()) Grow();
    std::uint32_t& last = LastOf(nodes_[corner]);
    if (last == kNoCorner) {
      next_[corner] = corner;
      ++used_;
    } else {
      next_[corner] = std::exchange(next_[last], corner);
    }
    last = corner;
  }
  /// Where to start looking for a node.
  std::size_t PlaceOf(ITR node) const {
    constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15;  // 2^64 by the golden ratio
    return (node * kGolden >> 32) & (last_.size() - 1);
  }
  /// The place of the last corner on a node, or the free one that it is to have.
  std::uint32_t& LastOf(ITR node) {
    std::size_t at = PlaceOf(node);
    while (last_[at] != kNoCorner && nodes_[last_[at]] != node) at = (at + 1) & (last_.size() - 1);
    return last_[at];
  }
  void Grow() {
    std::vector<std::uint32_t> old(2 * last_.size(), kNoCorner);
    old.swap(last_);
    for (const std::uint32_t corner : old) {
      if (corner != kNoCorner) LastOf(nodes_[corner]) = corner;
    }
  }

  std::span<const ITR> nodes_;
  std::vector<std::uint32_t> next_;
  std::vector<std::uint32_t> last_;  ///< by node; a power of two, at least half of them free
  std::size_t used_ = 0;
};

/// The corners of sides `first` to `end`, 0 where there is none. Elements lie all over the memory,
/// so what the next ones read is on its way while one is taken.
void TakeCorners(int kind, std::span<const tagTElemSide> sides, std::size_t first, std::size_t end,
                 ITR* corners) {
  constexpr std::size_t kAhead = 16;
  for (std::size_t s = first; s < end; ++s) {
    if (s + 2 * kAhead < end) {
      const std::uint64_t far = sides[s + 2 * kAhead].element;
      Prefetch(far);
      Prefetch(far + 35);  // up to the list of its nodes, maybe on the next cache line
    }
    const tagTElem* near = s + kAhead < end ? ElementAt(sides[s + kAhead].element) : nullptr;
    if (near) {
      Prefetch(near->nodes.begin());
      Prefetch(near->nodes.end());
    }
    const SideNodes nodes(kind, sides[s], false);
    for (std::size_t c = 0; c < kCornersOfSide; ++c) {
      corners[s * kCornersOfSide + c] = c < nodes.Count() ? nodes.Nodes()[c] : 0;
    }
  }
}

/// The corners of all sides.
std::unique_ptr<ITR[]> CornersOf(int kind, std::span<const tagTElemSide> sides) {
  constexpr std::size_t kLeast = 50000;  // below that a thread costs more than it saves
  // Not filled with zeros first: all of it is written.
  std::unique_ptr<ITR[]> corners(new ITR[sides.size() * kCornersOfSide]);
  ParallelFor(sides.size(), kLeast, [&](std::size_t first, std::size_t end) {
    TakeCorners(kind, sides, first, end, corners.get());
  });
  return corners;
}

/// Walks a polyline and places a point every `step`.
std::vector<Point3> PlacePoints(const TArray<tagTVector3<double>>& points, double step,
                                std::size_t most) {
  std::vector<Point3> placed;
  double running = 0;
  for (std::int32_t i = 0; i + 1 < points.GetSize() && placed.size() < most; ++i) {
    Point3 start = points[i];
    const Point3 end = points[i + 1];
    double rest = Length(end - start);
    while (running + rest >= step && placed.size() < most) {
      start += ((step - running) / rest) * (end - start);
      placed.push_back(start);
      running = 0;
      rest = Length(end - start);
    }
    running += rest;
  }
  return placed;
}

}  // namespace

int CQXMeshUtil::ConvertStartEndElem(int kind, const TArray<tagTElemSide>& sides,
                                     TArray<tagTElemSide>& start, TArray<tagTElemSide>& end,
                                     const double* reference_normal) const {
  // Collected apart, so that an output may be the input.
  TArray<tagTElemSide> with, against;
  const auto normal_of = [&](const tagTElemSide& side, double* normal) {
    const SideNodes nodes(kind, side, true);
    if (nodes.Count() < 3) return 0;
    return GetNormalVecByNodes(nodes.Nodes()[0], nodes.Nodes()[1], nodes.Nodes()[2], normal);
  };
  double reference[3];
  bool has_reference = !sides.IsEmpty();
  if (has_reference && reference_normal) {
    std::copy_n(reference_normal, 3, reference);
  } else if (has_reference) {
    has_reference = normal_of(sides[0], reference) != 0;
  }
  for (std::int32_t i = 0; has_reference && i < sides.GetSize(); ++i) {
    double normal[3];
    if (!normal_of(sides[i], normal)) continue;
    const Point3 up(reference[0], reference[1], reference[2]);
    const bool is_with = AngleBetween(up, {normal[0], normal[1], normal[2]}) <= 90;
    (is_with ? with : against).Add(sides[i]);
  }
  start = std::move(with);
  end = std::move(against);
  return has_reference ? 1 : 0;
}

std::int32_t CQXMeshUtil::GroupElemSide(int kind, const TArray<tagTElemSide>& sides,
                                        std::list<std::list<int>>& groups) const {
  groups.clear();
  if (kind != kFaceSide && kind != kEdgeSide) return 0;
  const auto corners = CornersOf(kind, {sides.data(), sides.size()});
  CornerRings rings({corners.get(), sides.size() * kCornersOfSide});
  std::vector<char> met(sides.size(), 0);
  for (std::size_t seed = 0; seed < sides.size(); ++seed) {
    if (met[seed]) continue;
    met[seed] = 1;
    std::list<int>& group = groups.emplace_back(1, static_cast<int>(seed));
    for (const int member : group) {  // and those that join meanwhile
      const std::uint32_t first = static_cast<std::uint32_t>(member) * kCornersOfSide;
      for (std::uint32_t corner = first; corner < first + kCornersOfSide; ++corner) {
        rings.Take(corner, [&](std::uint32_t other) {
          const std::uint32_t side = other / kCornersOfSide;
          if (std::exchange(met[side], 1) == 0) group.push_back(static_cast<int>(side));
        });
      }
    }
  }
  return static_cast<std::int32_t>(groups.size());
}

std::int32_t CQXMeshUtil::GetPosListBtwManyNode(const TArray<tagTVector3<double>>& points,
                                                std::int32_t n,
                                                TArray<tagTVector3<double>>& out) const {
  double length = 0;
  for (std::int32_t i = 0; i + 1 < points.GetSize(); ++i) {
    length += Length(Point3(points[i + 1]) - Point3(points[i]));
  }
  const bool nothing = n <= 0 || points.IsEmpty();
  const double step = nothing ? 0 : length / (n + 1.0);
  std::vector<Point3> placed;
  if (step > 0) placed = PlacePoints(points, step, static_cast<std::size_t>(n));
  out.RemoveAll();
  if (nothing) return 0;
  out.SetSize(n);
  for (std::size_t i = 0; i < placed.size(); ++i) {
    out[static_cast<std::ptrdiff_t>(i)] = {placed[i].x, placed[i].y, placed[i].z};
  }
  return n;
}

std::int32_t CQXMeshUtil::GetPosListBtwManyNode(const CArray<tagTVector3<double>>& points,
                                                std::int32_t n,
                                                CArray<tagTVector3<double>>& out) const {
  TArray<tagTVector3<double>> in;
  TArray<tagTVector3<double>> divided;
  in.Assign(points.GetData(), static_cast<std::size_t>(points.GetSize()));
  const std::int32_t count = GetPosListBtwManyNode(in, n, divided);
  out.SetSize(count);
  for (std::int32_t i = 0; i < count; ++i) out[i] = divided[i];
  return count;
}

}  // namespace qx
