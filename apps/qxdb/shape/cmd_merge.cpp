// Merging nodes by a selection: the repair of qxdb fix --merge-nodes, for a part of a mesh.

#include "qx_db/app/mesh_repair.h"

#include "apps/qxdb/command/option_values.h"
#include "apps/qxdb/shape/shape_step.h"

namespace qx::app {
namespace {

struct MergeOptions : ShapeOptions {
  double tolerance = 0;
};

Outcome Run(Model& model, const MergeOptions& options, const Context& context) {
  const auto picked = PickShape(model, options.where, SelectKind::kNodes);
  if (!picked) return picked.Error();
  const std::vector<ITR> among(picked->items.begin(), picked->items.end());
  return ShapeStep(model, options, context, u"Merge nodes",
                   [&](CQXDBSession& session, ShapeReport& report) -> Outcome {
                     RepairPlan plan;
                     plan.merge_tolerance = session.Units().In(unit::kLength, options.tolerance);
                     plan.merge_among = among;
                     RepairReport repaired;
                     if (!RepairMesh(session, plan, repaired)) return RefusalOf(model.path);
                     report.Note("nodes stay apart: merging would have collapsed an element",
                                 repaired.merges_refused);
                     return {};
                   });
}

}  // namespace

void AddMergeNodes(Command& app, Context& context) {
  const auto [command, options] =
      AddModelCommand<MergeOptions>(app, context, "merge-nodes", "Make nodes that lie together one",
                                    "qxdb merge-nodes bracket.qxm --tolerance 1e-6", Run);
  AddShapeOptions(*command, *options, "Nodes that may merge with each other; all without it",
                  false);
  command
      ->Add("--tolerance", &options->tolerance,
            "Merge nodes that are no farther apart than this, in current length units")
      .Check(NonNegativeReal())
      .Required();
}

}  // namespace qx::app
