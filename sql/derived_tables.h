#pragma once
// Tables of what is not stored but follows from the records.
// Threads: the one that drives the session.

#include <functional>
#include <optional>
#include <variant>

#include "sql/link.h"
#include "sql/table.h"

namespace qx::sql {

/// A row for each element, with its quality by every measure, its sizes, its local axes, its sides.
std::vector<std::unique_ptr<Table>> MakeElementTables(Link& link);

/// A value of a row that is computed.
using Value = std::variant<std::monostate, std::int64_t, double, std::string>;

/// A table whose rows are computed as a whole when it is read, and kept until the model changes.
struct Computed {
  std::string name;
  std::string meaning;
  std::vector<Column> columns;
  /// Hidden columns of `columns` without which the rows cannot be computed, which must be given:
  /// `WHERE pool = 'node'`.
  std::vector<int> arguments = {};
  /// A column of whole numbers by which the table is filled in part, where a query gives its value;
  /// -1 for none. All other tables are filled as a whole.
  int part = -1;
  /// The values of arguments and of the part; none of other columns.
  using Given = std::vector<std::optional<Value>>;
  using Rows = std::vector<Value>;  ///< one after the other
  /// Adds the rows.
  std::function<Outcome(Link&, const Given&, Rows&)> fill;
  /// The row id of the first row with such values, so that no two rows have the same whatever
  /// their arguments are, and a row has the same in the whole and in its part; 0 without.
  std::function<sqlite3_int64(Link&, const Given&)> first_row_id = {};
};
std::unique_ptr<Table> MakeComputedTable(Link& link, Computed what);

/// Columns of texts and of whole numbers.
inline Column Text(std::string name, std::string meaning) {
  return {.name = std::move(name), .type = ColumnType::kText, .meaning = std::move(meaning)};
}
inline Column Integer(std::string name, std::string meaning) {
  return {.name = std::move(name), .meaning = std::move(meaning)};
}

/// The faces and edges that one element has alone, findings, masses, sets with those below them,
/// uses of a record.
std::vector<Computed> MeshTables();
/// Steps, what they changed, sizes of pools, and the tables themselves.
std::vector<Computed> HistoryTables();

}  // namespace qx::sql
