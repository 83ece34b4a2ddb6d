#pragma once
// Single records as the page shows them.

#include <string>
#include <string_view>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx::viewer {

/// A pool's table name as people write it: "node".
std::string TableName(const DPoolBase& pool);

/// The pool of that table name; null when there is none.
DPoolBase* FindTable(const CQXDBSession& session, std::string_view name);

/// A record with all its members, where it is used and the mesh sets that list it, as JSON; fails
/// when there is no such record. At most 200 uses are named, all are counted.
Result<std::string> RecordText(const CQXDBSession& session, std::string_view table, Key key);

}  // namespace qx::viewer
