// qxdb complete, qxdb manual: what a shell and man(1) are told of the commands, by the commands
// themselves.

#include <filesystem>
#include <fmt/format.h>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"

#include "apps/qxdb/command/completion.h"
#include "apps/qxdb/command/manual.h"
#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/names.h"

namespace qx::app {
namespace {

struct ManualOptions {
  std::vector<std::string> command;
  std::string folder;
  bool force = false;
};

Outcome PrintManual(const Command& program, const ManualOptions& options) {
  const std::vector<ManualPage> pages = ManualPages(program, "qxdb " QX_VERSION);
  if (options.folder.empty()) {
    std::string name = program.name;
    for (const std::string& each : options.command) name += "-" + each;
    for (const ManualPage& page : pages) {
      if (page.name != name) continue;
      fmt::print("{}", page.text);
      return {};
    }
    return Failure{"", name, "is no command", "see: qxdb --help"};
  }
  std::error_code error;
  std::filesystem::create_directories(PathFromUtf8(options.folder), error);
  const auto path_of = [&](const ManualPage& page) {
    return options.folder + "/" + page.name + ".1";
  };
  for (const ManualPage& page : pages) {
    Outcome free = CheckOutput(path_of(page), OutputKind::kManual, options.force, {});
    if (!free) return free;
  }
  for (const ManualPage& page : pages) {
    const std::string path = path_of(page);
    if (Outcome written = WriteWholeFile(path, page.text); !written) return written;
  }
  fmt::print("{} pages in {}\n", pages.size(), options.folder);
  return {};
}

}  // namespace

void AddComplete(Command& app, Context& context) {
  using Words = std::vector<std::string>;
  const auto complete = [&app](const Words& words, const Context&) -> Outcome {
    fmt::print("{}", Complete(app, words, NamesOf).Text());
    return {};
  };
  const auto [command, words] = AddCommand<Words>(
      app, context, "complete", "Tell a shell what may stand at the end of a command line",
      "qxdb complete -- export bracket.qxm out.vtu --encoding r", complete);
  command->Add("words", words, "The words after the program's name, the last begun or empty");
}

void AddManual(Command& app, Context& context) {
  const auto print = [&app](const ManualOptions& options, const Context&) {
    return PrintManual(app, options);
  };
  const auto [command, options] =
      AddCommand<ManualOptions>(app, context, "manual", "Print the manual page of a command",
                                "qxdb manual sets add | man -l -", print);
  Option& names = command->Add("command", &options->command, "Its name; without one, the program's")
                      .CommandName();
  command->Add("--into", &options->folder, "Write all pages into this folder instead")
      .File()
      .Excludes(names);
  AddForce(*command, options->force);
}

}  // namespace qx::app
