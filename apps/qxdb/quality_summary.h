#pragma once
// A quality measure over a whole mesh: extremes, mean, histogram, the worst elements.

#include <cstdint>
#include <string>
#include <vector>

#include "qx_db/app/dense_mesh.h"
#include "qx_db/app/mesh_quality.h"

namespace qx::app {

/// One bar of a histogram: values from `low` up to `high`, of which the last bar has both ends.
struct HistogramBin {
  double low, high;
  std::int64_t count = 0;
};

/// An element and its value.
struct RatedElement {
  double value;
  Key key;
  std::int32_t type;
};

struct MeasureSummary {
  const MeasureInfo* info = nullptr;
  std::int64_t elements = 0;   ///< that have the measure
  std::int64_t outside = 0;    ///< worse than acceptable
  std::int64_t unbounded = 0;  ///< at the value that stands for no bound; not in mean and histogram
  double best = 0;
  double mean = 0;
  std::vector<HistogramBin> histogram;
  std::vector<RatedElement> worst;  ///< worst first

  /// Whether a value is worse than another.
  bool IsWorse(double value, double than) const {
    return info->high_is_bad ? value > than : value < than;
  }
};

/// Summarises a measure; lengths in it are multiplied by `length_factor`. Bars grow by a constant
/// factor where positive values span more than three decades.
MeasureSummary Summarise(const DenseMesh& mesh, const MeasureInfo& info, double length_factor,
                         int bins, std::size_t worst_shown);

/// The values of a measure for every element of the pool in list order; NaN where it has none.
std::vector<double> MeasureAll(const CQXDBSession& session, const MeasureInfo& info,
                               double length_factor);

/// The histogram as text, a line a bar.
std::string HistogramText(const MeasureSummary& summary);

}  // namespace qx::app
