#include <cstdio>
#include <qx_db/qx_db.h>
#include <qx_db/sql.h>

// The tables are added to a connection of the application's own; without one they say so.
int main() {
  qx::CQXDBSession session(qx::AddStandardPools);
  const qx::Outcome added = qx::sql::AddModelTables(nullptr, session);
  std::printf("%s\n", added.Line().c_str());
  return added ? 1 : 0;
}
