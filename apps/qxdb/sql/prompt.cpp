// The prompt of `qxdb sql`: lines from a terminal, edited, completed and remembered; or from a
// pipe.

#include <algorithm>
#include <cctype>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <iostream>
#include <optional>
#include <sqlite3.h>

#include "qx_db/platform/plain_text.h"

#include "apps/qxdb/sql/sql_model.h"

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif
#ifdef QX_HAS_LIBEDIT
#include <editline/readline.h>
#endif

namespace qx::app {
namespace {

bool IsTerminal() {
#ifdef _WIN32
  return _isatty(0) != 0;
#else
  return isatty(0) != 0;
#endif
}

bool IsOfName(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.';
}

/// What a word may become: commands of the prompt at the start of a line, else words of SQL,
/// tables, and the columns of tables that the line names.
std::vector<std::string> CompletionsOf(const SqlModel& model, const std::string& line,
                                       const std::string& word) {
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
  return fits;
}

#ifdef QX_HAS_LIBEDIT

const SqlModel* t_model = nullptr;  // whose names complete; libedit asks a function alone

/// The i-th completion in storage of its own, which libedit frees; null behind the last.
char* Completion(const char* word, int i) {
  const std::string line = rl_line_buffer ? rl_line_buffer : "";
  const auto fits = CompletionsOf(*t_model, line, word);
  return static_cast<std::size_t>(i) < fits.size()
             ? strdup(fits[static_cast<std::size_t>(i)].c_str())
             : nullptr;
}

char** Complete(const char* word, int, int) {
  rl_attempted_completion_over = 1;  // names of files are none of ours
  return rl_completion_matches(word, Completion);
}

bool t_is_dropped = false;  // the line, by Ctrl-C

int DropLine(int, int) {
  t_is_dropped = true;
  rl_done = 1;
  return 0;
}

int Suspend(int, int) { return raise(SIGTSTP); }

/// A line; none at the end of the input, or where Ctrl-C dropped it.
std::optional<std::string> ReadLine(const char* prompt) {
  t_is_dropped = false;
  char* line = readline(prompt);
  if (!line) return std::nullopt;
  const std::string text = line;
  if (!text.empty()) add_history(line);
  std::free(line);
  return text;
}

/// Ctrl-C is a key while a line is typed, so no moment of the prompt is without an answer to it.
/// With it all such keys are; Ctrl-Z is given its meaning back. Each line starts from the
/// terminal's own modes, so this is said for each.
int TakeSignalKeys() {
  static char no_signals[] = "setty -d -isig";
  rl_parse_and_bind(no_signals);
  rl_add_defun("qxdb-drop-line", DropLine, 'C' & 0x1F);
  rl_add_defun("qxdb-suspend", Suspend, 'Z' & 0x1F);
  return 0;
}

void PrepareTerminal(const SqlModel& model) {
  std::setlocale(LC_CTYPE, "");  // or letters beyond ASCII cannot be typed
  t_model = &model;
  static char name[] = "qxdb";
  rl_readline_name = name;
  rl_attempted_completion_function = Complete;
  using_history();
  rl_pre_input_hook = TakeSignalKeys;
}

#else

constexpr bool t_is_dropped = false;

std::optional<std::string> ReadLine(const char* prompt) {
  fmt::print("{}", prompt);
  std::string line;
  if (!std::getline(std::cin, line)) return std::nullopt;
  return line;
}
void PrepareTerminal(const SqlModel&) {}

#endif

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
  if (!IsTerminal()) {
    for (std::string line; !session.IsOver() && std::getline(std::cin, line);) {
      if (Outcome taken = session.Take(line); !taken) return taken;
    }
    const Outcome ended = session.End();
    return ended ? model.CheckEnded() : ended;
  }
  Interrupt interrupt;
  PrepareTerminal(model);
  fmt::print("{}; .help tells more, .quit leaves\n", OneLine(model.Path()));
  while (!session.IsOver()) {
    interrupt.Renew();
    const auto line = ReadLine(session.IsWithinStatement() ? "  ...> " : "qxdb> ");
    if (t_is_dropped) {
      session.Drop();
      fmt::print("^C\n");
      std::fflush(stdout);
      continue;
    }
    if (!line) break;
    if (Outcome taken = session.Take(*line); !taken) context.Tell(taken.Error());
    std::fflush(stdout);
  }
  fmt::print("\n");
  return model.CheckEnded();
}

}  // namespace qx::app
