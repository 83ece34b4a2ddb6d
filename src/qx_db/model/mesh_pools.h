#pragma once
// The pools of the finite-element mesh.

#include "qx_db/model/plain_pools.h"

namespace qx {

/// The nodes.
class QXDB_API DPoolNode : public DPoolPlain<tagTNode> {
 public:
  explicit DPoolNode(CQXDBSession* session) : DPoolPlain(session) {}
};

/// The elements. An element dies with any of its nodes, and with its property.
class QXDB_API DPoolElem : public DPoolPlain<tagTElem> {
 public:
  explicit DPoolElem(CQXDBSession* session) : DPoolPlain(session) {}

  int ProcessRelation() override;
  /// The smallest key >= start that no element uses; a negative number when there is none.
  Key GetNewKeyUp(Key start) const { return Set().GetNewKeyUp(start); }
};

template <>
struct PoolOf<tagTNode> {
  using type = DPoolNode;
};
template <>
struct PoolOf<tagTElem> {
  using type = DPoolElem;
};

}  // namespace qx
