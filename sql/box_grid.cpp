#include "sql/box_grid.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qx::sql {
namespace {

bool IsInside(const Box& box, const std::array<double, 3>& at) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (std::size_t a = 0; a < 3; ++a) {
    const bool open = box.low[a] == -kInfinity && box.high[a] == kInfinity;
    if (!open && !(at[a] >= box.low[a] && at[a] <= box.high[a])) return false;
  }
  return true;
}

}  // namespace

BoxGrid::BoxGrid(const DPoolBase& pool, std::int32_t offset) {
  std::array<double, 3> high{};
  std::vector<Entry> all;
  all.reserve(static_cast<std::size_t>(pool.GetSize()));
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
    const char* bytes = reinterpret_cast<const char*>(KeyedSetBase::RecordAt(pos)) + offset;
    Entry entry{{}, pos};
    for (int a = 0; a < 3; ++a)
      entry.at[static_cast<std::size_t>(a)] = LoadAt<double>(bytes + 8 * a);
    const bool finite =
        std::all_of(entry.at.begin(), entry.at.end(), [](double x) { return std::isfinite(x); });
    if (!finite) {
      nowhere_.push_back(entry);
      continue;
    }
    for (std::size_t a = 0; a < 3; ++a) {
      low_[a] = all.empty() ? entry.at[a] : std::min(low_[a], entry.at[a]);
      high[a] = all.empty() ? entry.at[a] : std::max(high[a], entry.at[a]);
    }
    all.push_back(entry);
  }
  // Cells are cubes, of a size at which the box of all points has an eighth as many as points.
  double volume = 1;
  int axes = 0;
  for (std::size_t a = 0; a < 3; ++a) {
    if (high[a] > low_[a]) {
      volume *= high[a] - low_[a];
      ++axes;
    }
  }
  const double wanted = std::max(1.0, static_cast<double>(all.size()) / 8);
  const double side = axes ? std::pow(volume / wanted, 1.0 / axes) : 1;
  const double most_cells = std::clamp(static_cast<double>(all.size()), 1.0, 1024.0);
  for (std::size_t a = 0; a < 3; ++a) {
    const double extent = high[a] - low_[a];
    const double cells = extent > 0 && std::isfinite(extent / side) ? std::ceil(extent / side) : 1;
    cells_[a] = static_cast<int>(std::clamp(cells, 1.0, most_cells));
    per_cell_[a] = extent > 0 ? cells_[a] / extent : 0;
  }
  const auto cell_of = [&](const Entry& entry) {
    return static_cast<std::size_t>((CellOf(2, entry.at[2]) * cells_[1] + CellOf(1, entry.at[1])) *
                                        cells_[0] +
                                    CellOf(0, entry.at[0]));
  };
  first_.assign(static_cast<std::size_t>(cells_[0]) * static_cast<std::size_t>(cells_[1]) *
                        static_cast<std::size_t>(cells_[2]) +
                    1,
                0);
  for (const Entry& entry : all) ++first_[cell_of(entry) + 1];
  for (std::size_t i = 1; i < first_.size(); ++i) first_[i] += first_[i - 1];
  entries_.resize(all.size());
  std::vector<std::uint32_t> next(first_.begin(), first_.end() - 1);
  for (const Entry& entry : all) entries_[next[cell_of(entry)]++] = entry;
}

int BoxGrid::CellOf(int axis, double x) const {
  const auto a = static_cast<std::size_t>(axis);
  const double cell = (x - low_[a]) * per_cell_[a];
  if (!(cell > 0)) return 0;
  return cell >= cells_[a] ? cells_[a] - 1 : static_cast<int>(cell);
}

void BoxGrid::Find(const Box& box, std::vector<ITR>& out) const {
  const auto take = [&](const Entry& entry) {
    if (IsInside(box, entry.at)) out.push_back(entry.item);
  };
  std::for_each(nowhere_.begin(), nowhere_.end(), take);
  std::array<int, 3> from, to;
  for (std::size_t a = 0; a < 3; ++a) {
    if (!(box.low[a] <= box.high[a])) return;
    from[a] = CellOf(static_cast<int>(a), box.low[a]);
    to[a] = CellOf(static_cast<int>(a), box.high[a]);
  }
  for (int z = from[2]; z <= to[2]; ++z) {
    for (int y = from[1]; y <= to[1]; ++y) {
      // The cells of a row lie side by side.
      const auto row = static_cast<std::size_t>((z * cells_[1] + y) * cells_[0]);
      const std::uint32_t begin = first_[row + static_cast<std::size_t>(from[0])];
      const std::uint32_t end = first_[row + static_cast<std::size_t>(to[0]) + 1];
      std::for_each(entries_.begin() + begin, entries_.begin() + end, take);
    }
  }
}

}  // namespace qx::sql
