#pragma once
// A quality measure over a whole mesh: extremes, mean, histogram, the worst elements.
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <cstdint>
#include <vector>

#include "qx_db/mesh/quality_values.h"

namespace qx {

/// One bar of a histogram: values from `low` up to `high`; what rounding puts beyond the bars at
/// both ends is in these.
struct HistogramBin {
  double low, high;
  std::int64_t count = 0;
  std::int64_t outside = 0;  ///< of them, worse than acceptable
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
};

/// Whether a value is worse than a bound by more than rounding.
QXDB_API bool IsBeyond(const MeasureInfo& info, double value, double bound);

/// Summarises the values of a measure, in at most `bins` bars with short numbers at their ends.
/// Bars grow by a constant factor where positive values span more than three decades.
QXDB_API MeasureSummary Summarise(const DenseMesh& mesh, const MeasureInfo& info,
                                  const std::vector<double>& values, int bins,
                                  std::size_t worst_shown);

}  // namespace qx
