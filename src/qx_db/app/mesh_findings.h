#pragma once
// What is wrong with a mesh, found in one go.
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <string_view>
#include <vector>

#include "qx_db/mesh/dense_mesh.h"

namespace qx {

/// One kind of finding and where it was found.
struct Finding {
  std::string_view name;    ///< as on a command line: "inverted-solids"
  std::string_view label;   ///< as in a table: "inverted solids"
  std::string_view remedy;  ///< what mends it, as an imperative; empty when nothing here does
  bool is_fault;            ///< wrong in every mesh, rather than worth knowing
  std::vector<Key> keys;    ///< of the elements, or nodes, concerned
  bool of_nodes;
};

/// All kinds, also those that were not found, in a fixed order: broken elements, orientation, size,
/// duplicates, loose sides and nodes. Nodes within `tolerance` of each other count as duplicates.
QXDB_API std::vector<Finding> FindFaults(const DenseMesh& mesh, double tolerance);

/// Whether a solid of an ordinary type is listed inside out; false for one that is flat or broken.
QXDB_API bool IsInvertedSolid(const DenseMesh& mesh, std::uint32_t e);

/// Nodes that no element uses and no single reference of another record leads to, and how many of
/// those without elements such references keep: being listed in a set keeps no node alive, being
/// the reference node of a beam does.
struct UnusedNodes {
  std::vector<std::uint32_t> unused;
  std::int64_t kept = 0;
};
QXDB_API UnusedNodes FindUnusedNodes(const DenseMesh& mesh);

/// The names of all kinds, for command lines and scripts.
QXDB_API std::vector<std::string_view> FindingNames();

}  // namespace qx
