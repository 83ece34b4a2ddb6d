#pragma once
// What a virtual table of SQLite is made of here, without SQLite's bookkeeping (module.cpp).
// Threads: as the connection's, which is that of the session.

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "qx_db/platform/outcome.h"

#include "sql/columns.h"
#include "sql/sqlite_api.h"

namespace qx::sql {

using Arguments = std::span<sqlite3_value*>;

/// One reading of a table. Rows come one after the other; what fails says why.
class Cursor {
 public:
  Cursor() = default;
  virtual ~Cursor() = default;
  Cursor(const Cursor&) = delete;
  Cursor& operator=(const Cursor&) = delete;

  /// Begins with the rows that a plan of BestIndex chose.
  virtual Outcome Filter(int plan, Arguments arguments) = 0;
  virtual bool AtEnd() const = 0;
  /// On to the next row; false where that fails, as Fault tells.
  virtual bool Next() = 0;
  virtual Failure Fault() const { return {}; }
  /// Gives the value of a column of the present row.
  virtual void Value(sqlite3_context* to, int column) = 0;
  virtual sqlite3_int64 RowId() = 0;
};

/// A table. Lives as long as its model's tables are on the connection.
class Table {
 public:
  Table(std::string name, std::vector<Column> columns)
      : name_(std::move(name)), columns_(std::move(columns)) {}
  virtual ~Table() = default;
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  const std::string& Name() const { return name_; }
  const std::vector<Column>& Columns() const { return columns_; }
  /// What the table tells, in one line.
  virtual std::string Meaning() const = 0;
  /// What SQLite is told of the columns.
  std::string Declaration() const;

  /// Chooses how to read the table, as SQLite's xBestIndex. SQLITE_CONSTRAINT where what is known
  /// does not suffice.
  virtual int BestIndex(sqlite3_index_info& info) = 0;
  virtual std::unique_ptr<Cursor> Open() = 0;

  /// Whether rows can be written where the model may be.
  virtual bool IsWritable() const { return false; }
  /// A change of one row, as SQLite's xUpdate. On failure nothing is changed.
  virtual Outcome Update(sqlite3* db, Arguments arguments, sqlite3_int64* row_id);

 private:
  std::string name_;
  std::vector<Column> columns_;
};

/// A name in the quotes that SQL has for names.
std::string Quoted(const std::string& name);

/// A constraint of a query that a plan may use: `column op value`.
struct Constraint {
  int index;  ///< in the query's list
  int column;
  unsigned char op;
};
std::vector<Constraint> UsableConstraints(const sqlite3_index_info& info);
/// The usable constraint `column = value`, -1 when there is none.
int FindEqual(const std::vector<Constraint>& constraints, int column);
/// Takes a constraint as the next argument of Filter. With `exact` SQLite need not check it again.
void Take(sqlite3_index_info& info, int index, int& arguments, bool exact);
/// Names the plan for EXPLAIN QUERY PLAN.
void Explain(sqlite3_index_info& info, const std::string& plan);

/// The units in which a query wants its numbers.
class Units {
 public:
  /// Those of the model.
  explicit Units(const CQXDBSession& session) : session_(&session) {}
  /// Units by their names, as "mm" or "mm ton s"; NULL for those of the model.
  Outcome Choose(sqlite3_value* names);

  bool AreModels() const { return are_models_; }
  double FromModel(int category, double value) const {
    return are_models_ ? value : units_.Out(category, value);
  }
  double ToModel(int category, double value) const {
    return are_models_ ? value : units_.In(category, value);
  }
  /// The names as they were given; NULL without.
  void GiveNames(sqlite3_context* to) const;

 private:
  const CQXDBSession* session_;
  bool are_models_ = true;
  CQXUnitCtrl units_;
  std::string names_;
};

/// A hidden column with which a query names units.
Column UnitColumn();

}  // namespace qx::sql
