#include "qx_db/mesh/quality_values.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "qx_db/core/session.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/quality_formulas.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/platform/parallel.h"
#include "qx_db/platform/prefetch.h"

namespace qx {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// What turns a measure of a shape from model units into current ones.
double UnitFactor(Measure measure, CornerShape shape, double length_factor) {
  if (measure == Measure::kDimension) return length_factor;
  if (measure != Measure::kSize && measure != Measure::kJacobian) return 1;
  if (shape == CornerShape::kLine) return length_factor;
  if (shape < CornerShape::kTetrahedron) return length_factor * length_factor;
  return length_factor * length_factor * length_factor;
}

constexpr std::size_t kShapes = static_cast<std::size_t>(CornerShape::kHexahedron) + 1;
using BySize = std::array<double, kShapes>;

/// Elements below which a thread costs more than it saves.
constexpr std::size_t kLeastWork = 50000;

/// How many elements are taken at a time: of one thread as many as stay in its cache from the walk
/// along their list until they are rated.
std::size_t AtOnce() { return WorkThreads() == 1 ? 4096 : 4 * kLeastWork * WorkThreads(); }

/// Where the corners of an element lie, before their positions are read.
template <class Node>
using CornerNodes = std::array<const Node*, 8>;

/// The corners of the elements of a mesh in its arrays.
struct DenseSource {
  using Node = Point3;
  const DenseMesh& mesh;

  static const Point3& PositionOf(const Node& node) { return node; }
  std::size_t Count() const { return mesh.ElementCount(); }
  /// Calls `work(first, end)` for all elements, in ranges, on the threads there are: ranges at once
  /// where they have at least `least` elements.
  template <class Work>
  void ForRanges(std::size_t least, Work&& work) {
    LongWork steps(Count());
    for (std::size_t i = 0; i < Count(); i += AtOnce()) {
      const std::size_t count = std::min(AtOnce(), Count() - i);
      ParallelFor(count, least,
                  [&](std::size_t first, std::size_t end) { work(i + first, i + end); });
      steps.Step(count);
    }
  }
  /// Has the corners of the elements of a range that are rated written to `place_for(shape)`, then
  /// calls `visit(e, shape)`. Coordinates may be no numbers.
  template <class PlaceFor, class Visit>
  void ForEach(std::size_t first, std::size_t end, PlaceFor&& place_for, Visit&& visit) const {
    for (std::size_t i = first; i < end; ++i) {
      const auto e = static_cast<std::uint32_t>(i);
      if (!IsRated(mesh, e)) continue;
      const Node** corner = place_for(mesh.Shape(e)).data();
      for (const std::uint32_t n : mesh.Corners(e)) *corner++ = &mesh.Position(n);
      visit(i, mesh.Shape(e));
    }
  }
};

/// The same from the records. These lie all over the memory: what the next elements will read is
/// on its way while one is rated, first their records, then their lists of nodes, then the nodes.
class RecordSource {
 public:
  using Node = tagTNode;

  explicit RecordSource(const CQXDBSession& session) : pool_(session.GetDataPool(code::kElem)) {}

  static Point3 PositionOf(const Node& node) { return node.position; }
  std::size_t Count() const { return pool_ ? static_cast<std::size_t>(pool_->GetSize()) : 0; }
  template <class Work>
  void ForRanges(std::size_t least, Work&& work) {
    LongWork steps(Count());
    elements_.reserve(std::min(AtOnce(), Count()));
    ITR at = Count() > 0 ? pool_->GetHeadPosition() : 0;
    for (offset_ = 0; at; offset_ += elements_.size()) {
      elements_.clear();
      for (; at && elements_.size() < AtOnce(); pool_->Set().Next(at)) elements_.push_back(at);
      ParallelFor(elements_.size(), least, work);
      steps.Step(elements_.size());
    }
  }
  template <class PlaceFor, class Visit>
  void ForEach(std::size_t first, std::size_t end, PlaceFor&& place_for, Visit&& visit) const {
    constexpr std::size_t kNodesAhead = 6, kListAhead = 16;
    for (std::size_t i = first; i < end; ++i) {
      if (i + kListAhead < end) Prefetch(ElementOf(i + kListAhead).nodes.begin());
      if (i + kNodesAhead < end) {
        for (const ITR node : ElementOf(i + kNodesAhead).nodes) {
          Prefetch(node);
          Prefetch(node + kEndOfPosition);
        }
      }
      const tagTElem& element = ElementOf(i);
      const CornerShape shape = topology::ShapeOf(element.type);
      if (shape == CornerShape::kNone) continue;
      if (Read(element, shape, place_for(shape))) visit(offset_ + i, shape);
    }
  }

