#pragma once
// A pool for every record type. Most need no rules of their own; PoolOf says which class serves.

#include "qx_db/pool/data_pool.h"
#include "qx_db/record/catalogue.h"

namespace qx {

/// The pool class of a record type: DPoolPlain, unless a header of model/ says otherwise.
template <class T>
struct PoolOf {
  using type = DPoolPlain<T>;
};

using DPoolEcrd = DPoolPlain<tagTEcrd>;
using DPoolActiveElemSet = DPoolPlain<tagTActiveElemSet>;
using DPoolESid = DPoolPlain<tagTESid>;

#define QX_DECLARE_POOL(T)        \
  extern template class DPool<T>; \
  extern template class DPoolPlain<T>;
QX_FOR_EACH_RECORD(QX_DECLARE_POOL)
#undef QX_DECLARE_POOL

}  // namespace qx
