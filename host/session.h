#pragma once
// The kind of model that this host works with.
// Threads: see CQXDBSession.

#include "qx_db/core/document.h"

#include "host/material_records.h"
#include "host/property_records.h"

namespace qx::host {

/// Adds the library's pools and, after them, the host's own: materials and properties. Every
/// session and document of the host is set up with it: CQXDocBase document(host::SetUpModel).
void SetUpModel(CQXDBSession& session);

/// Adds the host's own pools only.
void AddHostPools(CQXDBSession& session);

}  // namespace qx::host
