#include "viewer/extent.h"

#include <algorithm>
#include <cmath>

#include "qx_db/mesh/usual_reach.h"

namespace qx::viewer {
namespace {

double Quantile(std::vector<double>& values, double share) {
  const auto at =
      values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

/// Where most nodes are: a middle, and how far from it most of them go.
struct Bulk {
  Point3 middle;
  double reach = 0;
};

Bulk BulkOf(const DenseMesh& mesh, const std::vector<std::uint32_t>& nodes) {
  constexpr std::size_t kEnough = 20000;  // to tell most
  const std::size_t step = nodes.size() / kEnough + 1;
  Bulk bulk;
  std::vector<double> values;
  for (int axis = 0; axis < 3; ++axis) {
    values.clear();
    for (std::size_t i = 0; i < nodes.size(); i += step) {
      values.push_back(mesh.Position(nodes[i])[axis]);
    }
    bulk.middle[axis] = Quantile(values, 0.5);
  }
  values.clear();
  for (std::size_t i = 0; i < nodes.size(); i += step) {
    values.push_back(ReachOf(mesh.Position(nodes[i]) - bulk.middle));
  }
  bulk.reach = Quantile(values, 0.75);
  return bulk;
}

}  // namespace

Extent ExtentOf(const DenseMesh& mesh, double length) {
  const std::uint32_t count = mesh.NodeCount();
  std::vector<std::uint32_t> fit;
  fit.reserve(count);
  for (std::uint32_t n = 0; n < count; ++n) {
    const Point3& p = mesh.Position(n);
    if (IsFinite(p) && length * ReachOf(p) <= kFarthest) fit.push_back(n);
  }
  Extent extent;
  if (!fit.empty()) {
    const Bulk bulk = BulkOf(mesh, fit);
    // Floats have 24 bits.
    const double most = bulk.reach > 0 ? 0x1p23 * bulk.reach : std::numeric_limits<double>::max();
    std::erase_if(
        fit, [&](std::uint32_t n) { return !(ReachOf(mesh.Position(n) - bulk.middle) <= most); });
    extent.low = extent.high = mesh.Position(fit.front());
    for (const std::uint32_t n : fit) {
      const Point3& p = mesh.Position(n);
      for (int i = 0; i < 3; ++i) {
        extent.low[i] = std::min(extent.low[i], p[i]);
        extent.high[i] = std::max(extent.high[i], p[i]);
      }
    }
  }
  extent.left_out_count = count - static_cast<std::uint32_t>(fit.size());
  if (extent.left_out_count > 0) {
    extent.left_out.assign(count, 1);
    for (const std::uint32_t n : fit) extent.left_out[n] = 0;
  }
  return extent;
}

}  // namespace qx::viewer
