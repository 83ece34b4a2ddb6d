#pragma once
// The commands of qxdb. Each function adds one to the application; its callback does the work,
// prints the result and sets the context's exit code. Sessions and documents are set up with
// host::SetUpModel, so that every command works on the same kind of model.

#include <CLI/CLI.hpp>

#include "apps/qxdb/console.h"
#include "host/session.h"

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

}  // namespace qx::app
