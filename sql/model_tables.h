#pragma once
// A model as tables of SQLite: every pool, every array of its records, and what follows from them.
// docs/sql.md tells the tables, their units and how they are written.
// Threads: a connection and the session behind it belong to one thread at a time; sqlite3_interrupt
// is for any.

#include <memory>
#include <string>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

struct sqlite3;

namespace qx::sql {

struct TableOptions {
  /// Whether statements may change the model: each, or each BEGIN to COMMIT, as one step.
  bool writable = false;
  /// Stands before the name of every table, so that a connection can have several models. As in
  /// all names of SQL the case of letters makes no difference.
  std::string prefix;
  /// Kept as long as the tables are: what owns the session, where nobody else does.
  std::shared_ptr<const void> owner = {};
};

/// Makes a session's model the temporary virtual tables of a connection. The session must outlive
/// them: until DropModelTables, or the connection is closed. Fails within a transaction, and where
/// a table of such a name is there already, leaving the connection as it was.
Outcome AddModelTables(sqlite3* db, CQXDBSession& session, const TableOptions& options = {});

/// Takes the tables of that prefix, in letters of any case, off the connection, and lets go of
/// their session's owner. Fails, taking none, within a transaction and while a statement uses them.
Outcome DropModelTables(sqlite3* db, const std::string& prefix = {});

}  // namespace qx::sql
