// Elements of another order, and elements divided.

#include "qx_db/shape/element_change.h"

#include "apps/qxdb/shape/shape_step.h"

namespace qx::app {
namespace {

using Change = Outcome (*)(CQXDBSession&, std::span<const ITR>, ShapeReport&);

void AddChange(Command& app, Context& context, const char* name, const char* what,
               const char* example, const char16_t* step, Change change, bool makes_records) {
  const auto run = [=](Model& model, const ShapeOptions& options, const Context& to) -> Outcome {
    const auto picked = PickShape(model, options.where, SelectKind::kElements);
    if (!picked) return picked.Error();
    const std::vector<ITR> elements(picked->items.begin(), picked->items.end());
    return ShapeStep(model, options, to, step, [&](CQXDBSession& session, ShapeReport& report) {
      return change(session, elements, report);
    });
  };
  const auto [command, options] =
      AddModelCommand<ShapeOptions>(app, context, name, what, example, run);
  AddShapeOptions(*command, *options, "Elements; all without it", makes_records);
}

}  // namespace

void AddElementChanges(Command& app, Context& context) {
  AddChange(app, context, "split",
            "Divide quadrilaterals into triangles, and solids into tetrahedra",
            "qxdb split plate.qxm --where 'quad'", u"Split elements", SplitElements, true);
  AddChange(app, context, "to-linear", "Take the nodes between corners out of elements",
            "qxdb to-linear bracket.qxm", u"Make elements linear", ToLinear, false);
  AddChange(app, context, "to-quadratic", "Give elements a node in the middle of every edge",
            "qxdb to-quadratic plate.qxm", u"Make elements quadratic", ToQuadratic, false);
}

}  // namespace qx::app
