#pragma once
// What happens to references when the records they point to are removed.
// Threads: the one that drives the session.

#include "qx_db/pool/pool_base.h"

namespace qx {

/// Does to the pool's records what their rows say of removed targets (OnRemoval): removes the
/// records that are nothing without them, clears single references of the others, and drops such
/// entries from their reference arrays, keeping order, with the entries beside them. Looks at the
/// records only when a pool they refer to has removals; the changes are recorded like any other.
/// Returns how many records were changed or removed.
QXDB_API int DropDeadReferences(DPoolBase& pool);

/// Clears every reference of the pool's records to a removed record, or drops it from its array, in
/// place and unrecorded. Takes no memory.
QXDB_API void ClearDeadReferences(DPoolBase& pool);

/// Drops the entries of a reference array, in the record at `bytes`, whose reference is gone, with
/// the entries beside them; the others keep their order.
QXDB_API void DropEntries(const Row& row, char* bytes, bool (*is_gone)(ITR));

}  // namespace qx
