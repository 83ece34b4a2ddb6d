#pragma once
// What must be true of the records of a model as a whole, whoever wrote them.
// Threads: any number while none changes the session.

#include <cstdint>
#include <map>
#include <string>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx {

/// What stands for references in the records of a session.
enum class ReferenceForm { kIterators, kKeys };

/// Whether every key that stands for a reference names a record; the failure lists those that do
/// not, by pool and key. `path` is what it names.
Outcome CheckReferences(const CQXDBSession& keyed, const std::string& path);

/// Whether no chain of references within a pool leads back to where it began: a set in itself, a
/// coordinate system that refers to itself. The failure lists where it does.
QXDB_API Outcome CheckCircles(const CQXDBSession& records, ReferenceForm form,
                              const std::string& path);

/// Clears references to records that are removed or of another session; gives their number by the
/// pool in which they stood.
std::map<std::uint16_t, std::int64_t> ClearDeadReferences(CQXDBSession& records);

}  // namespace qx
