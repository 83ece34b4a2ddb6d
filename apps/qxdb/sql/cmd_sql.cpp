// Asking a model in SQL, and writing what it answers for data tools.

#include <fmt/format.h>
#include <fstream>

#include "qx_db/platform/file.h"

#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"

#ifdef QX_HAS_SQL
#include "apps/qxdb/sql/sql_model.h"
#endif

namespace qx::app {
namespace {

struct SqlOptions {
  std::string model;
  std::string statements;
  std::string format = "text";
  bool write = false;
};

struct DumpOptions {
  std::string model;
  std::vector<std::string> tables;
  std::string query;
  std::string into;
  std::string output;
  std::string unit;
  bool force = false;
};

#ifdef QX_HAS_SQL

Outcome Sql(const SqlOptions& options, const Context& context) {
  const RowForm form = context.json ? RowForm::kJson : RowFormOf(options.format);
  auto model = SqlModel::Open(options.model, options.write);
  if (!model) return model.Error();
  if (options.statements.empty()) return RunPrompt(**model, form, context);
  const RowSink out = ToStandardOutput(form);
  const Result<bool> was_command = (*model)->RunDotCommand(options.statements, out);
  if (!was_command) return was_command.Error();
  if (*was_command) return {};
  const Outcome run = (*model)->Run(options.statements, form, out);
  return run ? (*model)->CheckEnded() : run;
}

/// Writes what a query gives to a file, which a failure leaves as it was.
Outcome DumpTo(SqlModel& model, const std::string& query, const std::string& path, bool force) {
  const auto is_ours = [](const std::string&) { return false; };  // CSV carries no mark
  if (Outcome free = CheckOutput(path, is_ours, force, {model.Path()}); !free) return free;
  std::string text;
  Outcome run = model.Run(query, RowForm::kCsv, [&](const std::string& part) -> Outcome {
    text += part;
    return {};
  });
  return run ? WriteWholeFile(path, text) : run;
}

Outcome Dump(const DumpOptions& options, const Context& context) {
  if (options.tables.empty() == options.query.empty()) {
    return Failure{"", "dump", "needs tables or a query, not both",
                   "qxdb dump bracket.qxm node element --into folder"};
  }
  auto opened = SqlModel::Open(options.model, false);
  if (!opened) return opened.Error();
  SqlModel& model = **opened;
  const std::string output = options.output == "-" ? "" : options.output;
  std::vector<std::pair<std::string, std::string>> wanted;  // query and file
  if (!options.query.empty()) wanted.emplace_back(options.query, output);
  const std::vector<std::string> names = model.TableNames();
  for (const std::string& table : options.tables) {
    if (std::find(names.begin(), names.end(), table) == names.end()) {
      return Failure{options.model, "table " + table, "is none of the model's",
                     "see them with: qxdb sql " + options.model + " .tables"};
    }
    std::string query = "SELECT * FROM \"" + table + '"';
    const auto columns = model.ColumnNames(table);
    if (!options.unit.empty() && std::count(columns.begin(), columns.end(), "unit")) {
      query += " WHERE unit = '" + options.unit + '\'';  // of letters only, see below
    }
    wanted.emplace_back(query, options.into.empty() ? output : options.into + '/' + table + ".csv");
  }
  if (options.into.empty() && wanted.size() > 1 && !output.empty()) {
    return Failure{"", "--output", "is one file for several tables", "name a folder with --into"};
  }
  JsonText json;
  json.Begin().Text("model", options.model).BeginArray("files");
  std::string text;
  for (const auto& [query, path] : wanted) {
    if (path.empty()) {
      if (Outcome run = model.Run(query, RowForm::kCsv, ToStandardOutput(RowForm::kCsv)); !run) {
        return run;
      }
      continue;
    }
    if (Outcome dumped = DumpTo(model, query, path, options.force); !dumped) return dumped;
    text += path + '\n';
    json.Text({}, path);
  }
  if (!text.empty()) context.Print(text, json.End().End());
  return {};
}

#else

Failure NotBuilt(const std::string& model, const char* command) {
  return {model, command, "is not part of this build", "configure with -DQX_SQL=ON"};
}
Outcome Sql(const SqlOptions& options, const Context&) { return NotBuilt(options.model, "sql"); }
Outcome Dump(const DumpOptions& options, const Context&) { return NotBuilt(options.model, "dump"); }

#endif

}  // namespace

void AddSql(Command& app, Context& context) {
  const auto [sql, options] = AddCommand<SqlOptions>(
      app, context, "sql", "Ask a model in SQL; without a statement at a prompt",
      "qxdb sql bracket.qxm \"SELECT key, x, y, z FROM node WHERE z > 0.01\"", Sql);
  sql->Add("model", &options->model, "Model file").OpenModel().Required();
  sql->Add("statements", &options->statements,
           "What to run, apart by semicolons; .tables and .schema NAME show what there is");
  sql->Add("--format", &options->format, "Form of the rows")
      .OneOf({"text", "csv", "json"})
      .ShowDefault();
  sql->Add("--write", &options->write,
           "Let statements change the model: each is a step, undone by qxdb undo");

  const auto [dump, dump_options] =
      AddCommand<DumpOptions>(app, context, "dump", "Write tables or a query as CSV",
                              "qxdb dump bracket.qxm node element --into tables", Dump);
  dump->Add("model", &dump_options->model, "Model file").OpenModel().Required();
  dump->Add("tables", &dump_options->tables, "Tables, as in qxdb sql MODEL .tables");
  Option& query = dump->Add("--query", &dump_options->query, "A SELECT instead of whole tables");
  Option& into = dump->Add("--into", &dump_options->into, "Folder for a file a table").File();
  dump->Add("--output", &dump_options->output, "One file; standard output without it, or with -")
      .File({".csv"})
      .Excludes(into);
  dump->Add("--unit", &dump_options->unit, "Units of the numbers: mm or \"mm ton\"")
      .Check({[](const std::string& unit) {
                const bool plain = unit.find_first_of("'\"\\;") == std::string::npos;
                return std::string(plain ? "" : "is no list of units");
              },
              "names of units"})
      .Excludes(query);  // which has its own: WHERE unit = 'mm'
  AddForce(*dump, dump_options->force);
}

}  // namespace qx::app
