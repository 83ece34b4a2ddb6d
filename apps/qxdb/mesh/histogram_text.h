#pragma once
// The histogram of a quality measure as text.

#include <string>

#include "qx_db/mesh/quality_summary.h"

namespace qx::app {

/// A line a bar.
std::string HistogramText(const MeasureSummary& summary);

}  // namespace qx::app
