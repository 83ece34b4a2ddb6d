#pragma once
// SQLite's virtual-table module over tables of ours.
// Threads: as the connection's.

#include <map>
#include <memory>
#include <string>

#include "sql/link.h"
#include "sql/table.h"

namespace qx::sql {

/// The tables of one model on one connection.
struct Catalogue {
  Catalogue(CQXDBSession& session, bool writable, std::shared_ptr<const void> its_owner)
      : owner(std::move(its_owner)), link(session, writable) {}

  std::shared_ptr<const void> owner;  // of the session; goes last
  Link link;
  std::map<std::string, std::unique_ptr<Table>> tables;  // by name
};

/// Makes the module known to a connection, which owns the catalogue from then on, also on failure.
/// `CREATE VIRTUAL TABLE t USING module(name)` then shows the table of that name. While a statement
/// uses one of them, `DROP TABLE` fails with SQLITE_LOCKED for all; the last one takes the
/// catalogue along, whatever statements are yet prepared. Returns SQLite's result.
int AddModule(sqlite3* db, const std::string& module, std::unique_ptr<Catalogue> catalogue);

}  // namespace qx::sql
