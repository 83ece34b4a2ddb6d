#pragma once
// One state of a model to be read while the next is edited.

#include <memory>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx {

/// A session with the records and units that `session` has now, equal by StateHash, without its
/// history or listeners. Threads: taken on the one that drives `session`. Nothing is shared:
/// another thread may read, export, check and save it while the first session is edited. Cost: a
/// copy of every record, and its memory.
QXDB_API std::unique_ptr<CQXDBSession> TakeSnapshot(const CQXDBSession& session);

}  // namespace qx
