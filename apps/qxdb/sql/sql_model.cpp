#include "apps/qxdb/sql/sql_model.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <sqlite3.h>

#include "qx_db/platform/long_work.h"
#include "qx_db/platform/plain_text.h"

#include "sql/model_tables.h"

namespace qx::app {
namespace {

constexpr const char* kHelp =
    ".format text|csv|json  form of the rows from here on\n"
    ".schema NAME           a table, its columns, their meanings and units\n"
    ".tables LIKE           the tables there are, or those like a name: .tables mesh%\n"
    ".quit                  leave; so does the end of the input\n"
    "A statement ends with a semicolon and may take several lines.\n";

bool IsNumber(int type) { return type == SQLITE_INTEGER || type == SQLITE_FLOAT; }

std::string TextOf(sqlite3_stmt* row, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, column));
  return text ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(row, column))) : "";
}

std::string HexOf(sqlite3_stmt* row, int column) {
  const auto* bytes = static_cast<const unsigned char*>(sqlite3_column_blob(row, column));
  std::string hex;
  for (int i = 0; i < sqlite3_column_bytes(row, column); ++i)
    hex += fmt::format("{:02x}", bytes[i]);
  return hex;
}

/// A value with all its digits.
std::string ExactText(sqlite3_stmt* row, int column) {
  switch (sqlite3_column_type(row, column)) {
    case SQLITE_NULL:
      return "";
    case SQLITE_FLOAT:
      return fmt::format("{}", sqlite3_column_double(row, column));
    case SQLITE_BLOB:
      return HexOf(row, column);
    default:
      return TextOf(row, column);
  }
}

/// RFC 4180, with the line ends of this system.
std::string CsvCell(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + '"';
}

std::string CsvRow(sqlite3_stmt* row, bool heading) {
  std::string line;
  for (int i = 0; i < sqlite3_column_count(row); ++i) {
    if (i > 0) line += ',';
    line += CsvCell(heading ? sqlite3_column_name(row, i) : ExactText(row, i));
  }
  return line + '\n';
}

std::string JsonRow(sqlite3_stmt* row) {
  JsonText json;
  json.Begin();
  for (int i = 0; i < sqlite3_column_count(row); ++i) {
    const char* name = sqlite3_column_name(row, i);
    switch (sqlite3_column_type(row, i)) {
      case SQLITE_NULL:
        json.Raw(name, "null");
        break;
      case SQLITE_INTEGER:
        json.Integer(name, sqlite3_column_int64(row, i));
        break;
      case SQLITE_FLOAT: {
        const double number = sqlite3_column_double(row, i);
        std::isfinite(number) ? json.Raw(name, fmt::format("{}", number)) : json.Raw(name, "null");
        break;
      }
      case SQLITE_BLOB:
        json.Text(name, HexOf(row, i));
        break;
      default:
        json.Text(name, ValidUtf8(TextOf(row, i)));
    }
  }
  return json.End().Result();
}

/// The rows of a statement as text. Columns of which every value is a number stand to the right.
class TextRows {
 public:
  void Add(sqlite3_stmt* row) {
    std::vector<std::string> cells;
    numbers_.resize(static_cast<std::size_t>(sqlite3_column_count(row)), true);
    for (int i = 0; i < sqlite3_column_count(row); ++i) {
      const int type = sqlite3_column_type(row, i);
      if (type != SQLITE_NULL && !IsNumber(type)) numbers_[static_cast<std::size_t>(i)] = false;
      cells.push_back(type == SQLITE_FLOAT ? Short(sqlite3_column_double(row, i))
                                           : ExactText(row, i));
    }
    rows_.push_back(std::move(cells));
  }
  std::string Text(sqlite3_stmt* statement) const {
    std::vector<std::string> headings;
    for (int i = 0; i < sqlite3_column_count(statement); ++i) {
      const auto index = static_cast<std::size_t>(i);
      const bool right = !rows_.empty() && numbers_[index];
      headings.push_back((right ? ">" : "") + OneLine(sqlite3_column_name(statement, i)));
    }
    Table table(headings);
    for (const auto& row : rows_) table.Row(row);
    return rows_.empty() ? "no rows\n" : table.Text();
  }

 private:
  std::vector<bool> numbers_;
  std::vector<std::vector<std::string>> rows_;
};

