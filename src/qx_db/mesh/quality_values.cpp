#include "qx_db/mesh/quality_values.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "qx_db/core/session.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/element_volume.h"
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

/// The corners of the elements of a mesh in its arrays.
struct DenseSource {
  const DenseMesh& mesh;

  std::size_t Count() const { return mesh.ElementCount(); }
  /// Calls `visit(e, shape, corners)` for those from `first` to `end` that are rated.
  template <class Visit>
  void ForEach(std::size_t first, std::size_t end, Visit&& visit) const {
    Point3 corners[8];
    for (std::size_t i = first; i < end; ++i) {
      const auto e = static_cast<std::uint32_t>(i);
      if (!IsRated(mesh, e)) continue;
      mesh.CornerPositions(e, corners);
      visit(i, mesh.Shape(e), corners);
    }
  }
};

/// The same from the records. These lie all over the memory: what the next elements will read is
/// on its way while one is rated, first their records, then their lists of nodes, then the nodes.
class RecordSource {
 public:
  explicit RecordSource(const CQXDBSession& session) {
    const DPoolBase* pool = session.GetDataPool(code::kElem);
    if (!pool) return;
    elements_.reserve(static_cast<std::size_t>(pool->GetSize()));
    for (ITR at = pool->GetHeadPosition(); at; pool->Set().Next(at)) elements_.push_back(at);
  }

  std::size_t Count() const { return elements_.size(); }
  template <class Visit>
  void ForEach(std::size_t first, std::size_t end, Visit&& visit) const {
    constexpr std::size_t kNodesAhead = 6, kListAhead = 16, kRecordAhead = 24;
    Point3 corners[8];
    for (std::size_t i = first; i < end; ++i) {
      if (i + kRecordAhead < end) Prefetch(elements_[i + kRecordAhead]);
      if (i + kListAhead < end) Prefetch(ElementOf(i + kListAhead).nodes.begin());
      if (i + kNodesAhead < end) {
        for (const ITR node : ElementOf(i + kNodesAhead).nodes) {
          Prefetch(node);
          Prefetch(node + kEndOfPosition);
        }
      }
      const tagTElem& element = ElementOf(i);
      const CornerShape shape = topology::ShapeOf(element.type);
      if (shape != CornerShape::kNone && Read(element, shape, corners)) visit(i, shape, corners);
    }
  }

 private:
  static constexpr std::uint64_t kEndOfPosition = 40;

  const tagTElem& ElementOf(std::size_t i) const {
    return *static_cast<const tagTElem*>(KeyedSetBase::RecordAt(elements_[i]));
  }
  /// Whether nothing is wrong with the nodes; the first of them are the corners.
  static bool Read(const tagTElem& element, CornerShape shape, Point3* corners) {
    const std::int32_t nodes = ElementTopology(element.type).Nodes();
    const std::int32_t corner_count = TableOf(shape).corners;
    if (element.nodes.GetSize() != nodes) return false;
    const ITR* const list = element.nodes.data();
    double finite = 0;  // what is no number leaves it one no more
    for (std::int32_t i = 0; i < nodes; ++i) {
      const tagTNode* const node = NodeAt(list[i]);
      if (!node) return false;
      const Point3 p = node->position;
      finite += 0 * p.x + 0 * p.y + 0 * p.z;
      if (i < corner_count) corners[i] = p;
    }
    return finite == 0;
  }

  std::vector<ITR> elements_;
};

/// The mean length, area or volume of each shape's elements.
template <class Source>
BySize MeanSizes(const Source& source) {
  BySize sizes{}, counts{};
  source.ForEach(0, source.Count(), [&](std::size_t, CornerShape shape, const Point3* corners) {
    sizes[static_cast<std::size_t>(shape)] += std::abs(ShapeSize(shape, corners));
    ++counts[static_cast<std::size_t>(shape)];
  });
  for (std::size_t i = 0; i < kShapes; ++i) sizes[i] /= std::max(counts[i], 1.0);
  return sizes;
}

template <class Source>
std::vector<double> Values(const Source& source, const MeasureInfo& info, double length_factor) {
  constexpr double kNoise = 1e-14;  // of what would be nothing in exact numbers
  constexpr std::size_t kLeast = 50000;
  std::vector<double> values(source.Count(), kNaN);
  BySize means, factors;
  means.fill(kNaN);
  if (info.is_relative) means = MeanSizes(source);
  for (std::size_t i = 0; i < kShapes; ++i) {
    factors[i] = UnitFactor(info.measure, static_cast<CornerShape>(i), length_factor);
  }
  const bool is_rated = info.acceptable.has_value();
  ParallelFor(source.Count(), kLeast, [&](std::size_t first, std::size_t end) {
    source.ForEach(first, end, [&](std::size_t e, CornerShape shape, const Point3* corners) {
      const auto of_shape = static_cast<std::size_t>(shape);
      const double value = Quality(info.measure, shape, corners, means[of_shape]);
      values[e] = is_rated && std::abs(value) < kNoise ? 0.0 : value * factors[of_shape];
    });
  });
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
