#pragma once
// What info tells beyond the mesh and its sets.

#include <string>

#include "apps/qxdb/command/console.h"
#include "apps/qxdb/model/model.h"

namespace qx::app {

/// What a model, or a look at its file alone, knows of what is not in the records.
struct InfoSource {
  const CQXDBSession& session;
  std::int64_t undoable = 0;
  std::int64_t redoable = 0;
  /// Where the session has only the pools that IsNeededForInfo tells, with keys for references: how
  /// many records the file has of each pool. Null where it has everything.
  const ModelFileReport* glance = nullptr;
};

/// Whether the records of a pool are looked at, and not just counted.
bool IsNeededForInfo(const DPoolBase& pool);

/// Adds a line for each pool that holds records, nodes, elements and sets aside, with the names of
/// the first; the tags of sets; the history. The JSON has all names.
void InfoRest(const InfoSource& source, std::string& text, JsonText& json);

}  // namespace qx::app
