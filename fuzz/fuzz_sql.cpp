// Any text as statements over the tables of a model that they may change: what they do leaves a
// sound model, and undoing it leads back.

#include <cstdlib>
#include <sqlite3.h>
#include <string>

#include "host/session.h"
#include "sql/model_tables.h"
#include "tests/sql/model.h"

namespace {

/// Files are none of this target's business.
int Allow(void*, int action, const char*, const char*, const char*, const char*) {
  return action == SQLITE_ATTACH || action == SQLITE_PRAGMA ? SQLITE_DENY : SQLITE_OK;
}

/// Ends what takes long, not by the clock: the same input always ends at the same place.
int CountDown(void* left) { return --*static_cast<int*>(left) < 0; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qx;
  CQXDBSession session(host::SetUpModel);
  sql::FillBlock(session, 2);
  const std::uint64_t before = session.StateHash();
  sqlite3* db = nullptr;
  sqlite3_open(":memory:", &db);
  sql::TableOptions options;
  options.writable = true;
  if (!sql::AddModelTables(db, session, options)) std::abort();
  sqlite3_set_authorizer(db, Allow, nullptr);
  sqlite3_limit(db, SQLITE_LIMIT_LENGTH, 100000);
  int left = 200;
  sqlite3_progress_handler(db, 100, CountDown, &left);
  sqlite3_exec(db, std::string(reinterpret_cast<const char*>(data), size).c_str(), nullptr, nullptr,
               nullptr);
  sqlite3_close(db);
  if (session.IsBusy() || !session.Validate().empty()) std::abort();
  while (session.History().Done().size() > 1) {
    if (!session.Undo()) std::abort();
  }
  if (session.StateHash() != before) std::abort();
  return 0;
}
