#include "qx_db/model/seed_match.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <optional>

namespace qx {
namespace {

constexpr double kCoincide = 1e-5;  // of an edge's length

/// What twins have in common whatever their direction and, closed ones, wherever they begin.
struct EdgeMark {
  int edge;
  double length;
  CadPoint center;  ///< of arc length, roughly
};

std::optional<EdgeMark> Mark(const ICADSession& cad, int edge) {
  constexpr std::size_t kSamples = 64;
  const double length = cad.GetEdgeLength(edge);
  if (!(length > 0)) return std::nullopt;
  std::array<double, kSamples> at;
  std::array<CadPoint, kSamples> points;
  for (std::size_t i = 0; i < kSamples; ++i) {
    at[i] = length * (static_cast<double>(i) + 0.5) / kSamples;
  }
  if (!cad.GetParametersAtLengths(edge, at, at.data())) return std::nullopt;
  if (!cad.GetPoints(edge, at, points.data())) return std::nullopt;
  CadPoint sum;
  for (const CadPoint& point : points) sum = sum + point;
  return EdgeMark{edge, length, (1.0 / kSamples) * sum};
}

/// Whether points all along `edge` lie on `other`.
bool LiesOn(const ICADSession& cad, const EdgeMark& edge, int other) {
  for (int i = 0; i <= 8; ++i) {
    double parameter;
    double distance;
    CadPoint point;
    if (!cad.GetParameterAtLength(edge.edge, edge.length * i / 8, parameter) ||
        !cad.GetPoint(edge.edge, parameter, point) ||
        !FindNearest(cad, other, point, parameter, distance) ||
        !(distance <= kCoincide * edge.length)) {
      return false;
    }
  }
  return true;
}

bool AreTwins(const ICADSession& cad, const EdgeMark& a, const EdgeMark& b) {
  if (std::fabs(a.length - b.length) > kCoincide * a.length) return false;
  if (Distance(a.center, b.center) > 1e-2 * a.length) return false;
  return LiesOn(cad, a, b.edge) && LiesOn(cad, b, a.edge);
}

/// The seeds of an edge as a walk that can begin anywhere and go either way.
class SeedWalk {
 public:
  SeedWalk(const std::vector<CadPoint>& points, bool closed)
      : points_(points), count_(closed ? points.size() - 1 : points.size()) {}

  std::size_t Count() const { return count_; }
  const CadPoint& At(std::size_t start, std::size_t i, bool backwards) const {
    const std::size_t step = i % count_;
    return points_[(backwards ? start + count_ - step : start + step) % count_];
  }
  std::size_t Nearest(const CadPoint& to) const {
    std::size_t best = 0;
    for (std::size_t i = 1; i < count_; ++i) {
      if (Distance(points_[i], to) < Distance(points_[best], to)) best = i;
    }
    return best;
  }