/// Denies what would not do what it says, and tells why in `refusal`, a Failure. The model's tables
/// are temporary ones: none goes, or gets another name. The main database is in memory, and empty:
/// what is made in it, which is an insertion into its schema, would be gone with the command.
int Authorize(void* refusal, int action, const char* first, const char*, const char* database,
              const char*) {
  Failure& told = *static_cast<Failure*>(refusal);
  const auto is = [](const char* name, const char* wanted) {
    return name && EqualNoCase(name, wanted);
  };
  if (action == SQLITE_DROP_VTABLE || (action == SQLITE_ALTER_TABLE && is(first, "temp"))) {
    told = {"", "SQL", "not authorized", "the model's tables stay as they are; change their rows"};
  } else if (action == SQLITE_INSERT && is(database, "main")) {
    told = {"", "SQL", "what is made here would be gone when the command ends",
            "say CREATE TEMP if that will do, else ATTACH a file with --write and create it there"};
  } else if (action == SQLITE_ATTACH && is(first, "")) {
    told = {"", "SQL", "VACUUM, or ATTACH without a file, does nothing to a model",
            "make its file smaller with qxdb compact --keep-history"};
  } else {
    return SQLITE_OK;
  }
  return SQLITE_DENY;
}

}  // namespace

RowForm RowFormOf(const std::string& name) {
  return name == "csv" ? RowForm::kCsv : name == "json" ? RowForm::kJson : RowForm::kText;
}

Result<std::unique_ptr<SqlModel>> SqlModel::Open(const std::string& path, bool writable) {
  std::unique_ptr<SqlModel> made(new SqlModel(path, writable));
  Outcome opened = writable ? made->model_.OpenForEditing() : made->model_.Open();
  if (!opened) return opened.Error();
  if (sqlite3_open(":memory:", &made->db_) != SQLITE_OK) {
    return Failure{path, "", "no connection can be made: " + std::string(sqlite3_errmsg(made->db_)),
                   "free some memory"};
  }
  // Who only reads makes no files either, by ATTACH or VACUUM INTO.
  if (!writable) sqlite3_limit(made->db_, SQLITE_LIMIT_ATTACHED, 0);
  sql::TableOptions options;
  options.writable = writable;
  Outcome added = sql::AddModelTables(made->db_, made->model_.session, options);
  if (!added) return added.Error();
  sqlite3_set_authorizer(made->db_, Authorize, &made->refusal_);
  return made;
}

SqlModel::~SqlModel() { sqlite3_close_v2(db_); }

Failure SqlModel::FaultOf(int result) const {
  std::string text = sqlite3_errmsg(db_);
  if (result == SQLITE_INTERRUPT) return {model_.path, "SQL", "was stopped", "run it again"};
  if (text == "no query solution") {
    return {"", "SQL", "where_used is not told of which record", "as in where_used('node', 5)"};
  }
  if (result == SQLITE_AUTH) return refusal_;
  std::string remedy = text.starts_with("no such")
                           ? "see .tables and .schema for the names there are"
                           : "correct the statement";
  if (const std::size_t at = text.rfind("; "); at != std::string::npos) {
    remedy = text.substr(at + 2);
    text.resize(at);
  }
  if (!is_writable_ && text.find("read only") != std::string::npos) remedy = "use --write";
  const bool is_misuse = (result & 0xFF) == SQLITE_ERROR;
  return {is_misuse ? "" : model_.path, "SQL", text, remedy};
}

Outcome SqlModel::Run(const std::string& statements, RowForm form, const RowSink& out) {
  const Interrupt interrupt;
  const auto check = [](void* of) -> int { return static_cast<Interrupt*>(of)->IsAsked(); };
  sqlite3_progress_handler(db_, 10000, check, const_cast<Interrupt*>(&interrupt));
  const WorkWatch watch([&](double) {
    if (interrupt.IsAsked()) throw Stopped{};
  });
  Outcome done;
  const char* rest = statements.c_str();
  while (done && *rest) {
    sqlite3_stmt* statement = nullptr;
    const int prepared = sqlite3_prepare_v2(db_, rest, -1, &statement, &rest);
    if (prepared != SQLITE_OK) {
      done = FaultOf(prepared);
    } else if (statement) {
      done = RunOne(statement, form, out);
    }
    sqlite3_finalize(statement);
  }
  sqlite3_progress_handler(db_, 0, nullptr, nullptr);
  return done;
}

