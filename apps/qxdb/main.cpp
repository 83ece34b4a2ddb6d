// qxdb: the command line of QX_db, and its reference host application.

#include <cstdlib>
#include <cstring>
#include <fmt/format.h>

#include "apps/qxdb/command/command_line.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/history_bounds.h"
#include "host/application.h"
#include "host/texts.h"

namespace qx::app {

Command* AddCommand(Command& app, Context& context, const std::string& name,
                    const std::string& what, const std::string& example) {
  Command& command = app.AddCommand(name, what, example);
  command.Add("--json", &context.json, "Print the result as JSON");
  command.Add("--threads", &context.threads, "Threads to use; one for each core without it")
      .Range(1, 1024);
  return &command;
}

void AddTarget(Command& command, TargetOptions& options) {
  Option& add = command.Add("--add", &options.add, "Add to the model if it exists");
  command.Add("--replace", &options.replace, "Replace the model if it exists").Excludes(add);
}

namespace {

/// `help COMMAND` for those who type it so.
void AddHelp(Command& app, Context& context) {
  using Names = std::vector<std::string>;
  const auto print = [&app](const Names& names, const Context& to) -> Outcome {
    const Result<std::string> help = HelpOf(app, names, to.is_shell);
    if (help) fmt::print("{}", *help);
    return help.AsOutcome();
  };
  const auto [command, names] =
      AddCommand<Names>(app, context, "help", "Explain a command", "qxdb help sets add", print);
  command->Add("command", names, "Its name; without one, all commands are listed").CommandName();
}

}  // namespace
}  // namespace qx::app

int main(int argc, char** argv) {
  using namespace qx::app;
  const char* translation = std::getenv("QXDB_TEXTS");
  if (const qx::Outcome read = qx::host::RegisterTexts(translation ? translation : ""); !read) {
    fmt::print(stderr, "qxdb: {}\n", read.Line());
  }
  const qx::host::Application application;
  ListenForRefusals();
  Command app("qxdb", "Finite-element model database", "qxdb import wing.msh wing.qxm");
  app.notes = "Exit codes:";
  for (const ExitMeaning& exit : kExitMeanings) {
    app.notes += fmt::format("\n  {} {}", static_cast<int>(exit.code), exit.meaning);
  }
  Context context;
  AddImport(app, context);
  AddExport(app, context);
  AddInfo(app, context);
  AddShow(app, context);
  AddSelect(app, context);
  AddEdit(app, context);
  AddHistory(app, context);
  AddGateway(app, context);
  AddVerify(app, context);
  AddCheck(app, context);
  AddFix(app, context);
  AddTransform(app, context);
  AddElementChanges(app, context);
  AddFaceShapes(app, context);
  AddMergeNodes(app, context);
  AddDiff(app, context);
  AddImportModel(app, context);
  AddPool(app, context);
  AddGeom(app, context);
  AddSeed(app, context);
  AddSets(app, context);
  AddRecords(app, context);
  AddUnits(app, context);
  AddOrient(app, context);
  AddDelete(app, context);
  AddWhereUsed(app, context);
  AddAxes(app, context);
  AddMaterial(app, context);
  AddProperty(app, context);
  AddProbe(app, context);
  AddView(app, context);
  AddPicture(app, context);
  AddSql(app, context);
  AddShell(app, context);
  AddManual(app, context);
  AddComplete(app, context);
  AddHelp(app, context);
  AddYesToAll(app, context);
  for (int i = 1; i < argc; ++i) {
    if (std::strchr(argv[i], '\n')) context.names_of_lines.emplace_back(argv[i]);
  }
  return RunCommandLine(app, context, {argv + 1, argv + argc});
}
