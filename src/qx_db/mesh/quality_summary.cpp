#include "qx_db/mesh/quality_summary.h"

#include <algorithm>
#include <cmath>

namespace qx {
namespace {

/// The width of bars, a short number that divides the axis into at most `bins` of them from low to
/// high; what it leaves at both ends is rounding.
struct Ruler {
  double low, high;
  double scale = 1;  ///< a bar is this many ...
  double unit = 1;   ///< ... of this power of ten, or its inverse, whichever is above 1
  bool is_fraction = false;

  static constexpr double kSlack = 1e-9;
  double Edge(double number) const {
    return is_fraction ? number * scale / unit : number * scale * unit;
  }
  double Bar() const { return Edge(1); }
  double First() const { return std::floor(low / Bar() + kSlack); }
  double Last() const { return std::ceil(high / Bar() - kSlack); }
};

Ruler MakeRuler(double low, double high, int bins) {
  Ruler ruler{low, high};
  double decade = std::floor(std::log10((high - low) / bins));
  for (;; ++decade) {
    ruler.unit = std::pow(10.0, std::abs(decade));
    ruler.is_fraction = decade < 0;
    for (const double scale : {1.0, 2.0, 5.0}) {
      ruler.scale = scale;
      if (ruler.Last() - ruler.First() <= bins) return ruler;
    }
  }
}

/// Bars of one width with short numbers at their ends; of one factor where positive values span
/// more than three decades. A rated measure is a plain number, of which the small are all alike.
std::vector<HistogramBin> MakeBins(double low, double high, int bins, bool is_rated) {
  constexpr double kThreeDecades = 1000, kLarge = 100, kRounding = 1e-9;
  const double width = high - low;
  const bool is_one = width <= kRounding * std::max(std::abs(low), std::abs(high));
  if (is_one || bins == 1 || !std::isfinite(width)) return {{low, high}};
  std::vector<HistogramBin> histogram;
  if (low > 0 && high / low > kThreeDecades && (!is_rated || high > kLarge)) {
    const auto edge = [&](int i) {
      return i == bins ? high : low * std::pow(high / low, static_cast<double>(i) / bins);
    };
    for (int i = 0; i < bins; ++i) histogram.push_back({edge(i), edge(i + 1)});
    return histogram;
  }
  const Ruler ruler = MakeRuler(low, high, bins);
  for (double at = ruler.First(); at < ruler.Last(); ++at) {
    histogram.push_back({ruler.Edge(at), ruler.Edge(at + 1)});
  }
  return histogram;
}

void Count(std::vector<HistogramBin>& histogram, double value, bool is_outside) {
  const auto at = std::upper_bound(histogram.begin(), histogram.end(), value,
                                   [](double v, const HistogramBin& bin) { return v < bin.high; });
  HistogramBin& bin = at == histogram.end() ? histogram.back() : *at;
  ++bin.count;
  bin.outside += is_outside;
}

}  // namespace

bool IsBeyond(const MeasureInfo& info, double value, double bound) {
  constexpr double kRounding = 1e-9;
  const double room = kRounding * std::abs(bound);
  return info.high_is_bad ? value > bound + room : value < bound - room;
}

MeasureSummary Summarise(const DenseMesh& mesh, const MeasureInfo& info,
                         const std::vector<double>& values, int bins, std::size_t worst_shown) {
  MeasureSummary summary;
  summary.info = &info;
  std::vector<std::pair<double, std::uint32_t>> rated;
  double sum = 0, low = 0, high = 0;
  std::int64_t bounded = 0;
  const auto is_outside = [&](double value) {
    return info.acceptable && IsBeyond(info, value, *info.acceptable);
  };
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    const double value = values[e];
    if (std::isnan(value)) continue;
    rated.push_back({value, e});
    summary.outside += is_outside(value);
    if (value >= kUnbounded) {
      ++summary.unbounded;
      continue;
    }
    low = bounded ? std::min(low, value) : value;
    high = bounded ? std::max(high, value) : value;
    sum += value;
    ++bounded;
  }
  summary.elements = static_cast<std::int64_t>(rated.size());
  if (bounded) {
    summary.mean = sum / static_cast<double>(bounded);
    summary.histogram = MakeBins(low, high, bins, info.acceptable.has_value());
    for (const auto& [value, e] : rated) {
      if (value < kUnbounded) Count(summary.histogram, value, is_outside(value));
    }
  }
  summary.best = info.high_is_bad ? low : high;
  if (bounded == 0 && !rated.empty()) summary.best = summary.mean = kUnbounded;
  const std::size_t shown = std::min(worst_shown, rated.size());
  std::partial_sort(rated.begin(), rated.begin() + static_cast<std::ptrdiff_t>(shown), rated.end(),
                    [&](const auto& a, const auto& b) {
                      if (a.first == b.first) return a.second < b.second;
                      return info.high_is_bad ? a.first > b.first : a.first < b.first;
                    });
  for (std::size_t i = 0; i < shown; ++i) {
    const tagTElem& element = mesh.Element(rated[i].second);
    summary.worst.push_back({rated[i].first, element.key, element.type});
  }
  return summary;
}

}  // namespace qx
