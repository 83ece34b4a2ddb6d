#include "qx_db/model/standard_pools.h"

#include "qx_db/model/deck_pools.h"
#include "qx_db/model/set_rules.h"

namespace qx {

void AddStandardPools(CQXDBSession& session) {
#define QX_ADD_POOL(T) session.AddPool(std::make_unique<PoolOf<T>::type>(&session));
  QX_FOR_EACH_RECORD(QX_ADD_POOL)
#undef QX_ADD_POOL
  AddDeckPools(session);
  session.AddPool(std::make_unique<DPoolSetRule>(&session));
}

}  // namespace qx
