#include <cstdio>
#include <qx_db/qx_db.h>
#include <qx_db/sql.h>
#include <sqlite3.h>

// A model of the application's own is asked over a connection of its own.
int main() {
  qx::CQXDBSession session(qx::AddStandardPools);
  qx::CTransaction transaction(&session);
  transaction.Begin(u"node");
  qx::tagTNode node;
  node.key = 7;
  node.position = {1, 2, 3};
  qx::Pool<qx::tagTNode>(session).InsertNU(node);
  transaction.Commit();
  sqlite3* db = nullptr;
  sqlite3_open(":memory:", &db);
  if (const qx::Outcome added = qx::sql::AddModelTables(db, session); !added) {
    std::printf("%s\n", added.Line().c_str());
    return 1;
  }
  sqlite3_stmt* query = nullptr;
  sqlite3_prepare_v2(db, "SELECT x + y + z FROM node WHERE key = 7", -1, &query, nullptr);
  const bool answers =
      query && sqlite3_step(query) == SQLITE_ROW && sqlite3_column_double(query, 0) == 6;
  sqlite3_finalize(query);
  sqlite3_close(db);
  return answers ? 0 : 1;
}
