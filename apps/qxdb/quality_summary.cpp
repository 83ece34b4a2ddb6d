#include "apps/qxdb/quality_summary.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "qx_db/qx_db.h"

#include "apps/qxdb/console.h"

namespace qx::app {
namespace {

/// What turns a measure of a shape from model units into current ones.
double UnitFactor(Measure measure, CornerShape shape, double length_factor) {
  if (measure != Measure::kSize && measure != Measure::kJacobian) return 1;
  if (shape == CornerShape::kLine) return length_factor;
  if (shape < CornerShape::kTetrahedron) return length_factor * length_factor;
  return length_factor * length_factor * length_factor;
}

std::vector<HistogramBin> MakeBins(double low, double high, int bins) {
  constexpr double kThreeDecades = 1000;
  std::vector<HistogramBin> histogram;
  if (!(high > low)) {
    histogram.push_back({low, high});
    return histogram;
  }
  const bool by_factor = low > 0 && high / low > kThreeDecades;
  const auto edge = [&](int i) {
    if (i == bins) return high;
    const double t = static_cast<double>(i) / bins;
    return by_factor ? low * std::pow(high / low, t) : low + t * (high - low);
  };
  for (int i = 0; i < bins; ++i) histogram.push_back({edge(i), edge(i + 1)});
  return histogram;
}

void Count(std::vector<HistogramBin>& histogram, double value) {
  const auto at = std::upper_bound(histogram.begin(), histogram.end(), value,
                                   [](double v, const HistogramBin& bin) { return v < bin.high; });
  ++(at == histogram.end() ? histogram.back() : *at).count;
}

}  // namespace

MeasureSummary Summarise(const DenseMesh& mesh, const MeasureInfo& info, double length_factor,
                         int bins, std::size_t worst_shown) {
  MeasureSummary summary;
  summary.info = &info;
  std::vector<double> values;
  std::vector<std::pair<double, std::uint32_t>> rated;
  double sum = 0, low = 0, high = 0;
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    if (!mesh.IsUsable(e)) continue;
    Point3 p[8];
    mesh.CornerPositions(e, p);
    const double value = Quality(info.measure, mesh.Shape(e), p) *
                         UnitFactor(info.measure, mesh.Shape(e), length_factor);
    if (std::isnan(value)) continue;
    rated.push_back({value, e});
    ++summary.elements;
    summary.outside += info.acceptable && summary.IsWorse(value, *info.acceptable);
    if (value >= kUnbounded) {
      ++summary.unbounded;
      continue;
    }
    low = values.empty() ? value : std::min(low, value);
    high = values.empty() ? value : std::max(high, value);
    sum += value;
    values.push_back(value);
  }
  if (!values.empty()) {
    summary.mean = sum / static_cast<double>(values.size());
    summary.histogram = MakeBins(low, high, bins);
    for (const double value : values) Count(summary.histogram, value);
  }
  summary.best = info.high_is_bad ? low : high;
  const std::size_t shown = std::min(worst_shown, rated.size());
  std::partial_sort(rated.begin(), rated.begin() + static_cast<std::ptrdiff_t>(shown), rated.end(),
                    [&](const auto& a, const auto& b) {
                      if (a.first != b.first) return summary.IsWorse(a.first, b.first);
                      return a.second < b.second;
                    });
  for (std::size_t i = 0; i < shown; ++i) {
    const tagTElem& element = mesh.Element(rated[i].second);
    summary.worst.push_back({rated[i].first, element.key, element.type});
  }
  return summary;
}

std::vector<double> MeasureAll(const CQXDBSession& session, const MeasureInfo& info,
                               double length_factor) {
  std::vector<double> values;
  auto& pool = Pool<tagTElem>(session);
  values.reserve(static_cast<std::size_t>(pool.GetSize()));
  for (ITR at = pool.GetHeadPosition(); at;) {
    const tagTElem& element = pool.GetNextNU(at);
    values.push_back(Quality(info.measure, element) *
                     UnitFactor(info.measure, topology::ShapeOf(element.type), length_factor));
  }
  return values;
}

std::string HistogramText(const MeasureSummary& summary) {
  constexpr int kWidth = 40;
  std::int64_t most = 1;
  for (const HistogramBin& bin : summary.histogram) most = std::max(most, bin.count);
  std::string text;
  for (const HistogramBin& bin : summary.histogram) {
    // A bar that counts anything is seen.
    const auto length = static_cast<std::size_t>((bin.count * kWidth + most - 1) / most);
    const bool is_bad =
        summary.info->acceptable &&
        !summary.IsWorse(*summary.info->acceptable, summary.info->high_is_bad ? bin.low : bin.high);
    text += fmt::format("  {:>11} .. {:<11} {:<40} {:>9}\n", Short(bin.low), Short(bin.high),
                        std::string(length, is_bad ? '!' : '#'), Grouped(bin.count));
  }
  if (summary.unbounded) {
    text += fmt::format("  {:>11}    {:<11} {:<40} {:>9}\n", "", "unbounded", "",
                        Grouped(summary.unbounded));
  }
  return text;
}

}  // namespace qx::app
