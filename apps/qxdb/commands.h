#pragma once
// The commands of qxdb. Each function adds one to the application. What a command does is a
// function of its options: it prints the result, or returns the failure that stopped it.

#include <memory>
#include <string>
#include <utility>

#include "apps/qxdb/command/command.h"
#include "apps/qxdb/command/console.h"
#include "apps/qxdb/model/model.h"

namespace qx::app {

void AddImport(Command& app, Context& context);
void AddExport(Command& app, Context& context);
void AddInfo(Command& app, Context& context);
void AddShow(Command& app, Context& context);
void AddSelect(Command& app, Context& context);
void AddEdit(Command& app, Context& context);
void AddHistory(Command& app, Context& context);
void AddGateway(Command& app, Context& context);
void AddVerify(Command& app, Context& context);
void AddCheck(Command& app, Context& context);
void AddFix(Command& app, Context& context);
void AddTransform(Command& app, Context& context);
/// `split`, `to-linear` and `to-quadratic`.
void AddElementChanges(Command& app, Context& context);
/// `skin` and `extrude`.
void AddFaceShapes(Command& app, Context& context);
void AddMergeNodes(Command& app, Context& context);
void AddRecords(Command& app, Context& context);
void AddSets(Command& app, Context& context);
void AddUnits(Command& app, Context& context);
void AddDiff(Command& app, Context& context);
void AddImportModel(Command& app, Context& context);
void AddPool(Command& app, Context& context);
void AddGeom(Command& app, Context& context);
void AddSeed(Command& app, Context& context);
void AddOrient(Command& app, Context& context);
/// `under`: the words before the command's name, each with a blank behind it.
void AddDelete(Command& app, Context& context, const std::string& under = {});
void AddWhereUsed(Command& app, Context& context);
void AddAxes(Command& app, Context& context);
void AddMaterial(Command& app, Context& context);
void AddProperty(Command& app, Context& context);
void AddProbe(Command& app, Context& context);
void AddView(Command& app, Context& context);
void AddPicture(Command& app, Context& context);
/// `sql` and `dump`.
void AddSql(Command& app, Context& context);
/// `shell` and `run`.
void AddShell(Command& app, Context& context);
void AddManual(Command& app, Context& context);
void AddComplete(Command& app, Context& context);

/// A command with an example in its help. `--json` is taken before or after its name.
Command* AddCommand(Command& app, Context& context, const std::string& name,
                    const std::string& what, const std::string& example);

/// The same with the work that it does on its options, which live as long as the command.
template <class Options, class Work>
std::pair<Command*, Options*> AddCommand(Command& app, Context& context, const std::string& name,
                                         const std::string& what, const std::string& example,
                                         Work work) {
  Command* command = AddCommand(app, context, name, what, example);
  auto options = std::make_shared<Options>();
  command->work = [options, work, &context] { context.Conclude(work(*options, context)); };
  return {command, options.get()};
}

/// The flags --add and --replace of a command that brings a file into a model.
void AddTarget(Command& command, TargetOptions& options);

/// A command whose first argument is a model, which is opened for it.
template <class Options, class Work>
std::pair<Command*, Options*> AddModelCommand(Command& app, Context& context,
                                              const std::string& name, const std::string& what,
                                              const std::string& example, Work work) {
  const auto on_model = [work](const Options& options, Context& the_context) {
    Model model(options.model);
    model.yes = the_context.yes;
    if (Outcome opened = model.Open(); !opened) return opened;
    return work(model, options, the_context);
  };
  auto [command, options] = AddCommand<Options>(app, context, name, what, example, on_model);
  command->Add("model", &options->model, "Model file").OpenModel().Required();
  return {command, options};
}

}  // namespace qx::app
