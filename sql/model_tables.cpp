#include "sql/model_tables.h"

#include <fmt/format.h>

#include "qx_db/platform/text.h"

#include "sql/derived_tables.h"
#include "sql/module.h"
#include "sql/pool_tables.h"

namespace qx::sql {

namespace {

std::string ModuleName(const std::string& prefix) { return prefix + "qx_model"; }

/// A text as part of a comment.
std::string Commented(std::string text) {
  for (std::size_t at = 0; (at = text.find("*/", at)) != std::string::npos;) text.erase(at, 1);
  return text;
}

/// The statement that shows a table. Its comment is what `.schema` tells of the columns.
std::string CreateText(const Table& table, const std::string& prefix, const CQXUnitCtrl& units) {
  std::string text = fmt::format("CREATE VIRTUAL TABLE temp.{} USING {}({}\n/* {}\n",
                                 Quoted(prefix + table.Name()), Quoted(ModuleName(prefix)),
                                 table.Name(), Commented(table.Meaning()));
  std::size_t width = 0;
  for (const Column& column : table.Columns()) width = std::max(width, column.name.size());
  for (const Column& column : table.Columns()) {
    std::string unit = column.unit;
    if (column.category != unit::kNone) unit = UnitText(column.category, units);
    text +=
        fmt::format("   {:<{}}  {:<7}  {}{}{}\n", column.name, width, ColumnTypeName(column.type),
                    Commented(column.meaning), unit.empty() ? "" : "; " + Commented(unit),
                    column.is_hidden ? " (hidden)" : "");
  }
  return text + "*/)";
}

Outcome Run(sqlite3* db, const std::string& statement, const std::string& place) {
  if (sqlite3_exec(db, statement.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return {};
  return Failure{"", place, sqlite3_errmsg(db), "look at the tables there are"};
}

/// Tables neither come nor go within a transaction, which would lose its changes.
Outcome CheckIdle(sqlite3* db) {
  if (sqlite3_get_autocommit(db)) return {};
  return Failure{"", "tables", "a transaction is open", "COMMIT or ROLLBACK first"};
}

void AddTable(Catalogue& catalogue, std::unique_ptr<Table> table) {
  const std::string name = table->Name();
  catalogue.tables.emplace(name, std::move(table));
}

/// Which names the tables of a prefix have. SQLite takes names of modules without case.
std::vector<std::string> NamesOfModule(sqlite3* db, const std::string& prefix) {
  std::vector<std::string> names;
  sqlite3_stmt* statement = nullptr;
  const char* query = "SELECT name, sql FROM temp.sqlite_master WHERE type = 'table'";
  sqlite3_prepare_v2(db, query, -1, &statement, nullptr);
  const auto text = [&](int column) {
    return std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)));
  };
  while (sqlite3_step(statement) == SQLITE_ROW) {
    const std::string name = text(0);
    const std::string start =
        "CREATE VIRTUAL TABLE " + Quoted(name) + " USING " + Quoted(ModuleName(prefix)) + '(';
    if (EqualNoCase(text(1).substr(0, start.size()), start)) names.push_back(name);
  }
  sqlite3_finalize(statement);
  return names;
}

}  // namespace

Outcome AddModelTables(sqlite3* db, CQXDBSession& session, const TableOptions& options) {
  if (!db) return Failure{"", "tables", "there is no connection", "open one first"};
  if (Outcome idle = CheckIdle(db); !idle) return idle;
  if (!NamesOfModule(db, options.prefix).empty()) {
    return Failure{"", "tables", "another model has those of that prefix",
                   "take them off first, or give another prefix"};
  }
  auto catalogue = std::make_unique<Catalogue>(session, options.writable, options.owner);
  for (DPoolBase* pool : session.Pools()) {
    const PoolColumns columns = ColumnsOf(*pool);
    AddTable(*catalogue, MakePoolTable(catalogue->link, columns));
    for (const ArrayColumns& array : columns.arrays) {
      AddTable(*catalogue, MakeArrayTable(catalogue->link, columns, array));
    }
  }
  for (auto& table : MakeElementTables(catalogue->link)) AddTable(*catalogue, std::move(table));
  for (auto computed : {MeshTables(), HistoryTables()}) {
    for (Computed& what : computed) {
      AddTable(*catalogue, MakeComputedTable(catalogue->link, std::move(what)));
    }
  }
  std::vector<std::pair<std::string, std::string>> statements;
  for (const auto& [name, table] : catalogue->tables) {
    statements.emplace_back(options.prefix + name,
                            CreateText(*table, options.prefix, session.Units()));
  }
  if (AddModule(db, ModuleName(options.prefix), std::move(catalogue)) != SQLITE_OK) {
    return Failure{"", "tables", sqlite3_errmsg(db), "close what uses them first"};
  }
  for (const auto& [name, statement] : statements) {
    if (Outcome made = Run(db, statement, "table " + name); !made) {
      const Outcome dropped = DropModelTables(db, options.prefix);
      return made;
    }
  }
  return {};
}

Outcome DropModelTables(sqlite3* db, const std::string& prefix) {
  if (Outcome idle = CheckIdle(db); !idle) return idle;
  for (const std::string& name : NamesOfModule(db, prefix)) {
    Outcome dropped = Run(db, "DROP TABLE temp." + Quoted(name), "table " + name);
    if (!dropped && sqlite3_errcode(db) == SQLITE_LOCKED) {
      return Failure{"", "tables", "a statement still uses them", "finish or reset it first"};
    }
    if (!dropped) return dropped;
  }
  sqlite3_create_module_v2(db, ModuleName(prefix).c_str(), nullptr, nullptr, nullptr);
  return {};
}

}  // namespace qx::sql
