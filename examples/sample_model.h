#pragma once
// A small bridge: sets, materials and coordinate systems without a mesh.

#include "qx_db/core/session.h"

namespace qx {

/// Adds the records in one step. The session has the host's pools.
void FillSampleModel(CQXDBSession& session);

}  // namespace qx
