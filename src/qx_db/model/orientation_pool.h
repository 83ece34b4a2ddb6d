#pragma once
// How line elements are turned about their axes.
// Threads: see DPoolBase.

#include <functional>
#include <set>

#include "qx_db/model/plain_pools.h"

namespace qx {

/// The orientation records, each under the key of its element. When the node or the system by which
/// one turns its element is removed, the end of the step gives it the default orientation of the
/// edition, keeping key and element type; a reference that does not count is cleared.
class QXDB_API DPoolEcrd : public DPoolPlain<tagTEcrd> {
 public:
  explicit DPoolEcrd(CQXDBSession* session) : DPoolPlain(session) {}

  /// Copies the record at `pos`; 0 for a null position or a removed record.
  int Get(ITR pos, tagTEcrd& out) const;
  /// Stores a record that DPoolElem::IsValidEcrd accepts for its element. A record without an
  /// element in the pool is stored unchecked.
  int SetAt(ITR pos, const tagTEcrd& record);
  /// Stores unchecked; 0 for a null position or a removed record.
  using DPool<tagTEcrd>::SetAtNU;
  int SetAtNU(ITR pos, const tagTEcrd& record) override;
  /// Refuses, with a message, orientations that DPoolElem::IsValidEcrd does not accept, save those
  /// that say no other than what is stored, or what counts without a record.
  bool ReadAPI(dbgateway::DataBase* from, int remove) override;

  /// Whether elements and nodes may be deleted together: 0, with
  /// IDS_QXMESH_REFERENCE_NODE_ERROR (key of the node), when one of the nodes is the reference
  /// node of an element that stays. Changes nothing.
  int CheckRelation(std::set<ITR>& nodes) const;
  int CheckRelation(std::set<ITR>& elements, std::set<ITR>& nodes) const;
  /// The same for sets of any form, given as the question whether an item is in them.
  using Contains = std::function<bool(ITR)>;
  int CheckRelation(const Contains& elements, const Contains& nodes) const;

 private:
  bool IsAccepted(const tagTEcrd& record) const;
};

template <>
struct PoolOf<tagTEcrd> {
  using type = DPoolEcrd;
};

}  // namespace qx
