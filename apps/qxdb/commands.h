#pragma once
// The commands of qxdb. Each function adds one to the application. What a command does is a
// function of its options: it prints the result, or returns the failure that stopped it.

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <utility>

#include "apps/qxdb/console.h"
#include "apps/qxdb/model.h"

namespace qx::app {

void AddImport(CLI::App& app, Context& context);
void AddExport(CLI::App& app, Context& context);
void AddInfo(CLI::App& app, Context& context);
void AddShow(CLI::App& app, Context& context);
void AddEdit(CLI::App& app, Context& context);
void AddHistory(CLI::App& app, Context& context);
void AddGateway(CLI::App& app, Context& context);
void AddVerify(CLI::App& app, Context& context);
void AddCheck(CLI::App& app, Context& context);
void AddFix(CLI::App& app, Context& context);
void AddRecords(CLI::App& app, Context& context);
void AddSets(CLI::App& app, Context& context);
void AddUnits(CLI::App& app, Context& context);
void AddDiff(CLI::App& app, Context& context);
void AddImportModel(CLI::App& app, Context& context);
void AddPool(CLI::App& app, Context& context);
void AddGeom(CLI::App& app, Context& context);
void AddSeed(CLI::App& app, Context& context);
void AddOrient(CLI::App& app, Context& context);
void AddDelete(CLI::App& app, Context& context);
void AddWhereUsed(CLI::App& app, Context& context);
void AddAxes(CLI::App& app, Context& context);
void AddMaterial(CLI::App& app, Context& context);
void AddProperty(CLI::App& app, Context& context);
void AddProbe(CLI::App& app, Context& context);

/// A command with an example in its help. `--json` is taken before or after its name.
CLI::App* AddCommand(CLI::App& app, Context& context, const std::string& name,
                     const std::string& what, const std::string& example);

/// The same with the work that it does on its options, which live as long as the command.
template <class Options, class Work>
std::pair<CLI::App*, Options*> AddCommand(CLI::App& app, Context& context, const std::string& name,
                                          const std::string& what, const std::string& example,
                                          Work work) {
  CLI::App* command = AddCommand(app, context, name, what, example);
  auto options = std::make_shared<Options>();
  command->callback([options, work, &context] { context.Conclude(work(*options, context)); });
  return {command, options.get()};
}

/// The flags --add and --replace of a command that brings a file into a model.
void AddTarget(CLI::App& command, TargetOptions& options);

/// A command whose first argument is a model, which is opened for it.
template <class Options, class Work>
std::pair<CLI::App*, Options*> AddModelCommand(CLI::App& app, Context& context,
                                               const std::string& name, const std::string& what,
                                               const std::string& example, Work work) {
  const auto on_model = [work](const Options& options, Context& the_context) {
    Model model(options.model);
    if (Outcome opened = model.Open(); !opened) return opened;
    return work(model, options, the_context);
  };
  auto [command, options] = AddCommand<Options>(app, context, name, what, example, on_model);
  command->add_option("model", options->model, "Model file")->required();
  return {command, options};
}

}  // namespace qx::app
