// Dividing sides by direction and into connected groups; dividing polylines.

#include <algorithm>
#include <utility>
#include <vector>

#include "qx_db/app/mesh_util.h"
#include "qx_db/app/record_numbers.h"
#include "qx_db/app/side_nodes.h"
#include "qx_db/platform/prefetch.h"

namespace qx {
namespace {

/// Which sides contain which nodes, both ways, as two arrays each: node numbers by side, and sides
/// by node number.
class SideGraph {
 public:
  SideGraph(int kind, const TArray<tagTElemSide>& sides) {
    const std::vector<ITR> corners = Corners(kind, sides);
    // Sides lie all over the mesh: what is read next is fetched ahead.
    RecordNumbers numbers;
    nodes_.reserve(corners.size());
    std::size_t at = 0;
    for (std::size_t& first : first_node_) {
      for (; at < first; ++at) {
        if (at + kAhead < corners.size()) Prefetch(corners[at + kAhead]);
        if (NodeAt(corners[at])) nodes_.push_back(numbers.Of(corners[at]));
      }
      first = nodes_.size();
    }
    first_side_.assign(numbers.Count() + 1, 0);
    for (const std::uint32_t node : nodes_) ++first_side_[node + 1];
    for (std::size_t i = 1; i < first_side_.size(); ++i) first_side_[i] += first_side_[i - 1];
    sides_.resize(nodes_.size());
    std::vector<std::size_t> next(first_side_.begin(), first_side_.end() - 1);
    for (std::size_t s = 0; s + 1 < first_node_.size(); ++s) {
      for (const std::uint32_t node : NodesOf(s)) sides_[next[node]++] = static_cast<int>(s);
    }
  }

  std::span<const std::uint32_t> NodesOf(std::size_t side) const {
    return std::span(nodes_).subspan(first_node_[side], first_node_[side + 1] - first_node_[side]);
  }
  std::span<const int> SidesOf(std::uint32_t node) const {
    return std::span(sides_).subspan(first_side_[node], first_side_[node + 1] - first_side_[node]);
  }
  std::size_t NodeCount() const { return first_side_.size() - 1; }

 private:
  static constexpr std::size_t kAhead = 16;
  /// What is needed of an element may lie across two cache lines.
  static void PrefetchTwo(std::uint64_t at) {
    Prefetch(at);
    Prefetch(at + 63);
  }

  /// The corners of all sides as they are; `first_node_` is given the end of those before each.
  std::vector<ITR> Corners(int kind, const TArray<tagTElemSide>& sides) {
    const auto* all = sides.data();
    const std::size_t count = sides.size();
    std::vector<ITR> corners;
    corners.reserve(count * 4);
    first_node_.reserve(count + 1);
    for (std::size_t s = 0; s < count; ++s) {
      if (s + 2 * kAhead < count) PrefetchTwo(all[s + 2 * kAhead].element);
      const tagTElem* next = s + kAhead < count ? ElementAt(all[s + kAhead].element) : nullptr;
      if (next) PrefetchTwo(reinterpret_cast<std::uint64_t>(next->nodes.data()));
      first_node_.push_back(corners.size());
      const SideNodes nodes(kind, all[s], false);
      corners.insert(corners.end(), nodes.Nodes().begin(), nodes.Nodes().end());
    }
    first_node_.push_back(corners.size());
    return corners;
  }

  std::vector<std::size_t> first_node_;
  std::vector<std::uint32_t> nodes_;
  std::vector<std::size_t> first_side_;
  std::vector<int> sides_;
};

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
    const bool is_with = AngleDeg(up, {normal[0], normal[1], normal[2]}) <= 90;
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
  const SideGraph graph(kind, sides);
  std::vector<char> side_met(sides.size(), 0);
  // A node hands on its sides once: the walk stays linear however many sides share it.
  std::vector<char> node_met(graph.NodeCount(), 0);
  std::vector<int> queue;
  queue.reserve(sides.size());
  for (std::size_t seed = 0; seed < sides.size(); ++seed) {
    if (side_met[seed]) continue;
    side_met[seed] = 1;
    queue.assign(1, static_cast<int>(seed));
    for (std::size_t at = 0; at < queue.size(); ++at) {
      for (const std::uint32_t node : graph.NodesOf(static_cast<std::size_t>(queue[at]))) {
        if (node_met[node]) continue;
        node_met[node] = 1;
        for (const int side : graph.SidesOf(node)) {
          if (side_met[static_cast<std::size_t>(side)]) continue;
          side_met[static_cast<std::size_t>(side)] = 1;
          queue.push_back(side);
        }
      }
    }
    groups.emplace_back(queue.begin(), queue.end());
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
