// qxdb: the command line of QX_db, and its reference host application.

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>

#include "apps/qxdb/commands.h"
#include "host/application.h"
#include "host/texts.h"

namespace qx::app {

CLI::App* AddCommand(CLI::App& app, Context& context, const std::string& name,
                     const std::string& what, const std::string& example) {
  CLI::App* command = app.add_subcommand(name, what);
  command->footer("Example:\n  " + example);
  command->add_flag("--json", context.json, "Print the result as JSON");
  return command;
}

void AddTarget(CLI::App& command, TargetOptions& options) {
  auto* add = command.add_flag("--add", options.add, "Add to the model if it exists");
  command.add_flag("--replace", options.replace, "Replace the model if it exists")->excludes(add);
}

namespace {

/// What a parser found wrong, with the command it was given to.
Failure MisuseOf(const CLI::App& app, const CLI::ParseError& error) {
  std::string commands;
  for (const CLI::App* command = &app; !command->get_subcommands().empty();) {
    command = command->get_subcommands().front();
    commands += (commands.empty() ? "" : " ") + command->get_name();
  }
  const std::vector<std::string> rest = app.remaining(true);
  const bool is_unknown = commands.empty() && !rest.empty();
  return {"", commands, is_unknown ? "\"" + rest[0] + "\" is no command" : MidLine(error.what()),
          "see: qxdb " + commands + (commands.empty() ? "--help" : " --help")};
}

/// `help COMMAND` for those who type it so.
void AddHelp(CLI::App& app, Context& context) {
  using Names = std::vector<std::string>;
  const auto print = [&app](const Names& names, const Context&) -> Outcome {
    const CLI::App* command = &app;
    std::string before;
    for (const std::string& name : names) {
      before += (before.empty() ? "" : " ") + command->get_name();
      const auto named =
          command->get_subcommands([&](const CLI::App* sub) { return sub->get_name() == name; });
      if (named.empty()) return Failure{"", name, "is no command", "see: " + before + " --help"};
      command = named.front();
    }
    // Not App::help, which explains the command at work: this one.
    fmt::print("{}", command->get_formatter()->make_help(
                         command, before + (before.empty() ? "" : " ") + command->get_name(),
                         CLI::AppFormatMode::Normal));
    return {};
  };
  const auto [command, names] =
      AddCommand<Names>(app, context, "help", "Explain a command", "qxdb help sets add", print);
  command->add_option("command", *names, "Its name; without one, all commands are listed");
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
  CLI::App app("Finite-element model database", "qxdb");
  app.footer(
      "Exit codes:\n"
      "  0 done\n"
      "  1 refused: a file cannot be read, written or understood, or the model forbids it;\n"
      "    or the answer is no: a limit exceeded, a difference, a problem, no connection\n"
      "  2 misuse: the command line makes no sense\n"
      "Example:\n  qxdb import wing.msh wing.qxm");
  app.set_version_flag("--version", "qxdb " QX_VERSION);
  app.require_subcommand(1);
  Context context;
  AddImport(app, context);
  AddExport(app, context);
  AddInfo(app, context);
  AddShow(app, context);
  AddEdit(app, context);
  AddHistory(app, context);
  AddGateway(app, context);
  AddVerify(app, context);
  AddCheck(app, context);
  AddFix(app, context);
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
  AddHelp(app, context);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // help is no error
    const auto is_json = [](std::string_view argument) { return argument == "--json"; };
    context.json = std::any_of(argv + 1, argv + argc, is_json);
    context.Conclude(MisuseOf(app, error));
  } catch (const std::bad_alloc&) {
    fmt::print(stderr, "qxdb: not enough memory; close other programs or split the model\n");
    return kRefused;
  }
  return context.exit_code;
}
