// qxdb shell, qxdb run: commands on one open model.

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <iostream>
#include <memory>

#include "qx_db/core/model_lock.h"
#include "qx_db/platform/file.h"
#include "qx_db/platform/new_file.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/shell/shell.h"

namespace qx::app {
namespace {

namespace fs = std::filesystem;

struct ShellOptions {
  std::string model;
};

struct RunOptions {
  std::string script;
  std::string model;
  bool atomic = false;
  bool echo = false;
};

Outcome RunShell(Command& program, const std::string& model, Context& context) {
  if (!model.empty()) {
    std::error_code error;
    const bool is_there = fs::exists(PathFromUtf8(model), error);
    if (Outcome is_file = is_there ? CheckIsFile(model) : Outcome(); !is_file) return is_file;
  }
  Shell& shell = Shell::Of(program, context);
  shell.Use(model);
  if (LineEditor::IsTerminal()) {
    shell.RunPrompt();
  } else {
    shell.RunScript(std::cin, "standard input", false);
  }
  shell.Use("");
  return {};
}

/// Runs a script on a copy of the model, which takes the model's place once all of it is done.
Outcome RunAtomically(Shell& shell, std::istream& lines, const RunOptions& options,
                      Context& context) {
  // Nobody else writes meanwhile: neither the model nor over what is made of it.
  const auto lock = ModelLock::Take(options.model);
  if (!lock) return lock.AsOutcome();
  auto made = NewFile::Create(options.model);
  if (!made) return made.AsOutcome();
  const fs::path copy = PathFromUtf8((*made)->Name());
  const fs::path model = PathFromUtf8(options.model);
  std::error_code error;
  fs::remove(copy, error);
  const bool was_there = fs::exists(model, error);
  if (was_there && !fs::copy_file(model, copy, error)) {
    return Failure{options.model, "", "cannot be copied: " + error.message(),
                   "make room for a second one"};
  }
  shell.Use(options.model, (*made)->Name());
  shell.Bind(true);
  const int code = shell.RunScript(lines, options.script, options.echo);
  shell.Bind(false);
  shell.Use("");
  const bool is_there = fs::exists(copy, error);
  if (code != kDone) {
    if (!context.json)
      fmt::print(stderr, "note: {} is as it was before the script\n", options.model);
    return {};
  }
  if (!is_there) return {};  // the script made no model
  return (*made)->TakePlace();
}

Outcome RunFile(Command& program, RunOptions options, Context& context) {
  constexpr int kMostWithin = 32;
  static int within = 0;
  struct Level {
    Level() { ++within; }
    ~Level() { --within; }
  } const level;
  if (within > kMostWithin) {
    return Failure{options.script, "", "runs itself, or scripts run each other too deep",
                   "take the run out of it"};
  }
  std::ifstream file;
  const bool is_piped = options.script == "-";
  if (is_piped) {
    options.script = "standard input";
  } else {
    if (Outcome is_file = CheckIsFile(options.script); !is_file) return is_file;
    file.open(PathFromUtf8(options.script), std::ios::binary);
    if (!file) return Failure{options.script, "", "cannot be read", "check its permissions"};
  }
  std::istream& lines = is_piped ? std::cin : file;
  const bool is_within = context.is_shell;
  if (options.atomic && (options.model.empty() || is_within)) {
    return Failure{"", "--atomic",
                   is_within ? "cannot begin within a shell or another script"
                             : "needs the model to be given that all of it works on",
                   "qxdb run SCRIPT MODEL --atomic"};
  }
  Shell& shell = Shell::Of(program, context);
  if (is_within) {  // on the model that is open
    shell.RunScript(lines, options.script, options.echo);
    return {};
  }
  if (options.atomic) return RunAtomically(shell, lines, options, context);
  shell.Use(options.model);
  shell.RunScript(lines, options.script, options.echo);
  shell.Use("");
  return {};
}

}  // namespace

void AddShell(Command& app, Context& context) {
  const auto [shell, shell_options] = AddCommand<ShellOptions>(
      app, context, "shell", "Work on one open model, command by command", "qxdb shell bracket.qxm",
      [&app](const ShellOptions& options, Context& to) {
        to.yes_to_all = to.yes;
        return RunShell(app, options.model, to);
      });
  shell->Add("model", &shell_options->model, "Model file, which commands then need not name")
      .Model();

  const auto [run, options] = AddCommand<RunOptions>(
      app, context, "run", "Run the commands of a script until one fails",
      "qxdb run build.qx bracket.qxm --atomic", [&app](const RunOptions& asked, Context& to) {
        to.yes_to_all = to.yes_to_all || to.yes;
        return RunFile(app, asked, to);
      });
  run->Add("script", &options->script, "Commands as in qxdb shell, one a line; - reads a pipe")
      .File({".qx"})
      .Required();
  run->Add("model", &options->model, "Model file, which the commands then need not name")
      .OpenModel();
  run->Add("--atomic", &options->atomic, "Keep all or nothing: the model is written at the end");
  run->Add("--echo", &options->echo, "Print each command before it runs");
}

}  // namespace qx::app