 private:
  const std::vector<CadPoint>& points_;
  std::size_t count_;
};

/// The largest distance between seeds at the same place of two walks, the better way round.
double LargestGap(const SeedWalk& a, const SeedWalk& b) {
  double best = HUGE_VAL;
  const std::size_t start = b.Nearest(a.At(0, 0, false));
  for (const bool backwards : {false, true}) {
    double gap = 0;
    for (std::size_t i = 0; i < a.Count(); ++i) {
      gap = std::max(gap, Distance(a.At(0, i, false), b.At(start, i, backwards)));
    }
    best = std::min(best, gap);
  }
  return best;
}

std::optional<SeedMismatch> CompareTwins(const ICADSession& cad, int a, int b,
                                         const EdgeSeeds& of_a, const EdgeSeeds& of_b) {
  if (of_a.Divisions() != of_b.Divisions()) {
    return SeedMismatch{a, b,
                        fmt::format("{} and {} divisions on edges that lie on each other",
                                    of_a.Divisions(), of_b.Divisions())};
  }
  const bool closed = cad.IsClosed(a);
  const double gap = LargestGap(SeedWalk(of_a.points, closed), SeedWalk(of_b.points, closed));
  if (gap <= 2 * kCoincide * cad.GetEdgeLength(a)) return std::nullopt;
  return SeedMismatch{
      a, b, fmt::format("seeds lie up to {:.6g} apart on edges that lie on each other", gap)};
}

/// The ends of the seeds of one loop; empty unless all of its edges are seeded.
struct SeedEnd {
  int edge;
  CadPoint point;
};
std::vector<SeedEnd> EndsOf(const ICADSession& cad, const CadFace& face, int loop,
                            const SeedsByEdge& seeds) {
  std::vector<SeedEnd> ends;
  for (const CadEdgeUse& use : face.edges) {
    if (use.loop != loop || cad.GetEdgeKind(use.edge) == EdgeKind::kDegenerate) continue;
    const auto found = seeds.find(use.edge);
    if (found == seeds.end()) return {};
    ends.push_back({use.edge, found->second.points.front()});
    ends.push_back({use.edge, found->second.points.back()});
  }
  return ends;
}

void CheckLoop(const ICADSession& cad, const CadFace& face, int loop, const SeedsByEdge& seeds,
               std::vector<SeedMismatch>& out) {
  const std::vector<SeedEnd> ends = EndsOf(cad, face, loop, seeds);
  for (std::size_t i = 0; i < ends.size(); ++i) {
    double nearest = HUGE_VAL;
    for (std::size_t j = 0; j < ends.size(); ++j) {
      if (i != j) nearest = std::min(nearest, Distance(ends[i].point, ends[j].point));
    }
    // Edges of one face meet within the tolerance of the part, which files keep below this.
    if (nearest <= 1e-3 * cad.GetEdgeLength(ends[i].edge)) continue;
    out.push_back(
        {ends[i].edge, 0,
         fmt::format("seeds end {:.6g} short of the next edge of face {}", nearest, face.number)});
  }
}

}  // namespace

std::vector<std::pair<int, int>> FindTwinEdges(const ICADSession& cad) {
  std::vector<EdgeMark> marks;
  for (int edge = 1; edge <= cad.GetEdgeCount(); ++edge) {
    if (const auto mark = Mark(cad, edge)) marks.push_back(*mark);
  }
  // Twins have nearly the same length, so only neighbours in this order need a closer look.
  std::sort(marks.begin(), marks.end(),
            [](const EdgeMark& a, const EdgeMark& b) { return a.length < b.length; });
  std::vector<std::pair<int, int>> twins;
  for (std::size_t i = 0; i < marks.size(); ++i) {
    for (std::size_t j = i + 1; j < marks.size(); ++j) {
      if (marks[j].length > marks[i].length * (1 + kCoincide)) break;
      if (!AreTwins(cad, marks[i], marks[j])) continue;
      twins.push_back(std::minmax(marks[i].edge, marks[j].edge));
    }
  }
  std::sort(twins.begin(), twins.end());
  return twins;
}

std::vector<SeedMismatch> CheckSeedsMatch(const ICADSession& cad,
                                          const std::vector<std::pair<int, int>>& twins,
                                          const SeedsByEdge& seeds) {
  std::vector<SeedMismatch> mismatches;
  for (const auto& [a, b] : twins) {
    const auto of_a = seeds.find(a);
    const auto of_b = seeds.find(b);
    if (of_a == seeds.end() || of_b == seeds.end()) continue;
    if (auto mismatch = CompareTwins(cad, a, b, of_a->second, of_b->second)) {
      mismatches.push_back(std::move(*mismatch));
    }
  }
  for (const CadFace& face : cad.GetTopology().faces) {
    const int loops = face.edges.empty() ? 0 : face.edges.back().loop + 1;
    for (int loop = 0; loop < loops; ++loop) CheckLoop(cad, face, loop, seeds, mismatches);
  }
  return mismatches;
}

}  // namespace qx
