#pragma once
// What happens to references when the records they point to are removed.

#include "qx_db/pool/pool_base.h"

namespace qx {

/// Clears the single references of the pool's records that point to removed records, and drops
/// such entries from their reference arrays, keeping order. Looks at the records only when a pool
/// they refer to has removals; the changes are recorded like any other. Returns how many records
/// changed.
QXDB_API int DropDeadReferences(DPoolBase& pool);

}  // namespace qx
