#pragma once
// The pools that every model has.
// Threads: see DPoolBase.

#include "qx_db/core/session.h"
#include "qx_db/model/mesh_coordinate_pool.h"
#include "qx_db/model/mesh_generation_pool.h"
#include "qx_db/model/mesh_pools.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/model/size_control_pool.h"

namespace qx {

/// Adds a pool for every record type of this library, in the order of their codes, in which
/// relations are processed and gateway tables read. A host adds its own pools after these.
QXDB_API void AddStandardPools(CQXDBSession& session);

/// The pool of a record type in a session that has the standard pools.
template <class T>
typename PoolOf<T>::type& Pool(const CQXDBSession& session) {
  return *session.GetPool<typename PoolOf<T>::type>(T::kType);
}

}  // namespace qx
