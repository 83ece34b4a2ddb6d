#pragma once
// The pools that every model has.

#include "qx_db/core/session.h"

namespace qx {

/// Adds a pool for every record type of this library, in the order in which relations are
/// processed. A host adds its own pools after these.
QXDB_API void AddStandardPools(CQXDBSession& session);

}  // namespace qx
