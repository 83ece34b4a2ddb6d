#pragma once
// What the commands that shape a mesh have in common: what they work on, one step, what is said.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "qx_db/select/selection.h"
#include "qx_db/shape/shape_report.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/model.h"

namespace qx::app {

struct ShapeOptions {
  std::string model;
  std::string where;
  std::string key_map;
  bool force = false;
  bool dry_run = false;
};

/// --where, --dry-run, and for what makes records out of others --key-map.
void AddShapeOptions(Command& command, ShapeOptions& options, const std::string& what,
                     bool makes_records);

/// What --where selects; everything of the kind without it. Fails when that is nothing.
Result<Selection> PickShape(const Model& model, const std::string& where,
                            std::optional<SelectKind> wanted);

/// Does `work` as one undoable step, saves and says what came of it.
Outcome ShapeStep(Model& model, const ShapeOptions& options, const Context& context,
                  const std::u16string& name,
                  const std::function<Outcome(CQXDBSession&, ShapeReport&)>& work);

}  // namespace qx::app
