// The prompt of `qxdb sql`: lines from a terminal, edited, completed and remembered; or from a
// pipe.

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <iostream>
#include <sqlite3.h>

#include "qx_db/platform/plain_text.h"

#include "apps/qxdb/command/line_editor.h"
#include "apps/qxdb/sql/sql_model.h"

namespace qx::app {
namespace {

bool IsOfName(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.';
}

/// What a word may become: commands of the prompt at the start of a line, else words of SQL,
/// tables, and the columns of tables that the line names.
LineEditor::Completions CompletionsOf(const SqlModel& model, const std::string& line,
                                      std::size_t at) {
  const std::string word = line.substr(at);
  std::vector<std::string> all;
  const std::vector<std::string> tables = model.TableNames();
  if (line == word) all = {".format", ".help", ".quit", ".schema", ".tables"};
  all.insert(all.end(),
             {"SELECT", "FROM",  "WHERE",  "GROUP", "ORDER",  "BY",       "LIMIT",  "JOIN",
              "ON",     "USING", "AND",    "OR",    "NOT",    "NULL",     "IN",     "BETWEEN",
              "count",  "sum",   "avg",    "min",   "max",    "UPDATE",   "SET",    "DELETE",
              "INSERT", "INTO",  "VALUES", "BEGIN", "COMMIT", "ROLLBACK", "EXPLAIN"});
  all.insert(all.end(), tables.begin(), tables.end());
  for (std::size_t from = 0; from < line.size();) {
    std::size_t end = from;
    while (end < line.size() && IsOfName(line[end])) ++end;
    const std::string name = line.substr(from, end - from);
    if (std::find(tables.begin(), tables.end(), name) != tables.end()) {
      const std::vector<std::string> columns = model.ColumnNames(name);
      all.insert(all.end(), columns.begin(), columns.end());
    }
    from = end + 1;
  }
  std::vector<std::string> fits;
  for (const std::string& candidate : all) {
    if (EqualNoCase(candidate.substr(0, word.size()), word)) fits.push_back(candidate);
  }
  std::sort(fits.begin(), fits.end());
  fits.erase(std::unique(fits.begin(), fits.end()), fits.end());
  return {fits, ' '};
}

/// A statement, or a command of the prompt, as it comes line by line.
class Session {
 public:
  Session(SqlModel& model, RowForm form) : model_(model), form_(form) {}

  bool IsOver() const { return is_over_; }
  bool IsWithinStatement() const { return !waiting_.empty(); }
  RowForm Form() const { return form_; }

  Outcome Take(const std::string& line) {
    if (waiting_.empty() && line.starts_with('.')) return TakeCommand(line);
    if (waiting_.empty() && line.find_first_not_of(" \t\r") == std::string::npos) return {};
    waiting_ += line + '\n';
    return sqlite3_complete(waiting_.c_str()) ? End() : Outcome();
  }
  void Drop() { waiting_.clear(); }
  /// Runs what waits, complete or not.
  Outcome End() {
    std::string text;
    text.swap(waiting_);
    return model_.Run(text, form_, ToStandardOutput(form_));
  }

 private:
  Outcome TakeCommand(const std::string& line) {
    const std::string name = line.substr(0, line.find_last_not_of(" \t\r;") + 1);
    if (name == ".quit" || name == ".exit") {
      is_over_ = true;
      return {};
    }
    if (name.starts_with(".format ")) {
      const std::string form = name.substr(8);
      if (std::find(kRowForms.begin(), kRowForms.end(), form) == kRowForms.end()) {
        return Failure{"", ".format", '"' + form + "\" is no form", "text, csv or json"};
      }
      form_ = RowFormOf(form);
      return {};
    }
    return model_.RunDotCommand(name, ToStandardOutput(RowForm::kText)).AsOutcome();
  }

  SqlModel& model_;
  RowForm form_;
  std::string waiting_;
  bool is_over_ = false;
};

}  // namespace

Outcome RunPrompt(SqlModel& model, RowForm form, const Context& context) {
  Session session(model, form);
  if (!LineEditor::IsTerminal()) {
    for (std::string line; !session.IsOver() && std::getline(std::cin, line);) {
      if (Outcome taken = session.Take(line); !taken) return taken;
    }
    const Outcome ended = session.End();
    return ended ? model.CheckEnded() : ended;
  }
  Interrupt interrupt;
  LineEditor editor(
      [&](const std::string& line, std::size_t at) { return CompletionsOf(model, line, at); },
      " \t\n\"\\'`@$><=;|&{(");
  fmt::print("{}; .help tells more, .quit leaves\n", OneLine(model.Path()));
  while (!session.IsOver()) {
    interrupt.Renew();
    const auto line = editor.Read(session.IsWithinStatement() ? "  ...> " : "qxdb> ");
    if (!line) break;
    if (line->is_dropped) {
      session.Drop();
      continue;
    }
    if (Outcome taken = session.Take(line->text); !taken) context.Tell(taken.Error());
    std::fflush(stdout);
  }
  fmt::print("\n");
  return model.CheckEnded();
}

}  // namespace qx::app