 private:
  static constexpr std::uint64_t kEndOfPosition = 40;

  const tagTElem& ElementOf(std::size_t i) const {
    return *static_cast<const tagTElem*>(KeyedSetBase::RecordAt(elements_[i]));
  }
  /// Whether nothing is wrong with the nodes, save for the positions of the first of them, which
  /// are the corners.
  static bool Read(const tagTElem& element, CornerShape shape, CornerNodes<Node>& corners) {
    const auto nodes = static_cast<std::size_t>(ElementTopology(element.type).Nodes());
    const auto corner_count = static_cast<std::size_t>(TableOf(shape).corners);
    if (element.nodes.size() != nodes) return false;
    const ITR* const list = element.nodes.data();
    for (std::size_t i = 0; i < corner_count; ++i) {
      corners[i] = NodeAt(list[i]);
      if (!corners[i]) return false;
    }
    for (std::size_t i = corner_count; i < nodes; ++i) {
      const tagTNode* const node = NodeAt(list[i]);
      if (!node || !IsFinite(node->position)) return false;
    }
    return true;
  }

  const DPoolBase* pool_;
  std::vector<ITR> elements_;  ///< of the ranges at hand
  std::size_t offset_ = 0;     ///< the number of the first of them
};

/// Takes the positions of an element's corners; false when a coordinate is no number.
template <class Source>
bool TakePositions(CornerShape shape, const CornerNodes<typename Source::Node>& nodes,
                   Point3* corners) {
  const auto count = static_cast<std::size_t>(TableOf(shape).corners);
  double finite = 0;  // what is no number leaves it one no more
  for (std::size_t c = 0; c < count; ++c) {
    const Point3 p = Source::PositionOf(*nodes[c]);
    finite += 0 * p.x + 0 * p.y + 0 * p.z;
    corners[c] = p;
  }
  return finite == 0;
}

/// The mean length, area or volume of each shape's elements.
template <class Source>
BySize MeanSizes(Source source) {
  // On one thread: a sum depends on its order.
  BySize sizes{}, counts{};
  CornerNodes<typename Source::Node> nodes;
  source.ForRanges(source.Count() + 1, [&](std::size_t first, std::size_t end) {
    source.ForEach(
        first, end, [&](CornerShape) -> auto& { return nodes; },
        [&](std::size_t, CornerShape shape) {
          Point3 corners[8];
          if (!TakePositions<Source>(shape, nodes, corners)) return;
          sizes[static_cast<std::size_t>(shape)] += std::abs(ShapeSize(shape, corners));
          ++counts[static_cast<std::size_t>(shape)];
        });
  });
  for (std::size_t i = 0; i < kShapes; ++i) sizes[i] /= std::max(counts[i], 1.0);
  return sizes;
}

/// Rates elements by one measure, two of a shape at a time where there is a formula for two, into
/// an array of values that begins as no numbers.
template <class Source>
class Rating {
 public:
  Rating(const MeasureInfo& info, const BySize& means, double length_factor,
         std::vector<double>& values)
      : info_(info), means_(means), values_(values) {
    for (std::size_t i = 0; i < kShapes; ++i) {
      const auto shape = static_cast<CornerShape>(i);
      factors_[i] = UnitFactor(info.measure, shape, length_factor);
      of_two_[i] = quality::FindFormulaOfTwo(info.measure, shape);
    }
  }