Outcome SqlModel::RunOne(sqlite3_stmt* statement, RowForm form, const RowSink& out) {
  const bool gives_rows = sqlite3_column_count(statement) > 0;
  const sqlite3_int64 before = sqlite3_total_changes64(db_);
  TextRows text;
  Outcome told;
  bool first = true;
  int result = SQLITE_ROW;
  const auto begin = [&]() -> Outcome {  // not before something is known to come
    if (!gives_rows || !first || form == RowForm::kText) return {};
    return out(form == RowForm::kCsv ? CsvRow(statement, true) : "[");
  };
  while (told && (result = sqlite3_step(statement)) == SQLITE_ROW) {
    if (told = begin(); !told) break;
    switch (form) {
      case RowForm::kText:
        text.Add(statement);
        break;
      case RowForm::kCsv:
        told = out(CsvRow(statement, false));
        break;
      case RowForm::kJson:
        told = out((first ? "\n" : ",\n") + JsonRow(statement));
        break;
    }
    first = false;
  }
  if (!told) return told;
  if (result != SQLITE_DONE) return FaultOf(result);
  if (told = begin(); !told) return told;
  if (gives_rows) {
    if (form == RowForm::kText) return out(text.Text(statement));
    return form == RowForm::kJson ? out(first ? "]\n" : "\n]\n") : Outcome();
  }
  const sqlite3_int64 changed = sqlite3_total_changes64(db_) - before;
  if (sqlite3_stmt_readonly(statement) || form == RowForm::kCsv) return {};
  return out(form == RowForm::kJson
                 ? fmt::format("{{\"changed\": {}}}\n", changed)
                 : fmt::format("{} row{} changed\n", changed, changed == 1 ? "" : "s"));
}

Outcome SqlModel::CheckEnded() {
  if (!is_writable_ || sqlite3_get_autocommit(db_)) return {};
  sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  return Failure{model_.path, "SQL", "the transaction is not ended, nothing of it was stored",
                 "add COMMIT"};
}

Result<bool> SqlModel::RunDotCommand(const std::string& line, const RowSink& out) {
  if (!line.starts_with('.')) return false;
  const std::size_t blank = line.find(' ');
  std::string name = line.substr(0, blank);
  while (name.ends_with(';')) name.pop_back();
  std::string argument = blank == std::string::npos ? "" : line.substr(blank + 1);
  while (argument.ends_with(' ') || argument.ends_with(';')) argument.pop_back();
  while (argument.starts_with(' ')) argument.erase(0, 1);
  if (name == ".tables") {
    std::string text;
    for (const std::string& table : TableNames()) {
      const bool is_asked =
          argument.empty() || !sqlite3_strlike(argument.c_str(), table.c_str(), 0);
      if (is_asked) text += table + '\n';
    }
    if (text.empty()) {
      return Failure{"", ".tables", "there is no table like \"" + argument + "\"", "see .tables"};
    }
    if (Outcome told = out(text); !told) return told.Error();
    return true;
  }
  if (name == ".schema") {
    std::string text;
    bool found = argument.empty();
    for (const std::string& table : TableNames()) {
      if (!argument.empty() && !EqualNoCase(table, argument)) continue;
      sqlite3_stmt* statement = nullptr;
      sqlite3_prepare_v2(db_, "SELECT sql FROM temp.sqlite_schema WHERE name = ?1", -1, &statement,
                         nullptr);
      sqlite3_bind_text(statement, 1, table.c_str(), -1, SQLITE_TRANSIENT);
      if (sqlite3_step(statement) == SQLITE_ROW) text += TextOf(statement, 0) + ";\n";
      sqlite3_finalize(statement);
      found = true;
    }
    if (!found) {
      return Failure{"", ".schema", "there is no table \"" + argument + "\"", "see .tables"};
    }
    if (Outcome told = out(text); !told) return told.Error();
    return true;
  }
  if (name == ".quit" || name == ".exit") return true;
  if (name == ".help") {
    if (Outcome told = out(kHelp); !told) return told.Error();
    return true;
  }
  if (name == ".format") return Failure{"", name, "is for the prompt", "use --format"};
  return Failure{"", name, "is no command of the prompt", "try .tables, .schema NAME or .help"};
}

std::vector<std::string> SqlModel::TableNames() const {
  std::vector<std::string> names;
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db_, "SELECT name FROM temp.sqlite_schema WHERE type = 'table' ORDER BY name",
                     -1, &statement, nullptr);
  while (sqlite3_step(statement) == SQLITE_ROW) names.push_back(TextOf(statement, 0));
  sqlite3_finalize(statement);
  return names;
}

std::vector<std::string> SqlModel::ColumnNames(const std::string& table) const {
  std::vector<std::string> names;
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db_, "SELECT name FROM pragma_table_xinfo(?1)", -1, &statement, nullptr);
  sqlite3_bind_text(statement, 1, table.c_str(), -1, SQLITE_TRANSIENT);
  while (sqlite3_step(statement) == SQLITE_ROW) names.push_back(TextOf(statement, 0));
  sqlite3_finalize(statement);
  return names;
}

RowSink ToStandardOutput(RowForm form) {
  return [form](const std::string& text) -> Outcome {
    const std::string plain = form == RowForm::kJson ? PlainJson(text) : PlainLines(text);
    if (std::fwrite(plain.data(), 1, plain.size(), stdout) == plain.size()) return {};
    return Failure{"standard output", "", "cannot be written", "look at where it leads"};
  };
}

}  // namespace qx::app
