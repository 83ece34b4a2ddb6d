#include "qx_db/model/standard_pools.h"

#include "qx_db/model/mesh_pools.h"

namespace qx {

void AddStandardPools(CQXDBSession& session) {
  session.AddPool(std::make_unique<DPoolNode>(&session));
  session.AddPool(std::make_unique<DPoolElem>(&session));
  session.AddPool(std::make_unique<DPoolEcrd>(&session));
  session.AddPool(std::make_unique<DPoolActiveElemSet>(&session));
  session.AddPool(std::make_unique<DPoolESid>(&session));
}

}  // namespace qx
