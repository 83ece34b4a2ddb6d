#include "host/session.h"

#include "qx_db/model/standard_pools.h"

namespace qx::host {

void AddHostPools(CQXDBSession& session) {
  session.AddPool(std::make_unique<DPoolMatl>(&session));
  session.AddPool(std::make_unique<DPoolProp>(&session));
}

void SetUpModel(CQXDBSession& session) {
  AddStandardPools(session);
  AddHostPools(session);
}

}  // namespace qx::host
