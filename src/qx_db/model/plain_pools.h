#pragma once
// A pool for every record type. Most need no rules of their own; PoolOf says which class serves.
// Threads: see DPoolBase.

#include "qx_db/pool/ext_db_pool.h"
#include "qx_db/pool/temp_pool.h"
#include "qx_db/record/catalogue.h"

namespace qx {

/// Whether an iterator names a record that its pool has; or one that was removed and is kept for
/// undo. A null one is neither.
inline bool IsLive(ITR itr) { return itr != 0 && !KeyedSetBase::IsRemoved(itr); }
inline bool IsDead(ITR itr) { return itr != 0 && KeyedSetBase::IsRemoved(itr); }

/// The pool class of a record type: DPoolPlain, unless a header of model/ says otherwise.
template <class T>
struct PoolOf {
  using type = DPoolPlain<T>;
};

/// Elements generated on geometry, reached through the pool of their heads. Made anew by whoever
/// meshes: the pool is neither saved nor loaded.
class QXDB_API DPoolGElem : public DPoolPlain<tagTGElem> {
 public:
  using DPoolPlain::DPoolPlain;
  int NeedSaveNLoad() const override { return 0; }
};
template <>
struct PoolOf<tagTGElem> {
  using type = DPoolGElem;
};

using DPoolActiveElemSet = DPoolPlain<tagTActiveElemSet>;
using DPoolESid = DPoolPlain<tagTESid>;
using DPoolFunc = DPoolPlain<tagTFunc>;

#define QX_DECLARE_POOL(T)             \
  extern template class DPool<T>;      \
  extern template class DPoolExtDB<T>; \
  extern template class DPoolPlain<T>;
QX_FOR_EACH_RECORD(QX_DECLARE_POOL)
#undef QX_DECLARE_POOL

extern template class DPoolTmp<tagTNode>;
extern template class DPoolTmp<tagTElem>;

}  // namespace qx
