#pragma once
// A model that is asked in SQL: its tables on a connection of its own, and what statements give, in
// the form that was asked for.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "apps/qxdb/command/console.h"
#include "apps/qxdb/model/model.h"

struct sqlite3;
struct sqlite3_stmt;

namespace qx::app {

/// How rows are printed.
enum class RowForm { kText, kCsv, kJson };

/// The names of the forms, as options and the prompt take them.
inline const std::vector<std::string> kRowForms = {"text", "csv", "json"};
RowForm RowFormOf(const std::string& name);

/// Takes a part of what is printed.
using RowSink = std::function<Outcome(const std::string&)>;

/// An open model with its tables on a connection.
class SqlModel {
 public:
  /// `writable`: statements change the model, each as a step that the file keeps.
  static Result<std::unique_ptr<SqlModel>> Open(const std::string& path, bool writable);
  ~SqlModel();
  SqlModel(const SqlModel&) = delete;
  SqlModel& operator=(const SqlModel&) = delete;

  sqlite3* Connection() const { return db_; }
  const std::string& Path() const { return model_.path; }

  /// Runs statements one after the other until one fails. What they give goes to `out`, row by row
  /// but for text, whose columns are as wide as their widest value.
  Outcome Run(const std::string& statements, RowForm form, const RowSink& out);
  /// At the end of all statements: fails where a BEGIN had no COMMIT, and takes back what it did.
  Outcome CheckEnded();
  /// ".tables LIKE", ".schema NAME", ".help", ".quit" as in other shells of SQLite; false for what
  /// is none.
  Result<bool> RunDotCommand(const std::string& line, const RowSink& out);
  /// The names of the tables, in order.
  std::vector<std::string> TableNames() const;
  /// Those of the columns of a table, hidden ones too.
  std::vector<std::string> ColumnNames(const std::string& table) const;

 private:
  SqlModel(const std::string& path, bool writable) : model_(path), is_writable_(writable) {}
  Outcome RunOne(sqlite3_stmt* statement, RowForm form, const RowSink& out);
  Failure FaultOf(int result) const;

  Model model_;
  bool is_writable_;
  sqlite3* db_ = nullptr;
  Failure refusal_;  // of the statement that was not allowed last
};

/// The statements of a text are printed as the command line prints: what could drive a terminal is
/// taken out.
RowSink ToStandardOutput(RowForm form);

/// Reads statements from a terminal, with completion and history, or from standard input, until it
/// ends. Fails with what stopped the reading; at a terminal a statement that fails is told, and the
/// next one is asked for.
Outcome RunPrompt(SqlModel& model, RowForm form, const Context& context);

}  // namespace qx::app
