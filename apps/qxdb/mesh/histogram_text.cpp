#include "apps/qxdb/mesh/histogram_text.h"

#include <algorithm>
#include <fmt/format.h>

#include "apps/qxdb/command/console.h"

namespace qx::app {
namespace {

/// Columns of a bar that stand for a count; one that counts anything is seen.
std::size_t BarLength(std::int64_t count, std::int64_t most) {
  constexpr int kWidth = 40;
  return static_cast<std::size_t>((count * kWidth + most - 1) / most);
}

}  // namespace

std::string HistogramText(const MeasureSummary& summary) {
  std::int64_t most = 1;
  for (const HistogramBin& bin : summary.histogram) most = std::max(most, bin.count);
  std::string text;
  for (const HistogramBin& bin : summary.histogram) {
    // The bad end of the bar at the side where the values are bad.
    const std::size_t length = BarLength(bin.count, most);
    const std::string bad(BarLength(bin.outside, most), '!');
    const std::string good(length - std::min(length, bad.size()), '#');
    text += fmt::format("  {:>11} .. {:<11} {:<40} {:>9}\n", Short(bin.low), Short(bin.high),
                        summary.info->high_is_bad ? good + bad : bad + good, Grouped(bin.count));
  }
  if (summary.unbounded) {
    text += fmt::format("  {:>11}    {:<11} {:<40} {:>9}\n", "", "unbounded", "",
                        Grouped(summary.unbounded));
  }
  return text;
}

}  // namespace qx::app
