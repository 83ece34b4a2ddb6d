#pragma once
// What info tells beyond the mesh and its sets.

#include <string>

#include "apps/qxdb/command/console.h"
#include "apps/qxdb/model/model.h"

namespace qx::app {

/// Adds a line for each pool that holds records, nodes, elements and sets aside, with the names of
/// the first; the tags of sets; the history. The JSON has all names.
void InfoRest(const Model& model, std::string& text, JsonText& json);

}  // namespace qx::app