  /// Those of a source from `first` to `end`. Threads: any number at once, on ranges of their own.
  void Rate(const Source& source, std::size_t first, std::size_t end) const {
    std::array<Pair, kShapes> pairs;
    source.ForEach(
        first, end,
        [&](CornerShape shape) -> Nodes& {
          Pair& pair = pairs[static_cast<std::size_t>(shape)];
          return pair.nodes[pair.count];
        },
        [&](std::size_t e, CornerShape shape) {
          Pair& pair = pairs[static_cast<std::size_t>(shape)];
          pair.e[pair.count] = e;
          if (!of_two_[static_cast<std::size_t>(shape)]) {
            RateOne(shape, pair, 0);
          } else if (++pair.count == kLanes) {
            RateTwo(shape, pair);
            pair.count = 0;
          }
        });
    for (std::size_t i = 0; i < kShapes; ++i) {
      if (pairs[i].count == 0) continue;
      pairs[i].nodes[1] = pairs[i].nodes[0];
      pairs[i].e[1] = pairs[i].e[0];
      RateTwo(static_cast<CornerShape>(i), pairs[i]);
    }
  }

 private:
  using Nodes = CornerNodes<typename Source::Node>;
  /// Elements of one shape that wait for their formula.
  struct Pair {
    std::size_t count = 0;
    std::size_t e[kLanes];
    Nodes nodes[kLanes];
  };

  void RateOne(CornerShape shape, const Pair& pair, int i) const {
    Point3 corners[8];
    if (!TakePositions<Source>(shape, pair.nodes[i], corners)) return;
    const double mean = means_[static_cast<std::size_t>(shape)];
    Store(pair.e[i], shape, Quality(info_.measure, shape, corners, mean));
  }
  void RateTwo(CornerShape shape, const Pair& pair) const {
    LanePoint corners[8];
    const auto count = static_cast<std::size_t>(TableOf(shape).corners);
    Lanes sum{};
    for (std::size_t c = 0; c < count; ++c) {
      const Point3 p = Source::PositionOf(*pair.nodes[0][c]);
      const Point3 q = Source::PositionOf(*pair.nodes[1][c]);
      corners[c] = {Lanes{p.x, q.x}, Lanes{p.y, q.y}, Lanes{p.z, q.z}};
      sum += corners[c].x + corners[c].y + corners[c].z;
    }
    // One that is no number leaves the sum none; so may numbers that are too large for a sum.
    if (!std::isfinite(sum[0] + sum[1])) {
      for (int i = 0; i < kLanes; ++i) RateOne(shape, pair, i);
      return;
    }
    const Lanes values = of_two_[static_cast<std::size_t>(shape)](shape, corners);
    for (int i = 0; i < kLanes; ++i) Store(pair.e[i], shape, values[i]);
  }
  void Store(std::size_t e, CornerShape shape, double value) const {
    constexpr double kNoise = 1e-14;  // of what would be nothing in exact numbers
    const bool is_nothing = info_.acceptable.has_value() && std::abs(value) < kNoise;
    values_[e] = is_nothing ? 0.0 : value * factors_[static_cast<std::size_t>(shape)];
  }

  const MeasureInfo& info_;
  const BySize& means_;
  std::vector<double>& values_;
  BySize factors_{};
  std::array<quality::FormulaOfTwo, kShapes> of_two_{};
};

template <class Source>
std::vector<double> Values(Source source, const MeasureInfo& info, double length_factor) {
  std::vector<double> values(source.Count(), kNaN);
  const BySize means = info.is_relative ? MeanSizes(source) : BySize{};
  const Rating<Source> rating(info, means, length_factor, values);
  source.ForRanges(kLeastWork,
                   [&](std::size_t first, std::size_t end) { rating.Rate(source, first, end); });
  return values;
}

}  // namespace

bool IsRated(const DenseMesh& mesh, std::uint32_t e) {
  return mesh.IsUsable(e) && mesh.Shape(e) != CornerShape::kNone;
}

std::vector<double> ValuesOf(const DenseMesh& mesh, const MeasureInfo& info, double length_factor) {
  return Values(DenseSource{mesh}, info, length_factor);
}

std::vector<double> ValuesOf(const CQXDBSession& session, const MeasureInfo& info,
                             double length_factor) {
  return Values(RecordSource(session), info, length_factor);
}

}  // namespace qx
