// Mending a mesh: all repairs that are asked for as one undoable step.

#include <fmt/format.h>
#include <optional>

#include "qx_db/app/mesh_repair.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/command/option_values.h"
#include "apps/qxdb/commands.h"

namespace qx::app {
namespace {

struct FixOptions {
  std::string model;
  bool solids = false, shells = false, duplicate_elements = false, unreferenced_nodes = false;
  std::optional<double> merge_tolerance;
  bool dry_run = false;

  bool AsksForNothing() const {
    return !solids && !shells && !duplicate_elements && !unreferenced_nodes && !merge_tolerance;
  }
};

RepairPlan PlanOf(const FixOptions& options, const CQXUnitCtrl& units) {
  RepairPlan plan;
  plan.inverted_solids = options.solids;
  plan.misoriented_shells = options.shells;
  plan.duplicate_elements = options.duplicate_elements;
  plan.unreferenced_nodes = options.unreferenced_nodes;
  if (options.merge_tolerance) {
    plan.merge_tolerance = units.In(unit::kLength, *options.merge_tolerance);
  }
  // Without a choice, what changes no shape and leaves nothing behind that was not there.
  if (options.AsksForNothing()) {
    plan.inverted_solids = plan.misoriented_shells = plan.duplicate_elements = true;
  }
  return plan;
}

struct Line {
  const char* name;
  const char* label;
  std::int64_t count;
};

/// What duplicates had and the elements that stay could not take, one line each as far as they can
/// be read.
void DescribeLosses(const CQXDBSession& session, const RepairReport& report, std::string& text,
                    JsonText& json) {
  constexpr std::size_t kMostLines = 20;
  json.BeginArray("left_behind");
  for (std::size_t i = 0; i < report.left_behind.size(); ++i) {
    const LeftBehind& loss = report.left_behind[i];
    const std::string pool = PoolLabel(*session.GetDataPool(loss.type));
    if (i < kMostLines) {
      text += fmt::format("             {} of {}: {} has its own, or lists its nodes otherwise\n",
                          pool, loss.duplicate, loss.stays);
    }
    json.Begin().Integer("element", loss.duplicate).Integer("stays", loss.stays);
    json.Text("pool", pool).End();
  }
  json.End();
  if (report.left_behind.size() > kMostLines) {
    text += fmt::format("             and {} more\n",
                        Grouped(static_cast<std::int64_t>(report.left_behind.size() - kMostLines)));
  }
}

void Describe(const CQXDBSession& session, const RepairReport& report, std::string& text,
              JsonText& json) {
  const Line lines[] = {
      {"nodes_merged", "nodes merged", report.nodes_merged},
      {"merges_refused", "nodes left apart: merging would have collapsed an element",
       report.merges_refused},
      {"elements_removed", "duplicate elements removed", report.elements_removed},
      {"attributes_dropped", "attributes of duplicates dropped",
       static_cast<std::int64_t>(report.left_behind.size())},
      {"solids_turned", "inverted solids turned over", report.solids_turned},
      {"shells_turned", "shells turned to agree with their neighbours", report.shells_turned},
      {"one_sided_patches", "patches of shells left as they are: one-sided, no choice fits",
       report.one_sided_patches},
      {"nodes_removed", "nodes without elements removed", report.nodes_removed},
      {"nodes_kept", "nodes without elements kept: another record points at them",
       report.nodes_kept},
  };
  json.Begin("repairs");
  for (const Line& line : lines) {
    if (line.count) text += fmt::format("{:>11}  {}\n", Grouped(line.count), line.label);
    json.Integer(line.name, line.count);
  }
  json.End();
  DescribeLosses(session, report, text, json);
}

Outcome Fix(Model& model, const FixOptions& options, const Context& context) {
  Edit edit(model);
  RepairReport report;
  Outcome done = edit.Do(u"Repair mesh", [&]() -> Outcome {
    if (RepairMesh(model.session, PlanOf(options, model.session.Units()), report)) return {};
    return RefusalOf(model.path);
  });
  if (done) done = edit.Save(options.dry_run);
  if (!done) return done;
  std::string text;
  JsonText json;
  json.Begin().Text("model", model.path);
  edit.WriteStates(json);
  Describe(model.session, report, text, json);
  edit.Changes().Write(json);
  text += report.ChangedAnything() ? edit.Changes().Text() + edit.StateLine()
                                   : std::string("nothing to repair\n");
  context.Print(text, json.End());
  return {};
}

}  // namespace

void AddFix(Command& app, Context& context) {
  const auto [command, options] =
      AddModelCommand<FixOptions>(app, context, "fix", "Repair a mesh",
                                  "qxdb fix bracket.qxm --solids --merge-nodes 1e-6", Fix);
  command->what =
      "Repair a mesh, as one step. Without a choice: --solids --shells --duplicate-elements";
  command->Add("--solids", &options->solids, "Turn inverted solids over");
  command->Add("--shells", &options->shells, "Make shells agree with their neighbours");
  command->Add("--duplicate-elements", &options->duplicate_elements,
               "Remove lines, surfaces and solids that have the nodes of an earlier one");
  command->Add("--unreferenced-nodes", &options->unreferenced_nodes,
               "Remove nodes that nothing uses");
  command
      ->Add("--merge-nodes", &options->merge_tolerance,
            "Merge nodes that are no farther apart than this, in current length units")
      .Check(NonNegativeReal());
  command->Add("--dry-run", &options->dry_run, "Say what would change, save nothing");
}

}  // namespace qx::app
