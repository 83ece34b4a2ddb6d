#pragma once
// A connection with the tables of a model, for tests.

#include <fmt/format.h>
#include <sqlite3.h>
#include <string>
#include <vector>

#include "host/session.h"
#include "host/texts.h"
#include "sql/model_tables.h"

namespace qx::sql {

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

class Database {
 public:
  explicit Database(CQXDBSession& session, bool writable = false) {
    static const Outcome texts = host::RegisterTexts("");
    sqlite3_open(":memory:", &db_);
    fault_ = AddModelTables(db_, session, {writable, "", {}}).Line();
  }
  ~Database() { sqlite3_close(db_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  sqlite3* Connection() const { return db_; }
  /// The rows of the last statement that gives any; what went wrong is in Fault().
  Rows Run(const std::string& text) {
    Rows rows;
    fault_.clear();
    const char* rest = text.c_str();
    while (*rest && fault_.empty()) {
      sqlite3_stmt* statement = nullptr;
      if (sqlite3_prepare_v2(db_, rest, -1, &statement, &rest) != SQLITE_OK) {
        fault_ = sqlite3_errmsg(db_);
        break;
      }
      if (!statement) continue;
      if (sqlite3_column_count(statement) > 0) rows.clear();
      int result = 0;
      while ((result = sqlite3_step(statement)) == SQLITE_ROW) rows.push_back(RowOf(statement));
      if (result != SQLITE_DONE) fault_ = sqlite3_errmsg(db_);
      sqlite3_finalize(statement);
    }
    return rows;
  }
  std::string One(const std::string& text) {
    const Rows rows = Run(text);
    return rows.size() == 1 && rows[0].size() == 1 ? rows[0][0] : "not one: " + fault_;
  }
  const std::string& Fault() const { return fault_; }

  static Row RowOf(sqlite3_stmt* statement) {
    Row row;
    for (int i = 0; i < sqlite3_column_count(statement); ++i) {
      switch (sqlite3_column_type(statement, i)) {
        case SQLITE_NULL:
          row.push_back("NULL");
          break;
        case SQLITE_FLOAT:
          row.push_back(fmt::format("{}", sqlite3_column_double(statement, i)));
          break;
        default:
          row.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, i)));
      }
    }
    return row;
  }

 private:
  sqlite3* db_ = nullptr;
  std::string fault_;
};

}  // namespace qx::sql
