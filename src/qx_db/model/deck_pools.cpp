#include "qx_db/model/deck_pools.h"

#include "qx_db/core/session.h"

namespace qx {

#define QX_DEFINE_POOL(T)       \
  template class DPool<T>;      \
  template class DPoolExtDB<T>; \
  template class DPoolPlain<T>;
QX_FOR_EACH_DECK_RECORD(QX_DEFINE_POOL)
#undef QX_DEFINE_POOL

void AddDeckPools(CQXDBSession& session) {
#define QX_ADD_POOL(T) session.AddPool(std::make_unique<DPoolPlain<T>>(&session));
  QX_FOR_EACH_DECK_RECORD(QX_ADD_POOL)
#undef QX_ADD_POOL
}

}  // namespace qx
