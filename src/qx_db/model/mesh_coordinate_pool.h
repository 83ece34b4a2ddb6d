#pragma once
// Which coordinate system the nodes of a mesh set are given in and solved in.
// Threads: see DPoolBase.

#include "qx_db/model/coordinate_pool.h"

namespace qx {

/// Assignments of coordinate systems to mesh sets. An assignment dies with its mesh set or its
/// coordinate system.
class QXDB_API DPoolMeshCsys : public DPoolPlain<tagTMeshCsys> {
 public:
  explicit DPoolMeshCsys(CQXDBSession* session) : DPoolPlain(session) {}

  /// The coordinate system of a node: that of the last assignment whose mesh set holds the node.
  /// 0 when no assignment covers it. The sets are walked once after each change of one of them;
  /// after that a lookup takes constant time.
  ITR GetNodeCSysItr(ITR node);

 private:
  std::vector<std::uint32_t> assignment_of_node_;  // by slot; index into systems_ plus 1
  std::vector<ITR> systems_;
  std::uint64_t sets_revision_ = 0;
  std::uint64_t own_revision_ = 0;
  bool known_ = false;

  void Refresh();
};

template <>
struct PoolOf<tagTMeshCsys> {
  using type = DPoolMeshCsys;
};

}  // namespace qx
