#pragma once
// Pools by name: one that is printed, and all that are understood.
// Threads: as the session.

#include <string>
#include <string_view>

#include "qx_db/core/session.h"

namespace qx {

/// The name of a pool wherever one is printed: that of its gateway table in small letters, "elem".
QXDB_API std::string PoolName(const DPoolBase& pool);

/// A word for the records of a pool, "element", apart by underscores; its name where that is one.
QXDB_API std::string PoolWord(const DPoolBase& pool);

/// The pool of that name, whatever the case, in any spelling: its name, its word, one or many of
/// them ("nodes", "mesh sets"), the name of its record or that in model files; null of none.
QXDB_API DPoolBase* FindPoolByName(CQXDBSession& session, std::string_view name);

}  // namespace qx
