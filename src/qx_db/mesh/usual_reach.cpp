#include "qx_db/mesh/usual_reach.h"

#include <algorithm>
#include <cmath>

namespace qx {

double UsualReach(std::vector<double> reaches) {
  std::erase_if(reaches, [](double reach) { return !std::isfinite(reach) || reach == 0; });
  if (reaches.empty()) return 0;
  const auto middle = reaches.begin() + static_cast<std::ptrdiff_t>(reaches.size() / 2);
  std::nth_element(reaches.begin(), middle, reaches.end());
  constexpr double kMisplaced = 1000;
  const double most = kMisplaced * *middle;
  double largest = 0;
  for (const double reach : reaches) {
    if (reach <= most) largest = std::max(largest, reach);
  }
  return largest;
}

}  // namespace qx
