#pragma once
// Points by their place, so that those in a box are found without asking all.
// Threads: once made, any.

#include <array>
#include <cstdint>
#include <vector>

#include "qx_db/pool/pool_base.h"

namespace qx::sql {

/// Bounds of a box; sides without a bound are infinite.
struct Box {
  std::array<double, 3> low, high;
};

/// A grid of cells over the nodes of a pool, about eight to a cell where they lie evenly. Built in
/// linear time; a query takes time proportional to the cells and nodes that the box touches.
class BoxGrid {
 public:
  /// `offset`: of the three coordinates in a record.
  BoxGrid(const DPoolBase& pool, std::int32_t offset);

  /// The records in the box, in no order. A coordinate that is no number is in none, unless the
  /// box is unbounded in its direction.
  void Find(const Box& box, std::vector<ITR>& out) const;

 private:
  struct Entry {
    std::array<double, 3> at;
    ITR item;
  };
  int CellOf(int axis, double x) const;

  std::array<double, 3> low_{}, per_cell_{};  // cells per length
  std::array<int, 3> cells_{1, 1, 1};
  std::vector<std::uint32_t> first_;  // by cell: where its entries begin
  std::vector<Entry> entries_;
  std::vector<Entry> nowhere_;  // a coordinate is no finite number
};

}  // namespace qx::sql
