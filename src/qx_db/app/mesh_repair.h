#pragma once
// Mending a mesh: orientation, duplicates, nodes that nothing uses.
// Threads: the one that drives the session.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "qx_db/app/element_heritage.h"
#include "qx_db/export.h"

namespace qx {

class CQXDBSession;

/// What to mend. Done in the order of the members.
struct RepairPlan {
  /// Nodes within this distance of an earlier one, in model units, become that one everywhere.
  std::optional<double> merge_tolerance;
  bool duplicate_elements = false;
  bool inverted_solids = false;
  bool misoriented_shells = false;
  bool unreferenced_nodes = false;
  /// Nodes that may merge, positions in the session; all of them when there are none here. What the
  /// span leads to must last until the plan is carried out.
  std::span<const ITR> merge_among = {};
};

/// What was done.
struct RepairReport {
  std::int64_t nodes_merged = 0;
  /// Nodes that would have met another node of their own element: left as they are.
  std::int64_t merges_refused = 0;
  std::int64_t elements_removed = 0;
  /// What the elements that stay could not take over from their duplicates.
  std::vector<LeftBehind> left_behind;
  std::int64_t solids_turned = 0;
  std::int64_t shells_turned = 0;
  /// Patches of shells, like a Moebius strip, in which no choice makes all agree.
  std::int64_t one_sided_patches = 0;
  std::int64_t nodes_removed = 0;
  /// Nodes without elements that stay because another record points at them.
  std::int64_t nodes_kept = 0;

  bool ChangedAnything() const {
    return nodes_merged || elements_removed || solids_turned || shells_turned || nodes_removed;
  }
};

/// Carries out the plan. Call it in a transaction, which makes it one undoable step; false when a
/// pool refused a change, upon which the caller rolls back.
QXDB_API bool RepairMesh(CQXDBSession& session, const RepairPlan& plan, RepairReport& report);

}  // namespace qx
