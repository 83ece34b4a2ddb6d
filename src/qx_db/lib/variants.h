#pragma once
// The edition of the application that hosts the library. A few defaults depend on it.
// Threads: set before others start; then any.

#include "qx_db/export.h"

namespace qx {

enum class Edition { kGeneral, kA, kB, kC, kD };

/// Declares the hosting edition for the process; the general, off-line one until then.
QXDB_API void SetEdition(Edition edition, bool online = false);

QXDB_API bool IsVariantA();
QXDB_API bool IsVariantAOnline();
QXDB_API bool IsVariantB();
QXDB_API bool IsVariantBOnline();
QXDB_API bool IsVariantC();
QXDB_API bool IsVariantD();

}  // namespace qx
