// qxdb: the command line of QX_db, and its reference host application.

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
  app.footer("Exit codes: 0 done, 1 refused, 2 misuse.\nExample:\n  qxdb import wing.msh wing.qxm");
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
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  } catch (const std::bad_alloc&) {
    fmt::print(stderr, "qxdb: not enough memory; close other programs or split the model\n");
    return 1;
  }
  return context.exit_code;
}
