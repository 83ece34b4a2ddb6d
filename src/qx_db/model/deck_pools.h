#pragma once
// Pools of what files bring along (record/deck_records.h): without rules of their own.
// Threads: see DPoolBase.

#include "qx_db/pool/ext_db_pool.h"
#include "qx_db/record/deck_records.h"

/// Calls X(type) for every record type that files bring along, in the order of their codes.
#define QX_FOR_EACH_DECK_RECORD(X) \
  X(tagTField) X(tagTSetTag) X(tagTBlock) X(tagTCarried) X(tagTOrigin)

namespace qx {

class CQXDBSession;

#define QX_DECLARE_POOL(T)             \
  extern template class DPool<T>;      \
  extern template class DPoolExtDB<T>; \
  extern template class DPoolPlain<T>;
QX_FOR_EACH_DECK_RECORD(QX_DECLARE_POOL)
#undef QX_DECLARE_POOL

/// Adds them to a session; AddStandardPools does it after all others.
QXDB_API void AddDeckPools(CQXDBSession& session);

}  // namespace qx
